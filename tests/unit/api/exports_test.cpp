#include <gtest/gtest.h>

#include "norvane/norvane.h"
#include "support/ref.h"
#include "testlib/fake_host.h"

namespace {

using NorvaneTest::FakeAddress;

// The print-provider factories check the scheme before anything is sent; the
// right one goes on to creation, which asks the host once (a port name is
// never probed).
TEST(Exports, PrintProviderFactoriesRefuseOtherSchemesBeforeAnyNetworkActivity) {
  auto address = QxUtils::AdoptRef(FakeAddress::Create(u"USB001"));
  for (auto [secure, uri] : std::initializer_list<std::pair<bool, const char16_t*>>{{false, u"ipps://host/ipp/print"},
                                                                                    {false, u"IPP://host/ipp/print"},
                                                                                    {false, u"http://host/ipp/print"},
                                                                                    {false, u""},
                                                                                    {false, nullptr},
                                                                                    {true, u"ipp://host/ipp/print"},
                                                                                    {true, u"IPPS://host/ipp/print"}}) {
    SetLastError(0);
    EXPECT_EQ(secure ? CreateSecureIPPPrintProvider(address.get(), uri, 0) : CreateIPPPrintProvider(address.get(), uri),
              nullptr);
    EXPECT_EQ(GetLastError(), 87u);
  }
  EXPECT_EQ(address->requestsCreated, 0);
  SetLastError(0);
  EXPECT_EQ(CreateSecureIPPPrintProvider(address.get(), u"ipps://host/ipp/print", 0), nullptr);  // the host answers 404
  EXPECT_NE(GetLastError(), 87u);
  EXPECT_EQ(address->requestsCreated, 1);
}

TEST(Exports, EntryPointsWithoutAnAddressFailAndLeaveTheOutArguments) {
  const char16_t* doc = u"<DataMaps><XMLDataMap Protocol='HTTP'/></DataMaps>";
  VARIANT v;
  VariantInit(&v);
  EXPECT_EQ(GetValueFromSingleRequest(nullptr, doc, &v), 108);
  EXPECT_EQ(v.vt, VT_EMPTY);
  std::u16string strings = u"unchanged";
  SetLastError(0);
  EXPECT_EQ(static_cast<uint32_t>(GetDeviceLocaleStrings(nullptr, u"en", strings)), 0x80004005u);
  EXPECT_EQ(GetLastError(), 87u);
  EXPECT_EQ(strings, u"unchanged");
}

}  // namespace
