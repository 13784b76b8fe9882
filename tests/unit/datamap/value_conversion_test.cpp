// ConvertValue: equals before contains, the comma rules, defaults, text forms of
// raw values, and the raw value kept when nothing applies.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "datamap/value_conversion.h"
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

std::string Convert(const NvoDataItem& item, const Variant& raw) {
  return ShowVariant(Adopt(item.ConvertValue(raw.Get())));
}

Variant Bytes(std::initializer_list<uint8_t> bytes) {
  std::vector<uint8_t> data(bytes);
  return Variant::FromBytes(data.data(), data.size());
}

TEST(ConvertValue, WithoutConversionsTheRawValueKeepsItsType) {
  auto item = ItemWith("<Other Equals=\"3\" Value=\"ignored\"/><Conversion Equals=\"3\"/>"
                       "<Conversion Value=\"no key\"/>");
  EXPECT_TRUE(item->GetEqualsConversions().empty());
  EXPECT_TRUE(item->GetContainsConversions().empty());
  EXPECT_EQ(Convert(*item, Variant::FromInt32(3)), "i4:3");
  EXPECT_EQ(Convert(*item, Variant::FromString(u"READY")), "str:READY");
  Variant bytes = Bytes({1, 2, 3});
  Variant converted = Adopt(item->ConvertValue(bytes.Get()));
  ASSERT_EQ(converted.Type(), VT_ARRAY | VT_UI1);
  EXPECT_NE(converted.Get().parray, bytes.Get().parray);  // a copy, not the caller's array
  EXPECT_EQ(converted.Get().parray->rgsabound[0].cElements, 3u);
}

TEST(ConvertValue, EqualsMatchesTheLowerCasedTextForm) {
  auto item = ItemWith(
      "<conversion Equals=\"3\" Value=\"idle\"/><Conversion Equals=\"READY\" Value=\"Ready\"/>"
      "<Conversion Equals=\"1-100\" Value=\"range\"/><Conversion Equals=\"-7\" Value=\"negative\"/>");
  EXPECT_EQ(Convert(*item, Variant::FromInt32(3)), "str:idle");
  EXPECT_EQ(Convert(*item, Variant::FromString(u"3")), "str:idle");
  EXPECT_EQ(Convert(*item, Variant::FromInt32(30)), "i4:30");
  EXPECT_EQ(Convert(*item, Variant::FromInt32(-7)), "str:negative");
  EXPECT_EQ(Convert(*item, Variant::FromString(u"ReAdY")), "str:Ready");
  EXPECT_EQ(Convert(*item, Variant::FromString(u"ready ")), "str:ready ");
  // A range or resolution from IPP: two big-endian integers.
  EXPECT_EQ(Convert(*item, Bytes({0, 0, 0, 1, 0, 0, 0, 0x64})), "str:range");
  EXPECT_EQ(Convert(*item, Bytes({0, 0, 0, 1, 0, 0, 0, 0x64, 3})), "str:range");
  // VT_INT is not a 32-bit integer here: its text form is empty.
  EXPECT_EQ(Convert(*item, Variant::FromInt(3)), "vt22");
}

TEST(ConvertValue, TextFormsOfEveryRawKind) {
  std::u16string text;
  DataMapDetail::LowerTextForm(Variant::FromInt32(INT32_MIN).Get(), &text);
  EXPECT_EQ(text, u"-2147483648");
  DataMapDetail::LowerTextForm(Bytes({0xff, 0xff, 0xff, 0xfe, 0x7f, 0xff, 0xff, 0xff}).Get(), &text);
  EXPECT_EQ(text, u"-2-2147483647");
  DataMapDetail::LowerTextForm(Bytes({0, 0, 0, 1}).Get(), &text);
  EXPECT_EQ(text, u"");
  DataMapDetail::LowerTextForm(Variant::FromString(u"\u00c9A\u00e9Z").Get(), &text);
  EXPECT_EQ(text, u"\u00c9a\u00e9z");  // only ASCII letters change
  VARIANT flag;
  VariantInit(&flag);
  flag.vt = VT_BOOL;
  flag.boolVal = -1;
  DataMapDetail::LowerTextForm(flag, &text);
  EXPECT_EQ(text, u"");
  VARIANT nullString;
  VariantInit(&nullString);
  nullString.vt = VT_BSTR;
  DataMapDetail::LowerTextForm(nullString, &text);
  EXPECT_EQ(text, u"");
}

TEST(ConvertValue, ContainsTokensAndFragments) {
  auto item = ItemWith("<Conversion Contains=\"toner\" Value=\"Supply\"/>"
                       "<Conversion Contains=\"media,jam\" Value=\"Jam\"/>");
  EXPECT_EQ(Convert(*item, Variant::FromString(u"toner")), "str:Supply");
  EXPECT_EQ(Convert(*item, Variant::FromString(u"black toner")), "str:black toner");
  EXPECT_EQ(Convert(*item, Variant::FromString(u"paper,TONER,door")), "str:Supply");
  EXPECT_EQ(Convert(*item, Variant::FromString(u"paper,toner-low")), "str:paper,toner-low");
  EXPECT_EQ(Convert(*item, Variant::FromString(u"media-jam-error")), "str:Jam");
  EXPECT_EQ(Convert(*item, Variant::FromString(u"jam,media")), "str:Jam");
  EXPECT_EQ(Convert(*item, Variant::FromString(u"media-empty")), "str:media-empty");

  EXPECT_TRUE(DataMapDetail::ContainsKeyMatches(u"a,", u"xa"));   // an empty fragment always occurs
  EXPECT_TRUE(DataMapDetail::ContainsKeyMatches(u",", u""));
  EXPECT_TRUE(DataMapDetail::ContainsKeyMatches(u"", u"a,,b"));  // empty token of the raw text
  EXPECT_FALSE(DataMapDetail::ContainsKeyMatches(u"", u"a,b"));
  EXPECT_TRUE(DataMapDetail::ContainsKeyMatches(u"b", u"a,b"));
  EXPECT_FALSE(DataMapDetail::ContainsKeyMatches(u"a,b", u"a"));
}

TEST(ConvertValue, EqualsBeforeContainsAndKeyOrderAmongContains) {
  auto item = ItemWith("<Conversion Contains=\"b\" Value=\"from b\"/>"
                       "<Conversion Contains=\"a\" Value=\"from a\"/>"
                       "<Conversion Equals=\"a,b\" Value=\"exact\"/>"
                       "<Conversion Contains=\"B\" Value=\"later b\"/>");
  EXPECT_EQ(Convert(*item, Variant::FromString(u"a,b")), "str:exact");
  EXPECT_EQ(Convert(*item, Variant::FromString(u"b,a,c")), "str:from a");  // "a" sorts before "b"
  EXPECT_EQ(Convert(*item, Variant::FromString(u"b")), "str:later b");    // same key: the later value
  // "Z" sorts before "a" by code unit, but keys are lower-cased on the way in.
  auto ordered = ItemWith("<Conversion Contains=\"Zeta\" Value=\"z\"/><Conversion Contains=\"alpha\" Value=\"a\"/>");
  EXPECT_EQ(Convert(*ordered, Variant::FromString(u"zeta,alpha")), "str:a");
}

TEST(ConvertValue, DefaultsEqualsTableFirst) {
  auto both = ItemWith("<Conversion Contains=\"DEFAULT\" Value=\"from contains\"/>"
                       "<Conversion Equals=\"Default\" Value=\"Other\"/>"
                       "<Conversion Equals=\"3\" Value=\"idle\"/>");
  EXPECT_EQ(Convert(*both, Variant::FromInt32(4)), "str:Other");
  EXPECT_EQ(Convert(*both, Variant()), "str:Other");
  EXPECT_EQ(Convert(*both, Variant::FromInt32(3)), "str:idle");

  auto containsOnly = ItemWith("<Conversion Contains=\"default\" Value=\"fallback\"/>");
  EXPECT_EQ(Convert(*containsOnly, Variant::FromString(u"anything")), "str:fallback");

  // Both attributes on one element fill both tables.
  auto twoWay = ItemWith("<Conversion Equals=\"X\" Contains=\"Y\" Value=\"v\"/>");
  EXPECT_EQ(twoWay->GetEqualsConversions().count(u"x"), 1u);
  EXPECT_EQ(twoWay->GetContainsConversions().count(u"y"), 1u);

  // An empty key is the only way, besides a default, to convert a raw boolean.
  auto emptyKey = ItemWith("<Conversion Equals=\"\" Value=\"blank\"/>");
  VARIANT flag;
  VariantInit(&flag);
  flag.vt = VT_BOOL;
  EXPECT_EQ(ShowVariant(Adopt(emptyKey->ConvertValue(flag))), "str:blank");
  EXPECT_EQ(Convert(*emptyKey, Variant::FromString(u"x")), "str:x");
}

TEST(ConvertValue, ConversionsAddedInMemoryAndOnStaticItems) {
  std::unique_ptr<StaticDataItemSpec> item(StaticDataItemSpec::CreateStaticDataItemSpec(u"s", u"v", nullptr));
  item->AddConversion(u"On", nullptr, u"enabled");
  item->AddConversion(nullptr, u"warn", u"warning");
  item->AddConversion(u"ignored", u"ignored", nullptr);
  EXPECT_EQ(Convert(*item, Variant::FromString(u"ON")), "str:enabled");
  EXPECT_EQ(Convert(*item, Variant::FromString(u"ok,warn")), "str:warning");
  EXPECT_EQ(item->GetEqualsConversions().size(), 1u);
}

}  // namespace
