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

CLogParameterBlock::~CLogParameterBlock() = default;

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
  std::lock_guard<std::recursive_timed_mutex> hold(lock_);
  for (auto it = modules_.begin(); it != modules_.end(); ++it) {
    if ((*it)->module == module) {
      modules_.erase(it);
      break;
    }
  }
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

void CLogParameterBlock::SetPollIntervalMsLocked(uint32_t ms) { pollMs_ = ms; }

void CLogParameterBlock::MarkAllDueLocked() {
  for (auto& state : modules_) {
    state->refreshDue = true;
    state->module->SetRefreshDeadline(0);
  }
}

void CLogParameterBlock::RequestRefresh() {
  std::lock_guard<std::recursive_timed_mutex> hold(lock_);
  MarkAllDueLocked();
}

}  // namespace QxLogging
