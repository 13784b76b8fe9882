// SNMP data collection against the bench's real snmpd, through the exported
// functions only, as a host program links them: each kind of item, the
// provider, the registry cache, long walks with and without GETBULK read-ahead,
// and SNMPv3 users.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <tuple>

#include "../bench_env.h"
#include "norvane/api.h"
#include "norvane/host.h"
#include "norvane/norvane.h"
#include "testlib/temp_dir.h"

namespace {

using namespace Norvane;
using NorvaneBench::BenchValue;

std::u16string Widen(const std::string& text) { return std::u16string(text.begin(), text.end()); }

// Text (other than ASCII as %XX), integers, or the type number of anything else.
std::string Narrow(const VARIANT& v) {
  if (v.vt == VT_I4) return std::to_string(v.lVal);
  if (v.vt != VT_BSTR || v.bstrVal == nullptr) return "<vt " + std::to_string(v.vt) + ">";
  std::string text;
  for (const char16_t* c = v.bstrVal; *c != 0; ++c) {
    char escaped[8];
    std::snprintf(escaped, sizeof escaped, "%%%02X", static_cast<unsigned>(*c));
    text += *c < 0x80 ? std::string(1, static_cast<char>(*c)) : escaped;
  }
  return text;
}

// One value of a collection or a provider; "<error HEX>" when refused, unless
// the status is asked for: then whatever the variant holds.
template <typename Source>
std::string Read(Source* source, const std::u16string& key, HRESULT* status = nullptr) {
  VARIANT v;
  VariantInit(&v);
  HRESULT hr = source->GetValue(key.c_str(), &v);
  std::string text =
      hr == S_OK || status != nullptr ? Narrow(v) : "<error " + std::to_string(static_cast<uint32_t>(hr)) + ">";
  if (status != nullptr) *status = hr;
  VariantClear(&v);
  return text;
}

// snmpInPkts.0 asked over v2c: every message the agent took in.
long AgentPackets() {
  QxNetAddress* address = CreateNetAddress(u"127.0.0.1");
  OIDProvider* provider = CreateOIDProvider(address);
  long packets = provider != nullptr ? std::stol(Read(provider, u"1.3.6.1.2.1.11.1.0")) : -1;
  if (provider != nullptr) provider->Dispose();
  address->Dispose();
  return packets;
}

const std::string kFail = "<error " + std::to_string(0x80004005u) + ">";

class OidBench : public ::testing::Test {
 protected:
  void SetUp() override {
    NORVANE_REQUIRE_BENCH();
    address_ = CreateNetAddress(Widen(BenchValue("NORVANE_PRINTER_HOST", "127.0.0.1")).c_str());
    ASSERT_NE(address_, nullptr);
  }
  void TearDown() override {
    if (address_ != nullptr) address_->Dispose();
  }
  QxNetAddress* address_ = nullptr;
};

// What each kind of item answers, read in this order from one collection:
// later rows see what earlier ones stored.
constexpr const char16_t* kKinds =
    u"<DataMaps><OIDDataMap>"
    u"<DataItem Name=\"Model\" OID=\"1.3.6.1.2.1.25.3.2.1.3.1\"/>"
    u"<DataItem Name=\"Live\" OID=\"1.3.6.1.2.1.25.3.2.1.5.1\" Transient=\"true\"/>"
    u"<DataItem Name=\"Black\" OID=\"1.3.6.1.2.1.43.11.1.1.9.1.1\" GroupID=\"holes\"/>"
    u"<DataItem Name=\"Hole\" OID=\"1.3.6.1.2.1.43.11.1.1.9.1.7\" GroupID=\"holes\"/>"
    u"<DataItem Name=\"Magenta\" OID=\"1.3.6.1.2.1.43.11.1.1.9.1.2\" GroupID=\"holes\"/>"
    u"<NextDataItem Name=\"Supply\" OID=\"1.3.6.1.2.1.43.11.1.1.6.1\" Count=\"2\"/>"
    u"<NextDataItem Name=\"Peek\" OID=\"1.3.6.1.2.1.43.11.1.1.6.1\" Count=\"2\" Transient=\"true\"/>"
    u"<NextDataItem Name=\"Far\" OID=\"1.3.6.1.2.1.43.12\" Count=\"1\"/>"
    u"<NextDataItem Name=\"TooFar\" OID=\"1.3.6.1.4.1.32473\" Count=\"1\"/>"
    u"<GetDataItems Name=\"Rows\" OID=\"1.3.6.1.2.1.43.11.1.1.6.1.N\" N=\"1\" Count=\"1\"/>"
    u"<GetDataItems Name=\"Levels\" OID=\"1.3.6.1.2.1.43.11.1.1.9.1.N\" N=\"1\" UntilEnd=\"true\"/>"
    u"<GetDataItems Name=\"Same\" OID=\"1.3.6.1.2.1.43.11.1.1.9.1.1\" N=\"1\" UntilEnd=\"true\"/>"
    u"<GetDataItems Name=\"NoN\" OID=\"1.3.6.1.2.1.43.11.1.1.6.1.N\" Count=\"2\"/>"
    u"</OIDDataMap></DataMaps>";

TEST_F(OidBench, EachKindOfItemAnswersAsTheAgentHasIt) {
  const struct {
    const char16_t* key;
    std::string answer;
  } rows[] = {
      {u"dev:Model", "Norvane NX-4100 Color MFP"},
      {u"Live", "2"},
      {u"Unknown", kFail},
      {u"Black", "62,,9"},                              // members in name order; one the agent lacks adds empty text
      {u"Supply.003", kFail},                           // beyond the declared count
      {u"Supply.2a", "Magenta Toner Cartridge NX41M"},  // digits up to the first other character
      {u"Supply.-1", kFail},
      {u"dev:Supply.001", "Black Toner Cartridge NX41K"},
      {u"dev:Supply", "dev:Supply.###"},  // the walk stored the whole table
      {u"Peek.002", "Magenta Toner Cartridge NX41M"},
      {u"Far.001", "black"},   // the next OID is much longer than the one asked about
      {u"TooFar.001", kFail},  // past the buffer's five retries
      {u"Rows.001", "Magenta Toner Cartridge NX41M"},
      {u"Rows.000", "Black Toner Cartridge NX41K"},
      {u"Levels", kFail},  // ends at the first row the agent lacks
      {u"Same", "Same.###"},
      {u"Same.001", kFail},
      {u"NoN", kFail},
  };
  DataCollection* collection = nullptr;
  ASSERT_EQ(CreateDataCollectionFromXML(address_, kKinds, &collection, nullptr), S_OK);
  for (const auto& row : rows) {
    EXPECT_EQ(Read(collection, row.key), row.answer) << std::u16string_view(row.key).size();
  }
  collection->Dispose();
}

// "READ;WRITE" reads the first OID and sets the second to 1; the write's
// status is the answer and the read's value stays in the variant.
TEST_F(OidBench, ProviderReadsWritesAndRefusesBadArguments) {
  OIDProvider* provider = CreateOIDProvider(address_);
  ASSERT_NE(provider, nullptr);
  constexpr const char16_t* kSerial = u"1.3.6.1.2.1.43.5.1.1.17.1";
  const struct {
    const char16_t* request;
    bool ok;
    std::string value;
  } rows[] = {
      {u"1.3.6.1.2.1.43.5.1.1.17.1;", true, "NV42A17Q9X"},
      {u"1.3.6.1.2.1.43.5.1.1.17.1;1.3.6.1.2.1.43.5.1.1.17.1", false, "NV42A17Q9X"},  // read-only
      {u"1.3.6.1.2.1.43.5.1.1.17.9;1.3.6.1.2.1.43.5.1.1.3.1", true, "<vt 0>"},        // a failed read still writes
      {u"1.3.6.1.2.1.43.5.1.1.3.1", true, "1"},
  };
  for (const auto& row : rows) {
    HRESULT hr;
    EXPECT_EQ(Read(provider, row.request, &hr), row.value);
    EXPECT_EQ(SUCCEEDED(hr), row.ok) << row.value;
  }

  // Walks, and SNMPv2c groups, through the provider are the item-kind table's.
  const char16_t* oids[] = {u"1.3.6.1.2.1.43.5.1.1.3.1", kSerial};
  VARIANT values[2] = {}, v = {};
  char16_t next[64];
  // An SNMPv1 agent refuses the whole request for one missing object and names
  // it by its index, first or last; the others are still read.
  QxNetAddress* v1 = CreateNetAddress(u"127.0.0.1");
  ASSERT_EQ(NetAddressSetSnmpVersion(v1, NORVANE_SNMP_VERSION_1), S_OK);
  OIDProvider* old = CreateOIDProvider(v1);
  ASSERT_NE(old, nullptr);
  const char16_t* kMissing = u"1.3.6.1.2.1.43.5.1.1.17.9";
  const struct {
    const char16_t* oids[3];
    const char* expected;
  } groups[] = {
      {{kMissing, oids[0], kSerial}, "<vt 0>,1,NV42A17Q9X"},
      {{oids[0], kSerial, kMissing}, "1,NV42A17Q9X,<vt 0>"},
  };
  for (const auto& group : groups) {
    VARIANT three[3] = {};
    EXPECT_EQ(old->GetMultipleValues(const_cast<const char16_t**>(group.oids), three, 3), S_OK) << group.expected;
    EXPECT_EQ(Narrow(three[0]) + "," + Narrow(three[1]) + "," + Narrow(three[2]), group.expected);
    for (VARIANT& value : three) VariantClear(&value);
  }
  old->Dispose();
  v1->Dispose();
  // Refused before anything is sent.
  EXPECT_EQ(provider->GetValue(nullptr, &v), E_FAIL);
  EXPECT_EQ(provider->GetValue(kSerial, nullptr), E_FAIL);
  EXPECT_EQ(provider->GetNextOidAndValue(kSerial, next, 0, &v), E_FAIL);
  EXPECT_EQ(provider->GetNextOidAndValue(nullptr, next, 64, &v), E_FAIL);
  EXPECT_EQ(provider->GetNextOidAndValue(kSerial, nullptr, 64, &v), E_FAIL);
  EXPECT_EQ(provider->GetNextOidAndValue(kSerial, next, 64, nullptr), E_FAIL);
  EXPECT_EQ(provider->GetMultipleValues(oids, values, 0), E_FAIL);
  EXPECT_EQ(provider->GetMultipleValues(nullptr, values, 1), E_FAIL);
  EXPECT_EQ(provider->GetMultipleValues(oids, nullptr, 1), E_FAIL);
  provider->Dispose();
  EXPECT_EQ(CreateOIDProvider(nullptr), nullptr);
  QxNetAddress* port = CreateNetAddress(u"USB001");  // no network host: no SNMP at all
  EXPECT_EQ(CreateOIDProvider(port), nullptr);
  port->Dispose();
}

// Runs in benches whose agent describes the device otherwise (see
// CMakeLists.txt): the device counts as found when the description has any
// text, bytes counting two to a character.
TEST_F(OidBench, OddDescriptionsDetectTheDeviceOnlyWithText) {
  const std::string expected = BenchValue("NORVANE_TEST_DESCRIPTION");
  if (expected.empty()) GTEST_SKIP() << "needs an agent with an odd description";
  OIDProvider* provider = CreateOIDProvider(address_);
  HRESULT hr = S_OK;
  EXPECT_EQ(provider != nullptr ? Read(provider, u"1.3.6.1.2.1.25.3.2.1.3.1", &hr) : "<not detected>", expected);
  EXPECT_EQ(hr, S_OK);
  if (provider != nullptr) provider->Dispose();
}

TEST_F(OidBench, RegistryCacheKeepsValuesForTheNextCollection) {
  NorvaneTest::ScopedRegistryRoot registry;
  // At arc 99 the same items point at objects the agent does not have: only
  // the cache can answer them.
  auto document = [](const std::u16string& arc, const std::u16string& site) {
    return u"<DataMaps><OIDDataMap><DataItem Name=\"Model\" OID=\"1.3.6.1.2.1.25.3.2.1.3." + arc +
           u"\" LifeSpan=\"600\"/><NextDataItem Name=\"Supply\" OID=\"1.3.6.1.2.1.43.11.1.1.6." + arc +
           u"\" Count=\"2\"/><StaticDataItem Name=\"Site\">" + site + u"</StaticDataItem></OIDDataMap></DataMaps>";
  };
  const std::string model = "Norvane NX-4100 Color MFP", magenta = "Magenta Toner Cartridge NX41M";
  const struct {
    const char16_t* keyPath;
    std::u16string map;
    std::string model, supply, site;
  } steps[] = {
      {u"SOFTWARE\\Norvane\\OidBench", document(u"1", u"first"), model, magenta, "first"},
      // Static values win over the cache's; another key path knows nothing.
      {u"SOFTWARE\\Norvane\\OidBench", document(u"99", u"second"), model, magenta, "second"},
      {u"SOFTWARE\\Norvane\\Elsewhere", document(u"99", u"second"), kFail, "", "second"},
  };
  for (const auto& step : steps) {
    ICacheProvider* cache = CreateRegCacheProvider(step.keyPath);
    ASSERT_NE(cache, nullptr);
    DataCollection* collection = nullptr;
    ASSERT_EQ(CreateDataCollectionFromXML(address_, step.map.c_str(), &collection, cache), S_OK);
    EXPECT_EQ(Read(collection, u"Model"), step.model);
    if (!step.supply.empty()) {
      EXPECT_EQ(Read(collection, u"Supply.002"), step.supply);
    }
    EXPECT_EQ(Read(collection, u"Site"), step.site);
    collection->Dispose();  // saves the table
    cache->Dispose();
  }
  // The store is kept per device, named by the serial number the agent reports.
  bool identityKey = false;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(registry.Path())) {
    identityKey = identityKey || entry.path().filename() == "NV42A17Q9X";
  }
  EXPECT_TRUE(identityKey);
}

// The bench agent's big supplies table read whole: the same values whatever the
// SNMP version, while GETBULK read-ahead on v2c cuts the requests by its row count.
TEST(OidWalk, BulkReadAheadKeepsTheValuesAndCutsTheRequests) {
  NORVANE_REQUIRE_BENCH();
  const int rows = std::stoi(BenchValue("NORVANE_SNMP_BIG_TABLE_ROWS", "0"));
  ASSERT_GE(rows, 500);
  const std::string count = std::to_string(rows);
  const std::u16string document = Widen(
      "<DataMaps><OIDDataMap>"
      "<NextDataItem Name=\"Desc\" OID=\"1.3.6.1.2.1.43.11.1.1.6.2\" Count=\"" +
      count +
      "\"/>"
      "<NextDataItem Name=\"Level\" OID=\"1.3.6.1.2.1.43.11.1.1.9.2\" UntilEnd=\"true\"/>"
      "<DataItem Name=\"Black\" OID=\"1.3.6.1.2.1.43.11.1.1.9.1.1\" GroupID=\"g\"/>"
      "<DataItem Name=\"Magenta\" OID=\"1.3.6.1.2.1.43.11.1.1.9.1.2\" GroupID=\"g\"/>"
      "<DataItem Name=\"Last\" OID=\"1.3.6.1.2.1.43.11.1.1.6.2." +
      count +
      "\" GroupID=\"g\"/>"
      "</OIDDataMap></DataMaps>");
  long requests[2] = {0, 0};
  for (uint32_t version : {NORVANE_SNMP_VERSION_1, NORVANE_SNMP_VERSION_2C}) {
    SCOPED_TRACE(version);
    QxNetAddress* address = CreateNetAddress(u"127.0.0.1");
    ASSERT_EQ(NetAddressSetSnmpVersion(address, version), S_OK);
    long before = AgentPackets();
    DataCollection* collection = nullptr;
    ASSERT_EQ(CreateDataCollectionFromXML(address, document.c_str(), &collection, nullptr), S_OK);
    Read(collection, u"Level");  // ends where the agent's objects end: the answer is that last failure
    EXPECT_EQ(Read(collection, u"Last"), "62,Supply " + count + ",9");  // items in name order
    for (int i = 1; i <= rows; ++i) {
      char sequence[16];
      std::snprintf(sequence, sizeof sequence, ".%03d", i);
      ASSERT_EQ(Read(collection, u"Desc" + Widen(sequence)), "Supply " + std::to_string(i)) << i;
      ASSERT_EQ(Read(collection, u"Level" + Widen(sequence)), std::to_string(i % 101)) << i;
    }
    collection->Dispose();
    requests[version == NORVANE_SNMP_VERSION_2C] = AgentPackets() - before - 1;
    address->Dispose();
  }
  // One get-next per row without read-ahead; one GETBULK per 50 rows with it.
  EXPECT_GE(requests[0], 2L * rows);
  EXPECT_LE(requests[1] * 20, requests[0]) << requests[1] << " against " << requests[0];
}

// Model|Magenta|300th supply| through one user's collection, the creation's
// status and the agent's messages; v2c for a null user.
std::string ReadAs(const char* user, uint32_t level, uint32_t auth, const std::string& pass, uint32_t priv,
                   const std::string& context, HRESULT* created, long* packets) {
  QxNetAddress* address = CreateNetAddress(u"127.0.0.1");
  NetAddressSetSnmpTimeout(address, 300, 1);
  if (user != nullptr) NetAddressSetSnmpUser(address, Widen(user).c_str(), level, Widen(context).c_str());
  NetAddressSetSnmpAuthentication(address, auth, Widen(pass).c_str());
  NetAddressSetSnmpPrivacy(address, priv, Widen(BenchValue("NORVANE_SNMP_V3_PRIV_PASS")).c_str());
  long before = AgentPackets();
  DataCollection* collection = nullptr;
  *created = CreateDataCollectionFromXML(
      address,
      u"<DataMaps><OIDDataMap><DataItem Name=\"Model\" OID=\"1.3.6.1.2.1.25.3.2.1.3.1\"/>"
      u"<DataItem Name=\"B\" OID=\"1.3.6.1.2.1.43.11.1.1.9.1.1\" GroupID=\"g\"/>"
      u"<DataItem Name=\"M\" OID=\"1.3.6.1.2.1.43.11.1.1.9.1.2\" GroupID=\"g\"/>"
      u"<NextDataItem Name=\"S\" OID=\"1.3.6.1.2.1.43.11.1.1.6.2\" Count=\"300\"/></OIDDataMap></DataMaps>",
      &collection, nullptr);
  std::string values;
  for (const char16_t* key : {u"Model", u"M", u"S.300"}) {
    if (collection != nullptr) values += Read(collection, key) + "|";
  }
  if (collection != nullptr) collection->Dispose();
  *packets = AgentPackets() - before - 1;
  address->Dispose();
  return values;
}

// SNMPv3 users read with the digests and AES key sizes the agent offers; wrong
// keys, an unknown user and a level below the user's fail within the time-outs;
// no pass phrase reaches a log.
TEST(OidV3, UsersReadWhatTheCommunityReadsAndOthersFailQuickly) {
  NORVANE_REQUIRE_BENCH();
  std::filesystem::path work = BenchValue("NORVANE_BENCH_DIR"), log = work / "logs/norvane-v3.log";
  setenv("NORVANE_REGISTRY_DIR", (work / "registry").c_str(), 1);
  std::filesystem::create_directories(work / "registry/HKCU/Software/QV/Qx/Logging");
  std::ofstream(work / "registry/HKCU/Software/QV/Qx/Logging/values.reg")
      << "\"LogCategories\"=dword:20000cb0\n\"LogInfoDetailLevel\"=dword:0000000f\n\"LogFileName\"=\"" << log.string()
      << "\"\n";
  const std::string user = BenchValue("NORVANE_SNMP_V3_USER"), pass = BenchValue("NORVANE_SNMP_V3_AUTH_PASS");
  HRESULT created = E_FAIL;
  long v2cPackets = 0, packets = 0;
  const std::string v2c = ReadAs(nullptr, 0, 0, "", 0, "", &created, &v2cPackets);
  ASSERT_EQ(v2c, "Norvane NX-4100 Color MFP|62,9|Supply 300|");
  // user, level (2 authNoPriv, 3 authPriv), digest, pass phrase, AES key size, context; reads
  const std::tuple<std::string, uint32_t, uint32_t, std::string, uint32_t, std::string, bool> cases[] = {
      {user, 3, NORVANE_SNMP_AUTH_SHA256, pass, NORVANE_SNMP_PRIV_AES128, "", true},
      {user, 3, NORVANE_SNMP_AUTH_SHA256, "not-the-phrase", NORVANE_SNMP_PRIV_AES128, "", false},
      {"nobody-here", 3, NORVANE_SNMP_AUTH_SHA256, pass, NORVANE_SNMP_PRIV_AES128, "", false},
      {user, 2, NORVANE_SNMP_AUTH_SHA256, pass, 0, "", false},  // the user needs privacy
      // The wrong keys of the same user and agent are not kept for it.
      {user, 3, NORVANE_SNMP_AUTH_SHA256, pass, NORVANE_SNMP_PRIV_AES128, "", true},
      {"v3-sha1", 2, NORVANE_SNMP_AUTH_SHA1, pass, 0, "", true},
      {"v3-sha224", 3, NORVANE_SNMP_AUTH_SHA224, pass, NORVANE_SNMP_PRIV_AES192, "", true},
      {"v3-sha512", 3, NORVANE_SNMP_AUTH_SHA512, pass, NORVANE_SNMP_PRIV_AES256, "", true},
      {"v3-sha512", 3, NORVANE_SNMP_AUTH_SHA512, pass, NORVANE_SNMP_PRIV_AES128, "", false},
      // This user's printer is in a named context, and only there.
      {"v3-context", 3, NORVANE_SNMP_AUTH_SHA256, pass, NORVANE_SNMP_PRIV_AES128, "printer", true},
      {"v3-context", 3, NORVANE_SNMP_AUTH_SHA256, pass, NORVANE_SNMP_PRIV_AES128, "", false},
  };
  for (const auto& [name, level, auth, phrase, priv, context, reads] : cases) {
    SCOPED_TRACE(name + " " + phrase + " " + std::to_string(auth) + "/" + std::to_string(priv) + " " + context);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(ReadAs(name.c_str(), level, auth, phrase, priv, context, &created, &packets), reads ? v2c : "");
    EXPECT_EQ(created, reads ? S_OK : E_FAIL);  // failing: no source answers the data map
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    // GETBULK read-ahead: a 300-row walk in a few messages (the agent's proxy
    // for the named context asks itself one row at a time).
    EXPECT_TRUE(!context.empty() || packets < v2cPackets + 4) << packets << " messages";
  }
  ASSERT_TRUE(std::filesystem::exists(log));
  for (const auto& file : std::filesystem::directory_iterator(work / "logs")) {
    std::ifstream in(file.path());
    std::string text{std::istreambuf_iterator<char>(in), {}};
    for (const std::string& secret : {pass, BenchValue("NORVANE_SNMP_V3_PRIV_PASS"), std::string("not-the-phrase")})
      EXPECT_EQ(text.find(secret), std::string::npos) << file.path();
  }
}

}  // namespace
