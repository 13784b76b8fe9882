#include <gtest/gtest.h>

#include <map>

#include "engine/data_collection_impl.h"
#include "norvane/api.h"
#include "norvane/cache.h"
#include "platform/clock.h"
#include "support/ref.h"
#include "support/string_utils.h"
#include "testlib/fake_host.h"
#include "testlib/temp_dir.h"

namespace {

using namespace Norvane;

constexpr int64_t kTenthSecond = 1000000;

// The smallest mapper: the collection's own table and nothing behind it.
class TestMapper : public DisposableObject<DataCollectionImpl> {
  std::u16string GetDataMapName() override { return u"Test"; }
};

QxUtils::Ref<DataCollectionImpl> NewMapper() {
  DataCollectionImpl* m = new TestMapper();
  m->AddRef();
  return QxUtils::AdoptRef(m);
}

struct ClockOffset {
  explicit ClockOffset(int64_t ticks) { SetFileTimeOffsetForTesting(ticks); }
  ~ClockOffset() { SetFileTimeOffsetForTesting(0); }
};

std::u16string Text(const VARIANT& v) { return v.vt == VT_BSTR ? std::u16string(v.bstrVal) : u"<not text>"; }

TEST(DataCollection, LifespansExpireAtTheirBoundary) {
  auto m = NewMapper();
  Variant v = Variant::FromString(u"idle");
  ASSERT_EQ(m->StoreValue(u"State", &v.Get(), 50), S_OK);
  ASSERT_EQ(m->StoreValue(u"Model", &v.Get(), 0), S_OK);  // lifespan 0 never expires
  const struct {
    int64_t offset;
    const char16_t* key;
    HRESULT result;
  } reads[] = {
      {49 * kTenthSecond, u"State", S_OK},
      {51 * kTenthSecond, u"State", E_FAIL},
      {51 * kTenthSecond, u"Model", S_OK},
      {-36000 * kTenthSecond, u"State", E_FAIL},  // the clock set back an hour: the stamp is in the future
      {-36000 * kTenthSecond, u"Model", S_OK},
      {0, u"Missing", E_FAIL},
      {0, nullptr, E_FAIL},
  };
  for (const auto& read : reads) {
    ClockOffset at(read.offset);
    Variant out = Variant::FromInt32(77);
    EXPECT_EQ(m->GetValue(read.key, out.Ptr()), read.result) << read.offset;
    EXPECT_EQ(out.Get().vt, read.result == S_OK ? VT_BSTR : VT_I4);  // untouched on failure
  }
  EXPECT_EQ(m->GetValue(u"Model", nullptr), E_FAIL);
  // A later store replaces the entry, stamp and all.
  ClockOffset later(51 * kTenthSecond);
  Variant fresh = Variant::FromInt32(3), out;
  ASSERT_EQ(m->StoreValue(u"State", &fresh.Get(), 50), S_OK);
  ASSERT_EQ(m->GetValue(u"State", out.Ptr()), S_OK);
  EXPECT_EQ(out.Get().lVal, 3);
}

TEST(DataCollection, RemoveValuesWithPrefixMatchesTheTextBeforeTheFirstColonExactly) {
  auto m = NewMapper();
  Variant v = Variant::FromString(u"x");
  for (const char16_t* key :
       {u"dev:SerialNumber", u"dev:Model", u"device:Name", u"SerialNumber", u":Name", u"dev:a:b", u"Dev:Upper"}) {
    m->StoreValue(key, &v.Get(), 0);
  }
  Variant before, after;  // a read writes over its out value without clearing it
  EXPECT_EQ(m->GetValue(u"dev:Model", before.Ptr()), S_OK);
  EXPECT_EQ(m->RemoveValuesWithPrefix(u"dev"), S_OK);
  // Lookups after a removal see the table as it is now.
  EXPECT_EQ(m->GetValue(u"dev:Model", after.Ptr()), E_FAIL);
  m->StoreValue(u"dev:Model", &v.Get(), 0);
  EXPECT_EQ(m->GetValue(u"dev:Model", after.Ptr()), S_OK);
  m->RemoveValuesWithPrefix(u"dev");
  std::vector<std::u16string> left;
  for (const auto& [key, value] : m->GetValueTable()) left.push_back(key);
  EXPECT_EQ(left, (std::vector<std::u16string>{u":Name", u"Dev:Upper", u"SerialNumber", u"device:Name"}));
  EXPECT_EQ(m->RemoveValuesWithPrefix(u"dev"), E_FAIL);
  EXPECT_EQ(m->RemoveValuesWithPrefix(u""), E_FAIL);  // ":Name" has an empty prefix: never removed
  EXPECT_EQ(m->PopulateValueFromCache(nullptr, nullptr), S_FALSE);
}

TEST(DataCollection, StaticItemsAreStoredForeverAndLeaveTheDataMap) {
  auto m = NewMapper();
  auto map = QxUtils::AdoptRef(DataMapSpec::CreateDataMapSpec(DataMapTypeOID));
  map->AddDataItemSpec(u"dev:Vendor", StaticDataItemSpec::CreateStaticDataItemSpec(u"Vendor", u"Acme", u"dev"));
  map->AddDataItemSpec(u"Alpha", StaticDataItemSpec::CreateStaticDataItemSpec(u"Alpha", u"first", nullptr));
  map->AddDataItemSpec(u"Model",
                       XMLDataItemSpec::CreateXMLDataItem(u"Model", u"/u", u"//m", nullptr, false, 10, nullptr));
  map->AddDataItemSpec(u"zLast", StaticDataItemSpec::CreateStaticDataItemSpec(u"zLast", u"end", nullptr));
  ASSERT_EQ(m->LoadStaticValues(map.get()), S_OK);
  ClockOffset muchLater(1000000LL * kTenthSecond);
  Variant vendor, last;
  ASSERT_EQ(m->GetValue(u"dev:Vendor", vendor.Ptr()), S_OK);
  EXPECT_EQ(Text(vendor.Get()), u"Acme");
  ASSERT_EQ(m->GetValue(u"zLast", last.Ptr()), S_OK);
  EXPECT_EQ(map->GetDataItemSpec(u"dev:Vendor"), nullptr);
  EXPECT_EQ(map->GetDataItemSpec(u"Alpha"), nullptr);
  EXPECT_NE(map->GetDataItemSpec(u"Model"), nullptr);
  EXPECT_NE(map->GetDataItemSpec(u"zLast"), nullptr);  // last in key order stays
  EXPECT_EQ(map->SizeOf(), 2);
  EXPECT_EQ(m->LoadStaticValues(QxUtils::AdoptRef(DataMapSpec::CreateDataMapSpec()).get()), E_FAIL);
}

TEST(DataCollection, CreationFunctionsReportDocumentAndArgumentFailures) {
  NorvaneTest::FakeAddress* address = NorvaneTest::FakeAddress::Create(u"192.0.2.7");
  auto* sentinel = reinterpret_cast<DataCollection*>(0x1);
  DataCollection* out = sentinel;
  EXPECT_EQ(CreateDataCollectionFromXML(address, u"<DataMaps><unclosed>", &out, nullptr), S_FALSE);
  EXPECT_EQ(CreateDataCollectionFromXML(address, u"<Other/>", &out, nullptr), S_FALSE);
  EXPECT_EQ(CreateDataCollectionFromFile(address, u"/nonexistent/map.xml", &out, nullptr), S_FALSE);
  EXPECT_EQ(CreateDataCollectionFromDOM(address, nullptr, &out, nullptr), E_FAIL);
  EXPECT_EQ(CreateDataCollectionFromXML(address, nullptr, &out, nullptr), E_FAIL);
  EXPECT_EQ(CreateDataCollectionFromFile(address, nullptr, &out, nullptr), E_FAIL);
  EXPECT_EQ(CreateDataCollectionFromXML(address, u"<DataMaps/>", &out, nullptr), E_FAIL);  // no data maps
  DataMapSpecCollection* specs = DataMapSpecCollection::CreateDataMapSpecCollection();
  EXPECT_EQ(CreateDataCollectionFromDataMapSpecsCollection(address, specs, &out, nullptr), E_FAIL);
  EXPECT_EQ(CreateDataCollectionFromDataMapSpecsCollection(address, nullptr, &out, nullptr), E_FAIL);
  const char16_t* answerable = u"<DataMaps><XMLDataMap Protocol='HTTP'/></DataMaps>";
  EXPECT_EQ(CreateDataCollectionFromXML(nullptr, answerable, &out, nullptr), E_FAIL);  // no address
  DataMapSpecCollection::Dispose(specs);
  EXPECT_EQ(out, sentinel);
  address->Dispose();
}

// The identity each protocol reads names the registry cache's key; an empty
// text is an identity too, kept apart by its protocol. (The discovery tree's
// serial is the bench's: XmlBench.FirstAnsweringDataMapServesAndNamesTheCache.)
TEST(DataCollection, RegistryCacheTakesTheIdentityEachProtocolReads) {
  auto deviceId = [](const char* id) {
    return "<e xmlns:wprt='urn:w'><wprt:DeviceId>" + std::string(id) + "</wprt:DeviceId></e>";
  };
  const struct {
    const char16_t* protocol;
    std::map<std::u16string, std::string> documents;
    const char16_t* identity;
    const char16_t* keptProtocol;
  } rows[] = {
      {u"PLSXML",
       {{u"/qv/device/product_information.xml", "<P><ProductSerialNumber>PS1</ProductSerialNumber></P>"}},
       u"PS1",
       u"PLSXML"},
      {u"PLSXML", {{u"/qv/device/product_information.xml", "<P><ProductSerialNumber/></P>"}}, u"", u"PLSXML"},
      {u"WS", {{u"/device", deviceId("MFG:N;SN:NV42A17Q9XLONGER;CID:X;")}}, u"NV42A17Q9X", u"WS"},
      {u"WS", {{u"/device", deviceId("MFG:N;SN:")}}, u"", u"WS"},
      {u"WS", {{u"/device", deviceId("MFG:N;CID:X;")}}, u"", u""},  // no serial number: no identity
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(QxUtils::WideToUtf8(row.protocol) + " " + QxUtils::WideToUtf8(row.identity));
    NorvaneTest::ScopedRegistryRoot root;
    auto address = QxUtils::AdoptRef(NorvaneTest::FakeAddress::Create(u"USB001"));
    address->SetWebServicePortFlag(QxNetAddress::kWebServicePortAvailable);
    address->responder = [&row](const NorvaneTest::FakeExchange& e) {
      auto found = row.documents.find(e.resource);
      return found == row.documents.end() || e.port == 631 ? NorvaneTest::FakeReply{404, "", {}, S_OK}
                                                           : NorvaneTest::FakeReply{200, found->second, {}, S_OK};
    };
    auto cache = QxUtils::AdoptRef(RegCacheProvider::Create(u"Software\\Test"));
    std::u16string document = u"<DataMaps><XMLDataMap Protocol='" + std::u16string(row.protocol) +
                              u"'><StaticDataItem Name='S'>x</StaticDataItem></XMLDataMap></DataMaps>";
    DataCollection* collection = nullptr;
    ASSERT_EQ(CreateDataCollectionFromXML(address.get(), document.c_str(), &collection, cache.get()), S_OK);
    collection->Dispose();
    EXPECT_EQ(cache->GetDeviceIdentity(), row.identity);
    EXPECT_EQ(cache->GetProtocol(), row.keptProtocol);
  }
}

}  // namespace
