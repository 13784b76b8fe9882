#include "openmetrics.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace NorvaneCli {

namespace {

// The length of the UTF-8 sequence starting at text[i], 0 when it is invalid
// (overlong forms, surrogates and code points past U+10FFFF included).
size_t Utf8Length(const std::string& text, size_t i) {
  auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
  unsigned char c = byte(i);
  if (c < 0x80) return 1;
  size_t n = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC2 ? 2 : 0;
  if (n == 0 || c > 0xF4 || i + n > text.size()) return 0;
  for (size_t k = 1; k < n; ++k) {
    if ((byte(i + k) & 0xC0) != 0x80) return 0;
  }
  unsigned char second = byte(i + 1);
  if ((c == 0xE0 && second < 0xA0) || (c == 0xED && second >= 0xA0) || (c == 0xF0 && second < 0x90) ||
      (c == 0xF4 && second >= 0x90)) {
    return 0;
  }
  return n;
}

// Sample names a family of `type` uses besides its own name.
std::vector<std::string> SampleNames(const std::string& name, const std::string& type) {
  if (type == "counter") return {name + "_total", name + "_created"};
  if (type == "info") return {name + "_info"};
  if (type == "histogram") return {name + "_bucket", name + "_count", name + "_sum", name + "_created"};
  return {name};
}

}  // namespace

Exposition Negotiate(const std::string& accept) {
  bool text = accept.find("text/plain") != std::string::npos;
  bool openMetrics = accept.find("application/openmetrics-text") != std::string::npos;
  return text && !openMetrics ? Exposition::PrometheusText : Exposition::OpenMetrics;
}

const char* ContentType(Exposition format) {
  return format == Exposition::OpenMetrics ? kOpenMetricsType : kPrometheusTextType;
}

std::string MetricName(const std::string& words) {
  std::string out;
  for (size_t i = 0; i < words.size(); ++i) {
    unsigned char c = static_cast<unsigned char>(words[i]);
    if (std::isupper(c)) {
      // A word starts at a capital after a small letter or digit, or at the last
      // capital of a run that a small letter follows ("IPPState": ipp, state).
      bool afterSmall = i > 0 && (std::islower(static_cast<unsigned char>(words[i - 1])) ||
                                  std::isdigit(static_cast<unsigned char>(words[i - 1])));
      bool endsRun = i > 0 && std::isupper(static_cast<unsigned char>(words[i - 1])) && i + 1 < words.size() &&
                     std::islower(static_cast<unsigned char>(words[i + 1]));
      if ((afterSmall || endsRun) && !out.empty() && out.back() != '_') out.push_back('_');
      out.push_back(static_cast<char>(std::tolower(c)));
    } else if (std::islower(c) || std::isdigit(c)) {
      out.push_back(static_cast<char>(c));
    } else if (!out.empty() && out.back() != '_') {
      out.push_back('_');
    }
  }
  while (!out.empty() && out.back() == '_') out.pop_back();
  if (!out.empty() && std::isdigit(static_cast<unsigned char>(out[0]))) out.insert(0, "_");
  return out;
}

std::string EscapeLabelValue(const std::string& text, size_t limit) {
  std::string out;
  for (size_t i = 0; i < text.size();) {
    size_t n = Utf8Length(text, i);
    std::string piece = n == 0 ? "\xEF\xBF\xBD" : text.substr(i, n);
    if (piece == "\\") piece = "\\\\";
    if (piece == "\"") piece = "\\\"";
    if (piece == "\n") piece = "\\n";
    if (out.size() + piece.size() > limit) break;
    out += piece;
    i += n == 0 ? 1 : n;
  }
  return out;
}

std::string FormatValue(double value) {
  if (std::isnan(value)) return "NaN";
  if (std::isinf(value)) return value > 0 ? "+Inf" : "-Inf";
  char text[32];
  if (value == std::floor(value) && std::fabs(value) < 1e15) {
    std::snprintf(text, sizeof text, "%.0f", value);
    return text;
  }
  // The shortest form that reads back as the same double.
  for (int precision = 15; precision <= 17; ++precision) {
    std::snprintf(text, sizeof text, "%.*g", precision, value);
    if (std::strtod(text, nullptr) == value) break;
  }
  return text;
}

bool OpenMetricsWriter::Family(const std::string& name, const char* type, const std::string& help) {
  std::vector<std::string> taken = SampleNames(name, type);
  taken.push_back(name);
  skipping_ = name.empty();
  for (const auto& n : taken) skipping_ = skipping_ || names_.count(n) != 0;
  if (skipping_) return false;
  names_.insert(taken.begin(), taken.end());
  family_ = name;
  std::string shown = name, kind = type;
  // The older format's family is named as its samples are.
  if (format_ == Exposition::PrometheusText && (kind == "info" || kind == "counter")) {
    shown += kind == "info" ? "_info" : "_total";
    if (kind == "info") kind = "gauge";
  }
  text_ += "# TYPE " + shown + " " + kind + "\n";
  if (!help.empty()) {
    // HELP escapes backslash and newline, not the quote.
    std::string escaped;
    for (char c : help) escaped += c == '\\' ? "\\\\" : c == '\n' ? "\\n" : std::string(1, c);
    text_ += "# HELP " + shown + " " + escaped + "\n";
  }
  return true;
}

void OpenMetricsWriter::Sample(const char* suffix, const Labels& labels, double value) {
  if (skipping_) return;
  text_ += family_ + suffix;
  if (!labels.empty()) {
    text_ += "{";
    for (size_t i = 0; i < labels.size(); ++i) {
      if (i > 0) text_ += ",";
      text_ += labels[i].first + "=\"" + EscapeLabelValue(labels[i].second) + "\"";
    }
    text_ += "}";
  }
  text_ += " " + FormatValue(value) + "\n";
}

std::string OpenMetricsWriter::Finish() {
  std::string out = std::move(text_);
  text_.clear();
  names_.clear();
  return format_ == Exposition::OpenMetrics ? out + "# EOF\n" : out;
}

}  // namespace NorvaneCli
