// The simulated device answers IPP on its web port and serves its strings files on
// 8080, so the whole exchange (probe, attributes, URI rewriting, fetch) is real.
#include <gtest/gtest.h>

#include "norvane/host.h"
#include "norvane/norvane.h"
#include "support/ref.h"
#include "unit/ipp/ipp_test_util.h"

TEST(IppLocaleStringsBench, StringsOfTheChosenLanguageComeFromThePrinterWebPort) {
  const char* fixtures = std::getenv("NORVANE_SIM_FIXTURES");
  const char* webPort = std::getenv("NORVANE_SIM_HTTP_PORT");
  if (fixtures == nullptr || webPort == nullptr)
    GTEST_SKIP() << "needs the integration bench (tests/integration/bench.sh)";
  auto printer = QxUtils::AdoptRef<Norvane::QxNetAddress>(CreateNetAddress(u"127.0.0.1"));
  std::string port(webPort);
  ASSERT_EQ(printer->SetPortText(std::u16string(port.begin(), port.end()).c_str()), S_OK);
  // Japanese is not generated: the configured English is fetched.
  for (auto [requested, file] : {std::pair{u"de", "de"}, std::pair{u"ja", "en"}}) {
    std::string expected = IppTest::ReadFile(std::string(fixtures) + "/http/strings/" + file + ".strings");
    std::u16string strings;
    EXPECT_EQ(GetDeviceLocaleStrings(printer.get(), requested, strings), S_OK) << file;
    EXPECT_EQ(strings, std::u16string(expected.begin(), expected.end())) << file;
  }
  // French is generated but has no strings file: 404.
  std::u16string untouched = u"-";
  EXPECT_EQ(GetDeviceLocaleStrings(printer.get(), u"fr", untouched), static_cast<HRESULT>(0x80190001));
  EXPECT_EQ(GetLastError(), 30u);
  EXPECT_EQ(untouched, u"-");
}
