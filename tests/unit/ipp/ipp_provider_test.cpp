// The IPP provider: printer URIs, creation on a port name, and the TCP probe on
// loopback sockets. Exchanges with printers are in the integration bench.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <string>

#include "ipp/ipp_provider_impl.h"
#include "ipp_test_util.h"
#include "testlib/capture_log.h"
#include "testlib/fake_host.h"
#include "support/ref.h"

namespace {

using namespace IppTest;
using Norvane::IppUriScheme;
using Norvane::IPPProviderImpl;
using NorvaneTest::FakeAddress;
using NorvaneTest::FakeExchange;
using NorvaneTest::FakeReply;

QxUtils::Ref<FakeAddress> NewAddress(const char16_t* host = u"USB001") {
  auto address = QxUtils::AdoptRef(FakeAddress::Create(host));
  address->responder = [](const FakeExchange&) { return FakeReply{200, kAllAttributes, {}, S_OK}; };
  return address;
}

TEST(IppProviderUri, SchemeClassesAndPortNames) {
  for (auto [uri, scheme] : {std::pair<const char16_t*, IppUriScheme>{u"ipps://h/ipp/print", IppUriScheme::kSecureIpp},
                             {u"ipp://h/ipp/print", IppUriScheme::kPlainIpp},
                             {u"https://h/", IppUriScheme::kHttp},
                             {u"IPP://h/ipp/print", IppUriScheme::kOther},
                             {nullptr, IppUriScheme::kOther}}) {
    EXPECT_EQ(IPPProviderImpl::GetURIScheme(uri), scheme);
  }
  for (const char16_t* yes : {u"USB001", u"USB999", u"USB010"}) EXPECT_TRUE(IPPProviderImpl::IsUSBPort(yes));
  for (const char16_t* no : std::initializer_list<const char16_t*>{u"USB000", u"usb001", u"USB01", u"USB0011", u"XUSB001",
                                                                   u"USB001 ", u"", u"192.0.2.1", nullptr}) {
    EXPECT_FALSE(IPPProviderImpl::IsUSBPort(no)) << (no != nullptr ? QxUtils::WideToUtf8(no) : "null");
  }
}

TEST(IppProviderUri, PortTextIsCutOutOfTheUri) {
  struct Case {
    const char16_t* uri;
    const char16_t* port;
    const char16_t* rest;
  } cases[] = {
      {u"ipps://host:631/ipp/print", u"631", u"ipps://host/ipp/print"},
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
    const char16_t* uri;
    uint32_t error;
    const char16_t* resource;
  } cases[] = {
      {u"ipp://host/ipp/print", 0, u"/ipp/print"},
      {u"ipps://host:443/ipp/print?queue=a", 0, u"/ipp/print?queue=a"},
      {u"ipp://user:pw@host:631/ipp/print", 0, u"/ipp/print"},
      {u"ipp://[fd00::1]/ipp", 0, u"/ipp"},
      {u"http://host/ipp/print", 1796, nullptr},  // http's default port 80
      {u"ipp://host:8080/ipp/print", 1796, nullptr},
      {u"ipp://host", 0x20000004, nullptr},
      {u"ipp://host/ab", 0x20000003, nullptr},
      {u"not a uri", 87, nullptr},
      {u"ipp:/host/ipp/print", 87, nullptr},
      {u"ipp:///ipp/print", 87, nullptr},
      {u"ipp://host:99999/ipp/print", 87, nullptr},
      {u"ipp://[fd00::1/ipp/print", 87, nullptr},
  };
  for (const Case& c : cases) {
    std::u16string resource = u"untouched", full;
    EXPECT_EQ(IPPProviderImpl::CrackPrinterURI(c.uri, &resource, &full), c.error) << QxUtils::WideToUtf8(c.uri);
    if (c.error == 0) {
      EXPECT_EQ(resource, c.resource);
      EXPECT_EQ(full, c.uri);
    } else {
      EXPECT_EQ(resource, u"untouched");
    }
  }
  // The longest parts that crack, and one character more.
  std::u16string resource, full;
  EXPECT_EQ(IPPProviderImpl::CrackPrinterURI(u"ipp://" + std::u16string(255, u'h') + u"/ipp", &resource, &full), 0u);
  EXPECT_EQ(IPPProviderImpl::CrackPrinterURI(u"ipp://" + std::u16string(256, u'h') + u"/ipp", &resource, &full), 87u);
  EXPECT_EQ(IPPProviderImpl::CrackPrinterURI(std::u16string(31, u's') + u"://h/ipp", &resource, &full), 0u);
  EXPECT_EQ(IPPProviderImpl::CrackPrinterURI(std::u16string(32, u's') + u"://h/ipp", &resource, &full), 87u);
  EXPECT_EQ(IPPProviderImpl::CrackPrinterURI(u"ipp://h/" + std::u16string(2046, u'p'), &resource, &full), 0u);
  EXPECT_EQ(IPPProviderImpl::CrackPrinterURI(u"ipp://h/" + std::u16string(2047, u'p'), &resource, &full), 87u);
}

// A port name is never probed: creation goes straight to the request.
TEST(IppProviderCreate, AUsbPortAsksOverIppWithoutAProbe) {
  auto address = NewAddress();
  auto provider = QxUtils::AdoptRef(IPPProviderImpl::Create(address.get(), "/ipp/print", false, 0x803100));
  ASSERT_NE(provider.get(), nullptr);
  ASSERT_EQ(address->exchanges.size(), 1u);
  EXPECT_EQ(Operation(address->exchanges[0]), 11);
  EXPECT_EQ(address->exchanges[0].port, 631u);
  EXPECT_EQ(address->exchanges[0].securityFlags, 0u);  // not secure: the flags stay out
  EXPECT_EQ(provider->GetTimeValue(0), 30000u);
  OwnedVariant state;
  EXPECT_EQ(provider->GetValue("printer-state", &state.v), S_OK);
  EXPECT_EQ(Text(state.v), "3");
  EXPECT_EQ(address->exchanges.size(), 1u);
}

// Loopback listeners for the probe. Ports 631 and 80 need root and must be
// free; the tests that need them skip otherwise.
struct Listener {
  int fd = -1;
  uint16_t port = 0;
  Listener(int family, uint16_t wanted, bool listening) : fd(socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in6 a6{};
    sockaddr_in a4{};
    a6.sin6_family = AF_INET6, a6.sin6_addr = in6addr_loopback, a6.sin6_port = htons(wanted);
    a4.sin_family = AF_INET, a4.sin_addr.s_addr = htonl(INADDR_LOOPBACK), a4.sin_port = htons(wanted);
    auto* a = family == AF_INET6 ? reinterpret_cast<sockaddr*>(&a6) : reinterpret_cast<sockaddr*>(&a4);
    socklen_t length = family == AF_INET6 ? sizeof a6 : sizeof a4;
    int one = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    if (bind(fd, a, length) != 0 || (listening && listen(fd, 4) != 0) || getsockname(fd, a, &length) != 0) Close();
    port = ntohs(family == AF_INET6 ? a6.sin6_port : a4.sin_port);
  }
  ~Listener() { Close(); }
  void Close() {
    if (fd >= 0) close(fd);
    fd = -1;
  }
  bool ok() const { return fd >= 0; }
  std::u16string Port() const { return QxUtils::Utf8ToWide(std::to_string(port)); }
};

TEST(IppProviderProbe, ConnectsOnlyToAddressTextAndReportsRefusal) {
  Listener open(AF_INET6, 0, true);
  Listener closed(AF_INET6, 0, false);  // bound, never listening: refuses
  if (!open.ok() || !closed.ok()) GTEST_SKIP() << "no IPv6 loopback";
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
}

TEST(IppProviderProbe, ASilentPeerCostsTheTimeOutAndNoMore) {
  // A listener whose accept queue is full drops further SYNs: the connect
  // neither succeeds nor fails until the probe gives up.
  Listener full(AF_INET6, 0, false);
  if (!full.ok() || listen(full.fd, 0) != 0) GTEST_SKIP() << "no IPv6 loopback";
  sockaddr_in6 target{};
  target.sin6_family = AF_INET6;
  target.sin6_addr = in6addr_loopback;
  target.sin6_port = htons(full.port);
  int fillers[3];
  for (int& fd : fillers) {
    fd = socket(AF_INET6, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    connect(fd, reinterpret_cast<sockaddr*>(&target), sizeof target);
  }
  usleep(100 * 1000);
  int error = 0;
  auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(
      IPPProviderImpl::DeviceExists(u"::1", full.Port().c_str(), &error, 300));
  auto elapsed = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(error, ETIMEDOUT);
  EXPECT_GE(elapsed, std::chrono::milliseconds(290));
  EXPECT_LT(elapsed, std::chrono::seconds(3));
  for (int fd : fillers) close(fd);
}

TEST(IppProviderProbe, CreationTellsAPort80DeviceFromAnUnreachableOne) {
  // The IPv4 probe always uses 631 or 80: hold both on loopback.
  Listener ipp(AF_INET, 631, false);
  Listener web(AF_INET, 80, true);
  if (!ipp.ok() || !web.ok()) GTEST_SKIP() << "loopback ports 631/80 not available";
  auto address = NewAddress(u"127.0.0.1");
  NorvaneTest::CaptureLog log;
  SetLastError(0);
  EXPECT_EQ(IPPProviderImpl::Create(address.get(), "/ipp/print", false, 0), nullptr);
  EXPECT_EQ(GetLastError(), 0x20000001u);
  EXPECT_TRUE(log.Contains("IPP support is not present in the device", 0x80));
  EXPECT_TRUE(log.Contains("Failed with error 111", 0x80));
  EXPECT_EQ(address->requestsCreated, 0);

  web.Close();
  Listener webClosed(AF_INET, 80, false);
  if (!webClosed.ok()) GTEST_SKIP() << "port 80 taken meanwhile";
  EXPECT_EQ(IPPProviderImpl::Create2(address.get(), u"ipp://127.0.0.1/ipp/print", 0), nullptr);
  EXPECT_EQ(GetLastError(), 0x20000002u);

  // A listener on 631 lets creation go on to the request; the IPv4 probe
  // ignores the port of the address text.
  ipp.Close();
  Listener ippOpen(AF_INET, 631, true);
  if (!ippOpen.ok()) GTEST_SKIP() << "port 631 taken meanwhile";
  EXPECT_TRUE(IPPProviderImpl::DeviceExists(u"127.0.0.1:9", u"631"));
  EXPECT_NE(QxUtils::AdoptRef(IPPProviderImpl::Create(address.get(), "/ipp/print", false, 0)).get(), nullptr);
}

}  // namespace
