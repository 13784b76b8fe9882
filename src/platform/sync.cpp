#include "platform/sync.h"

#include <chrono>
#include <thread>

namespace Norvane {

ManualResetEvent::ManualResetEvent(bool initiallySet) : set_(initiallySet) {}

void ManualResetEvent::Set() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    set_ = true;
  }
  cv_.notify_all();
}

void ManualResetEvent::Reset() {
  std::lock_guard<std::mutex> lock(mutex_);
  set_ = false;
}

bool ManualResetEvent::IsSet() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return set_;
}

bool ManualResetEvent::Wait(uint32_t milliseconds) const {
  std::unique_lock<std::mutex> lock(mutex_);
  if (milliseconds == kInfinite) {
    cv_.wait(lock, [this] { return set_; });
    return true;
  }
  return cv_.wait_for(lock, std::chrono::milliseconds(milliseconds), [this] { return set_; });
}

void SleepMilliseconds(uint32_t milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); }

}  // namespace Norvane
