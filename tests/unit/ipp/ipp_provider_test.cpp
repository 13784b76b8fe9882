// The IPP provider: printer URIs and the TCP probe on loopback sockets. Creation
// and exchanges with printers are in the integration bench.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>

#include "ipp/ipp_provider_impl.h"
#include "support/string_utils.h"

namespace {

using Norvane::IPPProviderImpl;
using Norvane::IppUriScheme;

TEST(IppProviderUri, SchemeClassesAndPortNames) {
  for (auto [uri, scheme] : {std::pair<const char16_t*, IppUriScheme>{u"ipps://h/ipp/print", IppUriScheme::kSecureIpp},
                             {u"ipp://h/ipp/print", IppUriScheme::kPlainIpp},
                             {u"https://h/", IppUriScheme::kHttp},
                             {u"IPP://h/ipp/print", IppUriScheme::kOther},
                             {nullptr, IppUriScheme::kOther}}) {
    EXPECT_EQ(IPPProviderImpl::GetURIScheme(uri), scheme);
  }
  for (const char16_t* yes : {u"USB001", u"USB999", u"USB010"}) EXPECT_TRUE(IPPProviderImpl::IsUSBPort(yes));
  for (const char16_t* no : std::initializer_list<const char16_t*>{
           u"USB000", u"usb001", u"USB01", u"USB0011", u"XUSB001", u"USB001 ", u"", u"192.0.2.1", nullptr}) {
    EXPECT_FALSE(IPPProviderImpl::IsUSBPort(no)) << (no != nullptr ? QxUtils::WideToUtf8(no) : "null");
  }
}

TEST(IppProviderUri, PortTextIsCutOutOfTheUri) {
  struct Case {
    const char16_t* uri;
    const char16_t* port;
    const char16_t* rest;
  } cases[] = {
      {u"ipp://host:8080/ipp/print", u"8080", u"ipp://host/ipp/print"},
      {u"ipp://host:631", u"631", u"ipp://host"},
      {u"ipp://host/ipp/print", u"", u"ipp://host/ipp/print"},
      {u"ipp://[fd00::1]:631/ipp/print", u"631", u"ipp://[fd00::1]/ipp/print"},
      {u"ipp://[fd00::1]/ipp/print", u"", u"ipp://[fd00::1]/ipp/print"},
      // One colon is the scheme's: no port.
      {u"host:631", u"", u"host:631"},
  };
  for (const Case& c : cases) {
    std::u16string port, rest;
    IPPProviderImpl::SplitPortFromURI(c.uri, &port, &rest);
    EXPECT_EQ(port, c.port) << QxUtils::WideToUtf8(c.uri);
    EXPECT_EQ(rest, c.rest) << QxUtils::WideToUtf8(c.uri);
  }
}

TEST(IppProviderUri, CrackingGivesTheResourceOrTheCreationErrorCode) {
  struct Case {
    std::u16string uri;
    uint32_t error;
    std::u16string resource = {};  // when it cracks
  } cases[] = {
      {u"ipp://host/ipp/print", 0, u"/ipp/print"},
      {u"ipps://host:443/ipp/print?queue=a", 0, u"/ipp/print?queue=a"},
      {u"ipp://user:pw@host:631/ipp/print", 0, u"/ipp/print"},
      {u"ipp://[fd00::1]/ipp", 0, u"/ipp"},
      {u"http://host/ipp/print", 1796},  // http's default port 80
      {u"ipp://host:8080/ipp/print", 1796},
      {u"ipp://host", 0x20000004},
      {u"ipp://host/ab", 0x20000003},
      {u"not a uri", 87},
      {u"ipp:/host/ipp/print", 87},
      {u"ipp:///ipp/print", 87},
      {u"ipp://host:99999/ipp/print", 87},
      {u"ipp://[fd00::1/ipp/print", 87},
      // The longest host, scheme and path that crack, and one character more.
      {u"ipp://" + std::u16string(255, u'h') + u"/ipp", 0, u"/ipp"},
      {u"ipp://" + std::u16string(256, u'h') + u"/ipp", 87},
      {std::u16string(31, u's') + u"://h/ipp", 0, u"/ipp"},
      {std::u16string(32, u's') + u"://h/ipp", 87},
      {u"ipp://h/" + std::u16string(2046, u'p'), 0, u"/" + std::u16string(2046, u'p')},
      {u"ipp://h/" + std::u16string(2047, u'p'), 87},
  };
  for (const Case& c : cases) {
    std::u16string resource = u"untouched", full;
    EXPECT_EQ(IPPProviderImpl::CrackPrinterURI(c.uri, &resource, &full), c.error)
        << QxUtils::WideToUtf8(c.uri).substr(0, 40);
    if (c.error == 0) {
      EXPECT_EQ(resource, c.resource);
      EXPECT_EQ(full, c.uri);
    } else {
      EXPECT_EQ(resource, u"untouched");
    }
  }
}

// Loopback listeners for the probe: listening, or bound only, which refuses.
struct Listener {
  int fd;
  sockaddr_in6 a{};  // the bound address; large enough for either family
  uint16_t port = 0;
  explicit Listener(bool listening, int family = AF_INET6) : fd(socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    auto* v4 = reinterpret_cast<sockaddr_in*>(&a);
    if (family == AF_INET) {
      v4->sin_family = AF_INET, v4->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    } else {
      a.sin6_family = AF_INET6, a.sin6_addr = in6addr_loopback;
    }
    socklen_t length = family == AF_INET ? sizeof *v4 : sizeof a;
    if (bind(fd, reinterpret_cast<sockaddr*>(&a), length) != 0 || (listening && listen(fd, 4) != 0) ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&a), &length) != 0) {
      close(fd);
      fd = -1;
    }
    port = ntohs(family == AF_INET ? v4->sin_port : a.sin6_port);
  }
  ~Listener() {
    if (fd >= 0) close(fd);
  }
  bool ok() const { return fd >= 0; }
  std::u16string Port() const { return QxUtils::Utf8ToWide(std::to_string(port)); }
};

// Only address text is connected. Only the exact probe reaches a port of the
// system's choosing, and only a whole port number is used.
TEST(IppProviderProbe, ConnectsOnlyToAddressTextAndReportsRefusal) {
  Listener open(true), open4(true, AF_INET);
  Listener closed(false);  // bound, never listening: refuses
  if (!open.ok() || !closed.ok() || !open4.ok()) GTEST_SKIP() << "no IPv4 or IPv6 loopback";
  int error = -1;
  EXPECT_TRUE(IPPProviderImpl::DeviceExists(u"::1", open.Port().c_str(), &error));
  EXPECT_EQ(error, 0);
  auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(IPPProviderImpl::DeviceExists(u"::1", closed.Port().c_str(), &error));
  EXPECT_EQ(error, ECONNREFUSED);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  // Names, port names and empty text are never looked up or connected.
  for (const char16_t* host : {u"printer.example", u"USB001", u"", u"::1 "}) {
    EXPECT_FALSE(IPPProviderImpl::DeviceExists(host, u"631", &error)) << QxUtils::WideToUtf8(host);
    EXPECT_EQ(error, EINVAL);
  }
  EXPECT_FALSE(IPPProviderImpl::DeviceExists(nullptr, u"631"));
  EXPECT_FALSE(IPPProviderImpl::DeviceExists(u"::1", u"http"));
  for (auto [port, reached] :
       {std::pair{open4.Port(), true}, {open4.Port() + u"x", false}, {u"0", false}, {u"65536", false}, {u"", false}}) {
    EXPECT_EQ(IPPProviderImpl::DeviceExists(u"127.0.0.1", port.c_str(), nullptr, 1000, true), reached)
        << QxUtils::WideToUtf8(port);
  }
}

TEST(IppProviderProbe, ASilentPeerCostsTheTimeOutAndNoMore) {
  // A listener whose accept queue is full drops further SYNs: the connect
  // neither succeeds nor fails until the probe gives up.
  Listener full(false);
  if (!full.ok() || listen(full.fd, 0) != 0) GTEST_SKIP() << "no IPv6 loopback";
  int fillers[3];
  for (int& fd : fillers) {
    fd = socket(AF_INET6, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    connect(fd, reinterpret_cast<const sockaddr*>(&full.a), sizeof full.a);
  }
  usleep(100 * 1000);
  int error = 0;
  auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(IPPProviderImpl::DeviceExists(u"::1", full.Port().c_str(), &error, 300));
  auto elapsed = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(error, ETIMEDOUT);
  EXPECT_GE(elapsed, std::chrono::milliseconds(290));
  EXPECT_LT(elapsed, std::chrono::seconds(3));
  for (int fd : fillers) close(fd);
}

}  // namespace
