// The IPP data mapper, built the way hosts build it: a data-map document and a
// device (a fake host on a USB port name, so no TCP probe) answering IPP.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "../ipp/ipp_test_util.h"
#include "engine/data_collection_impl.h"
#include "engine/ipp_data_mapper.h"
#include "norvane/api.h"
#include "norvane/cache.h"
#include "platform/clock.h"
#include "testlib/fake_host.h"
#include "testlib/temp_dir.h"

namespace {

using namespace IppTest;
using namespace Norvane;
using NorvaneTest::FakeAddress;
using NorvaneTest::FakeExchange;
using NorvaneTest::FakeReply;

constexpr int64_t kTenthSecond = 1000000;

struct ClockOffset {
  explicit ClockOffset(int64_t ticks) { SetFileTimeOffsetForTesting(ticks); }
  ~ClockOffset() { SetFileTimeOffsetForTesting(0); }
};



const char16_t* kDocument =
    u"<DataMaps><IPPDataMap>"
    u"<IPPParams Name='params' ResourceURI='/ipp/print'/>"
    u"<DataItem Name='State' AttributeID='printer-state' Command='' JobURI='' LifeSpan='50'>"
    u"  <Conversion Equals='3' Value='idle'/></DataItem>"
    u"<DataItem Name='Info' AttributeID='printer-make-and-model_OR_printer-info' Command='' JobURI=''/>"
    u"<DataItem Name='JobState' AttributeID='job-state' Command='Get-Job-Attributes'"
    u"  JobURI='ipp://printer.example/ipp/print/42' Transient='TRUE'/>"
    u"<DataItem Name='Queued' AttributeID='queued-job-count' Command='Get-Printer-Attributes' JobURI=''"
    u"  Transient='TRUE'/>"
    u"<DataItem Name='Either' AttributeID='a_OR_printer-info' Command='Refresh' JobURI='' Transient='TRUE'/>"
    u"<DataItem Name='Lazy' AttributeID='queued-job-count' Command='' JobURI='' Transient='TRUE'/>"
    u"<DataItem Name='Bare' AttributeID='printer-info'/>"
    u"<StaticDataItem Name='Vendor'>Norvane</StaticDataItem>"
    u"</IPPDataMap></DataMaps>";

class IppMapper : public ::testing::Test {
 protected:
  void SetUp() override { Open(kDocument); }
  void TearDown() override {
    if (collection_ != nullptr) collection_->Dispose();
    address_->Dispose();
  }
  void Open(const char16_t* document) {
    address_->responder = [this](const FakeExchange& e) {
      if (Names(e, Attr(0x44, "requested-attributes", "all"))) return FakeReply{200, kAllAttributes, {}, S_OK};
      return then_(e);
    };
    ASSERT_EQ(CreateDataCollectionFromXML(address_, document, &collection_, nullptr), S_OK);
    mapper_ = dynamic_cast<IPPDataMapper*>(collection_);
    ASSERT_NE(mapper_, nullptr);
  }
  size_t Sent() const { return address_->exchanges.size(); }
  std::string Get(const char16_t* key, HRESULT expected = S_OK) {
    OwnedVariant v;
    EXPECT_EQ(collection_->GetValue(key, &v.v), expected) << QxUtils::WideToUtf8(key);
    return Text(v.v);
  }

  FakeAddress* address_ = FakeAddress::Create(u"USB001");
  std::function<FakeReply(const FakeExchange&)> then_ = [](const FakeExchange&) {
    return FakeReply{200, ResponseStart() + IntAttr(0x21, "queued-job-count", 7) + IntAttr(0x23, "job-state", 5) +
                              B({0x03}),
                     {},
                     S_OK};
  };
  DataCollection* collection_ = nullptr;
  IPPDataMapper* mapper_ = nullptr;
};

TEST_F(IppMapper, StoredItemsComeFromTheCachedAttributesConvertedAndLive) {
  EXPECT_EQ(address_->exchanges[0].resource, u"/ipp/print");  // the params item's resource
  EXPECT_EQ(Get(u"Vendor"), "Norvane");
  EXPECT_EQ(Get(u"State"), "idle");
  EXPECT_EQ(Get(u"dev:State"), "idle");
  EXPECT_EQ(Get(u"Info"), "<vt 0>");  // the device knows no make-and-model, and says so
  EXPECT_EQ(Sent(), 2u);
  const ValueTable& table = mapper_->GetValueTable();
  ASSERT_EQ(table.count(u"dev:State"), 1u);
  EXPECT_EQ(table.at(u"State").lifespan, 50u);
  EXPECT_EQ(table.count(u"Info"), 1u);

  // The table answers until the lifespan runs out; a replaced entry shows it.
  Variant replaced = Variant::FromString(u"from table");
  mapper_->StoreValue(u"State", &replaced.Get(), 50);
  EXPECT_EQ(Get(u"State"), "from table");
  ClockOffset later(51 * kTenthSecond);
  EXPECT_EQ(Get(u"State"), "idle");
  EXPECT_EQ(Sent(), 2u);
}

TEST_F(IppMapper, TransientItemsAskTheDeviceEveryTimeAndAreNeverStored) {
  EXPECT_EQ(Get(u"JobState"), "5");
  EXPECT_EQ(Get(u"JobState"), "5");
  ASSERT_EQ(Sent(), 3u);
  for (size_t i = 1; i < 3; ++i) {
    EXPECT_EQ(Operation(address_->exchanges[i]), 9);
    EXPECT_TRUE(Names(address_->exchanges[i], Attr(0x45, "job-uri", "ipp://printer.example/ipp/print/42")));
  }
  EXPECT_EQ(Get(u"x:Queued"), "7");
  ASSERT_EQ(Sent(), 4u);
  EXPECT_EQ(Operation(address_->exchanges[3]), 11);
  EXPECT_EQ(address_->exchanges[3].resource, u"/ipp/print");
  EXPECT_FALSE(Names(address_->exchanges[3], "printer.example"));
  // The whole attribute text is the requested name: no alternatives here.
  Get(u"Either");
  EXPECT_TRUE(Names(address_->exchanges.back(), "a_OR_printer-info"));
  EXPECT_EQ(mapper_->GetValueTable().count(u"JobState"), 0u);
  EXPECT_EQ(mapper_->GetValueTable().count(u"x:Queued"), 0u);
}

TEST_F(IppMapper, ItemsThatCannotBeAskedFailWithoutARequest) {
  // Without command and job URI; transient with an empty command; unknown;
  // the parameters item, which has no name.
  Get(u"Bare", E_FAIL);
  Get(u"Lazy", E_FAIL);
  Get(u"Nothing", E_FAIL);
  Get(u"IPPParams", E_FAIL);
  EXPECT_EQ(Sent(), 1u);
}

TEST_F(IppMapper, ProviderFailuresReachTheCallerAndStoreNothing) {
  then_ = [](const FakeExchange&) { return FakeReply{503, {}, {}, S_OK}; };
  OwnedVariant v;
  v.v.vt = VT_I4;
  v.v.lVal = 99;
  EXPECT_EQ(collection_->GetValue(u"Queued", &v.v), E_FAIL);
  EXPECT_EQ(v.v.vt, VT_I4);
  EXPECT_EQ(mapper_->GetValueTable().count(u"Queued"), 0u);
  EXPECT_EQ(collection_->GetValue(nullptr, &v.v), E_FAIL);
  EXPECT_EQ(collection_->GetValue(u"State", nullptr), E_FAIL);
}

TEST(IppMapperRows, WithoutParamsTheDefaultResourceAndEmptyTransientResource) {
  FakeAddress* address = FakeAddress::Create(u"USB001");
  address->responder = [](const FakeExchange&) { return FakeReply{200, kAllAttributes, {}, S_OK}; };
  DataCollection* collection = nullptr;
  ASSERT_EQ(CreateDataCollectionFromXML(address,
                                        u"<DataMaps><IPPDataMap><DataItem Name='Q' AttributeID='printer-state'"
                                        u" Command='Get-Printer-Attributes' JobURI='' Transient='TRUE'/>"
                                        u"</IPPDataMap></DataMaps>",
                                        &collection, nullptr),
            S_OK);
  EXPECT_EQ(address->exchanges[0].resource, u"/ipp/printer");
  OwnedVariant v;
  EXPECT_EQ(collection->GetValue(u"Q", &v.v), S_OK);
  ASSERT_EQ(address->exchanges.size(), 2u);
  EXPECT_EQ(address->exchanges.back().resource, u"");
  collection->Dispose();
  EXPECT_EQ(address->requestsAlive, 0);
  address->Dispose();
}

TEST(IppMapperRows, AnIppDeviceIdentityIsWhatFollowsUuid) {
  NorvaneTest::ScopedRegistryRoot root;
  FakeAddress* address = FakeAddress::Create(u"USB001");
  address->responder = [](const FakeExchange&) { return FakeReply{200, kAllAttributes, {}, S_OK}; };
  ICacheProvider* cache = CreateRegCacheProvider(u"Software\\Norvane\\Cache");
  ASSERT_NE(cache, nullptr);
  DataCollection* collection = nullptr;
  ASSERT_EQ(CreateDataCollectionFromXML(address, u"<DataMaps><IPPDataMap/></DataMaps>", &collection, cache), S_OK);
  auto* registry = dynamic_cast<RegCacheProvider*>(cache);
  ASSERT_NE(registry, nullptr);
  EXPECT_EQ(registry->GetDeviceIdentity(), u"4509a320-00a0-008f-00b6-002507510eca");
  collection->Dispose();
  cache->Dispose();
  address->Dispose();
}

TEST(IppMapperRows, PrintContractDevicesAreToldByTheirVersionAttribute) {
  struct Case {
    std::string body;
    uint32_t status;
    HRESULT expected;
  } cases[] = {
      {ResponseStart() + IntAttr(0x21, "qv-pc-version-major", 2) + B({0x03}), 200, S_OK},
      {kAllAttributes, 200, E_FAIL},
      {{}, 404, E_FAIL},
  };
  for (const Case& c : cases) {
    FakeAddress* address = FakeAddress::Create(u"USB001");
    address->responder = [&](const FakeExchange&) { return FakeReply{c.status, c.body, {}, S_OK}; };
    EXPECT_EQ(DataCollectionImpl::IsPrintContractDevice(address), c.expected);
    ASSERT_FALSE(address->exchanges.empty());
    EXPECT_EQ(address->exchanges[0].resource, u"/ipp/printer");
    EXPECT_EQ(address->requestsAlive, 0);
    address->Dispose();
  }
  EXPECT_EQ(DataCollectionImpl::IsPrintContractDevice(nullptr), E_FAIL);
}

}  // namespace
