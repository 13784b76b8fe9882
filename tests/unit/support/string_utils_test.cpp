#include <gtest/gtest.h>

#include "support/string_utils.h"

namespace {

using namespace QxUtils;

TEST(StringUtils, IPv4AddressAcceptsDottedQuadsAndOptionalPort) {
  EXPECT_TRUE(IsIPv4Address(u"192.168.0.1"));
  EXPECT_TRUE(IsIPv4Address(u"192.168.0.1:631"));
  EXPECT_TRUE(IsIPv4Address(u"0.0.0.0:65535"));
  EXPECT_FALSE(IsIPv4Address(u"192.168.0.256"));
  EXPECT_FALSE(IsIPv4Address(u"192.168.0.1:"));
  EXPECT_FALSE(IsIPv4Address(u"192.168.0.1:70000"));
  EXPECT_FALSE(IsIPv4Address(u"192.168.0.1:65536"));
  EXPECT_FALSE(IsIPv4Address(u"192.168.0.1:80x"));
  EXPECT_FALSE(IsIPv4Address(u"192.168.0.1/80"));
  EXPECT_FALSE(IsIPv4Address(u"1234.1.1.1"));
  EXPECT_FALSE(IsIPv4Address(u"printer.local"));
  EXPECT_FALSE(IsIPv4Address(u""));
  EXPECT_FALSE(IsIPv4Address(nullptr));
}

TEST(StringUtils, IPv6AddressIsNumericOnly) {
  EXPECT_TRUE(IsIPv6Address(u"::1"));
  EXPECT_TRUE(IsIPv6Address(u"fe80::1ff:fe23:4567:890a"));
  EXPECT_FALSE(IsIPv6Address(u"192.168.0.1"));
  EXPECT_FALSE(IsIPv6Address(u"localhost"));  // no name lookup
  EXPECT_FALSE(IsIPv6Address(u"[::1]"));
  EXPECT_FALSE(IsIPv6Address(nullptr));
}

TEST(StringUtils, ReplaceAllResumesAfterEachMatch) {
  EXPECT_EQ(ReplaceAll(u"aaaa", u"aa", u"b"), u"bb");
  EXPECT_EQ(ReplaceAll(u"aaa", u"aa", u"aaa"), u"aaaa");  // no rescanning of the replacement
  EXPECT_EQ(ReplaceAll(u"a,b,,c", u",", u""), u"abc");
  EXPECT_EQ(ReplaceAll(u"abc", u"", u"x"), u"abc");
  EXPECT_EQ(ReplaceAll(u"", u"a", u"x"), u"");
  EXPECT_EQ(ReplaceAll(u"xyz", u"xyzw", u"q"), u"xyz");
}

TEST(StringUtils, StartsWithIsCaseSensitive) {
  EXPECT_TRUE(StartsWith(u"ipps://host", u"ipps"));
  EXPECT_TRUE(StartsWith(u"ipp", u"ipp"));
  EXPECT_FALSE(StartsWith(u"IPP://host", u"ipp"));
  EXPECT_FALSE(StartsWith(u"ip", u"ipp"));
  EXPECT_TRUE(StartsWith(u"anything", u""));
}

TEST(StringUtils, Utf8AndUtf16RoundTripIncludingSupplementaryPlanes) {
  const char* text = "Пример — 打印机 \xF0\x9F\x96\xA8";  // Cyrillic, CJK, printer emoji
  std::u16string wide = Utf8ToWide(text);
  EXPECT_EQ(wide.size(), 15u);  // the emoji is a surrogate pair
  EXPECT_EQ(WideToUtf8(wide), text);
  EXPECT_EQ(Utf8ToWide(static_cast<const char*>(nullptr)), u"");
  EXPECT_EQ(WideToUtf8(static_cast<const char16_t*>(nullptr)), "");
}

TEST(StringUtils, MalformedUtf8BecomesReplacementCharacters) {
  EXPECT_EQ(Utf8ToWide(std::string_view("a\xFF" "b")), u"a\uFFFDb");
  EXPECT_EQ(Utf8ToWide(std::string_view("\xC3")), u"\uFFFD");           // truncated sequence
  EXPECT_EQ(Utf8ToWide(std::string_view("\xC0\xAF")), u"\uFFFD");        // overlong
  EXPECT_EQ(Utf8ToWide(std::string_view("\xED\xA0\x80")), u"\uFFFD");    // encoded surrogate
  EXPECT_EQ(WideToUtf8(std::u16string(1, char16_t(0xD800))), "\xEF\xBF\xBD");  // lone surrogate
}

TEST(StringUtils, DuplicateStringCopiesWithTerminator) {
  char16_t* copy = DuplicateString(u"queue");
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(std::u16string(copy), u"queue");
  FreeString(copy);
  EXPECT_EQ(DuplicateString(nullptr), nullptr);
}

TEST(StringUtils, AsciiCaseFoldingLeavesOtherLettersAlone) {
  EXPECT_TRUE(EqualsIgnoreAsciiCase(u"DataMaps", u"DATAMAPS"));
  EXPECT_FALSE(EqualsIgnoreAsciiCase(u"Ä", u"ä"));
  EXPECT_FALSE(EqualsIgnoreAsciiCase(u"ab", u"abc"));
}

}  // namespace
