#include "support/string_utils.h"

#include <gtest/gtest.h>

namespace {

using namespace QxUtils;

TEST(StringUtils, AddressFormsAreRecognisedWithoutNameLookup) {
  const struct {
    const char16_t* text;
    bool v4, v6;
  } cases[] = {{u"192.168.0.1", true, false},
               {u"192.168.0.1:631", true, false},
               {u"0.0.0.0:65535", true, false},
               {u"192.168.0.256", false, false},
               {u"192.168.0.1:", false, false},
               {u"192.168.0.1:65536", false, false},
               {u"192.168.0.1:80x", false, false},
               {u"192.168.0.1/80", false, false},
               {u"1234.1.1.1", false, false},
               {u"printer.local", false, false},
               {u"", false, false},
               {nullptr, false, false},
               {u"::1", false, true},
               {u"fe80::1ff:fe23:4567:890a", false, true},
               {u"localhost", false, false},
               {u"[::1]", false, false}};
  for (const auto& c : cases) {
    std::string shown = c.text ? WideToUtf8(c.text) : "<null>";
    EXPECT_EQ(IsIPv4Address(c.text), c.v4) << shown;
    EXPECT_EQ(IsIPv6Address(c.text), c.v6) << shown;
  }
}

TEST(StringUtils, ReplaceStartsWithAndCaseFolding) {
  EXPECT_EQ(ReplaceAll(u"aaaa", u"aa", u"b"), u"bb");
  EXPECT_EQ(ReplaceAll(u"aaa", u"aa", u"aaa"), u"aaaa");  // no rescanning of the replacement
  EXPECT_EQ(ReplaceAll(u"a,b,,c", u",", u""), u"abc");
  EXPECT_EQ(ReplaceAll(u"abc", u"", u"x"), u"abc");
  EXPECT_EQ(ReplaceAll(u"", u"a", u"x"), u"");
  EXPECT_TRUE(StartsWith(u"ipp", u"ipp"));
  EXPECT_FALSE(StartsWith(u"IPP://host", u"ipp"));
  EXPECT_FALSE(StartsWith(u"ip", u"ipp"));
  EXPECT_TRUE(EqualsIgnoreAsciiCase(u"DataMaps", u"DATAMAPS"));
  EXPECT_FALSE(EqualsIgnoreAsciiCase(u"Ä", u"ä"));
  EXPECT_FALSE(EqualsIgnoreAsciiCase(u"ab", u"abc"));
  char16_t* copy = DuplicateString(u"queue");
  EXPECT_EQ(std::u16string(copy), u"queue");
  FreeString(copy);
  EXPECT_EQ(DuplicateString(nullptr), nullptr);
}

TEST(StringUtils, Utf8AndUtf16RoundTripAndMalformedInputBecomesReplacementCharacters) {
  const char* text = "Пример — 打印机 \xF0\x9F\x96\xA8";  // Cyrillic, CJK, printer emoji
  std::u16string wide = Utf8ToWide(text);
  EXPECT_EQ(wide.size(), 15u);  // the emoji is a surrogate pair
  EXPECT_EQ(WideToUtf8(wide), text);
  EXPECT_EQ(Utf8ToWide(static_cast<const char*>(nullptr)), u"");
  EXPECT_EQ(WideToUtf8(static_cast<const char16_t*>(nullptr)), "");
  EXPECT_EQ(Utf8ToWide(std::string_view("a\xFF"
                                        "b")),
            u"a\uFFFDb");
  EXPECT_EQ(Utf8ToWide(std::string_view("\xC3")), u"\uFFFD");                  // truncated sequence
  EXPECT_EQ(Utf8ToWide(std::string_view("\xC0\xAF")), u"\uFFFD");              // overlong
  EXPECT_EQ(Utf8ToWide(std::string_view("\xED\xA0\x80")), u"\uFFFD");          // encoded surrogate
  EXPECT_EQ(WideToUtf8(std::u16string(1, char16_t(0xD800))), "\xEF\xBF\xBD");  // lone surrogate
}

}  // namespace
