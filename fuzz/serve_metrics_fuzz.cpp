// Whatever keys and texts a printer's collection holds, serve's exposition stays
// one a parser reads: every sample line is a name, well-quoted labels and one
// value, label text only escaped (no raw newline ends a line early), and "# EOF".
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "openmetrics.h"
#include "probe_metrics.h"

namespace {

bool NameChar(char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_'; }

bool SampleLine(const std::string& line) {
  size_t i = 0;
  while (i < line.size() && NameChar(line[i])) ++i;
  if (i == 0) return false;
  if (i < line.size() && line[i] == '{') {
    ++i;
    for (;;) {
      size_t name = i;
      while (i < line.size() && NameChar(line[i])) ++i;
      if (i == name || line.compare(i, 2, "=\"") != 0) return false;
      for (i += 2; i < line.size() && line[i] != '"'; ++i) {
        if (line[i] == '\\' && (++i >= line.size() || (line[i] != '\\' && line[i] != '"' && line[i] != 'n'))) {
          return false;
        }
      }
      if (++i >= line.size()) return false;
      if (line[i] == '}') break;
      if (line[i++] != ',') return false;
    }
    ++i;
  }
  return i + 1 < line.size() && line[i] == ' ' && line.find(' ', i + 1) == std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace NorvaneCli;
  // NUL-separated key, value pairs; a value starting with '#' is a number.
  std::string input(reinterpret_cast<const char*>(data), size);
  Collection collection;
  collection.protocol = "OID";
  size_t at = 0;
  while (at < input.size()) {
    size_t keyEnd = input.find('\0', at);
    if (keyEnd == std::string::npos) break;
    size_t valueEnd = input.find('\0', keyEnd + 1);
    std::string key = input.substr(at, keyEnd - at);
    std::string text =
        input.substr(keyEnd + 1, valueEnd == std::string::npos ? std::string::npos : valueEnd - keyEnd - 1);
    nlohmann::json value = text;
    if (!text.empty() && text[0] == '#') value = std::strtod(text.c_str() + 1, nullptr);
    collection.values.push_back({key, value, text, "device"});
    at = valueEnd == std::string::npos ? input.size() : valueEnd + 1;
  }
  for (auto format : {Exposition::OpenMetrics, Exposition::PrometheusText}) {
    ProbeOutcome outcome{"printer\n\"x\"", "map", "", "", 0.5, &collection};
    std::string text = ProbeMetrics(outcome, format);
    if (format == Exposition::OpenMetrics && (text.size() < 6 || text.compare(text.size() - 6, 6, "# EOF\n") != 0)) {
      std::abort();
    }
    size_t start = 0;
    while (start < text.size()) {
      size_t end = text.find('\n', start);
      if (end == std::string::npos) std::abort();
      std::string line = text.substr(start, end - start);
      bool comment = line.rfind("# TYPE ", 0) == 0 || line.rfind("# HELP ", 0) == 0 || line == "# EOF";
      if (!comment && !SampleLine(line)) std::abort();
      start = end + 1;
    }
  }
  return 0;
}
