// The one expiry rule for cached values and cached documents.
#pragma once

#include <cstdint>

namespace Norvane {

// A lifespan counts 0.1 s units; 0 never expires. A value whose stamp lies in
// the future (the clock was set back) counts as expired, as does any value
// when the clock cannot be read.
bool IsExpired(uint64_t stamp, uint32_t lifespan);

constexpr uint64_t kFileTimeTicksPerLifespanUnit = 1000000;

}  // namespace Norvane
