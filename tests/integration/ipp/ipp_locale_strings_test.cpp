// The simulated device answers IPP on its web port and serves its strings files on
// 8080, so the whole exchange (probe, attributes, URI rewriting, fetch) is real.
#include <gtest/gtest.h>

#include "../bench_env.h"
#include "norvane/host.h"
#include "norvane/norvane.h"
#include "support/ref.h"
#include "support/string_utils.h"
#include "unit/ipp/ipp_test_util.h"

TEST(IppLocaleStringsBench, StringsOfTheChosenLanguageComeFromThePrinterWebPort) {
  NORVANE_REQUIRE_BENCH();
  auto printer = QxUtils::AdoptRef<Norvane::QxNetAddress>(CreateNetAddress(u"127.0.0.1"));
  std::u16string port = QxUtils::Utf8ToWide(NorvaneBench::BenchValue("NORVANE_SIM_HTTP_PORT", "80"));
  ASSERT_EQ(printer->SetPortText(port.c_str()), S_OK);
  // German strings with bytes of both halves: each byte reaches the host
  // widened as a signed value.
  QxUtils::Ref<Norvane::HTTPRequest> put;
  Norvane::HTTPResponse* answer = nullptr;
  ASSERT_EQ(printer->CreateRequest(put.Out(), 8080), S_OK);
  put->SetMethod(u"PUT");
  put->SetResource(u"/__sim/resource?path=/strings/de.strings");
  put->SetBody(reinterpret_cast<const uint8_t*>("caf\xE9 \x7F"), 6);
  ASSERT_EQ(put->Send(&answer), S_OK);
  std::u16string german;
  EXPECT_EQ(GetDeviceLocaleStrings(printer.get(), u"de", german), S_OK);
  EXPECT_EQ(german, u"caf\xFFE9 \x7F");
  // Japanese is not generated: the configured English is fetched.
  std::string english =
      IppTest::ReadFile(NorvaneBench::BenchValue("NORVANE_SIM_FIXTURES") + "/http/strings/en.strings");
  std::u16string strings;
  EXPECT_EQ(GetDeviceLocaleStrings(printer.get(), u"ja", strings), S_OK);
  EXPECT_EQ(strings, std::u16string(english.begin(), english.end()));
  // French is generated but has no strings file: 404.
  std::u16string untouched = u"-";
  EXPECT_EQ(GetDeviceLocaleStrings(printer.get(), u"fr", untouched), static_cast<HRESULT>(0x80190001));
  EXPECT_EQ(GetLastError(), 30u);
  EXPECT_EQ(untouched, u"-");
}
