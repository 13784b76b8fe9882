#include "ipp/ipp_locale_strings.h"

#include <gtest/gtest.h>

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
