#include "support/expiry.h"

#include "platform/clock.h"

namespace Norvane {

bool IsExpired(uint64_t stamp, uint32_t lifespan) {
  if (lifespan == 0) return false;
  const uint64_t span = static_cast<uint64_t>(lifespan) * kFileTimeTicksPerLifespanUnit;
  // Most reads fall well inside the lifespan, where the coarse clock gives the
  // same answer as the full one at a fraction of its cost (a full read can be
  // most of a cached lookup). Near either end the full clock decides.
  uint64_t coarse = 0, lag = 0;
  if (GetCoarseFileTime(&coarse, &lag) != 0 && coarse >= stamp && coarse - stamp + lag <= span) return false;
  uint64_t now = 0;
  if (GetCurrentFileTime(&now) == 0) return true;
  if (now < stamp) return true;
  return now - stamp > span;
}

}  // namespace Norvane
