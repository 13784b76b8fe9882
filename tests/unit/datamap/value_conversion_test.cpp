// ConvertValue: equals before contains, the comma rules, defaults, text forms of
// raw values, and the raw value kept when nothing applies.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "datamap_test_support.h"

namespace {

using namespace Norvane;
using DataMapTest::Adopt;
using DataMapTest::Parse;
using DataMapTest::Root;
using DataMapTest::ShowVariant;

std::unique_ptr<DataItemSpec> ItemWith(const std::string& conversions) {
  auto document = Parse("<DataItem Name=\"x\">" + conversions + "</DataItem>");
  return std::unique_ptr<DataItemSpec>(XMLDataItemSpec::CreateXMLDataItem(Root(document)));
}

Variant Bytes(std::initializer_list<uint8_t> bytes) {
  std::vector<uint8_t> data(bytes);
  return Variant::FromBytes(data.data(), data.size());
}

Variant Flag() {
  Variant v;
  v.Ptr()->vt = VT_BOOL;
  v.Ptr()->boolVal = -1;
  return v;
}

constexpr const char* kStatus =
    "<conversion Equals=\"3\" Value=\"idle\"/><Conversion Equals=\"READY\" Value=\"Ready\"/>"
    "<Conversion Equals=\"1-100\" Value=\"range\"/><Conversion Equals=\"-7\" Value=\"negative\"/>";
constexpr const char* kContains =
    "<Conversion Contains=\"toner\" Value=\"Supply\"/><Conversion Contains=\"media,jam\" Value=\"Jam\"/>";
constexpr const char* kOrder =
    "<Conversion Contains=\"b\" Value=\"from b\"/><Conversion Contains=\"a\" Value=\"from a\"/>"
    "<Conversion Equals=\"a,b\" Value=\"exact\"/><Conversion Contains=\"B\" Value=\"later b\"/>";
constexpr const char* kDefaults =
    "<Conversion Contains=\"DEFAULT\" Value=\"from contains\"/><Conversion Equals=\"Default\" Value=\"Other\"/>"
    "<Conversion Equals=\"3\" Value=\"idle\"/>";

constexpr const char* kForms =
    "<Conversion Equals=\"\" Value=\"blank\"/><Conversion Equals=\"-2147483648\" Value=\"min\"/>"
    "<Conversion Equals=\"-2-2147483647\" Value=\"range\"/><Conversion Equals=\"\u00e9a\" Value=\"lowered\"/>";

Variant NullText() {
  VARIANT text;
  VariantInit(&text);
  text.vt = VT_BSTR;
  return Variant(text);
}

TEST(ConvertValue, Rules) {
  const struct {
    const char* conversions;
    Variant raw;
    std::string expected;
  } rows[] = {
      // Without usable conversions the raw value keeps its type, as a copy (a
      // byte array handed back as is would be freed twice here).
      {"<Other Equals=\"3\" Value=\"x\"/><Conversion Equals=\"3\"/><Conversion Value=\"no key\"/>",
       Variant::FromInt32(3), "i4:3"},
      {"", Bytes({1, 2, 3}), "vt8209"},
      // Equals matches the lower-cased text form of any raw kind, exactly.
      {kStatus, Variant::FromInt32(3), "str:idle"},
      {kStatus, Variant::FromString(u"3"), "str:idle"},
      {kStatus, Variant::FromInt32(30), "i4:30"},
      {kStatus, Variant::FromInt32(-7), "str:negative"},
      {kStatus, Variant::FromString(u"ReAdY"), "str:Ready"},
      {kStatus, Variant::FromString(u"ready "), "str:ready "},
      {kStatus, Bytes({0, 0, 0, 1, 0, 0, 0, 0x64}), "str:range"},  // an IPP range: two big-endian integers
      {kStatus, Bytes({0, 0, 0, 1, 0, 0, 0, 0x64, 3}), "str:range"},
      {kStatus, Variant::FromInt(3), "vt22"},  // VT_INT has no text form here
      // Contains: a whole comma token, or a fragment of one when the key has a comma.
      {kContains, Variant::FromString(u"toner"), "str:Supply"},
      {kContains, Variant::FromString(u"black toner"), "str:black toner"},
      {kContains, Variant::FromString(u"paper,TONER,door"), "str:Supply"},
      {kContains, Variant::FromString(u"paper,toner-low"), "str:paper,toner-low"},
      {kContains, Variant::FromString(u"media-jam-error"), "str:Jam"},
      {kContains, Variant::FromString(u"jam,media"), "str:Jam"},
      {kContains, Variant::FromString(u"media-empty"), "str:media-empty"},
      // Equals before contains; among contains keys, lower-cased key order; the later value of one key.
      {kOrder, Variant::FromString(u"a,b"), "str:exact"},
      {kOrder, Variant::FromString(u"b,a,c"), "str:from a"},
      {kOrder, Variant::FromString(u"b"), "str:later b"},
      {"<Conversion Contains=\"Zeta\" Value=\"z\"/><Conversion Contains=\"alpha\" Value=\"a\"/>",
       Variant::FromString(u"zeta,alpha"), "str:a"},
      // A default in the equals table wins over one in the contains table, and
      // converts even an empty raw value.
      {kDefaults, Variant::FromInt32(4), "str:Other"},
      {kDefaults, Variant(), "str:Other"},
      {kDefaults, Variant::FromInt32(3), "str:idle"},
      {"<Conversion Contains=\"default\" Value=\"fallback\"/>", Variant::FromString(u"anything"), "str:fallback"},
      // Both attributes on one element fill both tables.
      {"<Conversion Equals=\"X\" Contains=\"Y\" Value=\"v\"/>", Variant::FromString(u"x"), "str:v"},
      {"<Conversion Equals=\"X\" Contains=\"Y\" Value=\"v\"/>", Variant::FromString(u"a,y"), "str:v"},
      // An empty key is the only way, besides a default, to convert a boolean.
      {"<Conversion Equals=\"\" Value=\"blank\"/>", Flag(), "str:blank"},
      {"<Conversion Equals=\"\" Value=\"blank\"/>", Variant::FromString(u"x"), "str:x"},
      {kForms, Bytes({0, 0, 0, 1}), "str:blank"},  // too short for a range: no text
      {kForms, NullText(), "str:blank"},
      {kForms, Variant::FromInt32(INT32_MIN), "str:min"},
      {kForms, Bytes({0xff, 0xff, 0xff, 0xfe, 0x7f, 0xff, 0xff, 0xff}), "str:range"},
      {kForms, Variant::FromString(u"\u00c9A"), "str:?A"},  // only ASCII letters are lowered
      {"<Conversion Contains=\"x,\" Value=\"f\"/>", Variant::FromString(u"yxy"), "str:f"},  // an empty fragment
      {"<Conversion Contains=\"\" Value=\"e\"/>", Variant::FromString(u"a,,b"), "str:e"},   // an empty token
      {"<Conversion Contains=\"\" Value=\"e\"/>", Variant::FromString(u"a,b"), "str:a,b"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ShowVariant(Adopt(ItemWith(row.conversions)->ConvertValue(row.raw.Get()))), row.expected)
        << row.conversions << " on " << ShowVariant(row.raw);
  }
}

TEST(ConvertValue, ConversionsAddedInMemoryAndOnStaticItems) {
  std::unique_ptr<StaticDataItemSpec> item(StaticDataItemSpec::CreateStaticDataItemSpec(u"s", u"v", nullptr));
  item->AddConversion(u"On", nullptr, u"enabled");
  item->AddConversion(nullptr, u"warn", u"warning");
  item->AddConversion(u"ignored", u"ignored", nullptr);
  EXPECT_EQ(ShowVariant(Adopt(item->ConvertValue(Variant::FromString(u"ON").Get()))), "str:enabled");
  EXPECT_EQ(ShowVariant(Adopt(item->ConvertValue(Variant::FromString(u"ok,warn").Get()))), "str:warning");
  EXPECT_EQ(item->GetEqualsConversions().size(), 1u);
}

}  // namespace
