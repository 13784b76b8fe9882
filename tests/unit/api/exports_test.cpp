#include <gtest/gtest.h>

#include "norvane/norvane.h"
#include "testlib/capture_log.h"
#include "testlib/fake_host.h"
#include "support/ref.h"

namespace {

using NorvaneTest::CaptureLog;
using NorvaneTest::FakeAddress;

// A port name: creation skips the TCP probe and asks the fake host alone.
QxUtils::Ref<FakeAddress> PortAddress() { return QxUtils::AdoptRef(FakeAddress::Create(u"USB001")); }

TEST(Exports, PlainIppFactoryRefusesOtherSchemesBeforeAnyNetworkActivity) {
  auto address = PortAddress();
  for (const char16_t* uri : {u"ipps://host/ipp/print", u"IPP://host/ipp/print", u"http://host/ipp/print", u""}) {
    SetLastError(0);
    EXPECT_EQ(CreateIPPPrintProvider(address.get(), uri), nullptr);
    EXPECT_EQ(GetLastError(), 87u);
  }
  SetLastError(0);
  EXPECT_EQ(CreateIPPPrintProvider(address.get(), nullptr), nullptr);
  EXPECT_EQ(GetLastError(), 87u);
  EXPECT_EQ(address.get()->requestsCreated, 0);
  EXPECT_EQ(address.get()->GetPortText(), std::u16string());
}

TEST(Exports, SecureIppFactoryRefusesPlainSchemes) {
  auto address = PortAddress();
  for (const char16_t* uri : {u"ipp://host/ipp/print", u"IPPS://host/ipp/print"}) {
    SetLastError(0);
    EXPECT_EQ(CreateSecureIPPPrintProvider(address.get(), uri, 0), nullptr);
    EXPECT_EQ(GetLastError(), 87u);
  }
  // The right scheme passes the surface check and reaches creation.
  SetLastError(0);
  CreateSecureIPPPrintProvider(address.get(), u"ipps://host/ipp/print", 0);
  EXPECT_NE(GetLastError(), 87u);
}

TEST(Exports, EveryCallOpensAndClosesItsNamedScope) {
  CaptureLog log;
  CreateIPPPrintProvider(nullptr, u"ipps://x/ipp/print");
  auto records = log.Records();
  ASSERT_GE(records.size(), 2u);
  EXPECT_EQ(records.front().category, QxLogging::kEntry);
  EXPECT_EQ(records.front().function, "Norvane::CreateIPPPrintProvider");
  EXPECT_EQ(records.front().text, "Norvane::CreateIPPPrintProvider");
  EXPECT_EQ(records.back().category, QxLogging::kExit);
}

TEST(Exports, CollectionFunctionsFailWithoutAnAddressAndLeaveTheOutArgument) {
  auto* sentinel = reinterpret_cast<Norvane::DataCollection*>(0x1234);
  Norvane::DataCollection* out = sentinel;
  const char16_t* doc = u"<DataMaps><XMLDataMap Protocol='HTTP'/></DataMaps>";
  EXPECT_EQ(static_cast<uint32_t>(CreateDataCollectionFromXML(nullptr, doc, &out, nullptr)), 0x80004005u);
  EXPECT_EQ(static_cast<uint32_t>(CreateDataCollectionFromDataMapSpecsCollection(nullptr, nullptr, &out, nullptr)),
            0x80004005u);
  EXPECT_EQ(out, sentinel);
  VARIANT v;
  VariantInit(&v);
  EXPECT_EQ(GetValueFromSingleRequest(nullptr, doc, &v), 108);
  EXPECT_EQ(v.vt, VT_EMPTY);
}

TEST(Exports, LocaleStringsNeedAnAddress) {
  std::u16string strings = u"unchanged";
  SetLastError(0);
  EXPECT_EQ(static_cast<uint32_t>(GetDeviceLocaleStrings(nullptr, u"en", strings)), 0x80004005u);
  EXPECT_EQ(GetLastError(), 87u);
  EXPECT_EQ(strings, u"unchanged");
}

}  // namespace
