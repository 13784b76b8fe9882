#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "norvane/api.h"
#include "norvane/cache.h"
#include "norvane/datamap.h"
#include "platform/clock.h"
#include "platform/registry.h"
#include "testlib/capture_log.h"
#include "testlib/temp_dir.h"
#include "support/ref.h"

namespace {

namespace fs = std::filesystem;
using namespace Norvane;
using NorvaneTest::ScopedRegistryRoot;

constexpr uint64_t kSecond = 10000000;

uint64_t Now() {
  uint64_t t = 0;
  GetCurrentFileTime(&t);
  return t;
}

// A data map whose items give the lifespans the cache is read with.
struct DataMap {
  QxUtils::Ref<DataMapSpec> held = QxUtils::AdoptRef(DataMapSpec::CreateDataMapSpec(DataMapTypeVEXA));
  DataMapSpec* map = held.get();
  void Item(const char16_t* name, const char16_t* prefix, uint32_t lifespan) {
    map->AddDataItemSpec(prefix ? std::u16string(prefix) + u":" + name : name,
                         XMLDataItemSpec::CreateXMLDataItem(name, u"/uri", u"//x", prefix, false, lifespan, nullptr));
  }
};


CachedValue Cached(Variant v, uint64_t stamp, uint32_t lifespan) {
  CachedValue c;
  c.value = std::move(v);
  c.stamp = stamp;
  c.lifespan = lifespan;
  return c;
}

TEST(RegCache, ValuesComeBackWithTheirTypesWhileValid) {
  ScopedRegistryRoot root;
  uint64_t now = Now();
  {
    auto cache = QxUtils::Ref<RegCacheProvider>::Adopt(RegCacheProvider::Create(u"Software\\Norvane\\Cache"));
    cache->SetDeviceIdentity(u"CN12345", u"VEXA");
    ValueTable table;
    table[u"dev:Model"] = Cached(Variant::FromString(u"LX 9000"), now, 600);
    table[u"Pages"] = Cached(Variant::FromInt32(-1), now, 600);
    table[u"Forever"] = Cached(Variant::FromString(u"static"), 0, 0);
    table[u"Stale"] = Cached(Variant::FromString(u"old"), now - 100 * kSecond, 10);
    ASSERT_EQ(cache->SetDataValues(table), S_OK);
  }
  EXPECT_TRUE(fs::exists(root.Path() + "/HKLM/Software/Norvane/Cache/CN12345/VEXA/values.reg"));

  auto reader = QxUtils::Ref<RegCacheProvider>::Adopt(RegCacheProvider::Create(u"Software\\Norvane\\Cache"));
  reader->SetDeviceIdentity(u"CN12345", u"VEXA");
  DataMap map;
  map.Item(u"Model", u"dev", 600);
  map.Item(u"Pages", nullptr, 600);
  map.Item(u"Stale", nullptr, 10);
  ValueTable table;
  ASSERT_EQ(reader->PopulateFromRegistry(map.map, &table), S_OK);
  ASSERT_EQ(table.size(), 3u);
  EXPECT_EQ(std::u16string(table[u"dev:Model"].value.Get().bstrVal), u"LX 9000");
  EXPECT_EQ(table[u"dev:Model"].lifespan, 600u);
  EXPECT_EQ(table[u"dev:Model"].stamp, now);
  EXPECT_EQ(table[u"Pages"].value.Type(), VT_I4);
  EXPECT_EQ(table[u"Pages"].value.Get().lVal, -1);
  EXPECT_EQ(table[u"Forever"].lifespan, 0u);  // "0" needs no item
  EXPECT_EQ(table.count(u"Stale"), 0u);       // expired entries are not written
  VARIANT v;
  VariantInit(&v);
  EXPECT_EQ(reader->GetDataValue(u"Pages", &v), S_OK);
  EXPECT_EQ(v.lVal, -1);
  EXPECT_EQ(reader->GetDataValue(u"Pages.Expires", &v), S_OK);  // companions are entries too
  VariantClear(&v);
  EXPECT_EQ(reader->GetDataValue(u"Missing", &v), S_FALSE);
  EXPECT_EQ(reader->GetDataValue(nullptr, &v), S_FALSE);

  // Another device or protocol has its own key.
  auto other = QxUtils::Ref<RegCacheProvider>::Adopt(RegCacheProvider::Create(u"Software\\Norvane\\Cache"));
  other->SetDeviceIdentity(u"CN12345", u"OID");
  ValueTable none;
  EXPECT_EQ(other->PopulateFromRegistry(map.map, &none), S_FALSE);
  EXPECT_TRUE(none.empty());
}

TEST(RegCache, TheLifespanComesFromTheDataMapInForce) {
  ScopedRegistryRoot root;
  auto cache = QxUtils::Ref<RegCacheProvider>::Adopt(RegCacheProvider::Create(u"Lifespans"));
  Variant v = Variant::FromString(u"x");
  uint64_t now = Now();
  ASSERT_EQ(cache->SetDataValue(u"Young", &v.Get(), static_cast<int64_t>(now - 59 * kSecond)), S_OK);
  ASSERT_EQ(cache->SetDataValue(u"Old", &v.Get(), static_cast<int64_t>(now - 61 * kSecond)), S_OK);
  ASSERT_EQ(cache->SetDataValue(u"Future", &v.Get(), static_cast<int64_t>(now + 3600 * kSecond)), S_OK);
  ASSERT_EQ(cache->SetDataValue(u"Unmapped", &v.Get(), static_cast<int64_t>(now)), S_OK);
  DataMap map;
  map.Item(u"Young", nullptr, 600);
  map.Item(u"Old", nullptr, 600);
  map.Item(u"Future", nullptr, 600);
  ValueTable table;
  ASSERT_EQ(cache->PopulateFromRegistry(map.map, &table), S_OK);
  EXPECT_EQ(table.count(u"Young"), 1u);
  EXPECT_EQ(table.count(u"Old"), 0u);
  EXPECT_EQ(table.count(u"Future"), 0u);    // a stamp after now is not trusted
  EXPECT_EQ(table.count(u"Unmapped"), 0u);  // no item gives it a lifespan
}

TEST(RegCache, ACompanionMustFollowItsValueDirectly) {
  ScopedRegistryRoot root;
  Registry::Key key;
  ASSERT_EQ(Registry::Key::Create(Registry::Hive::LocalMachine, u"Adjacent", &key), Registry::kSuccess);
  std::ofstream(key.Directory() + "/values.reg") << "\"Tray\"=\"A4\"\n\"Tray-1\"=\"Letter\"\n\"Tray.Expires\"=\"0\"\n"
                                                 << "\"Bin\"=\"full\"\n\"Bin.Expires\"=\"0\"\n"
                                                 << "\"Bad\"=\"x\"\n\"Bad.Expires\"=\"soon\"\n";
  auto cache = QxUtils::Ref<RegCacheProvider>::Adopt(RegCacheProvider::Create(u"Adjacent"));
  DataMap map;
  ValueTable table;
  ASSERT_EQ(cache->PopulateFromRegistry(map.map, &table), S_OK);
  EXPECT_EQ(table.count(u"Tray"), 0u);    // "Tray-1" sorts between Tray and its companion
  EXPECT_EQ(table.count(u"Tray-1"), 0u);  // and has no companion of its own
  EXPECT_EQ(table.count(u"Bin"), 1u);
  EXPECT_EQ(table.count(u"Bad"), 0u);  // unreadable time
}

TEST(RegCache, NoPathNoStoreAndHostileIdentitiesStayInside) {
  ScopedRegistryRoot root;
  ValueTable table;
  table[u"a"] = Cached(Variant::FromString(u"1"), 0, 0);
  auto none = QxUtils::Ref<RegCacheProvider>::Adopt(RegCacheProvider::Create(nullptr));
  EXPECT_EQ(none->SetDataValues(table), S_FALSE);
  Variant v = Variant::FromString(u"x");
  EXPECT_EQ(none->SetDataValue(u"a", &v.Get(), 0), S_FALSE);
  DataMap map;
  EXPECT_EQ(none->PopulateFromRegistry(map.map, &table), S_FALSE);
  EXPECT_FALSE(fs::exists(root.Path() + "/HKLM"));

  NorvaneTest::CaptureLog log;
  auto hostile = QxUtils::Ref<RegCacheProvider>::Adopt(RegCacheProvider::Create(u"Cache"));
  hostile->SetDeviceIdentity(u"..\\..\\..\\escape", u"VEXA");
  EXPECT_EQ(hostile->SetDataValues(table), S_FALSE);
  EXPECT_TRUE(log.Contains("RegCreateKeyEx failed with error code =87", 0x80));
  hostile->SetDeviceIdentity(u"a/b", u"VEXA");
  EXPECT_EQ(hostile->SetDataValue(u"a", &v.Get(), 0), S_FALSE);
  EXPECT_FALSE(fs::exists(root.Path() + "/escape"));
  EXPECT_FALSE(fs::exists(root.Path() + "/HKLM/Cache"));
}

TEST(RegCache, AllExpiredWritesNothing) {
  ScopedRegistryRoot root;
  auto cache = QxUtils::Ref<RegCacheProvider>::Adopt(RegCacheProvider::Create(u"Expired"));
  ValueTable table;
  table[u"a"] = Cached(Variant::FromString(u"1"), Now() - 100 * kSecond, 1);
  EXPECT_EQ(cache->SetDataValues(table), S_OK);
  EXPECT_FALSE(fs::exists(root.Path() + "/HKLM/Expired/values.reg"));
}

TEST(RegCache, ValuesOfOtherTypesWriteOnlyTheirCompanion) {
  ScopedRegistryRoot root;
  auto cache = QxUtils::Ref<RegCacheProvider>::Adopt(RegCacheProvider::Create(u"Types"));
  Variant bytes = Variant::FromBytes("\x01\x02", 2);
  Variant machine = Variant::FromInt(7);
  ASSERT_EQ(cache->SetDataValue(u"Blob", &bytes.Get(), 0), S_OK);
  ASSERT_EQ(cache->SetDataValue(u"Machine", &machine.Get(), 0), S_OK);
  Registry::Key key;
  ASSERT_EQ(Registry::Key::Open(Registry::Hive::LocalMachine, u"Types", &key), Registry::kSuccess);
  Registry::ValueList values;
  ASSERT_EQ(key.ReadValues(&values), Registry::kSuccess);
  ASSERT_EQ(values.size(), 2u);
  EXPECT_EQ(values[0].name, u"Blob.Expires");
  EXPECT_EQ(values[1].name, u"Machine.Expires");
}

TEST(RegCache, AValueTooLargeForTheStoreFailsAndTheKeyKeepsWorking) {
  ScopedRegistryRoot root;
  auto cache = QxUtils::Ref<RegCacheProvider>::Adopt(RegCacheProvider::Create(u"Large"));
  Variant small = Variant::FromString(u"kept");
  Variant huge = Variant::FromString(std::u16string(1100000, u'x'));
  ASSERT_EQ(cache->SetDataValue(u"Small", &small.Get(), 0), S_OK);
  EXPECT_EQ(cache->SetDataValue(u"Huge", &huge.Get(), 0), S_FALSE);
  ValueTable table;
  table[u"Huge"] = Cached(huge, 0, 0);
  table[u"Later"] = Cached(small, 0, 0);
  EXPECT_EQ(cache->SetDataValues(table), S_FALSE);  // the rest is still written
  DataMap map;
  ValueTable read;
  ASSERT_EQ(cache->PopulateFromRegistry(map.map, &read), S_OK);
  EXPECT_EQ(read.size(), 2u);
  EXPECT_EQ(read.count(u"Small") + read.count(u"Later"), 2u);
}

TEST(PrintDataCache, ReadsThePrinterDataOnceAtCreation) {
  ScopedRegistryRoot root;
  uintptr_t printer = OpenPrinterDataHandle(u"Front Desk");
  {
    auto cache = QxUtils::Ref<ICacheProvider>::Adopt(CreatePrintDataCacheProvider(printer));
    auto* concrete = dynamic_cast<PrintDataCacheProvider*>(cache.get());
    ASSERT_NE(concrete, nullptr);
    DataMap map;
    ValueTable table;
    EXPECT_EQ(concrete->PopulateFromRegistry(map.map, &table), S_FALSE);  // no data yet
    Variant v = Variant::FromInt32(-1);
    ASSERT_EQ(cache->SetDataValue(u"Level", &v.Get(), 0), S_OK);
    VARIANT out;
    VariantInit(&out);
    EXPECT_EQ(cache->GetDataValue(u"Level", &out), S_FALSE);  // not re-read
    Variant null;
    null.Get().vt = VT_NULL;
    EXPECT_EQ(cache->SetDataValue(u"Nothing", &null.Get(), 0), S_FALSE);
  }
  auto again = QxUtils::Ref<ICacheProvider>::Adopt(CreatePrintDataCacheProvider(printer));
  VARIANT out;
  VariantInit(&out);
  ASSERT_EQ(again->GetDataValue(u"Level", &out), S_OK);
  EXPECT_EQ(out.vt, VT_I4);
  EXPECT_EQ(out.lVal, -1);
  DataMap map;
  ValueTable table;
  ASSERT_EQ(dynamic_cast<PrintDataCacheProvider*>(again.get())->PopulateFromRegistry(map.map, &table), S_OK);
  EXPECT_EQ(table.count(u"Level"), 1u);
  EXPECT_EQ(dynamic_cast<PrintDataCacheProvider*>(again.get())->PopulateFromRegistry(nullptr, &table), S_FALSE);
  ClosePrinterDataHandle(printer);
}

TEST(PrintDataCache, NoPrinterMeansNoStore) {
  ScopedRegistryRoot root;
  auto cache = QxUtils::Ref<ICacheProvider>::Adopt(CreatePrintDataCacheProvider(PrintDataCacheProvider::kNoPrinter));
  Variant v = Variant::FromString(u"x");
  EXPECT_EQ(cache->SetDataValue(u"a", &v.Get(), 0), S_FALSE);
  EXPECT_FALSE(fs::exists(root.Path() + "/HKLM"));
}

TEST(PrintDataCache, LongPrinterNamesKeepTheirOwnCache) {
  ScopedRegistryRoot root;
  std::u16string japanese;
  for (int i = 0; i < 200; ++i) japanese.push_back(static_cast<char16_t>(u'あ' + i % 80));
  std::u16string twin = japanese;
  twin.back() = u'ン';  // same prefix, another printer
  uintptr_t printer = OpenPrinterDataHandle(japanese.c_str());
  uintptr_t other = OpenPrinterDataHandle(twin.c_str());
  Variant v = Variant::FromString(u"LX 9000");
  {
    auto cache = QxUtils::Ref<ICacheProvider>::Adopt(CreatePrintDataCacheProvider(printer));
    ASSERT_EQ(cache->SetDataValue(u"Model", &v.Get(), 0), S_OK);
  }
  auto again = QxUtils::Ref<ICacheProvider>::Adopt(CreatePrintDataCacheProvider(printer));
  auto twinCache = QxUtils::Ref<ICacheProvider>::Adopt(CreatePrintDataCacheProvider(other));
  VARIANT out;
  VariantInit(&out);
  ASSERT_EQ(again->GetDataValue(u"Model", &out), S_OK);
  EXPECT_EQ(std::u16string(out.bstrVal), u"LX 9000");
  VariantClear(&out);
  EXPECT_EQ(twinCache->GetDataValue(u"Model", &out), S_FALSE);
  ClosePrinterDataHandle(printer);
  ClosePrinterDataHandle(other);
}

}  // namespace
