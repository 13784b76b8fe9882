// No printer of the bench serves the path this request uses (/ipp/printer) nor
// advertises a strings URI, so the IPP answer is canned; the connection probe
// and the fetch of the strings from the simulator's port 8080 are real.
#include <gtest/gtest.h>

#include "norvane/host.h"
#include "norvane/norvane.h"
#include "support/ref.h"
#include "unit/ipp/ipp_test_util.h"

using namespace IppTest;

TEST(IppLocaleStringsBench, StringsOfTheChosenLanguageComeFromThePrinterWebPort) {
  const char* fixtures = std::getenv("NORVANE_SIM_FIXTURES");
  if (fixtures == nullptr) GTEST_SKIP() << "needs the integration bench (tests/integration/bench.sh)";
  auto web = QxUtils::AdoptRef<Norvane::Address>(CreateNetAddress(u"127.0.0.1"));
  auto printer = QxUtils::AdoptRef(NorvaneTest::FakeAddress::Create(u"127.0.0.1"));
  printer->peer = web.get();
  printer->peerPort = 8080;
  printer->responder = [](const NorvaneTest::FakeExchange&) {
    NorvaneTest::FakeReply reply;
    reply.body = ResponseStart() + Attr(0x48, "generated-natural-language-supported", "en") + Attr(0x48, "", "de") +
                 Attr(0x48, "", "fr") + Attr(0x48, "natural-language-configured", "en") +
                 Attr(0x45, "printer-strings-uri", "http://127.0.0.1:8080/strings/en.strings") + B({0x03});
    return reply;
  };
  // Japanese is not generated: the configured English is fetched.
  for (auto [requested, file] : {std::pair{u"de", "de"}, std::pair{u"ja", "en"}}) {
    std::string expected = ReadFile(std::string(fixtures) + "/http/strings/" + file + ".strings");
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
