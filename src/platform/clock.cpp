#include "platform/clock.h"

#include <atomic>
#include <ctime>

namespace Norvane {

namespace {
std::atomic<int64_t> g_offset{0};
}

int GetCurrentFileTime(uint64_t* stamp) {
  if (stamp == nullptr) return 0;
  timespec now{};
  if (clock_gettime(CLOCK_REALTIME, &now) != 0 || now.tv_sec < 0) return 0;
  uint64_t ticks = (static_cast<uint64_t>(now.tv_sec) + kFileTimeUnixEpochSeconds) *
                       kFileTimeTicksPerSecond +
                   static_cast<uint64_t>(now.tv_nsec) / 100;
  *stamp = ticks + static_cast<uint64_t>(g_offset.load(std::memory_order_relaxed));
  return 1;
}

void SetFileTimeOffsetForTesting(int64_t ticks) { g_offset.store(ticks, std::memory_order_relaxed); }

}  // namespace Norvane
