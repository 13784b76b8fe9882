#include "support/logging/parameter_block.h"

#include <unistd.h>

#include <chrono>

#include "support/log.h"
#include "support/logging/process_facts.h"

namespace QxLogging {

CLogParameterBlock& CLogParameterBlock::Instance() {
  static CLogParameterBlock block;
  return block;
}

CLogParameterBlock::CLogParameterBlock() : executableName_(ExecutableBaseName()) {}

CLogParameterBlock::~CLogParameterBlock() { StopWatch(); }

ModuleState* CLogParameterBlock::Attach(CLogModule* module, const std::string& name, const std::string& builtOn) {
  std::lock_guard<std::recursive_timed_mutex> hold(lock_);
  auto state = std::make_unique<ModuleState>();
  state->module = module;
  state->name = name;
  state->builtOn = builtOn;
  modules_.push_back(std::move(state));
  return modules_.back().get();
}

void CLogParameterBlock::Detach(CLogModule* module) {
  bool last = false;
  {
    std::lock_guard<std::recursive_timed_mutex> hold(lock_);
    for (auto it = modules_.begin(); it != modules_.end(); ++it) {
      if ((*it)->module == module) {
        modules_.erase(it);
        break;
      }
    }
    last = modules_.empty();
  }
  if (last) StopWatch();
}

ModuleState* CLogParameterBlock::Find(const CLogModule* module) {
  for (auto& state : modules_) {
    if (state->module == module) return state.get();
  }
  return nullptr;
}

CLogFile* CLogParameterBlock::FileNamedLocked(const std::string& name) {
  // File names compare exactly: Linux file names are case-sensitive.
  for (auto& file : files_) {
    if (file->configured == name) return file.get();
  }
  auto file = std::make_unique<CLogFile>();
  file->configured = name;
  files_.push_back(std::move(file));
  return files_.back().get();
}

void CLogParameterBlock::SetPollIntervalMsLocked(uint32_t ms) {
  if (ms == pollMs_) return;
  {
    std::lock_guard<std::mutex> hold(watchMutex_);
    pollMs_ = ms;
  }
  watchWake_.notify_all();
}

void CLogParameterBlock::MarkAllDueLocked() {
  for (auto& state : modules_) {
    state->refreshDue = true;
    state->module->SetConfiguredMask(~0u);
  }
}

void CLogParameterBlock::RequestRefresh() {
  std::lock_guard<std::recursive_timed_mutex> hold(lock_);
  MarkAllDueLocked();
}

void CLogParameterBlock::EnsureWatchLocked() {
  long pid = static_cast<long>(getpid());
  std::lock_guard<std::mutex> hold(watchMutex_);
  if (watchPid_ == pid || watchStop_) return;
  if (watch_.joinable()) {
    // Forked child: the parent's watch does not exist here; the thread object
    // cannot be joined, so it is let go.
    new std::thread(std::move(watch_));
  }
  watchPid_ = pid;
  watch_ = std::thread([this] { Watch(); });
}

void CLogParameterBlock::Watch() {
  std::unique_lock<std::mutex> hold(watchMutex_);
  for (;;) {
    uint32_t interval = pollMs_;
    bool woken = watchWake_.wait_for(hold, std::chrono::milliseconds(interval),
                                     [&] { return watchStop_ || pollMs_ != interval; });
    if (watchStop_) return;
    if (woken) continue;  // a new interval: start counting again
    hold.unlock();
    {
      // Marking only stores to atomics, but a record in progress holds the
      // block; a stop request is checked again below before waiting.
      std::lock_guard<std::recursive_timed_mutex> block(lock_);
      MarkAllDueLocked();
    }
    hold.lock();
  }
}

void CLogParameterBlock::StopWatch() {
  std::thread watch;
  {
    std::lock_guard<std::mutex> hold(watchMutex_);
    watchStop_ = true;
    if (watchPid_ == static_cast<long>(getpid())) watch = std::move(watch_);
  }
  watchWake_.notify_all();
  if (watch.joinable()) watch.join();
  // A module attached later starts a new watch.
  std::lock_guard<std::mutex> hold(watchMutex_);
  watchStop_ = false;
  watchPid_ = 0;
}

}  // namespace QxLogging
