// The UTC clock as file times: 100-ns units since 1601-01-01.
#pragma once

#include <cstdint>

namespace Norvane {

// 1 on success, 0 when the clock cannot be read.
int GetCurrentFileTime(uint64_t* stamp);

// The same clock as of its last tick: a fraction of the cost of a full read,
// never ahead of GetCurrentFileTime and behind it by less than *lag ticks
// (a few of the clock's own ticks).
// 1 on success, 0 when the clock cannot be read.
int GetCoarseFileTime(uint64_t* stamp, uint64_t* lag);

// Seconds between 1601-01-01 and 1970-01-01.
constexpr uint64_t kFileTimeUnixEpochSeconds = 11644473600ull;
constexpr uint64_t kFileTimeTicksPerSecond = 10000000ull;

// Tests move the clock; 0 restores the real one. Offsets are in file-time ticks.
void SetFileTimeOffsetForTesting(int64_t ticks);

}  // namespace Norvane
