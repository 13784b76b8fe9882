// SNMP object identifiers and values as the library sees them.
#include "snmp_value.h"

#include <gtest/gtest.h>

#include "norvane/com.h"

namespace NorvaneHost {
namespace {

// A received variable of the given type built the way net-snmp builds them.
struct Variable {
  Variable(u_char type, const void* value, size_t length, std::vector<oid> name = {1, 3, 6, 1, 2, 1, 1, 1, 0}) {
    list = snmp_varlist_add_variable(&list, name.data(), name.size(), type, value, length);
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

std::u16string Widen(const std::string& bytes) { return std::u16string(bytes.begin(), bytes.end()); }

// A converted value as text: integers in decimal, bytes one to a character.
std::u16string Text(const Norvane::Variant& value) {
  const VARIANT& v = value.Get();
  if (v.vt == VT_I4) return Widen(std::to_string(v.lVal));
  if (v.vt == (VT_ARRAY | VT_UI1)) {
    return Widen(std::string(static_cast<const char*>(v.parray->pvData), v.parray->rgsabound[0].cElements));
  }
  return v.vt == VT_BSTR ? std::u16string(v.bstrVal, SysStringLen(v.bstrVal)) : u"<not text>";
}

TEST(SnmpValueTest, OidTextRoundTripsAndRejectsWhatIsNotAnOid) {
  auto arcs = ParseOid(u".1.3.6.1.2.1.25.3.2.1.3.1");
  ASSERT_TRUE(arcs);
  EXPECT_EQ(12u, arcs->size());
  EXPECT_EQ(u"1.3.6.1.2.1.25.3.2.1.3.1", FormatOid(arcs->data(), arcs->size()));
  EXPECT_EQ(4294967295u, ParseOid(u"1.3.4294967295").value().at(2));
  for (const char16_t* bad :
       {u"", u"1", u".", u"1..3", u"1.3.", u"1.3.a", u"1.3.4294967296", u"1.3.-6", u" 1.3", u"iso.3.6"}) {
    EXPECT_FALSE(ParseOid(bad));
  }
  std::u16string longest = u"1";
  for (int i = 1; i < MAX_OID_LEN; ++i) longest += u".1";
  EXPECT_TRUE(ParseOid(longest));
  EXPECT_FALSE(ParseOid(longest + u".1"));
}

TEST(SnmpValueTest, ReceivedValuesBecomeIntegersTextOrBytes) {
  long negative = -5;
  u_long small = 62, huge = 3000000000u;
  counter64 c64{1, 5};  // 2^32 + 5
  oid type[] = {1, 3, 6, 1, 2, 1, 25, 3, 1, 5};
  const u_char ip[] = {192, 0, 2, 17};
  const std::string utf8 = "Norvane NX-4100 \xC3\xA9";
  const std::string padded("AB\0\0", 4);  // devices often pad with zero bytes
  // Latin-1's C1 control characters make bytes of what would be text. (Latin-1
  // text and bytes with C0 ones come from a real agent: oid_description_*.)
  const std::string c1("r\x85sum\xE9", 6);
  struct Case {
    u_char type;
    const void* value;
    size_t length;
    VARTYPE vt;
    std::u16string text;
  } const cases[] = {
      {ASN_INTEGER, &negative, sizeof negative, VT_I4, u"-5"},
      {ASN_GAUGE, &small, sizeof small, VT_I4, u"62"},
      // A page counter past 2^31 keeps its value as decimal text.
      {ASN_COUNTER, &huge, sizeof huge, VT_BSTR, u"3000000000"},
      {ASN_COUNTER64, &c64, sizeof c64, VT_BSTR, u"4294967301"},
      {ASN_OBJECT_ID, type, sizeof type, VT_BSTR, u"1.3.6.1.2.1.25.3.1.5"},
      {ASN_IPADDRESS, ip, sizeof ip, VT_BSTR, u"192.0.2.17"},
      {ASN_OCTET_STR, utf8.data(), utf8.size(), VT_BSTR, u"Norvane NX-4100 \u00E9"},
      {ASN_OCTET_STR, padded.data(), padded.size(), VT_BSTR, u"AB"},
      {ASN_OCTET_STR, "", 0, VT_BSTR, u""},
      {ASN_OCTET_STR, c1.data(), c1.size(), VT_ARRAY | VT_UI1, Widen(c1)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << int(c.type) << " of " << c.length << " bytes");
    Norvane::Variant value = Convert(c.type, c.value, c.length);
    EXPECT_EQ(c.vt, value.Type());
    EXPECT_EQ(c.text, Text(value));
  }
  for (u_char exception : {SNMP_NOSUCHOBJECT, SNMP_NOSUCHINSTANCE, SNMP_ENDOFMIBVIEW}) {
    Convert(exception, nullptr, 0, E_FAIL);
  }
}

TEST(SnmpValueTest, AGetNextAnswerMustLieAfterTheOidAsked) {
  const std::vector<oid> asked = {1, 3, 6, 1, 2, 1, 43, 11, 1, 1, 9, 1};
  const std::pair<std::vector<oid>, bool> cases[] = {
      {{1, 3, 6, 1, 2, 1, 43, 11, 1, 1, 9, 1, 1}, true},  // the first object below it
      {{1, 3, 6, 1, 2, 1, 43, 11, 1, 1, 9, 2}, true},    {{1, 3, 6, 1, 2, 1, 43, 12}, true},
      {{1, 3, 6, 1, 2, 1, 43, 11, 1, 1, 9, 1}, false},  // the same object again
      {{1, 3, 6, 1, 2, 1, 43, 11, 1, 1, 9}, false},     // its parent
      {{1, 3, 6, 1, 2, 1, 43, 11, 1, 1, 8, 7}, false},
  };
  long zero = 0;
  for (const auto& [answer, follows] : cases) {
    EXPECT_EQ(follows, FollowsOid(*Variable(ASN_INTEGER, &zero, sizeof zero, answer).list, asked)) << answer.size();
  }
}

TEST(SnmpValueTest, SetValuesMapVariantKinds) {
  const uint8_t raw[] = {0, 1, 255};
  struct Case {
    Norvane::Variant value;
    u_char type;
    long integer;
    std::string bytes;
  } const cases[] = {
      {Norvane::Variant::FromInt32(-7), ASN_INTEGER, -7, ""},
      {Norvane::Variant::FromString(u"Fl\u00FCr 2"), ASN_OCTET_STR, 0, "Fl\xC3\xBCr 2"},
      {Norvane::Variant::FromBytes(raw, 3), ASN_OCTET_STR, 0, std::string("\x00\x01\xFF", 3)},
  };
  for (const Case& c : cases) {
    auto set = VariantToSetValue(c.value.Get());
    ASSERT_TRUE(set) << c.bytes;
    EXPECT_EQ(c.type, set->type);
    EXPECT_EQ(c.integer, set->integer);
    EXPECT_EQ(c.bytes, set->bytes);
  }
  EXPECT_FALSE(VariantToSetValue(Norvane::Variant().Get()));
}

}  // namespace
}  // namespace NorvaneHost
