// The value table a data collection keeps and its caches fill and save.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "norvane/com.h"

namespace Norvane {

// One value as read from the device: the translated value, when it was read
// (100-ns units since 1601, UTC) and how long it stays valid (0.1 s units;
// 0 never expires).
struct NORVANE_API CachedValue {
  Variant value;
  uint64_t stamp = 0;
  uint32_t lifespan = 0;
};

// Keyed by "[prefix:]name", ordered by UTF-16 code unit.
// Transparent comparison: lookups by view cost no allocation.
using ValueTable = std::map<std::u16string, CachedValue, std::less<>>;

}  // namespace Norvane
