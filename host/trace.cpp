#include "trace.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "norvane/host.h"
#include "text.h"

namespace NorvaneHost {

namespace {

struct TraceState {
  TraceState() {
    const char* asked = std::getenv("NORVANE_HOST_TRACE");
    if (asked != nullptr && *asked >= '1' && *asked <= '9') {
      level = *asked == '1' ? NORVANE_HOST_TRACE_EXCHANGES : NORVANE_HOST_TRACE_WIRE;
    }
  }

  std::atomic<uint32_t> level{0};
  std::mutex mutex;  // one line at a time, and the sink with its context
  NorvaneHostTraceSink sink = nullptr;
  void* context = nullptr;
};

TraceState& State() {
  // Never destroyed: an exchange may still end on another thread while the
  // process exits.
  static auto* state = new TraceState;
  return *state;
}

}  // namespace

uint32_t TraceLevel() { return State().level.load(std::memory_order_relaxed); }

void TraceLine(std::string_view line) {
  std::string text = Redact(line);
  TraceState& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  if (state.sink != nullptr) {
    state.sink(state.context, text.c_str());
  } else {
    // Never stdout: that is the host's.
    std::fprintf(stderr, "norvane-host: %s\n", text.c_str());
  }
}

}  // namespace NorvaneHost

extern "C" HRESULT NorvaneHostSetTrace(uint32_t level, NorvaneHostTraceSink sink, void* context) {
  if (level > NORVANE_HOST_TRACE_WIRE) return E_INVALIDARG;
  NorvaneHost::TraceState& state = NorvaneHost::State();
  std::lock_guard<std::mutex> lock(state.mutex);
  state.sink = sink;
  state.context = context;
  state.level.store(level, std::memory_order_relaxed);
  return S_OK;
}
