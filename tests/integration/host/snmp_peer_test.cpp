// SNMP through the host's MIB connection to a real agent (snmpd).
#include <gtest/gtest.h>

#include <vector>

#include "../bench_env.h"
#include "host_test_util.h"
#include "norvane/com.h"

namespace NorvaneHostTest {
namespace {

using namespace NorvaneBench;
using namespace std::string_literals;

constexpr char16_t kDeviceDescr[] = u"1.3.6.1.2.1.25.3.2.1.3.1";
constexpr char16_t kLevelColumn[] = u"1.3.6.1.2.1.43.11.1.1.9.1";
constexpr char16_t kBlackLevel[] = u"1.3.6.1.2.1.43.11.1.1.9.1.1";
constexpr char16_t kMagentaLevel[] = u"1.3.6.1.2.1.43.11.1.1.9.1.2";
constexpr char16_t kMissing[] = u"1.3.6.1.2.1.43.11.1.1.9.1.77";
constexpr char16_t kSerial[] = u"1.3.6.1.2.1.43.5.1.1.17.1";

// Text as it reads, integers in decimal, "-" for no value.
std::string Text(const VARIANT& value) {
  if (value.vt == VT_I4) return std::to_string(value.lVal);
  if (value.vt != VT_BSTR) return value.vt == VT_EMPTY ? "-" : "<vt " + std::to_string(value.vt) + ">";
  return std::string(value.bstrVal, value.bstrVal + SysStringLen(value.bstrVal));
}

class HostSnmpPeer : public ::testing::Test {
 protected:
  void SetUp() override {
    NORVANE_REQUIRE_BENCH();
    address_ = Ref<Norvane::QxNetAddress>::Adopt(
        CreateNetAddress(Wide(BenchValue("NORVANE_PRINTER_HOST", "127.0.0.1")).c_str()));
    ASSERT_EQ(S_OK, NetAddressSetSnmpPort(address_.get(), BenchPort("NORVANE_SNMP_PORT", 161)));
    ASSERT_EQ(S_OK, NetAddressSetSnmpCommunity(address_.get(), community_.c_str()));
    ASSERT_EQ(S_OK, address_->GetMIBConnection(connection_.Out()));
  }

  // The values of several names in one call, joined by spaces.
  std::string GetMany(std::vector<const char16_t*> oids) {
    std::vector<VARIANT> values(oids.size());
    for (VARIANT& v : values) VariantInit(&v);
    EXPECT_EQ(S_OK, connection_->GetMultipleValues(oids.data(), values.data(), static_cast<uint32_t>(oids.size())));
    std::string text;
    for (VARIANT& v : values) text += (text.empty() ? "" : " ") + Text(v), VariantClear(&v);
    return text;
  }

  std::u16string community_ = Wide(BenchValue("NORVANE_SNMP_COMMUNITY", "public"));
  Ref<Norvane::QxNetAddress> address_;
  Ref<Norvane::MIBConnection> connection_;
};

TEST_F(HostSnmpPeer, ManyNamesAndTheEndOfTheMibInBothVersions) {
  for (uint32_t version : {NORVANE_SNMP_VERSION_2C, NORVANE_SNMP_VERSION_1}) {
    SCOPED_TRACE(version);
    ASSERT_EQ(S_OK, NetAddressSetSnmpVersion(address_.get(), version));
    ASSERT_EQ(S_OK, address_->GetMIBConnection(connection_.Out()));
    // More names than one PDU carries, and one that is not an OID at all. (A
    // missing object among others, also refused whole by an SNMPv1 agent, is
    // the OID provider's bench: OidBench.ProviderReadsWritesAndRefusesBadArguments.)
    std::vector<const char16_t*> many(20, kBlackLevel);
    many[7] = u"not an oid";
    EXPECT_EQ("62 62 62 62 62 62 62 - 62 62 62 62 62 62 62 62 62 62 62 62", GetMany(many));
    // Past the agent's last object a walk ends, leaving the value alone.
    char16_t next[64];
    Norvane::Variant untouched = Norvane::Variant::FromInt32(5);
    EXPECT_EQ(E_FAIL, connection_->GetNextOidAndValue(u"2.0", next, 64, untouched.Ptr()));
    EXPECT_EQ(5, untouched.Get().lVal);
  }
}

TEST_F(HostSnmpPeer, WalksATableWithTheBufferProtocol) {
  std::u16string current = kLevelColumn;
  std::string rows;
  for (int step = 0; step < 2; ++step) {
    // As the OID data mapper starts: the asked OID's length plus 5, which is
    // too small for a longer answer, then 2 characters more per retry.
    uint32_t size = static_cast<uint32_t>(current.size()) + 5 - 4;
    std::u16string buffer(size, u'#');
    Norvane::Variant value = Norvane::Variant::FromString(u"untouched");
    HRESULT hr;
    int calls = 0;
    while ((hr = connection_->GetNextOidAndValue(current.c_str(), buffer.data(), size, value.Ptr())) == E_OUTOFMEMORY) {
      // Nothing is written into a buffer that is too small.
      EXPECT_EQ(std::u16string(size, u'#'), buffer);
      EXPECT_EQ("untouched", Text(value.Get()));
      buffer.assign(size += 2, u'#');
      ASSERT_LT(++calls, 20);
    }
    ASSERT_EQ(S_OK, hr);
    EXPECT_TRUE(step > 0 || calls > 0);  // the first answer is longer than the question
    current = buffer.c_str();
    rows += std::string(current.begin(), current.end()) + "=" + Text(value.Get()) + " ";
  }
  EXPECT_EQ("1.3.6.1.2.1.43.11.1.1.9.1.1=62 1.3.6.1.2.1.43.11.1.1.9.1.2=9 ", rows);
  // A held answer is only for a retry of the same OID.
  char16_t small[4], large[64];
  Norvane::Variant value;
  EXPECT_EQ(E_OUTOFMEMORY, connection_->GetNextOidAndValue(kLevelColumn, small, 4, value.Ptr()));
  ASSERT_EQ(S_OK, connection_->GetNextOidAndValue(kBlackLevel, large, 64, value.Ptr()));
  EXPECT_EQ(std::u16string(kMagentaLevel), std::u16string(large));
}

TEST_F(HostSnmpPeer, AnUnknownCommunityTimesOutWithinTheSetBound) {
  ASSERT_EQ(S_OK, NetAddressSetSnmpCommunity(address_.get(), u"not-the-community"));
  ASSERT_EQ(S_OK, NetAddressSetSnmpTimeout(address_.get(), 300, 1));
  ASSERT_EQ(S_OK, address_->GetMIBConnection(connection_.Out()));
  Norvane::Variant value;
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(static_cast<HRESULT>(0x800705B4), connection_->GetValue(kDeviceDescr, value.Ptr()));
  double waited = SecondsSince(start);
  EXPECT_GT(waited, 0.5);  // two tries of 0.3 s
  EXPECT_LT(waited, 1.5);
  // The connection's own community can be changed after the fact.
  ASSERT_EQ(S_OK, connection_->SetCommunity(community_.c_str()));
  ASSERT_EQ(S_OK, connection_->GetValue(kDeviceDescr, value.Ptr()));
}

// A table read row by row, as a generated-OID walk reads it, costs a GETBULK of
// 8 rows, then of 16, 32 and 50 while the table goes on; what a SET changed is
// never answered from before the SET.
TEST_F(HostSnmpPeer, ReadsATableRowByRowAheadAndForgetsItOnSet) {
  std::vector<std::string> lines;
  ASSERT_EQ(
      S_OK,
      NorvaneHostSetTrace(
          NORVANE_HOST_TRACE_EXCHANGES,
          [](void* into, const char* line) { static_cast<std::vector<std::string>*>(into)->push_back(line); }, &lines));
  const int rows = std::stoi(BenchValue("NORVANE_SNMP_BIG_TABLE_ROWS", "1500"));
  std::string wrong;
  for (int row = 1; row <= 120; ++row) {
    Norvane::Variant value;
    std::u16string name = u"1.3.6.1.2.1.43.11.1.1.9.2." + Wide(std::to_string(row));
    if (connection_->GetValue(name.c_str(), value.Ptr()) != S_OK || Text(value.Get()) != std::to_string(row % 101)) {
      wrong += " " + std::to_string(row) + "=" + Text(value.Get());
    }
  }
  EXPECT_EQ("", wrong);
  EXPECT_LE(lines.size(), 6u);  // one GET, then GETBULKs of 8, 16, 32, 50 and 50 rows
  // Past the table's end, rows are missing as the agent says.
  Norvane::Variant value;
  std::u16string last = u"1.3.6.1.2.1.43.11.1.1.9.2." + Wide(std::to_string(rows));
  std::u16string after = u"1.3.6.1.2.1.43.11.1.1.9.2." + Wide(std::to_string(rows + 1));
  ASSERT_EQ(S_OK, connection_->GetValue(last.c_str(), value.Ptr()));
  EXPECT_EQ(E_FAIL, connection_->GetValue(after.c_str(), value.Ptr()));

  const char16_t* name = u"1.3.6.1.2.1.43.5.1.1.16.1";
  ASSERT_EQ(S_OK, connection_->GetValue(name, value.Ptr()));
  Ref<Norvane::MIBConnection> other;
  ASSERT_EQ(S_OK, address_->GetMIBConnection(other.Out()));
  Norvane::Variant renamed = Norvane::Variant::FromString(u"Renamed " + Wide(Text(value.Get())));
  ASSERT_EQ(S_OK, other->SetValue(name, &renamed.Get()));
  ASSERT_EQ(S_OK, connection_->GetValue(name, value.Ptr()));
  NorvaneHostSetTrace(NORVANE_HOST_TRACE_OFF, nullptr, nullptr);
  EXPECT_EQ(Text(renamed.Get()), Text(value.Get()));
}

TEST_F(HostSnmpPeer, TracesEachExchangeWithoutItsSecrets) {
  std::vector<std::string> lines;
  ASSERT_EQ(
      S_OK,
      NorvaneHostSetTrace(
          NORVANE_HOST_TRACE_EXCHANGES,
          [](void* into, const char* line) { static_cast<std::vector<std::string>*>(into)->push_back(line); }, &lines));
  Norvane::Variant value, renamed = Norvane::Variant::FromString(u"Front Desk");
  ASSERT_EQ(S_OK, connection_->GetValue(kDeviceDescr, value.Ptr()));
  EXPECT_EQ("62 -", GetMany({kBlackLevel, kMissing}));
  EXPECT_EQ(E_FAIL, connection_->SetValue(kSerial, &renamed.Get()));
  const std::string pass = BenchValue("NORVANE_SNMP_V3_AUTH_PASS"), priv = BenchValue("NORVANE_SNMP_V3_PRIV_PASS");
  ASSERT_EQ(S_OK, NetAddressSetSnmpUser(address_.get(), Wide(BenchValue("NORVANE_SNMP_V3_USER")).c_str(),
                                        NORVANE_SNMP_AUTH_PRIV, nullptr));
  ASSERT_EQ(S_OK, NetAddressSetSnmpAuthentication(address_.get(), NORVANE_SNMP_AUTH_SHA256, Wide(pass).c_str()));
  ASSERT_EQ(S_OK, NetAddressSetSnmpPrivacy(address_.get(), NORVANE_SNMP_PRIV_AES128, Wide(priv).c_str()));
  ASSERT_EQ(S_OK, address_->GetMIBConnection(connection_.Out()));
  ASSERT_EQ(S_OK, connection_->GetValue(kDeviceDescr, value.Ptr()));
  NorvaneHostSetTrace(NORVANE_HOST_TRACE_OFF, nullptr, nullptr);

  const std::string agent = "udp:" + BenchValue("NORVANE_PRINTER_HOST", "127.0.0.1") + ":" +
                            std::to_string(BenchPort("NORVANE_SNMP_PORT", 161));
  const std::string descr = "1.3.6.1.2.1.25.3.2.1.3.1", serial = "1.3.6.1.2.1.43.5.1.1.17.1";
  const std::string expected[] = {
      "snmp GET " + agent + " v2c " + descr + " -> " + descr + " OCTET STRING; noError (",
      "snmp GET " + agent + " v2c 1.3.6.1.2.1.43.11.1.1.9.1.1, 1.3.6.1.2.1.43.11.1.1.9.1.77 -> " +
          "1.3.6.1.2.1.43.11.1.1.9.1.1 INTEGER, 1.3.6.1.2.1.43.11.1.1.9.1.77 noSuchObject; noError (",
      "snmp SET " + agent + " v2c " + serial + " OCTET STRING -> " + serial + " OCTET STRING; notWritable (",
      "snmp GET " + agent + " v3 user " + BenchValue("NORVANE_SNMP_V3_USER") + " " + descr + " -> " + descr +
          " OCTET STRING; noError (",
  };
  ASSERT_EQ(std::size(expected), lines.size());
  for (size_t i = 0; i < lines.size(); ++i) {
    EXPECT_EQ(expected[i], lines[i].substr(0, expected[i].size()));
    for (const std::string& secret : {pass, priv, BenchValue("NORVANE_SNMP_COMMUNITY", "public"), "Front Desk"s}) {
      EXPECT_EQ(std::string::npos, lines[i].find(secret)) << lines[i];
    }
  }
}

}  // namespace
}  // namespace NorvaneHostTest
