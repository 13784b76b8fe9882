// The print-ready signal of a chunked print: set while the printer can take
// data, reset while it is stopped with a full spool area. The host's chunk
// writer receives it as an opaque 64-bit context and waits on it through the
// exported WaitForPrintReady; the context is a number looked up in a table, not
// a pointer, so a stale or made-up context can never reach freed memory.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>

#include "norvane/platform.h"

namespace Norvane {

class PrintReadySignal {
 public:
  // A signal in the table, initially set or not.
  static std::shared_ptr<PrintReadySignal> Create(bool ready);
  ~PrintReadySignal();
  PrintReadySignal(const PrintReadySignal&) = delete;
  PrintReadySignal& operator=(const PrintReadySignal&) = delete;

  void Set();
  void Reset();
  bool IsSet() const;
  // The stream's watch is over (cancelled, failed or ended): every wait ends.
  void Stop();
  // Nothing polls the printer any more (its state could not be read): a
  // writer that waits for a ready printer would wait for ever.
  void Unwatch();

  // 0 once the printer can take data, 1 when it still cannot after
  // `milliseconds`, E_ABORT when the watch was stopped or nothing watches a
  // printer that is not ready.
  HRESULT Wait(uint32_t milliseconds) const;

  uint64_t Context() const { return context_; }
  // Wait on the signal a context names; 0 names none (nothing to wait for), a
  // context whose signal is gone answers E_ABORT.
  static HRESULT WaitFor(uint64_t context, uint32_t milliseconds);

 private:
  explicit PrintReadySignal(bool ready) : ready_(ready) {}

  uint64_t context_ = 0;
  mutable std::mutex mutex_;
  mutable std::condition_variable cv_;
  bool ready_;
  bool stopped_ = false;
  bool watched_ = true;
};

}  // namespace Norvane
