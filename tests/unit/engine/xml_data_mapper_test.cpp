#include <gtest/gtest.h>

#include "../ipp/ipp_test_util.h"
#include "engine/data_collection_impl.h"
#include "norvane/api.h"
#include "support/ref.h"
#include "testlib/fake_host.h"

namespace {

using namespace Norvane;
using NorvaneTest::FakeAddress;
using NorvaneTest::FakeExchange;
using NorvaneTest::FakeReply;

// The bench's IPP printer serves only /ipp/print, so it cannot play a
// print-contract device: the IPP answer comes from the fake host here.
TEST(XmlDataMapper, DiscoveryTreeIsNotReadOnPrintContractDevices) {
  const char16_t* document =
      u"<DataMaps><XMLDataMap Protocol='VEXA'><StaticDataItem Name='Source'>VEXA</StaticDataItem></XMLDataMap>"
      u"<XMLDataMap Protocol='PLSXML'><StaticDataItem Name='Source'>PLSXML</StaticDataItem></XMLDataMap>"
      u"</DataMaps>";
  for (bool printContract : {false, true}) {
    QxUtils::Ref<FakeAddress> address = QxUtils::AdoptRef(FakeAddress::Create(u"USB001"));
    address->responder = [printContract](const FakeExchange& e) {
      const std::string ipp = IppTest::ResponseStart() +
                              (printContract ? IppTest::IntAttr(0x21, "qv-pc-version-major", 2)
                                             : IppTest::IntAttr(0x23, "printer-state", 3)) +
                              IppTest::B({0x03});
      const std::string tree =
          "<T xmlns:dd='urn:dd'><R><dd:ResourceURI>/c</dd:ResourceURI><dd:ResourceType>"
          "vexa:qvVexaProductConfigDyn</dd:ResourceType></R><ProductSerialNumber>S</ProductSerialNumber></T>";
      return FakeReply{200, e.port == 631 ? ipp : tree, {}, S_OK};
    };
    DataCollection* raw = nullptr;
    ASSERT_EQ(CreateDataCollectionFromXML(address.get(), document, &raw, nullptr), S_OK);
    QxUtils::Ref<DataCollection> collection = QxUtils::AdoptRef(raw);
    EXPECT_EQ(dynamic_cast<DataCollectionImpl*>(raw)->GetDataMapName(),
              printContract ? u"XMLDataMap[@Protocol='PLSXML']" : u"XMLDataMap[@Protocol='VEXA']");
    Variant source;
    ASSERT_EQ(collection->GetValue(u"Source", source.Ptr()), S_OK);
    EXPECT_EQ(std::u16string(source.Get().bstrVal), printContract ? u"PLSXML" : u"VEXA");
  }
}

}  // namespace
