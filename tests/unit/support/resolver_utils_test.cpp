#include "support/resolver_utils.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "testlib/capture_log.h"

namespace {

using namespace QxUtils;
using NorvaneTest::CaptureLog;

TEST(ResolverUtils, GetStringLengthLooksAtMost2048Characters) {
  CaptureLog log;
  EXPECT_EQ(GetStringLength(std::u16string(2047, u'x').c_str()), 2047u);
  EXPECT_FALSE(log.Contains("StringCchLength failed"));
  EXPECT_EQ(GetStringLength(std::u16string(2048, u'x').c_str()), 0u);
  auto failures = log.Find("StringCchLength failed", QxLogging::kInfo);
  ASSERT_EQ(failures.size(), 1u);
  EXPECT_EQ(failures[0].text, "StringCchLength failed The parameter is incorrect.");
  EXPECT_EQ(GetStringLength(nullptr), 0u);
}

TEST(ResolverUtils, RegexSearchRefusesEmptyInputAndBadPatterns) {
  EXPECT_TRUE(RegexSearch(u"printer USB001", u"\\bUSB(?!000)\\d{3}$"));
  EXPECT_FALSE(RegexSearch(u"USB000", u"\\bUSB(?!000)\\d{3}$"));
  EXPECT_FALSE(RegexSearch(u"", u"a"));
  EXPECT_FALSE(RegexSearch(nullptr, u"a"));
  EXPECT_FALSE(RegexSearch(u"abc", u"(unclosed"));
}

TEST(ResolverUtils, CaptureSubStringCopiesTheGroupAndNeverPastASmallCallerBuffer) {
  CaptureLog log;
  char16_t buffer[64] = u"untouched";
  EXPECT_EQ(CaptureSubString(u"ipp://host:631/ipp/print", buffer, u"://([^:/]+):(\\d+)", 2, 64), 1);
  EXPECT_EQ(std::u16string(buffer), u"631");
  EXPECT_TRUE(log.Contains("Result is: 631", QxLogging::kInfo));
  // A group beyond the pattern's, no match, an empty capture, a bad pattern.
  const std::pair<const char16_t*, uint32_t> misses[] = {{u"(b)", 5}, {u"x(y)", 1}, {u"(z?)", 1}, {u"(unclosed", 1}};
  for (auto [pattern, group] : misses) {
    char16_t untouched[16] = u"keep";
    EXPECT_EQ(CaptureSubString(u"abc", untouched, pattern, group, 16), 0);
    EXPECT_EQ(std::u16string(untouched), u"keep");
  }
  EXPECT_EQ(CaptureSubString(nullptr, buffer, u"(a)", 1, 16), 0);
  // The copy assumes 1025 characters unless told otherwise.
  std::vector<char16_t> storage(260 + 8, u'#');
  EXPECT_EQ(CaptureSubString(std::u16string(600, u'q').c_str(), storage.data(), u"(q+)", 1, 260), 1);
  EXPECT_EQ(std::u16string(storage.data()).size(), 259u);
  for (size_t i = 260; i < storage.size(); ++i) EXPECT_EQ(storage[i], u'#') << i;
}

TEST(ResolverUtils, CopiesAreBoundedAndReportTheirStatus) {
  CaptureLog log;
  char16_t small[8];
  std::fill(std::begin(small), std::end(small), u'#');
  EXPECT_EQ(StrWcsNCpy(small, u"abcdefghijk", 12, 5), HRESULT_INSUFFICIENT_BUFFER);
  EXPECT_EQ(std::u16string(small), u"abcd");
  EXPECT_EQ(small[5], u'#');
  EXPECT_TRUE(log.Contains("StringCchCopyNW failed", QxLogging::kInfo));
  char16_t dest[32];
  EXPECT_EQ(StrWcsNCpy(dest, u"abcdef", 3), S_OK);  // count cuts without error
  EXPECT_EQ(std::u16string(dest), u"abc");
  EXPECT_EQ(StrWcsNCpy(dest, u"xy", 100), S_OK);  // stops after the terminator
  EXPECT_EQ(std::u16string(dest), u"xy");
  EXPECT_EQ(StrWcsNCpy(dest, u"xy", 0x7FFFFFFFu), E_INVALIDARG);
  EXPECT_EQ(dest[0], 0);
  EXPECT_EQ(StrWcsNCpy(nullptr, u"xy", 2), E_INVALIDARG);
  EXPECT_TRUE(log.Contains("Source or Destination String is NULL"));

  std::fill(std::begin(dest), std::end(dest), u'#');
  EXPECT_EQ(StrWcsCpy(dest, 3, u"abcdef"), HRESULT_INSUFFICIENT_BUFFER);
  EXPECT_EQ(std::u16string(dest), u"ab");
  EXPECT_EQ(dest[3], u'#');
  EXPECT_EQ(StrWcsCpy(dest, 4, u"abc"), S_OK);
  EXPECT_EQ(std::u16string(dest), u"abc");
  EXPECT_EQ(StrWcsCpy(dest, 0x80000000u, u"a"), E_INVALIDARG);
  EXPECT_EQ(StrWcsCpy(dest, 4, nullptr), E_INVALIDARG);
}

TEST(ResolverUtils, FormatErrorTextIsPerCall) {
  EXPECT_EQ(FormatErrorText(0x80070057), u"The parameter is incorrect.");
  EXPECT_EQ(FormatErrorText(0x12345678), u"Format message failed");
  // Two threads formatting at once each get their own text.
  std::u16string a, b;
  std::thread other([&] {
    for (int i = 0; i < 2000; ++i) a = FormatErrorText(2);
  });
  for (int i = 0; i < 2000; ++i) b = FormatErrorText(5);
  other.join();
  EXPECT_EQ(a, u"The system cannot find the file specified.");
  EXPECT_EQ(b, u"Access is denied.");
}

}  // namespace
