// Host text, port choice and resource paths.
#include "url.h"

#include <gtest/gtest.h>

namespace NorvaneHost {
namespace {

TEST(UrlTest, HostTextIsAcceptedOnlyWhenItCanNameAHost) {
  EXPECT_FALSE(ParseHostName(u"192.0.2.1").value().ipv6);
  EXPECT_TRUE(ParseHostName(u"[2001:db8::7]").value().ipv6);
  EXPECT_EQ("2001:db8::7", ParseHostName(u"[2001:db8::7]").value().text);
  EXPECT_TRUE(ParseHostName(u"printer-3.office.example"));
  EXPECT_TRUE(ParseHostName(u"drucker.b\u00FCro.example"));  // sent to libcurl as UTF-8
  for (const char16_t* bad :
       {u"", u"[]", u"[printer]", u"host:631", u"a b", u"user@host", u"h/p", u"2001:db8::zz", u"[2001:db8::1"}) {
    EXPECT_FALSE(ParseHostName(bad)) << std::string(bad, bad + std::char_traits<char16_t>::length(bad));
  }
}

TEST(UrlTest, PortTextOverridesOnlyTheIppPortsAndOnlyWhenNumeric) {
  struct Case {
    uint32_t asked;
    const char16_t* text;
    uint32_t used;
  } const cases[] = {
      {631, u"8631", 8631}, {443, u"8443", 8443}, {8080, u"8631", 8080}, {631, u"65535", 65535},
      {631, u"", 631},      {631, u"0", 631},     {631, u"65536", 631},  {631, u"63a", 631},
  };
  for (const Case& c : cases) EXPECT_EQ(c.used, EffectivePort(c.asked, c.text)) << c.asked;
}

TEST(UrlTest, ResourcesBecomeEscapedPaths) {
  const std::pair<const char*, const char*> cases[] = {
      {"/ipp/print", "/ipp/print"},
      {"DevMgmt/DiscoveryTree.xml", "/DevMgmt/DiscoveryTree.xml"},
      {"", "/"},
      // Absolute URLs give their path and query; the address decides where to go.
      {"ipp://10.0.0.9:631/ipp/print", "/ipp/print"},
      {"http://printer/a?b=c#frag", "/a?b=c"},
      {"http://printer", "/"},
      {"http://printer?q", "/?q"},
      {"/a/b://c", "/a/b://c"},  // a colon in a path is not a scheme
      {"/my doc\xC3\xA9.xml", "/my%20doc%C3%A9.xml"},
      {"/a%2Fb%zz\"", "/a%2Fb%25zz%22"},
  };
  for (const auto& [resource, path] : cases) EXPECT_EQ(path, ResourcePath(resource)) << resource;
}

TEST(UrlTest, UrlsAndSnmpPeersBracketIpv6) {
  HostName v6{"fd00::1", true};
  HostName name{"printer", false};
  EXPECT_EQ("https://[fd00::1]:443/ipp/print", BuildUrl(v6, true, 443, "/ipp/print"));
  EXPECT_EQ("udp6:[fd00::1]:161", SnmpPeerName(v6, 161));
  EXPECT_EQ("udp:printer:1161", SnmpPeerName(name, 1161));
}

}  // namespace
}  // namespace NorvaneHost
