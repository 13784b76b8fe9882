// Shutdown notice shared by the listener threads and every request in flight.
//
// Slow and delayed answers sleep on this object instead of std::this_thread::sleep_for,
// so a SIGTERM ends them at once and the simulator never keeps a bench waiting.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace PrinterSim {

class StopSignal {
 public:
  void Raise() {
    {
      std::lock_guard lock(mutex_);
      raised_ = true;
    }
    wake_.notify_all();
  }

  bool IsRaised() const {
    std::lock_guard lock(mutex_);
    return raised_;
  }

  // Sleeps for `duration` unless the signal is raised first.
  // Returns false when the sleep was cut short by the signal.
  bool SleepFor(std::chrono::milliseconds duration) const {
    std::unique_lock lock(mutex_);
    return !wake_.wait_for(lock, duration, [this] { return raised_; });
  }

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable wake_;
  bool raised_ = false;
};

}  // namespace PrinterSim
