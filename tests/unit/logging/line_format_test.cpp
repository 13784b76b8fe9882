// The prefix fields and tags of a line, from fixed facts.
#include "support/logging/line_format.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "support/logging/process_facts.h"

namespace {

using QxLogging::CategoryTags;
using QxLogging::LinePrefix;
using QxLogging::LinePrefixFacts;

LinePrefixFacts Facts() {
  LinePrefixFacts facts;
  facts.localTime.tm_year = 2026 - 1900;
  facts.localTime.tm_mon = 0;
  facts.localTime.tm_mday = 5;
  facts.localTime.tm_hour = 7;
  facts.localTime.tm_min = 8;
  facts.localTime.tm_sec = 9;
  facts.micros = 12345678901234ull;  // beyond ten digits: shown modulo 10^10
  facts.millisSinceLast = 42;
  facts.processId = "[321] ";
  facts.threadId = 0xAB;
  return facts;
}

TEST(LineFormat, EveryPrefixFieldInItsOrder) {
  const uint32_t all = 0x1000000 | 0x2000000 | 0x20000000 | 0x10000000 | 0x4000000 | 0x8000000;
  EXPECT_EQ(LinePrefix(all, 0x400, 17, Facts()),
            "2026/01/05 07:08:09 5678901234 (000042 ms) [321] {tid: 0x00AB} 0017: (->) ");
  EXPECT_EQ(LinePrefix(all | 0x800000, 0x800, 0, Facts()),
            "20260105070809:5678901234 (000042 ms) [321] {tid: 0x00AB}       (<-) ");
  EXPECT_EQ(LinePrefix(0, 0x10, 99, Facts()), "(I0) ");
  LinePrefixFacts slow = Facts();
  slow.millisSinceLast = 12345678;
  EXPECT_EQ(LinePrefix(0x10000000, 0, 0, slow), "(12345678 ms) ");
}

TEST(LineFormat, TagsFollowTheFixedOrder) {
  EXPECT_EQ(CategoryTags(0), "");
  EXPECT_EQ(CategoryTags(0x800 | 0x400 | 0x20 | 0x80 | 0x13), "(EX) (##) (I3) (->) (<-) ");
  EXPECT_EQ(CategoryTags(0x40000000 | 0x40 | 0x100 | 0x200), "(WN) (++) (ST) (DB) ");
  EXPECT_EQ(CategoryTags(0x20000000 | 0x2000000 | 0x4000000 | 0x3000), "(**) (LK) (IP) (M3) ");
  // Level bits without 0x10 give no information tag; debugger routing has none.
  EXPECT_EQ(CategoryTags(0x0F | 0x8000000), "");
}

TEST(LineFormat, EnvironmentReferencesInEveryNotation) {
  setenv("NV_LOG_A", "/var/log", 1);
  setenv("NV_LOG_B", "qx", 1);
  unsetenv("NV_LOG_UNSET");
  using QxLogging::ExpandEnvironmentReferences;
  EXPECT_EQ(ExpandEnvironmentReferences("${NV_LOG_A}/$NV_LOG_B.log"), "/var/log/qx.log");
  EXPECT_EQ(ExpandEnvironmentReferences("%NV_LOG_A%\\%NV_LOG_B%.log"), "/var/log\\qx.log");
  EXPECT_EQ(ExpandEnvironmentReferences("$NV_LOG_UNSET/${NV_LOG_UNSET}/%NV_LOG_UNSET%/x"),
            "$NV_LOG_UNSET/${NV_LOG_UNSET}/%NV_LOG_UNSET%/x");
  EXPECT_EQ(ExpandEnvironmentReferences("100% sure $ ${} %%"), "100% sure $ ${} %%");
  EXPECT_EQ(ExpandEnvironmentReferences("a$NV_LOG_B-b"), "aqx-b");
}

}  // namespace
