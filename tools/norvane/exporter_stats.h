// The figures `serve` keeps about itself for /metrics: probes by data map,
// failures by reason, a histogram of probe durations, values answered from the
// cache, probes in flight. Shared by the server's threads.
#pragma once

#include <array>
#include <map>
#include <mutex>
#include <string>

#include "openmetrics.h"

namespace NorvaneCli {

class ExporterStats {
 public:
  // One probe's end; `reason` empty for a success.
  void Probe(const std::string& datamap, const std::string& reason, double seconds, size_t cacheHits);
  void InFlight(int delta);
  std::string Metrics(Exposition format) const;

 private:
  // Printers answer in milliseconds to tens of seconds; a probe past its
  // scrape's time-out is the case that matters.
  static constexpr std::array<double, 11> kBuckets = {0.01, 0.025, 0.05, 0.1, 0.25, 0.5, 1, 2.5, 5, 10, 30};
  mutable std::mutex lock_;
  std::map<std::string, uint64_t> probes_;
  std::map<std::string, uint64_t> failures_;
  std::array<uint64_t, kBuckets.size()> buckets_{};
  uint64_t count_ = 0;
  double sum_ = 0;
  uint64_t cacheHits_ = 0;
  int inFlight_ = 0;
};

}  // namespace NorvaneCli
