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
      u"</OIDDataMap></DataMaps>";
  cache = CreateRegCacheProvider(u"SOFTWARE\\Norvane\\OidBench");
  ASSERT_EQ(CreateDataCollectionFromXML(address_, kMoved, &collection, cache), S_OK);
  EXPECT_EQ(Read(collection, u"Model"), "Norvane NX-4100 Color MFP");
  EXPECT_EQ(Read(collection, u"Supply.002"), "Magenta Toner Cartridge NX41M");
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
