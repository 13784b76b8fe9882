#include "platform/clock.h"

#include <atomic>
#include <ctime>

namespace Norvane {

namespace {

std::atomic<int64_t> g_offset{0};

int ReadFileTime(clockid_t clock, uint64_t* stamp) {
  if (stamp == nullptr) return 0;
  timespec now{};
  if (clock_gettime(clock, &now) != 0 || now.tv_sec < 0) return 0;
  uint64_t ticks = (static_cast<uint64_t>(now.tv_sec) + kFileTimeUnixEpochSeconds) * kFileTimeTicksPerSecond +
                   static_cast<uint64_t>(now.tv_nsec) / 100;
  *stamp = ticks + static_cast<uint64_t>(g_offset.load(std::memory_order_relaxed));
  return 1;
}

}  // namespace

int GetCurrentFileTime(uint64_t* stamp) { return ReadFileTime(CLOCK_REALTIME, stamp); }

int GetCoarseFileTime(uint64_t* stamp, uint64_t* lag) {
  // The coarse clock moves once a tick, whose length does not change while the
  // system runs; a busy machine may serve a tick late, hence a few of them.
  static const uint64_t bound = [] {
    timespec resolution{};
    if (clock_getres(CLOCK_REALTIME_COARSE, &resolution) != 0 || resolution.tv_sec != 0) return uint64_t{0};
    return 4 * (static_cast<uint64_t>(resolution.tv_nsec) / 100 + 1);
  }();
  if (bound == 0 || lag == nullptr) return 0;
  *lag = bound;
  return ReadFileTime(CLOCK_REALTIME_COARSE, stamp);
}

void SetFileTimeOffsetForTesting(int64_t ticks) { g_offset.store(ticks, std::memory_order_relaxed); }

}  // namespace Norvane
