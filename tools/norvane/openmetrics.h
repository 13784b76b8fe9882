// The exposition `serve` answers: OpenMetrics text (metric families of gauges,
// counters, histograms and info series, each family's samples together, ending
// with "# EOF"), or for a client that asks for nothing else the older Prometheus
// text format, which has no info type and names counter families with "_total".
#pragma once

#include <set>
#include <string>
#include <utility>
#include <vector>

namespace NorvaneCli {

constexpr const char* kOpenMetricsType = "application/openmetrics-text; version=1.0.0; charset=utf-8";
constexpr const char* kPrometheusTextType = "text/plain; version=0.0.4; charset=utf-8";

enum class Exposition { OpenMetrics, PrometheusText };
// OpenMetrics unless the Accept header asks for the older text format and not
// for OpenMetrics (Prometheus asks for both and prefers OpenMetrics).
Exposition Negotiate(const std::string& accept);
const char* ContentType(Exposition format);

using Labels = std::vector<std::pair<std::string, std::string>>;

// A metric name from a data-map key's words: "SupplyLevel" becomes
// "supply_level", "IPPState" "ipp_state"; anything outside [a-z0-9_] becomes one
// "_". Colons are left out on purpose: they belong to recording rules.
std::string MetricName(const std::string& words);
// A label value with backslash, double quote and newline escaped, invalid UTF-8
// replaced and the text cut (on a character boundary) to `limit` bytes: a
// printer's text is as long as the printer likes.
std::string EscapeLabelValue(const std::string& text, size_t limit = 1024);
// A sample value: integers exactly, NaN and infinities by their OpenMetrics names.
std::string FormatValue(double value);

class OpenMetricsWriter {
 public:
  explicit OpenMetricsWriter(Exposition format = Exposition::OpenMetrics) : format_(format) {}
  // Starts a family; false (and the family's samples are dropped) when its name
  // or one of the names its samples take is already used, as two keys that
  // differ only in case would otherwise give the parser a duplicate.
  bool Family(const std::string& name, const char* type, const std::string& help);
  // A sample of the current family: its name is the family's plus `suffix`
  // ("_total", "_info", "_bucket"...).
  void Sample(const char* suffix, const Labels& labels, double value);
  // The exposition so far, and its "# EOF" in OpenMetrics.
  std::string Finish();

 private:
  const Exposition format_;
  std::string text_;
  std::string family_;
  bool skipping_ = false;
  std::set<std::string> names_;
};

}  // namespace NorvaneCli
