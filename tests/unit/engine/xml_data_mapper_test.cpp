// The XML data mapper over a product-information document on a fake host:
// request names, the value table, transient items, the second buffer for long
// texts and conversions that supply a value for a missing node.
#include <gtest/gtest.h>

#include <string>

#include "../ipp/ipp_test_util.h"
#include "engine/data_collection_impl.h"
#include "norvane/api.h"
#include "testlib/fake_host.h"
#include "support/ref.h"

namespace {

using namespace Norvane;
using NorvaneTest::FakeAddress;
using NorvaneTest::FakeExchange;
using NorvaneTest::FakeReply;

const std::string kLong(256, 'L');

const char16_t* kDocument =
    u"<DataMaps><XMLDataMap Protocol='PLSXML'>"
    u"<DataItem Name='Serial' URI='/qv/device/product_information.xml' XPath='//ProductSerialNumber'/>"
    u"<DataItem Name='Count' URI='/qv/device/product_information.xml' XPath='//PageCount' Transient='TRUE'/>"
    u"<DataItem Name='Fits' URI='/qv/device/product_information.xml' XPath='//Fits'/>"
    u"<DataItem Name='Long' URI='/qv/device/product_information.xml' XPath='//Long'/>"
    u"<DataItem Name='Tray' URI='/qv/device/product_information.xml' XPath='//Tray'>"
    u"  <Conversion Equals='default' Value='absent'/></DataItem>"
    u"<DataItem Name='Gone' URI='/qv/device/product_information.xml' XPath='//Gone'/>"
    u"</XMLDataMap></DataMaps>";

TEST(XmlDataMapper, ReadsConvertsAndStores) {
  QxUtils::Ref<FakeAddress> address = QxUtils::AdoptRef(FakeAddress::Create(u"printer.example"));
  address->responder = [](const FakeExchange&) {
    return FakeReply{200,
                     "<P><ProductSerialNumber>S1</ProductSerialNumber><PageCount>7</PageCount><Fits>" +
                         std::string(255, 'F') + "</Fits><Long>" + kLong + "</Long></P>",
                     {},
                     S_OK};
  };
  DataCollection* raw = nullptr;
  ASSERT_EQ(CreateDataCollectionFromXML(address.get(), kDocument, &raw, nullptr), S_OK);
  QxUtils::Ref<DataCollection> collection = QxUtils::AdoptRef(raw);
  auto* impl = dynamic_cast<DataCollectionImpl*>(raw);
  ASSERT_NE(impl, nullptr);
  EXPECT_EQ(impl->GetDataMapName(), u"XMLDataMap[@Protocol='PLSXML']");

  struct Case {
    const char16_t* name;
    HRESULT result;
    std::string value;
  } cases[] = {
      {u"dev:Serial", S_OK, "S1"},  {u"Serial", S_OK, "S1"},      {u"a:b:Serial", E_FAIL, "kept"},
      {u"Count", S_OK, "7"},        {u"Fits", S_OK, std::string(255, 'F')}, {u"Long", S_OK, kLong},
      {u"Tray", S_OK, "absent"},    {u"Gone", S_FALSE, "kept"},   {u"Unknown", E_FAIL, "kept"},
  };
  for (const Case& c : cases) {
    // A marker that owns nothing, so that overwriting it leaks nothing.
    Variant value = Variant::FromInt32(-1);
    EXPECT_EQ(collection->GetValue(c.name, value.Ptr()), c.result);
    std::u16string text = value.Type() == VT_BSTR ? std::u16string(value.Get().bstrVal) : u"kept";
    EXPECT_EQ(std::string(text.begin(), text.end()), c.value);
  }
  // Stored under the name asked for; transient values and the "a:" name (item
  // "b:Serial", not in the data map) are not; a missing node is, as empty.
  const ValueTable& table = impl->GetValueTable();
  for (const char16_t* key : {u"dev:Serial", u"Serial", u"Long", u"Tray", u"Gone"}) EXPECT_EQ(table.count(key), 1u);
  for (const char16_t* key : {u"Count", u"a:b:Serial", u"Unknown"}) EXPECT_EQ(table.count(key), 0u);

  // Transient items go to the device each time; the rest came from one fetch.
  size_t before = address->exchanges.size();
  Variant count, serial;  // an out variant is overwritten, not cleared: one each
  EXPECT_EQ(collection->GetValue(u"Count", count.Ptr()), S_OK);
  EXPECT_EQ(collection->GetValue(u"Serial", serial.Ptr()), S_OK);
  EXPECT_EQ(address->exchanges.size(), before + 1);
}

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
      if (e.port == 631) {
        return FakeReply{200, IppTest::ResponseStart() + (printContract ? IppTest::IntAttr(0x21, "qv-pc-version-major", 2)
                                                                        : IppTest::IntAttr(0x23, "printer-state", 3)) +
                                  IppTest::B({0x03}),
                         {}, S_OK};
      }
      return FakeReply{200,
                       "<T xmlns:dd='urn:dd'><R><dd:ResourceURI>/c</dd:ResourceURI><dd:ResourceType>"
                       "vexa:qvVexaProductConfigDyn</dd:ResourceType></R><ProductSerialNumber>S</ProductSerialNumber></T>",
                       {}, S_OK};
    };
    DataCollection* raw = nullptr;
    ASSERT_EQ(CreateDataCollectionFromXML(address.get(), document, &raw, nullptr), S_OK);
    QxUtils::Ref<DataCollection> collection = QxUtils::AdoptRef(raw);
    Variant source;
    ASSERT_EQ(collection->GetValue(u"Source", source.Ptr()), S_OK);
    EXPECT_EQ(std::u16string(source.Get().bstrVal), printContract ? u"PLSXML" : u"VEXA");
  }
}

}  // namespace
