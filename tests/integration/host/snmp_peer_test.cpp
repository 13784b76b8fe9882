// SNMP through the host's MIB connection to a real agent (snmpd).
#include <gtest/gtest.h>

#include <vector>

#include "../bench_env.h"
#include "host_test_util.h"
#include "norvane/com.h"

namespace NorvaneHostTest {
namespace {

using namespace NorvaneBench;

constexpr char16_t kDeviceDescr[] = u"1.3.6.1.2.1.25.3.2.1.3.1";
constexpr char16_t kLevelColumn[] = u"1.3.6.1.2.1.43.11.1.1.9.1";
constexpr char16_t kBlackLevel[] = u"1.3.6.1.2.1.43.11.1.1.9.1.1";
constexpr char16_t kMagentaLevel[] = u"1.3.6.1.2.1.43.11.1.1.9.1.2";
constexpr char16_t kSerial[] = u"1.3.6.1.2.1.43.5.1.1.17.1";

std::u16string Text(const VARIANT& value) {
  return value.vt == VT_BSTR ? std::u16string(value.bstrVal, SysStringLen(value.bstrVal)) : u"<not text>";
}

class HostSnmpPeer : public ::testing::Test {
 protected:
  void SetUp() override {
    NORVANE_REQUIRE_BENCH();
    address_ = CreateNetAddress(Wide(BenchValue("NORVANE_PRINTER_HOST", "127.0.0.1")).c_str());
    ASSERT_NE(nullptr, address_);
    ASSERT_EQ(S_OK, NetAddressSetSnmpPort(address_, BenchPort("NORVANE_SNMP_PORT", 161)));
    ASSERT_EQ(S_OK, NetAddressSetSnmpCommunity(address_, Wide(BenchValue("NORVANE_SNMP_COMMUNITY", "public")).c_str()));
  }
  void TearDown() override {
    if (address_ != nullptr) address_->Dispose();
  }
  Norvane::QxNetAddress* address_ = nullptr;
};

TEST_F(HostSnmpPeer, GetsOneAndSeveralValuesInBothVersions) {
  for (uint32_t version : {NORVANE_SNMP_VERSION_2C, NORVANE_SNMP_VERSION_1}) {
    SCOPED_TRACE(version);
    ASSERT_EQ(S_OK, NetAddressSetSnmpVersion(address_, version));
    Ref<Norvane::MIBConnection> connection;
    ASSERT_EQ(S_OK, address_->GetMIBConnection(connection.Out()));
    Norvane::Variant value;
    ASSERT_EQ(S_OK, connection->GetValue(kDeviceDescr, value.Ptr()));
    EXPECT_EQ(u"Norvane NX-4100 Color MFP", Text(value.Get()));
    EXPECT_EQ(E_FAIL, connection->GetValue(u"1.3.6.1.2.1.43.11.1.1.9.1.77", value.Ptr()));

    // A missing object leaves its place empty and does not spoil the others,
    // also with an SNMPv1 agent that refuses the whole PDU for it.
    const char16_t* oids[] = {kBlackLevel, u"1.3.6.1.2.1.43.11.1.1.9.1.77", kMagentaLevel, kSerial};
    Norvane::Variant values[4];
    VARIANT raw[4];
    for (auto& v : raw) VariantInit(&v);
    ASSERT_EQ(S_OK, connection->GetMultipleValues(oids, raw, 4));
    for (int i = 0; i < 4; ++i) values[i] = Norvane::Variant(raw[i]), VariantClear(&raw[i]);
    EXPECT_EQ(VT_I4, values[0].Type());
    EXPECT_EQ(62, values[0].Get().lVal);
    EXPECT_EQ(VT_EMPTY, values[1].Type());
    EXPECT_EQ(9, values[2].Get().lVal);
    EXPECT_EQ(u"NV42A17Q9X", Text(values[3].Get()));

    // More names than one PDU carries, and one that is not an OID at all.
    std::vector<const char16_t*> many(20, kBlackLevel);
    many[7] = u"not an oid";
    std::vector<VARIANT> answers(many.size());
    for (VARIANT& v : answers) VariantInit(&v);
    ASSERT_EQ(S_OK, connection->GetMultipleValues(many.data(), answers.data(), static_cast<uint32_t>(many.size())));
    for (size_t i = 0; i < many.size(); ++i) {
      EXPECT_EQ(i == 7 ? VT_EMPTY : VT_I4, answers[i].vt) << i;
      VariantClear(&answers[i]);
    }

    // Past the agent's last object a walk ends, leaving the value alone.
    char16_t next[64];
    Norvane::Variant untouched = Norvane::Variant::FromInt32(5);
    EXPECT_EQ(E_FAIL, connection->GetNextOidAndValue(u"2.0", next, 64, untouched.Ptr()));
    EXPECT_EQ(5, untouched.Get().lVal);
  }
}

TEST_F(HostSnmpPeer, WalksATableWithTheBufferProtocol) {
  Ref<Norvane::MIBConnection> connection;
  ASSERT_EQ(S_OK, address_->GetMIBConnection(connection.Out()));
  std::u16string current = kLevelColumn;
  std::vector<std::pair<std::u16string, int>> rows;
  for (int step = 0; step < 3; ++step) {
    // As the OID data mapper starts: the asked OID's length plus 5, which is
    // too small for a longer answer, then 2 characters more per retry.
    uint32_t size = static_cast<uint32_t>(current.size()) + 5 - 4;
    std::u16string buffer(size, u'#');
    Norvane::Variant value = Norvane::Variant::FromString(u"untouched");
    HRESULT hr;
    int calls = 0;
    while ((hr = connection->GetNextOidAndValue(current.c_str(), buffer.data(), size, value.Ptr())) ==
           E_OUTOFMEMORY) {
      // Nothing is written into a buffer that is too small.
      EXPECT_EQ(std::u16string(size, u'#'), buffer);
      EXPECT_EQ(u"untouched", Text(value.Get()));
      size += 2;
      buffer.assign(size, u'#');
      ASSERT_LT(++calls, 20);
    }
    ASSERT_EQ(S_OK, hr);
    if (step == 0) {
      EXPECT_GT(calls, 0);  // the first answer is longer than the question
    }
    std::u16string next(buffer.c_str());
    if (next.rfind(std::u16string(kLevelColumn) + u".", 0) != 0) break;  // left the column
    ASSERT_EQ(VT_I4, value.Type());
    rows.emplace_back(next, value.Get().lVal);
    current = next;
  }
  ASSERT_EQ(2u, rows.size());
  EXPECT_EQ(kBlackLevel, rows[0].first);
  EXPECT_EQ(62, rows[0].second);
  EXPECT_EQ(kMagentaLevel, rows[1].first);
  EXPECT_EQ(9, rows[1].second);

  // A held answer is only for a retry of the same OID.
  char16_t small[4];
  Norvane::Variant value;
  EXPECT_EQ(E_OUTOFMEMORY, connection->GetNextOidAndValue(kLevelColumn, small, 4, value.Ptr()));
  char16_t large[64];
  ASSERT_EQ(S_OK, connection->GetNextOidAndValue(kBlackLevel, large, 64, value.Ptr()));
  EXPECT_EQ(std::u16string(kMagentaLevel), std::u16string(large));
}

TEST_F(HostSnmpPeer, SetsWritableObjectsAndReportsRefusals) {
  Ref<Norvane::MIBConnection> connection;
  ASSERT_EQ(S_OK, address_->GetMIBConnection(connection.Out()));
  const char16_t* name = u"1.3.6.1.2.1.43.5.1.1.16.1";
  Norvane::Variant renamed = Norvane::Variant::FromString(u"Front Desk");
  ASSERT_EQ(S_OK, connection->SetValue(name, &renamed.Get()));
  Norvane::Variant value;
  ASSERT_EQ(S_OK, connection->GetValue(name, value.Ptr()));
  EXPECT_EQ(u"Front Desk", Text(value.Get()));
  // The serial number is read-only; an integer for a text object is refused too.
  EXPECT_EQ(E_FAIL, connection->SetValue(kSerial, &renamed.Get()));
  Norvane::Variant one = Norvane::Variant::FromInt(1);
  EXPECT_EQ(E_FAIL, connection->SetValue(name, &one.Get()));
  // Neither a variant no SNMP type fits nor a malformed name reaches the agent.
  Norvane::Variant empty;
  EXPECT_EQ(DISP_E_TYPEMISMATCH, connection->SetValue(name, &empty.Get()));
  EXPECT_EQ(E_INVALIDARG, connection->SetValue(u"1.x", &one.Get()));
}

TEST_F(HostSnmpPeer, AnUnknownCommunityTimesOutWithinTheSetBound) {
  ASSERT_EQ(S_OK, NetAddressSetSnmpCommunity(address_, u"not-the-community"));
  ASSERT_EQ(S_OK, NetAddressSetSnmpTimeout(address_, 300, 1));
  Ref<Norvane::MIBConnection> connection;
  ASSERT_EQ(S_OK, address_->GetMIBConnection(connection.Out()));
  Norvane::Variant value;
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(static_cast<HRESULT>(0x800705B4), connection->GetValue(kDeviceDescr, value.Ptr()));
  double waited = SecondsSince(start);
  EXPECT_GT(waited, 0.5);  // two tries of 0.3 s
  EXPECT_LT(waited, 1.5);
  // The connection's own community can be changed after the fact.
  ASSERT_EQ(S_OK, connection->SetCommunity(Wide(BenchValue("NORVANE_SNMP_COMMUNITY", "public")).c_str()));
  ASSERT_EQ(S_OK, connection->GetValue(kDeviceDescr, value.Ptr()));
}

}  // namespace
}  // namespace NorvaneHostTest
