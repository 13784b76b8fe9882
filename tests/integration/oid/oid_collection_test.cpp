// An OID data collection reading the bench's snmpd: single objects, a group, a
// get-next walk, and a registry cache that keeps what one collection read for
// the next.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "norvane/api.h"
#include "norvane/host.h"
#include "norvane/norvane.h"
#include "../bench_env.h"

namespace {

using namespace Norvane;

std::u16string Widen(const std::string& text) { return std::u16string(text.begin(), text.end()); }

std::string Narrow(const VARIANT& v) {
  if (v.vt == VT_BSTR && v.bstrVal != nullptr) {
    std::u16string wide(v.bstrVal);
    return std::string(wide.begin(), wide.end());
  }
  if (v.vt == VT_I4) return std::to_string(v.lVal);
  return "<vt " + std::to_string(v.vt) + ">";
}

class OidBench : public ::testing::Test {
 protected:
  void SetUp() override {
    NORVANE_REQUIRE_BENCH();
    address_ = CreateNetAddress(Widen(NorvaneBench::BenchValue("NORVANE_PRINTER_HOST", "127.0.0.1")).c_str());
    ASSERT_NE(address_, nullptr);
  }
  void TearDown() override {
    if (address_ != nullptr) address_->Dispose();
  }

  // Reads one value; "<error HEX>" when the collection refuses.
  static std::string Read(DataCollection* collection, const char16_t* key) {
    VARIANT v;
    VariantInit(&v);
    HRESULT hr = collection->GetValue(key, &v);
    std::string text = hr == S_OK ? Narrow(v) : "<error " + std::to_string(static_cast<uint32_t>(hr)) + ">";
    VariantClear(&v);
    return text;
  }

  QxNetAddress* address_ = nullptr;
};

constexpr const char16_t* kDocument =
    u"<DataMaps><OIDDataMap>"
    u"<DataItem Name=\"Model\" OID=\"1.3.6.1.2.1.25.3.2.1.3.1\" LifeSpan=\"600\"/>"
    u"<DataItem Name=\"Status\" OID=\"1.3.6.1.2.1.25.3.2.1.5.1\">"
    u"  <Conversion Equals=\"2\" Value=\"running\"/></DataItem>"
    u"<DataItem Name=\"BlackLevel\" OID=\"1.3.6.1.2.1.43.11.1.1.9.1.1\" GroupID=\"levels\"/>"
    u"<DataItem Name=\"MagentaLevel\" OID=\"1.3.6.1.2.1.43.11.1.1.9.1.2\" GroupID=\"levels\"/>"
    u"<NextDataItem Name=\"Supply\" OID=\"1.3.6.1.2.1.43.11.1.1.6.1\" Count=\"2\"/>"
    u"<StaticDataItem Name=\"Site\">first</StaticDataItem>"
    u"</OIDDataMap></DataMaps>";

TEST_F(OidBench, ReadsObjectsGroupsAndWalks) {
  DataCollection* collection = nullptr;
  ASSERT_EQ(CreateDataCollectionFromXML(address_, kDocument, &collection, nullptr), S_OK);
  ASSERT_NE(collection, nullptr);
  EXPECT_EQ(Read(collection, u"Model"), "Norvane NX-4100 Color MFP");
  EXPECT_EQ(Read(collection, u"Status"), "running");
  EXPECT_EQ(Read(collection, u"MagentaLevel"), "62,9");
  EXPECT_EQ(Read(collection, u"Supply.002"), "Magenta Toner Cartridge NX41M");
  // The walk stored the whole table.
  EXPECT_EQ(Read(collection, u"Supply"), "Supply.###");
  EXPECT_EQ(Read(collection, u"Supply.001"), "Black Toner Cartridge NX41K");
  EXPECT_EQ(Read(collection, u"Supply.003"), "<error " + std::to_string(0x80004005u) + ">");
  collection->Dispose();

  OIDProvider* provider = CreateOIDProvider(address_);
  ASSERT_NE(provider, nullptr);
  VARIANT v;
  VariantInit(&v);
  EXPECT_EQ(provider->GetValue(u"1.3.6.1.2.1.43.5.1.1.17.1", &v), S_OK);
  EXPECT_EQ(Narrow(v), "NV42A17Q9X");
  VariantClear(&v);
  provider->Dispose();
}

// What each kind of item answers, read in this order from one collection:
// later rows see what earlier ones stored.
constexpr const char16_t* kKinds =
    u"<DataMaps><OIDDataMap>"
    u"<DataItem Name=\"Model\" OID=\"1.3.6.1.2.1.25.3.2.1.3.1\"/>"
    u"<DataItem Name=\"Live\" OID=\"1.3.6.1.2.1.25.3.2.1.5.1\" Transient=\"true\"/>"
    u"<DataItem Name=\"Gone\" OID=\"1.3.6.1.2.1.25.3.2.1.3.99\"/>"
    u"<DataItem Name=\"Black\" OID=\"1.3.6.1.2.1.43.11.1.1.9.1.1\" GroupID=\"holes\"/>"
    u"<DataItem Name=\"Hole\" OID=\"1.3.6.1.2.1.43.11.1.1.9.1.7\" GroupID=\"holes\"/>"
    u"<NextDataItem Name=\"Supply\" OID=\"1.3.6.1.2.1.43.11.1.1.6.1\" Count=\"2\"/>"
    u"<NextDataItem Name=\"Peek\" OID=\"1.3.6.1.2.1.43.11.1.1.6.1\" Count=\"2\" Transient=\"true\"/>"
    u"<NextDataItem Name=\"Far\" OID=\"1.3.6.1.2.1.43.12\" Count=\"1\"/>"
    u"<NextDataItem Name=\"TooFar\" OID=\"1.3.6.1.4.1.32473\" Count=\"1\"/>"
    u"<GetDataItems Name=\"Rows\" OID=\"1.3.6.1.2.1.43.11.1.1.6.1.N\" N=\"1\" Count=\"1\"/>"
    u"<GetDataItems Name=\"Quick\" OID=\"1.3.6.1.2.1.43.11.1.1.9.1.N\" N=\"1\" Count=\"1\" Transient=\"true\"/>"
    u"<GetDataItems Name=\"Levels\" OID=\"1.3.6.1.2.1.43.11.1.1.9.1.N\" N=\"1\" UntilEnd=\"true\"/>"
    u"<GetDataItems Name=\"Same\" OID=\"1.3.6.1.2.1.43.11.1.1.9.1.1\" N=\"1\" UntilEnd=\"true\"/>"
    u"<GetDataItems Name=\"NoN\" OID=\"1.3.6.1.2.1.43.11.1.1.6.1.N\" Count=\"2\"/>"
    u"</OIDDataMap></DataMaps>";

TEST_F(OidBench, EachKindOfItemAnswersAsTheAgentHasIt) {
  const std::string fail = "<error " + std::to_string(0x80004005u) + ">";
  const struct {
    const char16_t* key;
    std::string answer;
  } rows[] = {
      {u"dev:Model", "Norvane NX-4100 Color MFP"},
      {u"Live", "2"},
      {u"Gone", fail},
      {u"Unknown", fail},
      {u"Black", "62,"},  // a member the agent lacks adds empty text
      {u"Supply.004", fail},  // beyond the declared count
      {u"Supply.2a", "Magenta Toner Cartridge NX41M"},  // digits up to the first other character
      {u"Supply.-1", fail},
      {u"dev:Supply.001", "Black Toner Cartridge NX41K"},
      {u"dev:Supply", "dev:Supply.###"},
      {u"Peek.002", "Magenta Toner Cartridge NX41M"},
      {u"Peek", "Peek.###"},
      {u"Far.001", "black"},  // the next OID is much longer than the one asked about
      {u"TooFar.001", fail},  // past the buffer's five retries
      {u"Rows.001", "Magenta Toner Cartridge NX41M"},
      {u"Rows.000", "Black Toner Cartridge NX41K"},
      {u"Quick.001", "9"},
      {u"Levels", fail},  // ends at the first row the agent lacks
      {u"Levels.001", "9"},
      {u"Same", "Same.###"},
      {u"Same.001", fail},
      {u"NoN", fail},
  };
  DataCollection* collection = nullptr;
  ASSERT_EQ(CreateDataCollectionFromXML(address_, kKinds, &collection, nullptr), S_OK);
  for (const auto& row : rows) {
    EXPECT_EQ(Read(collection, row.key), row.answer) << std::string(row.key, row.key + std::char_traits<char16_t>::length(row.key));
  }
  collection->Dispose();
}

// "READ;WRITE" reads the first OID and sets the second to 1; the write's
// status is the answer and the read's value stays in the variant.
TEST_F(OidBench, ProviderReadsWritesAndRefusesBadArguments) {
  OIDProvider* provider = CreateOIDProvider(address_);
  ASSERT_NE(provider, nullptr);
  constexpr const char16_t* kSerial = u"1.3.6.1.2.1.43.5.1.1.17.1";
  constexpr const char16_t* kReset = u"1.3.6.1.2.1.43.5.1.1.3.1";
  const struct {
    const char16_t* request;
    bool ok;
    std::string value;
  } rows[] = {
      {u"1.3.6.1.2.1.43.5.1.1.17.1;", true, "NV42A17Q9X"},
      {u"1.3.6.1.2.1.43.5.1.1.17.1;1.3.6.1.2.1.43.5.1.1.17.1", false, "NV42A17Q9X"},  // read-only
      {u"1.3.6.1.2.1.43.5.1.1.17.9;1.3.6.1.2.1.43.5.1.1.3.1", true, "<vt 0>"},  // a failed read still writes
      {u"1.3.6.1.2.1.43.5.1.1.3.1", true, "1"},
  };
  for (const auto& row : rows) {
    VARIANT v;
    VariantInit(&v);
    EXPECT_EQ(SUCCEEDED(provider->GetValue(row.request, &v)), row.ok) << Narrow(v);
    EXPECT_EQ(Narrow(v), row.value);
    VariantClear(&v);
  }

  VARIANT v;
  VariantInit(&v);
  char16_t next[64];
  ASSERT_EQ(provider->GetNextOidAndValue(kSerial, next, 64, &v), S_OK);
  EXPECT_EQ(std::u16string(next), u"1.3.6.1.2.1.43.10.2.1.4.1.1");
  VariantClear(&v);
  EXPECT_EQ(provider->GetNextOidAndValue(kSerial, next, 8, &v), E_OUTOFMEMORY);
  const char16_t* oids[] = {kReset, kSerial};
  VARIANT values[2];
  VariantInit(&values[0]);
  VariantInit(&values[1]);
  ASSERT_EQ(provider->GetMultipleValues(oids, values, 2), S_OK);
  EXPECT_EQ(Narrow(values[0]) + "," + Narrow(values[1]), "1,NV42A17Q9X");
  VariantClear(&values[0]);
  VariantClear(&values[1]);
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
  const char* expected = std::getenv("NORVANE_TEST_DESCRIPTION");
  if (expected == nullptr) GTEST_SKIP() << "needs an agent with an odd description";
  OIDProvider* provider = CreateOIDProvider(address_);
  std::string seen = "<not detected>";
  if (provider != nullptr) {
    VARIANT v;
    VariantInit(&v);
    EXPECT_EQ(provider->GetValue(u"1.3.6.1.2.1.25.3.2.1.3.1", &v), S_OK);
    seen = Narrow(v);
    VariantClear(&v);
    provider->Dispose();
  }
  EXPECT_EQ(seen, expected);
}

// Runs in a bench whose agent describes the device in Latin-1 (see CMakeLists.txt).
TEST_F(OidBench, ADeviceDescribingItselfInLatin1IsDetected) {
  if (std::getenv("NORVANE_BENCH_SNMPD_EDIT") == nullptr) GTEST_SKIP() << "needs the Latin-1 agent";
  OIDProvider* provider = CreateOIDProvider(address_);
  ASSERT_NE(provider, nullptr);
  VARIANT v;
  VariantInit(&v);
  EXPECT_EQ(provider->GetValue(u"1.3.6.1.2.1.25.3.2.1.3.1", &v), S_OK);
  EXPECT_EQ(v.vt == VT_BSTR ? std::u16string(v.bstrVal) : u"<not text>", u"Imprimante r\u00E9seau");
  VariantClear(&v);
  provider->Dispose();
}

TEST_F(OidBench, RegistryCacheKeepsValuesForTheNextCollection) {
  char pattern[] = "/tmp/norvane-oid-registry-XXXXXX";
  ASSERT_NE(mkdtemp(pattern), nullptr);
  std::filesystem::path root(pattern);
  setenv("NORVANE_REGISTRY_DIR", pattern, 1);

  ICacheProvider* cache = CreateRegCacheProvider(u"SOFTWARE\\Norvane\\OidBench");
  ASSERT_NE(cache, nullptr);
  DataCollection* collection = nullptr;
  ASSERT_EQ(CreateDataCollectionFromXML(address_, kDocument, &collection, cache), S_OK);
  EXPECT_EQ(Read(collection, u"Model"), "Norvane NX-4100 Color MFP");
  EXPECT_EQ(Read(collection, u"Supply.001"), "Black Toner Cartridge NX41K");
  collection->Dispose();  // saves the table
  cache->Dispose();

  // The store is kept per device, named by the serial number the agent reports.
  bool identityKey = false;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    if (entry.path().filename() == "NV42A17Q9X") identityKey = true;
  }
  EXPECT_TRUE(identityKey);

  // The same items now point at objects the agent does not have: only the
  // cache can answer them.
  constexpr const char16_t* kMoved =
      u"<DataMaps><OIDDataMap>"
      u"<DataItem Name=\"Model\" OID=\"1.3.6.1.2.1.25.3.2.1.3.99\" LifeSpan=\"600\"/>"
      u"<NextDataItem Name=\"Supply\" OID=\"1.3.6.1.2.1.43.11.1.1.6.99\" Count=\"2\"/>"
      u"<StaticDataItem Name=\"Site\">second</StaticDataItem>"
      u"</OIDDataMap></DataMaps>";
  cache = CreateRegCacheProvider(u"SOFTWARE\\Norvane\\OidBench");
  ASSERT_EQ(CreateDataCollectionFromXML(address_, kMoved, &collection, cache), S_OK);
  EXPECT_EQ(Read(collection, u"Model"), "Norvane NX-4100 Color MFP");
  EXPECT_EQ(Read(collection, u"Supply.002"), "Magenta Toner Cartridge NX41M");
  EXPECT_EQ(Read(collection, u"Site"), "second");  // static values are stored after the cache's
  collection->Dispose();
  cache->Dispose();

  // A cache for another key path knows nothing.
  cache = CreateRegCacheProvider(u"SOFTWARE\\Norvane\\Elsewhere");
  ASSERT_EQ(CreateDataCollectionFromXML(address_, kMoved, &collection, cache), S_OK);
  EXPECT_NE(Read(collection, u"Model"), "Norvane NX-4100 Color MFP");
  collection->Dispose();
  cache->Dispose();

  unsetenv("NORVANE_REGISTRY_DIR");
  std::filesystem::remove_all(root);
}

}  // namespace
