// What `serve` writes: metric names from data-map keys, label escaping, the
// supply values that are not amounts, and the ranges --allow accepts.
#include <gtest/gtest.h>

#include "../allow_list.h"
#include "../openmetrics.h"
#include "../probe_metrics.h"

namespace NorvaneCli {
namespace {

TEST(ServeMetrics, NamesAndEscapes) {
  const std::pair<const char*, const char*> names[] = {
      {"IPPState", "ipp_state"},        {"UUID", "uuid"},       {"page-count 2", "page_count_2"},
      {"Black%%Level.", "black_level"}, {"2Sided", "_2_sided"}, {"\xC3\x84rger", "rger"},
  };
  for (const auto& [words, name] : names) EXPECT_EQ(MetricName(words), name) << words;

  const struct {
    std::string text;
    size_t limit;
    std::string escaped;
  } labels[] = {
      {"caf\xC3\xA9", 1024, "caf\xC3\xA9"},
      {"bad \xFF byte, overlong \xC0\xAF, surrogate \xED\xA0\x80", 1024,
       "bad \xEF\xBF\xBD byte, overlong \xEF\xBF\xBD\xEF\xBF\xBD, surrogate \xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
      {"ab\xC3\xA9", 3, "ab"},  // never half a character
      {"a\"b", 2, "a"},         // nor half an escape
  };
  for (const auto& c : labels) EXPECT_EQ(EscapeLabelValue(c.text, c.limit), c.escaped) << c.text;

  const std::pair<double, const char*> values[] = {
      {62, "62"}, {-3, "-3"}, {0.1, "0.1"}, {2.5e20, "2.5e+20"}, {std::nan(""), "NaN"}, {-1.0 / 0.0, "-Inf"}};
  for (const auto& [value, text] : values) EXPECT_EQ(FormatValue(value), text);
}

std::string Probe(const std::vector<std::pair<std::string, nlohmann::json>>& values, Exposition format,
                  const std::string& reason = "") {
  Collection collection;
  collection.protocol = "OID";
  for (const auto& [key, value] : values) {
    collection.values.push_back({key, value, value.is_string() ? value.get<std::string>() : value.dump(), "device"});
  }
  ProbeOutcome outcome{"10.0.0.7", "map", reason, reason.empty() ? "" : "it broke", 0.25, &collection};
  return ProbeMetrics(outcome, format);
}

TEST(ServeMetrics, ValuesBecomeSeries) {
  const std::string labels = "target=\"10.0.0.7\",datamap=\"map\"";
  const struct {
    std::vector<std::pair<std::string, nlohmann::json>> values;
    std::vector<std::string> lines;  // each must occur
    std::vector<std::string> absent;
  } cases[] = {
      // RFC 3805's -1, -2 and -3 of a level or capacity, as numbers or as the
      // words a data map converted them to; elsewhere -3 is a plain number.
      // (Plain levels, page counts, escaped texts and success or failure are
      // also read from real peers by the bench's serve test.)
      {{{"snmp:SupplyLevel.002", "some remaining"},
        {"snmp:SupplyLevel.003", -1},
        {"snmp:SupplyLevel.004", -3},
        {"snmp:SupplyMaxCapacity.001", "unknown"},
        {"xml:BlackLevel", "-2"},
        {"snmp:Temperature", -3}},
       {"# TYPE norvane_snmp_supply_level gauge\n",
        "norvane_snmp_supply_level{" + labels + ",index=\"2\",state=\"some_remaining\"} NaN\n",
        "norvane_snmp_supply_level{" + labels + ",index=\"3\",state=\"other\"} NaN\n",
        "norvane_snmp_supply_level{" + labels + ",index=\"4\",state=\"some_remaining\"} NaN\n",
        "norvane_snmp_supply_max_capacity{" + labels + ",index=\"1\",state=\"unknown\"} NaN\n",
        "norvane_xml_black_level{" + labels + ",state=\"unknown\"} NaN\n",
        "norvane_snmp_temperature{" + labels + "} -3\n"},
       {}},
      {{{"xml:JobsTotal", 4}, {"ipp:ErrorCount", "oops"}},
       {"norvane_xml_jobs_total_value{" + labels + "} 4\n", "# TYPE norvane_ipp_error_count info\n"},
       {}},
      // Text is an info series; one text element makes the whole walk text;
      // a comma-joined list of numbers is a gauge per position.
      {{{"snmp:Colorant.000", "black"},
        {"snmp:Colorant.001", 7},
        {"ipp:MarkerLevels", "62,9"},
        {"ipp:MediaReady", "a4,62"},
        {"ipp:MarkerNames", nullptr}},
       {"norvane_snmp_colorant_info{" + labels + ",index=\"0\",value=\"black\"} 1\n",
        "norvane_snmp_colorant_info{" + labels + ",index=\"1\",value=\"7\"} 1\n",
        "norvane_ipp_marker_levels{" + labels + ",index=\"2\"} 9\n",
        "norvane_ipp_media_ready_info{" + labels + ",value=\"a4,62\"} 1\n",
        "norvane_probe_protocol_info{" + labels + ",protocol=\"OID\"} 1\n"},
       {"marker_names"}},
      // Keys that name one family: the first wins, the parser sees no duplicate.
      {{{"snmp:Model", "a"}, {"snmp:model", "b"}, {"ProbeSuccess", 1}},
       {"norvane_snmp_model_info{" + labels + ",value=\"a\"} 1\n"},
       {"value=\"b\"", "data-map key ProbeSuccess"}},
  };
  for (const auto& c : cases) {
    std::string text = Probe(c.values, Exposition::OpenMetrics);
    EXPECT_EQ(text.substr(text.size() - 6), "# EOF\n");
    for (const auto& line : c.lines) EXPECT_NE(text.find(line), std::string::npos) << line << "\nin\n" << text;
    for (const auto& part : c.absent) EXPECT_EQ(text.find(part), std::string::npos) << part << "\nin\n" << text;
  }
}

TEST(ServeMetrics, FailuresAndTheOlderFormat) {
  std::string failed = Probe({{"snmp:PageCount", 5}}, Exposition::OpenMetrics, "timeout");
  EXPECT_EQ(failed.find("page_count"), std::string::npos) << "a failed probe reports no values";

  std::string text = Probe({{"snmp:Model", "a"}}, Exposition::PrometheusText);
  EXPECT_NE(text.find("# TYPE norvane_snmp_model_info gauge\n"), std::string::npos) << text;
  EXPECT_EQ(text.find("# EOF"), std::string::npos);
}

TEST(ServeMetrics, AllowedRanges) {
  AllowList allow;
  allow.Add("10.0.0.0/8,192.0.2.7,,fd00::/12,172.16.0.0/13");
  const std::pair<const char*, bool> hosts[] = {
      {"10.255.0.1", true},       {"11.0.0.1", false}, {"192.0.2.7", true},      {"192.0.2.8", false},
      {"fd0f::1", true},          {"fd10::1", false},  {"172.23.255.255", true}, {"172.24.0.0", false},
      {"::ffff:10.0.0.1", false},  // a mapped address is another family
  };
  for (const auto& [host, allowed] : hosts) {
    std::string why;
    EXPECT_EQ(!allow.Resolve(host, &why).empty(), allowed) << host << ": " << why;
  }
  for (const char* bad : {"10.0.0.0/33", "printer.example", "1.2.3.4/", "::/129", "1.2.3.4/a"}) {
    AllowList list;
    EXPECT_THROW(list.Add(bad), Failure) << bad;
  }
}

}  // namespace
}  // namespace NorvaneCli
