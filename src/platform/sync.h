// Threading stand-ins: manual-reset events, critical sections and sleeps.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace Norvane {

constexpr uint32_t kInfinite = 0xFFFFFFFFu;

// Stays signalled until Reset; every waiter wakes while it is set.
class ManualResetEvent {
 public:
  explicit ManualResetEvent(bool initiallySet = false);
  void Set();
  void Reset();
  bool IsSet() const;
  // True when the event was (or became) signalled within the time-out.
  bool Wait(uint32_t milliseconds = kInfinite) const;

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable cv_;
  bool set_;
};

using CriticalSection = std::recursive_mutex;

void SleepMilliseconds(uint32_t milliseconds);

}  // namespace Norvane
