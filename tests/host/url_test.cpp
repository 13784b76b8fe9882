// Host text, port choice and resource paths.
#include <gtest/gtest.h>

#include "url.h"

namespace NorvaneHost {
namespace {

TEST(UrlTest, HostTextIsAcceptedOnlyWhenItCanNameAHost) {
  auto v4 = ParseHostName(u"192.0.2.1");
  ASSERT_TRUE(v4);
  EXPECT_FALSE(v4->ipv6);
  auto v6 = ParseHostName(u"[2001:db8::7]");
  ASSERT_TRUE(v6);
  EXPECT_TRUE(v6->ipv6);
  EXPECT_EQ("2001:db8::7", v6->text);
  EXPECT_TRUE(ParseHostName(u"printer-3.office.example"));
  EXPECT_TRUE(ParseHostName(u"drucker.b\u00FCro.example"));  // sent to libcurl as UTF-8
  for (const char16_t* bad : {u"", u"[]", u"[printer]", u"host:631", u"a b", u"user@host", u"h/p",
                              u"2001:db8::zz", u"[2001:db8::1"}) {
    EXPECT_FALSE(ParseHostName(bad)) << std::string(bad, bad + std::char_traits<char16_t>::length(bad));
  }
}

TEST(UrlTest, PortTextOverridesOnlyTheIppPortsAndOnlyWhenNumeric) {
  EXPECT_EQ(8631u, EffectivePort(631, u"8631"));
  EXPECT_EQ(8443u, EffectivePort(443, u"8443"));
  EXPECT_EQ(8080u, EffectivePort(8080, u"8631"));
  EXPECT_EQ(3910u, EffectivePort(3910, u"8631"));
  for (const char16_t* ignored : {u"", u"0", u"65536", u"+631", u" 631", u"63a", u"123456"}) {
    EXPECT_EQ(631u, EffectivePort(631, ignored));
  }
  EXPECT_EQ(65535u, EffectivePort(631, u"65535"));
  EXPECT_TRUE(UsesTls(443, false));
  EXPECT_TRUE(UsesTls(631, true));
  EXPECT_FALSE(UsesTls(631, false));
  EXPECT_FALSE(UsesTls(8080, true));
}

TEST(UrlTest, ResourcesBecomeEscapedPaths) {
  EXPECT_EQ("/ipp/print", ResourcePath("/ipp/print"));
  EXPECT_EQ("/DevMgmt/DiscoveryTree.xml", ResourcePath("DevMgmt/DiscoveryTree.xml"));
  EXPECT_EQ("/", ResourcePath(""));
  // Absolute URLs give their path and query; the address decides where to go.
  EXPECT_EQ("/ipp/print", ResourcePath("ipp://10.0.0.9:631/ipp/print"));
  EXPECT_EQ("/a?b=c", ResourcePath("http://printer/a?b=c#frag"));
  EXPECT_EQ("/", ResourcePath("http://printer"));
  EXPECT_EQ("/?q", ResourcePath("http://printer?q"));
  // A colon in a path is not a scheme.
  EXPECT_EQ("/a/b://c", ResourcePath("/a/b://c"));
  EXPECT_EQ("/my%20doc%C3%A9.xml", ResourcePath("/my doc\xC3\xA9.xml"));
  EXPECT_EQ("/a%2Fb%25zz%22", ResourcePath("/a%2Fb%zz\""));
}

TEST(UrlTest, UrlsAndSnmpPeersBracketIpv6) {
  HostName v6{"fd00::1", true};
  HostName scoped{"fe80::1%eth0", true};
  HostName name{"printer", false};
  EXPECT_EQ("https://[fd00::1]:443/ipp/print", BuildUrl(v6, true, 443, "/ipp/print"));
  EXPECT_EQ("http://[fe80::1%25eth0]:80/", BuildUrl(scoped, false, 80, ""));
  EXPECT_EQ("http://printer:8080/x", BuildUrl(name, false, 8080, "x"));
  EXPECT_EQ("udp6:[fd00::1]:161", SnmpPeerName(v6, 161));
  EXPECT_EQ("udp:printer:1161", SnmpPeerName(name, 1161));
}

}  // namespace
}  // namespace NorvaneHost
