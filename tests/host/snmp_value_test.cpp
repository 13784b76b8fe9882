// SNMP object identifiers and values as the library sees them.
#include <gtest/gtest.h>

#include <cstring>

#include "norvane/com.h"
#include "snmp_value.h"

namespace NorvaneHost {
namespace {

// A received variable of the given type built the way net-snmp builds them.
struct Variable {
  Variable(u_char type, const void* value, size_t length) {
    oid name[] = {1, 3, 6, 1, 2, 1, 1, 1, 0};
    list = snmp_varlist_add_variable(&list, name, 9, type, value, length);
  }
  ~Variable() { snmp_free_varbind(list); }
  netsnmp_variable_list* list = nullptr;
};

Norvane::Variant Convert(u_char type, const void* value, size_t length, HRESULT expected = S_OK) {
  Variable variable(type, value, length);
  Norvane::Variant out;
  EXPECT_EQ(expected, VariableToVariant(*variable.list, out.Ptr()));
  return out;
}

std::u16string Text(const Norvane::Variant& value) {
  return value.Type() == VT_BSTR ? std::u16string(value.Get().bstrVal, SysStringLen(value.Get().bstrVal))
                                 : u"<not text>";
}

TEST(SnmpValueTest, OidTextRoundTripsAndRejectsWhatIsNotAnOid) {
  auto arcs = ParseOid(u".1.3.6.1.2.1.25.3.2.1.3.1");
  ASSERT_TRUE(arcs);
  EXPECT_EQ(12u, arcs->size());
  EXPECT_EQ(u"1.3.6.1.2.1.25.3.2.1.3.1", FormatOid(arcs->data(), arcs->size()));
  auto big = ParseOid(u"1.3.4294967295");
  ASSERT_TRUE(big);
  EXPECT_EQ(4294967295u, (*big)[2]);
  for (const char16_t* bad : {u"", u"1", u".", u"1..3", u"1.3.", u"1.3.a", u"1.3.4294967296", u"1.3.-6",
                              u" 1.3", u"iso.3.6"}) {
    EXPECT_FALSE(ParseOid(bad));
  }
  std::u16string longest = u"1";
  for (int i = 1; i < MAX_OID_LEN; ++i) longest += u".1";
  EXPECT_TRUE(ParseOid(longest));
  EXPECT_FALSE(ParseOid(longest + u".1"));
}

TEST(SnmpValueTest, NumbersBecomeIntegersUnlessTooLarge) {
  long negative = -5;
  Norvane::Variant integer = Convert(ASN_INTEGER, &negative, sizeof negative);
  EXPECT_EQ(VT_I4, integer.Type());
  EXPECT_EQ(-5, integer.Get().lVal);

  u_long small = 62, huge = 3000000000u;
  Norvane::Variant gauge = Convert(ASN_GAUGE, &small, sizeof small);
  EXPECT_EQ(VT_I4, gauge.Type());
  EXPECT_EQ(62, gauge.Get().lVal);
  // A page counter past 2^31 keeps its value as decimal text.
  EXPECT_EQ(u"3000000000", Text(Convert(ASN_COUNTER, &huge, sizeof huge)));
  counter64 c64{1, 5};  // 2^32 + 5
  EXPECT_EQ(u"4294967301", Text(Convert(ASN_COUNTER64, &c64, sizeof c64)));
}

TEST(SnmpValueTest, OctetStringsAreTextOnlyWhenTheyReadAsText) {
  const char name[] = "Norvane NX-4100 \xC3\xA9";
  EXPECT_EQ(u"Norvane NX-4100 \u00E9", Text(Convert(ASN_OCTET_STR, name, std::strlen(name))));
  // Devices often pad with zero bytes.
  const char padded[] = {'A', 'B', '\0', '\0'};
  EXPECT_EQ(u"AB", Text(Convert(ASN_OCTET_STR, padded, sizeof padded)));
  EXPECT_EQ(u"", Text(Convert(ASN_OCTET_STR, "", 0)));

  // Not UTF-8 but printable as Latin-1.
  const char latin1[] = "Imprimante r\xE9seau \xC3(";
  EXPECT_EQ(u"Imprimante r\u00E9seau \u00C3(", Text(Convert(ASN_OCTET_STR, latin1, std::strlen(latin1))));

  // A MAC address and bytes with a control character (Latin-1's C1 ones too) are not text.
  for (std::string bytes : {std::string("\x00\x1b\x78\xAA\xBB\xCC", 6), std::string("ab\x01", 3),
                            std::string("r\x85sum\xE9", 6)}) {
    Norvane::Variant raw = Convert(ASN_OCTET_STR, bytes.data(), bytes.size());
    ASSERT_EQ(VT_ARRAY | VT_UI1, raw.Type());
    ASSERT_EQ(bytes.size(), raw.Get().parray->rgsabound[0].cElements);
    EXPECT_EQ(0, std::memcmp(bytes.data(), raw.Get().parray->pvData, bytes.size()));
  }
}

TEST(SnmpValueTest, IdentifiersAddressesAndExceptions) {
  oid type[] = {1, 3, 6, 1, 2, 1, 25, 3, 1, 5};
  EXPECT_EQ(u"1.3.6.1.2.1.25.3.1.5", Text(Convert(ASN_OBJECT_ID, type, sizeof type)));
  const u_char ip[] = {192, 0, 2, 17};
  EXPECT_EQ(u"192.0.2.17", Text(Convert(ASN_IPADDRESS, ip, sizeof ip)));
  Convert(SNMP_NOSUCHOBJECT, nullptr, 0, E_FAIL);
  Convert(SNMP_NOSUCHINSTANCE, nullptr, 0, E_FAIL);
  Convert(SNMP_ENDOFMIBVIEW, nullptr, 0, E_FAIL);
}

TEST(SnmpValueTest, AGetNextAnswerMustLieAfterTheOidAsked) {
  const std::vector<oid> asked = {1, 3, 6, 1, 2, 1, 43, 11, 1, 1, 9, 1};
  struct Case {
    std::vector<oid> answer;
    bool follows;
  } const cases[] = {
      {{1, 3, 6, 1, 2, 1, 43, 11, 1, 1, 9, 1, 1}, true},  // the first object below it
      {{1, 3, 6, 1, 2, 1, 43, 11, 1, 1, 9, 2}, true},
      {{1, 3, 6, 1, 2, 1, 43, 12}, true},
      {{1, 3, 6, 1, 2, 1, 43, 11, 1, 1, 9, 1}, false},  // the same object again
      {{1, 3, 6, 1, 2, 1, 43, 11, 1, 1, 9}, false},     // its parent
      {{1, 3, 6, 1, 2, 1, 43, 11, 1, 1, 8, 7}, false},
  };
  for (const auto& c : cases) {
    long zero = 0;
    netsnmp_variable_list* list = nullptr;
    list = snmp_varlist_add_variable(&list, c.answer.data(), c.answer.size(), ASN_INTEGER, &zero, sizeof zero);
    EXPECT_EQ(c.follows, FollowsOid(*list, asked)) << c.answer.size();
    snmp_free_varbind(list);
  }
}

TEST(SnmpValueTest, SetValuesMapVariantKinds) {
  auto fromInt = VariantToSetValue(Norvane::Variant::FromInt(1).Get());  // what the library sends
  ASSERT_TRUE(fromInt);
  EXPECT_EQ(ASN_INTEGER, fromInt->type);
  EXPECT_EQ(1, fromInt->integer);
  auto fromI4 = VariantToSetValue(Norvane::Variant::FromInt32(-7).Get());
  ASSERT_TRUE(fromI4);
  EXPECT_EQ(-7, fromI4->integer);
  auto fromText = VariantToSetValue(Norvane::Variant::FromString(u"Fl\u00FCr 2").Get());
  ASSERT_TRUE(fromText);
  EXPECT_EQ(ASN_OCTET_STR, fromText->type);
  EXPECT_EQ("Fl\xC3\xBCr 2", fromText->bytes);
  const uint8_t raw[] = {0, 1, 255};
  auto fromBytes = VariantToSetValue(Norvane::Variant::FromBytes(raw, 3).Get());
  ASSERT_TRUE(fromBytes);
  EXPECT_EQ(std::string("\x00\x01\xFF", 3), fromBytes->bytes);
  EXPECT_FALSE(VariantToSetValue(Norvane::Variant().Get()));
}

}  // namespace
}  // namespace NorvaneHost
