#include "support/expiry.h"

#include "platform/clock.h"

namespace Norvane {

bool IsExpired(uint64_t stamp, uint32_t lifespan) {
  if (lifespan == 0) return false;
  uint64_t now = 0;
  if (GetCurrentFileTime(&now) == 0) return true;
  if (now < stamp) return true;
  return now - stamp > static_cast<uint64_t>(lifespan) * kFileTimeTicksPerLifespanUnit;
}

}  // namespace Norvane
