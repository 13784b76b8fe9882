#include "probe_metrics.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <map>
#include <optional>

namespace NorvaneCli {

namespace {

struct Element {
  std::string index;  // the walk's row ("1" of KEY.001), empty for a plain key
  const CollectedValue* value;
};

struct Key {
  std::string name;  // the data-map key without the walk's suffix
  std::vector<Element> elements;
};

// KEY.001 is element 1 of the walk KEY; the library numbers with three digits or more.
bool SplitWalk(const std::string& key, std::string* base, std::string* index) {
  size_t dot = key.rfind('.');
  if (dot == std::string::npos || key.size() - dot - 1 < 3) return false;
  if (key.find_first_not_of("0123456789", dot + 1) != std::string::npos) return false;
  *base = key.substr(0, dot);
  size_t first = key.find_first_not_of('0', dot + 1);
  *index = first == std::string::npos ? "0" : key.substr(first);
  return true;
}

// A number as JSON or as text that is nothing but a decimal number (XML data maps
// answer text only): "62" is a level, "NX-4100" and " 7" are not numbers.
std::optional<double> Number(const nlohmann::json& value) {
  if (value.is_number()) return value.get<double>();
  if (!value.is_string()) return std::nullopt;
  const std::string& text = value.get_ref<const std::string&>();
  size_t i = text.size() > 1 && text[0] == '-' ? 1 : 0;
  size_t digits = 0, dots = 0;
  for (size_t k = i; k < text.size(); ++k) {
    if (std::isdigit(static_cast<unsigned char>(text[k]))) {
      ++digits;
    } else if (text[k] == '.' && k > i && k + 1 < text.size() && dots++ == 0) {
      continue;
    } else {
      return std::nullopt;
    }
  }
  if (digits == 0 || digits > 17) return std::nullopt;
  return std::strtod(text.c_str(), nullptr);
}

// RFC 3805 gives levels and capacities (prtMarkerSuppliesLevel, ...MaxCapacity,
// prtInputCurrentLevel, prtOutputRemainingCapacity...) three values that are not
// amounts: -1 other, -2 unknown, -3 "some remaining". Data maps often convert
// them to words first. A plain gauge of -3 would read as an empty cartridge.
std::optional<std::string> SpecialState(const std::string& keyName, const nlohmann::json& value) {
  std::string lower;
  for (char c : keyName.substr(keyName.find(':') + 1)) lower += static_cast<char>(std::tolower((unsigned char)c));
  if (lower.find("level") == std::string::npos && lower.find("capacity") == std::string::npos) return std::nullopt;
  if (auto number = Number(value)) {
    if (*number == -1) return "other";
    if (*number == -2) return "unknown";
    if (*number == -3) return "some_remaining";
    return std::nullopt;
  }
  if (!value.is_string()) return std::nullopt;
  std::string text = value.get<std::string>();
  if (text == "other" || text == "unknown") return text;
  if (text == "some remaining" || text == "some_remaining" || text == "some-remaining") return "some_remaining";
  return std::nullopt;
}

// "62,9": an IPP attribute of several integers arrives comma-joined.
std::vector<double> NumberList(const nlohmann::json& value) {
  if (!value.is_string()) return {};
  const std::string& text = value.get_ref<const std::string&>();
  if (text.find(',') == std::string::npos) return {};
  std::vector<double> numbers;
  size_t start = 0;
  for (;;) {
    size_t comma = text.find(',', start);
    auto number = Number(text.substr(start, comma == std::string::npos ? std::string::npos : comma - start));
    if (!number) return {};
    numbers.push_back(*number);
    if (comma == std::string::npos) return numbers;
    start = comma + 1;
  }
}

std::string FamilyName(const std::string& key) {
  size_t colon = key.find(':');
  std::string name = colon == std::string::npos
                         ? MetricName(key)
                         : MetricName(key.substr(0, colon)) + "_" + MetricName(key.substr(colon + 1));
  return name.empty() || name == "_" ? std::string() : "norvane_" + name;
}

// The formats give sample names ending in _total, _count, _sum... meanings of
// their own, and Prometheus' lint refuses a gauge named so: "PageCount" would
// read as a histogram's count.
std::string GaugeName(const std::string& family) {
  for (const char* reserved : {"_total", "_count", "_sum", "_bucket", "_created", "_info", "_gcount", "_gsum"}) {
    std::string suffix = reserved;
    if (family.size() > suffix.size() && family.compare(family.size() - suffix.size(), suffix.size(), suffix) == 0) {
      return family + "_value";
    }
  }
  return family;
}

void WriteKey(const Key& key, const Labels& base, OpenMetricsWriter& out) {
  const std::string family = FamilyName(key.name);
  const std::string help = "data-map key " + key.name;
  bool numeric = true;
  for (const auto& e : key.elements) {
    numeric = numeric && (Number(e.value->value) || SpecialState(key.name, e.value->value));
  }
  const bool plain = key.elements.size() == 1 && key.elements[0].index.empty();
  std::vector<double> list = plain ? NumberList(key.elements[0].value->value) : std::vector<double>{};
  if (!list.empty()) {
    if (!out.Family(GaugeName(family), "gauge", help + ", by position in the list")) return;
    for (size_t i = 0; i < list.size(); ++i) {
      Labels labels = base;
      labels.emplace_back("index", std::to_string(i + 1));
      out.Sample("", labels, list[i]);
    }
    return;
  }
  if (!out.Family(numeric ? GaugeName(family) : family, numeric ? "gauge" : "info", help)) return;
  for (const auto& e : key.elements) {
    Labels labels = base;
    if (!e.index.empty()) labels.emplace_back("index", e.index);
    if (!numeric) {
      labels.emplace_back("value", e.value->text);
      out.Sample("_info", labels, 1);
    } else if (auto state = SpecialState(key.name, e.value->value)) {
      labels.emplace_back("state", *state);
      out.Sample("", labels, std::nan(""));
    } else {
      out.Sample("", labels, *Number(e.value->value));
    }
  }
}

}  // namespace

std::string ProbeMetrics(const ProbeOutcome& outcome, Exposition format) {
  OpenMetricsWriter out(format);
  const Labels base = {{"target", outcome.target}, {"datamap", outcome.datamap}};
  out.Family("norvane_probe_success", "gauge", "whether the printer answered the data map");
  out.Sample("", base, outcome.reason.empty() ? 1 : 0);
  out.Family("norvane_probe_duration_seconds", "gauge", "how long the probe took");
  out.Sample("", base, outcome.seconds);
  if (!outcome.reason.empty()) {
    out.Family("norvane_probe_failure", "info", "why the probe failed");
    Labels labels = base;
    labels.emplace_back("reason", outcome.reason);
    labels.emplace_back("message", outcome.message);
    out.Sample("_info", labels, 1);
  }
  const Collection* collection = outcome.collection;
  if (collection == nullptr || !outcome.reason.empty()) return out.Finish();
  out.Family("norvane_probe_protocol", "info", "the protocol of the data map that answered");
  Labels protocol = base;
  protocol.emplace_back("protocol", collection->protocol);
  out.Sample("_info", protocol, 1);

  // Keys in the collection's order, a walk's elements under their key.
  std::vector<Key> keys;
  std::map<std::string, size_t> at;
  for (const auto& value : collection->values) {
    if (value.value.is_null()) continue;  // asked for, not reported
    std::string name = value.key, index;
    if (!SplitWalk(value.key, &name, &index)) index.clear();
    auto [it, added] = at.emplace(name, keys.size());
    if (added) keys.push_back({name, {}});
    keys[it->second].elements.push_back({index, &value});
  }
  for (const auto& key : keys) WriteKey(key, base, out);
  return out.Finish();
}

}  // namespace NorvaneCli
