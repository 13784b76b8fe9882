// SNMPv3 users of the bench agent read through a collection with the digests
// and AES key sizes the agent offers; wrong keys, an unknown user and a level
// below the user's fail within the time-outs; no pass phrase reaches a log.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "norvane/host.h"
#include "norvane/norvane.h"

namespace {

using namespace Norvane;

std::string Env(const char* name) { return std::getenv(name) != nullptr ? std::getenv(name) : ""; }
std::u16string Widen(const std::string& text) { return std::u16string(text.begin(), text.end()); }

// snmpInPkts.0 over v2c: every message the agent took in.
long AgentPackets() {
  QxNetAddress* address = CreateNetAddress(u"127.0.0.1");
  OIDProvider* provider = CreateOIDProvider(address);
  VARIANT v{};
  long packets = provider != nullptr && provider->GetValue(u"1.3.6.1.2.1.11.1.0", &v) == S_OK ? v.lVal : -1;
  if (provider != nullptr) provider->Dispose();
  address->Dispose();
  return packets;
}

// Model|Magenta|300th supply|, the collection's status, the agent's messages; v2c for a null user.
std::string Read(const char* user, uint32_t level, uint32_t auth, const std::string& pass, uint32_t priv,
                 const std::string& context, HRESULT* created, long* packets) {
  QxNetAddress* address = CreateNetAddress(u"127.0.0.1");
  NetAddressSetSnmpTimeout(address, 300, 1);
  if (user != nullptr) NetAddressSetSnmpUser(address, Widen(user).c_str(), level, Widen(context).c_str());
  NetAddressSetSnmpAuthentication(address, auth, Widen(pass).c_str());
  NetAddressSetSnmpPrivacy(address, priv, Widen(Env("NORVANE_SNMP_V3_PRIV_PASS")).c_str());
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
    VARIANT v;
    VariantInit(&v);
    if (collection != nullptr && collection->GetValue(key, &v) == S_OK && v.vt == VT_BSTR) {
      values += std::string(v.bstrVal, v.bstrVal + SysStringLen(v.bstrVal)) + "|";
    }
    VariantClear(&v);
  }
  if (collection != nullptr) collection->Dispose();
  *packets = AgentPackets() - before - 1;
  address->Dispose();
  return values;
}

TEST(OidV3, UsersReadWhatTheCommunityReadsAndOthersFailQuickly) {
  if (Env("NORVANE_BENCH") != "1") GTEST_SKIP() << "needs the integration bench";
  std::filesystem::path work = Env("NORVANE_BENCH_DIR"), log = work / "logs/norvane-v3.log";
  setenv("NORVANE_REGISTRY_DIR", (work / "registry").c_str(), 1);
  std::filesystem::create_directories(work / "registry/HKCU/Software/QV/Qx/Logging");
  std::ofstream(work / "registry/HKCU/Software/QV/Qx/Logging/values.reg")
      << "\"LogCategories\"=dword:20000cb0\n\"LogInfoDetailLevel\"=dword:0000000f\n\"LogFileName\"=\"" << log.string() << "\"\n";
  const std::string user = Env("NORVANE_SNMP_V3_USER"), pass = Env("NORVANE_SNMP_V3_AUTH_PASS");
  HRESULT created = E_FAIL; long v2cPackets = 0, packets = 0;
  const std::string v2c = Read(nullptr, 0, 0, "", 0, "", &created, &v2cPackets);
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
    EXPECT_EQ(Read(name.c_str(), level, auth, phrase, priv, context, &created, &packets), reads ? v2c : "");
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
    for (const std::string& secret : {pass, Env("NORVANE_SNMP_V3_PRIV_PASS"), std::string("not-the-phrase")})
      EXPECT_EQ(text.find(secret), std::string::npos) << file.path();
  }
}

}  // namespace
