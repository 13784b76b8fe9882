#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <vector>

#include "../datamap/datamap_test_support.h"
#include "norvane/api.h"
#include "norvane/cache.h"
#include "norvane/datamap.h"
#include "platform/clock.h"
#include "platform/registry.h"
#include "support/ref.h"
#include "support/string_utils.h"
#include "testlib/capture_log.h"
#include "testlib/temp_dir.h"

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

// A value comes back with its type and stamp while the data map in force gives
// it a lifespan that has not run out.
TEST(RegCache, ValuesComeBackWithTheirTypesWhileValid) {
  ScopedRegistryRoot root;
  uint64_t now = Now();
  {
    auto cache = QxUtils::Ref<RegCacheProvider>::Adopt(RegCacheProvider::Create(u"Software\\Norvane\\Cache"));
    cache->SetDeviceIdentity(u"CN12345", u"VEXA");
    ValueTable table;
    table[u"dev:Model"] = CachedValue{Variant::FromString(u"LX 9000"), now, 600};
    table[u"Pages"] = CachedValue{Variant::FromInt32(-1), now, 600};
    table[u"Forever"] = CachedValue{Variant::FromString(u"static"), 0, 0};
    table[u"Stale"] = CachedValue{Variant::FromString(u"old"), now - 100 * kSecond, 10};
    ASSERT_EQ(cache->SetDataValues(table), S_OK);
    Variant v = Variant::FromString(u"x");
    for (auto [name, age] : {std::pair{u"Young", 59}, {u"Old", 61}, {u"Future", -3600}, {u"Unmapped", 0}}) {
      ASSERT_EQ(cache->SetDataValue(name, &v.Get(), static_cast<int64_t>(now - age * kSecond)), S_OK);
    }
  }
  EXPECT_TRUE(fs::exists(root.Path() + "/HKLM/Software/Norvane/Cache/CN12345/VEXA/values.reg"));

  auto reader = QxUtils::Ref<RegCacheProvider>::Adopt(RegCacheProvider::Create(u"Software\\Norvane\\Cache"));
  reader->SetDeviceIdentity(u"CN12345", u"VEXA");
  DataMap map;
  map.Item(u"Model", u"dev", 600);
  for (const char16_t* name : {u"Pages", u"Young", u"Old", u"Future"}) map.Item(name, nullptr, 600);
  map.Item(u"Stale", nullptr, 10);
  ValueTable table;
  ASSERT_EQ(reader->PopulateFromRegistry(map.map, &table), S_OK);
  // "Forever" needs no item; expired entries are not written; a stamp after now
  // is not trusted; an entry no item gives a lifespan is not read.
  std::vector<std::string> read;
  for (const auto& [key, c] : table) {
    read.push_back(QxUtils::WideToUtf8(key) + " " + DataMapTest::ShowVariant(c.value) + " " +
                   std::to_string(c.lifespan) + (c.stamp == now ? " now" : ""));
  }
  EXPECT_EQ(read, (std::vector<std::string>{"Forever str:static 0", "Pages i4:-1 600 now", "Young str:x 600",
                                            "dev:Model str:LX 9000 600 now"}));
  Variant pages, companion, missing;
  EXPECT_EQ(reader->GetDataValue(u"Pages", pages.Ptr()), S_OK);
  EXPECT_EQ(pages.Get().lVal, -1);
  EXPECT_EQ(reader->GetDataValue(u"Pages.Expires", companion.Ptr()), S_OK);  // companions are entries too
  EXPECT_EQ(reader->GetDataValue(u"Missing", missing.Ptr()), S_FALSE);
  EXPECT_EQ(reader->GetDataValue(nullptr, missing.Ptr()), S_FALSE);

  // Another device or protocol has its own key.
  auto other = QxUtils::Ref<RegCacheProvider>::Adopt(RegCacheProvider::Create(u"Software\\Norvane\\Cache"));
  other->SetDeviceIdentity(u"CN12345", u"OID");
  ValueTable none;
  EXPECT_EQ(other->PopulateFromRegistry(map.map, &none), S_FALSE);
  EXPECT_TRUE(none.empty());
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

TEST(RegCache, NoPathExpiredValuesAndHostileIdentitiesStoreNothing) {
  ScopedRegistryRoot root;
  ValueTable table;
  table[u"a"] = CachedValue{Variant::FromString(u"1"), 0, 0};
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

  auto expired = QxUtils::Ref<RegCacheProvider>::Adopt(RegCacheProvider::Create(u"Expired"));
  table[u"a"] = CachedValue{Variant::FromString(u"1"), Now() - 100 * kSecond, 1};
  EXPECT_EQ(expired->SetDataValues(table), S_OK);  // all expired: nothing written
  EXPECT_FALSE(fs::exists(root.Path() + "/HKLM/Expired/values.reg"));
}

// Values of other types write only their companion; a value too large for the
// store fails, and the key keeps working.
TEST(RegCache, WhatTheStoreCannotHold) {
  ScopedRegistryRoot root;
  auto cache = QxUtils::Ref<RegCacheProvider>::Adopt(RegCacheProvider::Create(u"Types"));
  Variant bytes = Variant::FromBytes("\x01\x02", 2);
  Variant machine = Variant::FromInt(7);
  Variant small = Variant::FromString(u"kept");
  Variant huge = Variant::FromString(std::u16string(1100000, u'x'));
  ASSERT_EQ(cache->SetDataValue(u"Blob", &bytes.Get(), 0), S_OK);
  ASSERT_EQ(cache->SetDataValue(u"Machine", &machine.Get(), 0), S_OK);
  ASSERT_EQ(cache->SetDataValue(u"Small", &small.Get(), 0), S_OK);
  EXPECT_EQ(cache->SetDataValue(u"Huge", &huge.Get(), 0), S_FALSE);
  ValueTable table;
  table[u"Huge"] = CachedValue{huge, 0, 0};
  table[u"Later"] = CachedValue{small, 0, 0};
  EXPECT_EQ(cache->SetDataValues(table), S_FALSE);  // the rest is still written
  Registry::Key key;
  ASSERT_EQ(Registry::Key::Open(Registry::Hive::LocalMachine, u"Types", &key), Registry::kSuccess);
  Registry::ValueList values;
  ASSERT_EQ(key.ReadValues(&values), Registry::kSuccess);
  std::vector<std::u16string> names;
  for (const auto& value : values) names.push_back(value.name);
  EXPECT_EQ(names, (std::vector<std::u16string>{u"Blob.Expires", u"Later", u"Later.Expires", u"Machine.Expires",
                                                u"Small", u"Small.Expires"}));
}

// A long name, here past what a file name holds, still names a cache of its
// own: a printer whose name shares that prefix sees nothing of it.
TEST(PrintDataCache, ReadsThePrinterDataOnceAtCreationAndKeepsLongNamesApart) {
  ScopedRegistryRoot root;
  Variant level = Variant::FromInt32(-1), model = Variant::FromString(u"LX 9000");
  auto none = QxUtils::Ref<ICacheProvider>::Adopt(CreatePrintDataCacheProvider(PrintDataCacheProvider::kNoPrinter));
  EXPECT_EQ(none->SetDataValue(u"a", &level.Get(), 0), S_FALSE);  // no printer, no store
  EXPECT_FALSE(fs::exists(root.Path() + "/HKLM"));

  std::u16string japanese;
  for (int i = 0; i < 200; ++i) japanese.push_back(static_cast<char16_t>(u'あ' + i % 80));
  std::u16string twin = japanese;
  twin.back() = u'ン';
  uintptr_t printer = OpenPrinterDataHandle(japanese.c_str()), other = OpenPrinterDataHandle(twin.c_str());
  DataMap map;
  ValueTable table;
  {
    auto cache = QxUtils::Ref<ICacheProvider>::Adopt(CreatePrintDataCacheProvider(printer));
    EXPECT_EQ(dynamic_cast<PrintDataCacheProvider*>(cache.get())->PopulateFromRegistry(map.map, &table), S_FALSE);
    ASSERT_EQ(cache->SetDataValue(u"Level", &level.Get(), 0), S_OK);
    ASSERT_EQ(cache->SetDataValue(u"Model", &model.Get(), 0), S_OK);
    Variant out, null;
    EXPECT_EQ(cache->GetDataValue(u"Level", out.Ptr()), S_FALSE);  // not re-read
    null.Get().vt = VT_NULL;
    EXPECT_EQ(cache->SetDataValue(u"Nothing", &null.Get(), 0), S_FALSE);
  }
  auto again = QxUtils::Ref<ICacheProvider>::Adopt(CreatePrintDataCacheProvider(printer));
  auto twinCache = QxUtils::Ref<ICacheProvider>::Adopt(CreatePrintDataCacheProvider(other));
  Variant out, text, absent;
  ASSERT_EQ(again->GetDataValue(u"Level", out.Ptr()), S_OK);
  EXPECT_EQ(out.Type(), VT_I4);
  EXPECT_EQ(out.Get().lVal, -1);
  ASSERT_EQ(again->GetDataValue(u"Model", text.Ptr()), S_OK);
  EXPECT_EQ(std::u16string(text.Get().bstrVal), u"LX 9000");
  EXPECT_EQ(twinCache->GetDataValue(u"Model", absent.Ptr()), S_FALSE);
  auto* concrete = dynamic_cast<PrintDataCacheProvider*>(again.get());
  ASSERT_EQ(concrete->PopulateFromRegistry(map.map, &table), S_OK);
  EXPECT_EQ(table.count(u"Level"), 1u);
  EXPECT_EQ(concrete->PopulateFromRegistry(nullptr, &table), S_FALSE);
  ClosePrinterDataHandle(printer);
  ClosePrinterDataHandle(other);
}

}  // namespace
