#include "ipp/ipp_print_ready.h"

#include <chrono>
#include <unordered_map>

#include "platform/sync.h"

namespace Norvane {

namespace {

struct SignalTable {
  std::mutex mutex;
  uint64_t last = 0;
  std::unordered_map<uint64_t, std::weak_ptr<PrintReadySignal>> signals;
};

SignalTable& Table() {
  static SignalTable* table = new SignalTable;  // outlives every provider
  return *table;
}

}  // namespace

std::shared_ptr<PrintReadySignal> PrintReadySignal::Create(bool ready) {
  std::shared_ptr<PrintReadySignal> signal(new PrintReadySignal(ready));
  SignalTable& table = Table();
  std::lock_guard<std::mutex> lock(table.mutex);
  signal->context_ = ++table.last;
  table.signals.emplace(signal->context_, signal);
  return signal;
}

PrintReadySignal::~PrintReadySignal() {
  SignalTable& table = Table();
  std::lock_guard<std::mutex> lock(table.mutex);
  table.signals.erase(context_);
}

void PrintReadySignal::Set() {
  std::lock_guard<std::mutex> lock(mutex_);
  ready_ = true;
  cv_.notify_all();
}

void PrintReadySignal::Reset() {
  std::lock_guard<std::mutex> lock(mutex_);
  ready_ = false;
}

bool PrintReadySignal::IsSet() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return ready_;
}

void PrintReadySignal::Stop() {
  std::lock_guard<std::mutex> lock(mutex_);
  stopped_ = true;
  cv_.notify_all();
}

void PrintReadySignal::Unwatch() {
  std::lock_guard<std::mutex> lock(mutex_);
  watched_ = false;
  cv_.notify_all();
}

HRESULT PrintReadySignal::Wait(uint32_t milliseconds) const {
  std::unique_lock<std::mutex> lock(mutex_);
  auto settled = [this] { return stopped_ || ready_ || !watched_; };
  if (milliseconds == kInfinite) {
    cv_.wait(lock, settled);
  } else if (!cv_.wait_for(lock, std::chrono::milliseconds(milliseconds), settled)) {
    return S_FALSE;
  }
  return stopped_ || !ready_ ? E_ABORT : S_OK;
}

HRESULT PrintReadySignal::WaitFor(uint64_t context, uint32_t milliseconds) {
  if (context == 0) return S_OK;
  std::shared_ptr<PrintReadySignal> signal;
  {
    SignalTable& table = Table();
    std::lock_guard<std::mutex> lock(table.mutex);
    auto found = table.signals.find(context);
    if (found != table.signals.end()) signal = found->second.lock();
  }
  return signal ? signal->Wait(milliseconds) : E_ABORT;
}

}  // namespace Norvane
