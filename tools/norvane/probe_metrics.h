// What one probe of `serve` answers: the collection's values as OpenMetrics
// families, after the probe's own success, reason and duration.
#pragma once

#include <string>

#include "collect.h"
#include "openmetrics.h"

namespace NorvaneCli {

struct ProbeOutcome {
  std::string target;
  std::string datamap;  // the name the query gave
  // Empty on success; else one word of a fixed set ("timeout", "no_protocol",
  // "no_values", "bad_target", "not_allowed", "busy") that /metrics counts by.
  std::string reason;
  std::string message;  // the failure in words, for the reader of the series
  double seconds = 0;
  const Collection* collection = nullptr;  // null when nothing was collected
};

// The whole exposition of one probe.
std::string ProbeMetrics(const ProbeOutcome& outcome, Exposition format = Exposition::OpenMetrics);

}  // namespace NorvaneCli
