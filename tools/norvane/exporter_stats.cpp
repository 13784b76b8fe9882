#include "exporter_stats.h"

namespace NorvaneCli {

void ExporterStats::Probe(const std::string& datamap, const std::string& reason, double seconds, size_t cacheHits) {
  std::lock_guard<std::mutex> hold(lock_);
  ++probes_[datamap];
  if (!reason.empty()) ++failures_[reason];
  for (size_t i = 0; i < kBuckets.size(); ++i) {
    if (seconds <= kBuckets[i]) ++buckets_[i];
  }
  ++count_;
  sum_ += seconds;
  cacheHits_ += cacheHits;
}

void ExporterStats::InFlight(int delta) {
  std::lock_guard<std::mutex> hold(lock_);
  inFlight_ += delta;
}

std::string ExporterStats::Metrics(Exposition format) const {
  std::lock_guard<std::mutex> hold(lock_);
  OpenMetricsWriter out(format);
  out.Family("norvane_exporter_probes", "counter", "probes answered, by data map");
  for (const auto& [datamap, n] : probes_) out.Sample("_total", {{"datamap", datamap}}, static_cast<double>(n));
  out.Family("norvane_exporter_probe_failures", "counter", "probes that answered norvane_probe_success 0, by reason");
  for (const auto& [reason, n] : failures_) out.Sample("_total", {{"reason", reason}}, static_cast<double>(n));
  out.Family("norvane_exporter_probe_duration_seconds", "histogram", "how long probes took");
  for (size_t i = 0; i < kBuckets.size(); ++i) {
    // Bucket bounds are written as floats ("1.0"), as the format's canonical form asks.
    std::string le = FormatValue(kBuckets[i]);
    if (le.find('.') == std::string::npos) le += ".0";
    out.Sample("_bucket", {{"le", le}}, static_cast<double>(buckets_[i]));
  }
  out.Sample("_bucket", {{"le", "+Inf"}}, static_cast<double>(count_));
  out.Sample("_count", {}, static_cast<double>(count_));
  out.Sample("_sum", {}, sum_);
  out.Family("norvane_exporter_cache_hits", "counter", "values a probe answered from the cache, not the printer");
  out.Sample("_total", {}, static_cast<double>(cacheHits_));
  out.Family("norvane_exporter_probes_in_flight", "gauge", "collections running now, abandoned ones included");
  out.Sample("", {}, inFlight_);
  return out.Finish();
}

}  // namespace NorvaneCli
