// The host's SNMP connection against an SNMP agent on loopback.
#include <gtest/gtest.h>

#include "host_test_util.h"
#include "loopback_snmp_agent.h"
#include "norvane/com.h"

namespace NorvaneHostTest {
namespace {

const std::vector<oid> kDescr = {1, 3, 6, 1, 2, 1, 25, 3, 2, 1, 3, 1};
const std::vector<oid> kName = {1, 3, 6, 1, 2, 1, 43, 5, 1, 1, 16, 1};
const std::vector<oid> kCopies = {1, 3, 6, 1, 4, 1, 99, 1, 0};
// A column of a table: 1.3.6.1.2.1.43.11.1.1.9.1.{1..n}.
std::vector<oid> Level(oid row) { return {1, 3, 6, 1, 2, 1, 43, 11, 1, 1, 9, 1, row}; }

std::u16string OidText(const std::vector<oid>& name) {
  std::u16string text;
  for (size_t i = 0; i < name.size(); ++i) text += (i ? u"." : u"") + Wide(std::to_string(name[i]));
  return text;
}

std::u16string Text(const VARIANT& value) {
  return value.vt == VT_BSTR ? std::u16string(value.bstrVal, SysStringLen(value.bstrVal)) : u"<not text>";
}

std::map<std::vector<oid>, AgentObject> Table(int rows) {
  std::map<std::vector<oid>, AgentObject> objects;
  objects[kDescr] = {ASN_OCTET_STR, 0, "Norvane NX-4100 Color MFP", false};
  objects[kName] = {ASN_OCTET_STR, 0, "Front", true};
  objects[kCopies] = {ASN_INTEGER, 1, "", true};
  for (int row = 1; row <= rows; ++row) objects[Level(row)] = {ASN_INTEGER, 10L * row, "", false};
  return objects;
}

class MibConnectionTest : public ::testing::Test {
 protected:
  Ref<Norvane::MIBConnection> Connect(LoopbackSnmpAgent& agent, uint32_t version = NORVANE_SNMP_VERSION_2C) {
    EXPECT_EQ(S_OK, NetAddressSetSnmpPort(address_.get(), agent.Port()));
    EXPECT_EQ(S_OK, NetAddressSetSnmpVersion(address_.get(), version));
    EXPECT_EQ(S_OK, NetAddressSetSnmpTimeout(address_.get(), 500, 0));
    Ref<Norvane::MIBConnection> connection;
    EXPECT_EQ(S_OK, address_->GetMIBConnection(connection.out()));
    return connection;
  }
  Ref<Norvane::QxNetAddress> address_{CreateNetAddress(u"127.0.0.1")};
};

TEST_F(MibConnectionTest, RetriesWithALargerBufferAreAnsweredWithoutAskingTheAgentAgain) {
  LoopbackSnmpAgent agent(Table(3));
  Ref<Norvane::MIBConnection> connection = Connect(agent);
  std::u16string current = OidText({1, 3, 6, 1, 2, 1, 43, 11, 1, 1, 9, 1});
  for (oid row = 1; row <= 3; ++row) {
    std::u16string expected = OidText(Level(row));
    uint32_t size = 4;
    std::u16string buffer(size, u'#');
    Norvane::Variant value;
    HRESULT hr;
    while ((hr = connection->GetNextOidAndValue(current.c_str(), buffer.data(), size, value.Ptr())) == E_OUTOFMEMORY) {
      size += 2;
      buffer.assign(size, u'#');
    }
    ASSERT_EQ(S_OK, hr);
    // The first size that fits was accepted.
    EXPECT_GE(size, expected.size() + 1);
    EXPECT_LT(size, expected.size() + 3);
    EXPECT_EQ(expected, std::u16string(buffer.c_str()));
    ASSERT_EQ(VT_I4, value.Type());
    EXPECT_EQ(static_cast<LONG>(10 * row), value.Get().lVal);
    current = expected;
  }
  // One get-next per step, whatever the number of retries.
  EXPECT_EQ(3, agent.Count(SNMP_MSG_GETNEXT));

  // A held answer belongs to its OID: asking about another one goes to the agent.
  char16_t small[2], large[64];
  Norvane::Variant value;
  EXPECT_EQ(E_OUTOFMEMORY, connection->GetNextOidAndValue(OidText(Level(1)).c_str(), small, 2, value.Ptr()));
  ASSERT_EQ(S_OK, connection->GetNextOidAndValue(OidText(Level(2)).c_str(), large, 64, value.Ptr()));
  EXPECT_EQ(OidText(Level(3)), std::u16string(large));
  EXPECT_EQ(5, agent.Count(SNMP_MSG_GETNEXT));
  // And is used once: the same question later is asked again.
  EXPECT_EQ(E_OUTOFMEMORY, connection->GetNextOidAndValue(OidText(Level(1)).c_str(), small, 2, value.Ptr()));
  ASSERT_EQ(S_OK, connection->GetNextOidAndValue(OidText(Level(1)).c_str(), large, 64, value.Ptr()));
  ASSERT_EQ(S_OK, connection->GetNextOidAndValue(OidText(Level(1)).c_str(), large, 64, value.Ptr()));
  EXPECT_EQ(OidText(Level(2)), std::u16string(large));
  EXPECT_EQ(7, agent.Count(SNMP_MSG_GETNEXT));
}

TEST_F(MibConnectionTest, TheEndOfTheAgentsObjectsEndsAWalkInBothVersions) {
  for (uint32_t version : {NORVANE_SNMP_VERSION_2C, NORVANE_SNMP_VERSION_1}) {
    LoopbackSnmpAgent agent(Table(2));
    Ref<Norvane::MIBConnection> connection = Connect(agent, version);
    char16_t next[64];
    Norvane::Variant value = Norvane::Variant::FromInt32(5);
    // kCopies (1.3.6.1.4...) is the last object.
    EXPECT_EQ(E_FAIL, connection->GetNextOidAndValue(OidText(kCopies).c_str(), next, 64, value.Ptr()));
    EXPECT_EQ(5, value.Get().lVal);  // untouched
    EXPECT_EQ(version == 1 ? SNMP_VERSION_1 : SNMP_VERSION_2c, agent.Requests().back().version);
  }
}

TEST_F(MibConnectionTest, SeveralValuesAreAskedInBoundedPdusAndMissingOnesStayEmpty) {
  for (uint32_t version : {NORVANE_SNMP_VERSION_2C, NORVANE_SNMP_VERSION_1}) {
    SCOPED_TRACE(version);
    LoopbackSnmpAgent agent(Table(40));
    Ref<Norvane::MIBConnection> connection = Connect(agent, version);
    std::vector<std::u16string> texts;
    for (oid row = 1; row <= 40; ++row) texts.push_back(OidText(Level(row)));
    texts[5] = OidText(Level(77));  // no such row
    texts.push_back(u"not an oid");
    std::vector<const char16_t*> oids;
    for (const auto& text : texts) oids.push_back(text.c_str());
    std::vector<VARIANT> values(oids.size());
    for (VARIANT& v : values) VariantInit(&v);
    ASSERT_EQ(S_OK, connection->GetMultipleValues(oids.data(), values.data(), static_cast<uint32_t>(oids.size())));
    for (size_t i = 0; i < 40; ++i) {
      if (i == 5) {
        EXPECT_EQ(VT_EMPTY, values[i].vt);
      } else {
        ASSERT_EQ(VT_I4, values[i].vt) << i;
        EXPECT_EQ(static_cast<LONG>(10 * (i + 1)), values[i].lVal);
      }
    }
    EXPECT_EQ(VT_EMPTY, values[40].vt);
    for (VARIANT& v : values) VariantClear(&v);
    // 40 names in PDUs of at most 16; a v1 agent's refusal of one costs one more.
    std::vector<AgentRequest> requests = agent.Requests();
    for (const AgentRequest& request : requests) EXPECT_LE(request.variables, 16u);
    EXPECT_EQ(version == 1 ? 4u : 3u, requests.size());
  }
}

TEST_F(MibConnectionTest, SetsIntegersAndTextAndReportsRefusals) {
  LoopbackSnmpAgent agent(Table(1));
  Ref<Norvane::MIBConnection> connection = Connect(agent);
  Norvane::Variant one = Norvane::Variant::FromInt(1);  // what the library writes
  ASSERT_EQ(S_OK, connection->SetValue(OidText(kCopies).c_str(), &one.Get()));
  Norvane::Variant renamed = Norvane::Variant::FromString(u"B\u00FCro 2");
  ASSERT_EQ(S_OK, connection->SetValue(OidText(kName).c_str(), &renamed.Get()));
  EXPECT_EQ("B\xC3\xBCro 2", agent.Object(kName).bytes);
  Norvane::Variant read;
  ASSERT_EQ(S_OK, connection->GetValue(OidText(kName).c_str(), read.Ptr()));
  EXPECT_EQ(u"B\u00FCro 2", Text(read.Get()));

  // Read-only object, wrong type, and a variant no SNMP type fits (never sent).
  EXPECT_EQ(E_FAIL, connection->SetValue(OidText(kDescr).c_str(), &renamed.Get()));
  EXPECT_EQ(E_FAIL, connection->SetValue(OidText(kName).c_str(), &one.Get()));
  size_t sent = agent.Requests().size();
  Norvane::Variant empty;
  EXPECT_EQ(DISP_E_TYPEMISMATCH, connection->SetValue(OidText(kName).c_str(), &empty.Get()));
  EXPECT_EQ(E_INVALIDARG, connection->SetValue(u"1.x", &one.Get()));
  EXPECT_EQ(sent, agent.Requests().size());
}

TEST_F(MibConnectionTest, CommunityReachesTheWireAndAWrongOneTimesOut) {
  LoopbackSnmpAgent agent(Table(1), "s3cret-ro");
  ASSERT_EQ(S_OK, NetAddressSetSnmpCommunity(address_.get(), u"s3cret-ro"));
  Ref<Norvane::MIBConnection> connection = Connect(agent, NORVANE_SNMP_VERSION_1);
  Norvane::Variant value;
  ASSERT_EQ(S_OK, connection->GetValue(OidText(kDescr).c_str(), value.Ptr()));
  EXPECT_EQ(u"Norvane NX-4100 Color MFP", Text(value.Get()));
  EXPECT_EQ("s3cret-ro", agent.Requests().back().community);

  ASSERT_EQ(S_OK, connection->SetCommunity(u"guess"));
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(static_cast<HRESULT>(0x800705B4), connection->GetValue(OidText(kDescr).c_str(), value.Ptr()));
  double waited = SecondsSince(start);
  EXPECT_GT(waited, 0.4);
  EXPECT_LT(waited, 1.5);
  // The value from before is not disturbed by the failure.
  EXPECT_EQ(u"Norvane NX-4100 Color MFP", Text(value.Get()));
}

}  // namespace
}  // namespace NorvaneHostTest
