#include "ipp/ipp_locale_strings.h"

#include <gtest/gtest.h>

#include "ipp_test_util.h"
#include "support/ref.h"

TEST(IppLocaleStrings, StringsUriBecomesAPathAndPortForTheLanguage) {
  const std::u16string many(300, u'a');
  const struct {
    std::u16string uri, path;
    uint32_t port;
  } cases[] = {
      {u"http://192.0.2.20:631/ipp/en.strings", u"/ipp/de.strings", 631},
      {u"http://192.0.2.20:6310/ipp/en.strings", u"/ipp/de.strings", 8080},  // only 631 itself
      {u"http://192.0.2.20/en/ipp/en.strings", u"/de/ipp/de.strings", 8080},
      {u"http://localhost:631/ipp/en.strings", u":631/ipp/de.strings", 8080},  // no address, no port
      {u"http://192.0.2.20/" + many + u".strings", u"/de" + many.substr(259) + u".strings", 8080},
  };
  for (const auto& c : cases) {
    Norvane::StringsResource resource = Norvane::LocateStringsResource(c.uri, u"de");
    EXPECT_EQ(resource.path, c.path);
    EXPECT_EQ(resource.port, c.port);
  }
}

// The body reaches the host byte by byte, each byte widened as a signed value.
TEST(IppLocaleStrings, BodyBytesWidenSigned) {
  using namespace IppTest;
  auto address = QxUtils::AdoptRef(NorvaneTest::FakeAddress::Create(u"USB001"));
  address->responder = [](const NorvaneTest::FakeExchange& e) -> NorvaneTest::FakeReply {
    if (Operation(e) != 11) return {200, "caf\xE9 \x7F", {}, S_OK};
    return {200,
            ResponseStart() + Attr(0x48, "generated-natural-language-supported", "en") + Attr(0x48, "", "de") +
                Attr(0x45, "printer-strings-uri", "http://192.0.2.20/ipp/en.strings") +
                Attr(0x48, "natural-language-configured", "en") + B({0x03}),
            {},
            S_OK};
  };
  std::u16string strings;
  ASSERT_EQ(Norvane::FetchDeviceLocaleStrings(address.get(), u"de", strings), S_OK);
  EXPECT_EQ(strings, std::u16string(u"caf\xFFE9 \x7F"));
  EXPECT_EQ(address->exchanges.back().resource, u"/ipp/de.strings");
  EXPECT_EQ(address->exchanges.back().port, 8080u);
}
