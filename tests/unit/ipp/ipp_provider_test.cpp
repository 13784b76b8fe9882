// The IPP provider: printer URIs, creation against a fake host, the cached and
// fresh attribute queries, and the TCP probe on loopback sockets.
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
#include "norvane/norvane.h"
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
  return QxUtils::AdoptRef(FakeAddress::Create(host));
}



std::string MediaDatabase() {
  auto member = [](std::string_view name) { return Attr(0x4A, "", name); };
  auto collection = [&](int x, int y) {
    return member("media-size") + Attr(0x34, "", "") + member("x-dimension") + IntAttr(0x21, "", x) +
           member("y-dimension") + IntAttr(0x21, "", y) + Attr(0x37, "", "");
  };
  return ResponseStart() + Attr(0x34, "media-col-database", "") + collection(21000, 29700) + Attr(0x37, "", "") +
         Attr(0x34, "", "") + collection(21590, 27940) + Attr(0x37, "", "") + B({0x03});
}

FakeReply Reply(std::string body, uint32_t status = 200) { return FakeReply{status, std::move(body), {}, S_OK}; }

// The creation request is answered with kAllAttributes; later requests by `then`.
void Answer(FakeAddress* address, std::function<FakeReply(const FakeExchange&)> then) {
  address->responder = [then](const FakeExchange& e) {
    if (Names(e, Attr(0x44, "requested-attributes", "all"))) return Reply(kAllAttributes);
    return then(e);
  };
}

TEST(IppProviderUri, SchemeClassesAndPortNames) {
  EXPECT_EQ(IPPProviderImpl::GetURIScheme(u"ipps://h/ipp/print"), IppUriScheme::kSecureIpp);
  EXPECT_EQ(IPPProviderImpl::GetURIScheme(u"ipp://h/ipp/print"), IppUriScheme::kPlainIpp);
  EXPECT_EQ(IPPProviderImpl::GetURIScheme(u"https://h/"), IppUriScheme::kHttp);
  EXPECT_EQ(IPPProviderImpl::GetURIScheme(u"IPP://h/ipp/print"), IppUriScheme::kOther);
  EXPECT_EQ(IPPProviderImpl::GetURIScheme(nullptr), IppUriScheme::kOther);

  for (const char16_t* yes : {u"USB001", u"USB999", u"USB010"}) EXPECT_TRUE(IPPProviderImpl::IsUSBPort(yes));
  for (const char16_t* no : {u"USB000", u"usb001", u"USB01", u"USB0011", u"XUSB001", u"USB001 ", u"", u"192.0.2.1"}) {
    EXPECT_FALSE(IPPProviderImpl::IsUSBPort(no)) << QxUtils::WideToUtf8(no);
  }
  EXPECT_FALSE(IPPProviderImpl::IsUSBPort(nullptr));
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

TEST(IppProviderCreate, AUsbPortAsksOverIppAndKeepsThePrinterAttributes) {
  auto address = NewAddress();
  Answer(address.get(), [](const FakeExchange&) { return Reply(ResponseStart() + B({0x03})); });
  auto provider = QxUtils::AdoptRef(IPPProviderImpl::Create(address.get(), "/ipp/print", false, 0x803100));
  ASSERT_NE(provider.get(), nullptr);
  ASSERT_EQ(address->exchanges.size(), 1u);
  const FakeExchange& e = address->exchanges[0];
  EXPECT_EQ(Operation(e), 11);
  EXPECT_EQ(e.resource, u"/ipp/print");
  EXPECT_EQ(e.port, 631u);
  // Not secure: the flags stay out of the request.
  EXPECT_EQ(e.securityFlags, 0u);
  EXPECT_EQ(provider->GetResourceURI(), u"/ipp/print");
  EXPECT_EQ(provider->GetPrinterURI(), u"");
  EXPECT_EQ(provider->GetTimeValue(0), 30000u);

  OwnedVariant state, info;
  EXPECT_EQ(provider->GetValue("printer-state", &state.v), S_OK);
  EXPECT_EQ(Text(state.v), "3");
  EXPECT_EQ(provider->GetValue("printer-make-and-model_OR_printer-info", &info.v), S_OK);
  // The first alternative went to the device, which knew nothing of it.
  EXPECT_EQ(Text(info.v), "<vt 0>");
  EXPECT_EQ(address->exchanges.size(), 2u);
  EXPECT_TRUE(Names(address->exchanges[1], "printer-make-and-model"));
}

TEST(IppProviderCreate, FullUriHandsThePortToTheAddressAndChoosesSecurity) {
  {
    auto address = NewAddress();
    Answer(address.get(), [](const FakeExchange&) { return Reply(kAllAttributes); });
    auto provider = QxUtils::AdoptRef(IPPProviderImpl::Create2(address.get(), u"ipp://USB001:8080/ipp/print", 0x55));
    ASSERT_NE(provider.get(), nullptr);
    EXPECT_EQ(std::u16string(address->GetPortText()), u"8080");
    EXPECT_EQ(address->exchanges[0].port, 631u);
    EXPECT_FALSE(address->secure);
    EXPECT_EQ(address->exchanges[0].securityFlags, 0u);
    EXPECT_EQ(provider->GetPrinterURI(), u"ipp://USB001/ipp/print");
    EXPECT_FALSE(provider->IsSecure());
  }
  {
    auto address = NewAddress();
    Answer(address.get(), [](const FakeExchange&) { return Reply(kAllAttributes); });
    auto provider = QxUtils::AdoptRef(IPPProviderImpl::Create2(address.get(), u"ipps://USB001/ipp/print", 0x55));
    ASSERT_NE(provider.get(), nullptr);
    EXPECT_EQ(std::u16string(address->GetPortText()), u"");
    EXPECT_EQ(address->exchanges[0].port, 443u);
    EXPECT_TRUE(address->secure);
    EXPECT_EQ(address->exchanges[0].securityFlags, 0x55u);
    EXPECT_TRUE(provider->IsSecure());
    EXPECT_EQ(provider->GetSecurityFlags(), 0x55u);
    // A secure query without flags of its own takes the creation's flags.
    OwnedVariant v;
    EXPECT_EQ(provider->GetIPPValue("printer-state", 0, &v.v, nullptr, "/ipp/print", 0, 0, " "), S_OK);
    EXPECT_EQ(address->exchanges.back().securityFlags, 0x55u);
    EXPECT_EQ(address->exchanges.back().port, 443u);
  }
}

TEST(IppProviderCreate, FailuresReportTheirLastErrorAndLeaveNothingBehind) {
  struct Case {
    uint32_t status;
    uint32_t error;
  } cases[] = {{400, 0x20000009}, {404, 0x20000009}, {405, 0x20000009}, {401, 401}, {500, 500}};
  for (const Case& c : cases) {
    auto address = NewAddress();
    address->responder = [&](const FakeExchange&) { return Reply({}, c.status); };
    size_t live = QxUtils::LiveDisposableCount();
    SetLastError(0);
    EXPECT_EQ(IPPProviderImpl::Create2(address.get(), u"ipp://USB001/ipp/print", 0), nullptr);
    EXPECT_EQ(GetLastError(), c.error) << c.status;
    EXPECT_EQ(address->requestsAlive, 0);
    EXPECT_EQ(QxUtils::LiveDisposableCount(), live);
  }
  // A body that is not IPP fails the decode, not the send.
  auto address = NewAddress();
  address->responder = [](const FakeExchange&) { return Reply("<html/>"); };
  NorvaneTest::CaptureLog log;
  EXPECT_EQ(IPPProviderImpl::Create(address.get(), "/ipp/print", false, 0), nullptr);
  EXPECT_TRUE(log.Contains("ptrIPPOperations->ParseIPPResponse(httpResponse,&value) cretae failed", 0x80));

  // Arguments and URIs are refused before anything is sent.
  SetLastError(0);
  EXPECT_EQ(IPPProviderImpl::Create2(nullptr, u"ipp://USB001/ipp/print", 0), nullptr);
  EXPECT_EQ(GetLastError(), 87u);
  EXPECT_EQ(IPPProviderImpl::Create2(address.get(), u"ipp://USB001/ab", 0), nullptr);
  EXPECT_EQ(GetLastError(), 0x20000003u);
  EXPECT_EQ(IPPProviderImpl::Create(address.get(), nullptr, false, 0), nullptr);
  EXPECT_EQ(address->exchanges.size(), 1u);
}

TEST(IppProviderCreate, SetPrinterUrisKeepsTheResourceEvenWithoutAPrinterUri) {
  auto address = NewAddress();
  Answer(address.get(), [](const FakeExchange&) { return Reply(kAllAttributes); });
  auto provider = QxUtils::AdoptRef(IPPProviderImpl::Create(address.get(), "/ipp/print", false, 0));
  ASSERT_NE(provider.get(), nullptr);
  SetLastError(0);
  EXPECT_FALSE(provider->SetPrinterURIs(nullptr, u"ipps://h/x"));
  EXPECT_EQ(GetLastError(), 87u);
  EXPECT_FALSE(provider->SetPrinterURIs(u"", u"ipps://h/x"));
  EXPECT_EQ(GetLastError(), 0x20000004u);
  EXPECT_FALSE(provider->SetPrinterURIs(u"/other", nullptr));
  EXPECT_EQ(provider->GetResourceURI(), u"/other");
  EXPECT_FALSE(provider->IsSecure());
  EXPECT_TRUE(provider->SetPrinterURIs(u"/ipp/secure", u"ipps://h/ipp/secure"));
  EXPECT_TRUE(provider->IsSecure());
  EXPECT_EQ(provider->GetPrinterURI(), u"ipps://h/ipp/secure");
}

class IppProviderQuery : public ::testing::Test {
 protected:
  void SetUp() override {
    Answer(address_.get(), [this](const FakeExchange& e) { return then_(e); });
    provider_.Reset(IPPProviderImpl::Create(address_.get(), "/ipp/print", false, 0x803100));
    ASSERT_NE(provider_.get(), nullptr);
  }
  size_t Sent() const { return address_->exchanges.size() - 1; }

  QxUtils::Ref<FakeAddress> address_ = NewAddress();
  std::function<FakeReply(const FakeExchange&)> then_ = [](const FakeExchange&) { return Reply({}, 500); };
  QxUtils::Ref<IPPProviderImpl> provider_;
};

TEST_F(IppProviderQuery, AlternativesMoveOnOnlyWhenTheDeviceQueryFails) {
  OwnedVariant v;
  // Refused device query for the first alternative; the cache has the second.
  EXPECT_EQ(provider_->GetValue("printer-make-and-model_OR_printer-info", &v.v), S_OK);
  EXPECT_EQ(Text(v.v), "Front office");
  EXPECT_EQ(Sent(), 1u);

  // Everything refused: failure, and the caller's variant stays empty.
  OwnedVariant none;
  EXPECT_EQ(provider_->GetValue("a_OR_b_OR_c", &none.v), E_FAIL);
  EXPECT_EQ(none.v.vt, VT_EMPTY);
  EXPECT_EQ(Sent(), 4u);

  // A device query that succeeds without a value still answers.
  then_ = [](const FakeExchange&) { return Reply(ResponseStart() + B({0x03})); };
  OwnedVariant empty;
  EXPECT_EQ(provider_->GetValue("a_OR_printer-info", &empty.v), S_OK);
  EXPECT_EQ(empty.v.vt, VT_EMPTY);
  EXPECT_EQ(Sent(), 5u);
}

TEST_F(IppProviderQuery, DeviceAnswersNeverRefreshTheCachedAttributes) {
  then_ = [](const FakeExchange&) {
    return Reply(ResponseStart() + IntAttr(0x23, "printer-state", 5) + Attr(0x41, "printer-name", "P") + B({0x03}));
  };
  OwnedVariant name, state;
  EXPECT_EQ(provider_->GetValue("printer-name", &name.v), S_OK);
  EXPECT_EQ(Text(name.v), "P");
  EXPECT_EQ(provider_->GetValue("printer-state", &state.v), S_OK);
  EXPECT_EQ(Text(state.v), "3");
  OwnedVariant fresh;
  EXPECT_EQ(provider_->GetIPPValue("printer-state", 0, &fresh.v, nullptr, "/ipp/print", 0, 0, " "), S_OK);
  EXPECT_EQ(Text(fresh.v), "5");
}

TEST_F(IppProviderQuery, CollectionQueriesAreAnsweredOnceFromTheDeviceThenFromTheKeptRecords) {
  then_ = [](const FakeExchange&) { return Reply(MediaDatabase()); };
  OwnedVariant info, first, second, other;
  EXPECT_EQ(provider_->GetValue("printer-info_OR_media-col-database[0].media-size.x-dimension", &info.v), S_OK);
  EXPECT_EQ(Text(info.v), "Front office");
  EXPECT_EQ(Sent(), 0u);
  EXPECT_EQ(provider_->GetValue("media-col-database[0].media-size.x-dimension", &first.v), S_OK);
  EXPECT_EQ(Text(first.v), "21000");
  ASSERT_EQ(Sent(), 1u);
  const FakeExchange& e = address_->exchanges.back();
  EXPECT_TRUE(Names(e, "media-col-database"));
  EXPECT_FALSE(Names(e, "[0]"));
  EXPECT_EQ(provider_->GetValue("media-col-database[1].media-size.y-dimension", &second.v), S_OK);
  EXPECT_EQ(Text(second.v), "27940");
  EXPECT_EQ(Sent(), 1u);
  // A member the printer lacks is asked for at every poll, never answered from
  // copies of earlier answers.
  for (int poll = 0; poll < 3; ++poll) {
    OwnedVariant missing;
    EXPECT_EQ(provider_->GetValue("media-col-database[2].media-size.x-dimension", &missing.v), S_OK);
    EXPECT_EQ(missing.v.vt, VT_EMPTY) << poll;
  }
  EXPECT_EQ(Sent(), 4u);
  // A bracket at the very start is no collection query: the whole text is the name.
  then_ = [](const FakeExchange&) { return Reply({}, 500); };
  EXPECT_EQ(provider_->GetValue("[0].x", &other.v), E_FAIL);
  EXPECT_TRUE(Names(address_->exchanges.back(), "[0].x"));
}

TEST_F(IppProviderQuery, JobQueriesAskForTheJobUri) {
  then_ = [](const FakeExchange&) { return Reply(ResponseStart() + IntAttr(0x23, "job-state", 9) + B({0x03})); };
  OwnedVariant v;
  EXPECT_EQ(provider_->GetIPPValue("job-state", 1, &v.v, "ipp://h/ipp/print/42", "/ipp/print", 0, 0, " "), S_OK);
  EXPECT_EQ(Text(v.v), "9");
  const FakeExchange& e = address_->exchanges.back();
  EXPECT_EQ(Operation(e), 9);
  EXPECT_TRUE(Names(e, Attr(0x45, "job-uri", "ipp://h/ipp/print/42")));
  // A job refused by the device fails the query.
  then_ = [](const FakeExchange&) { return Reply(ResponseStart(0x0406) + B({0x03})); };
  OwnedVariant gone;
  EXPECT_EQ(provider_->GetIPPValue("job-state", 1, &gone.v, "ipp://h/ipp/print/42", "/ipp/print", 0, 0, " "),
            E_FAIL);
  // A job URI with a printer query still asks the printer.
  then_ = [](const FakeExchange&) { return Reply(ResponseStart() + B({0x03})); };
  OwnedVariant p;
  EXPECT_EQ(provider_->GetIPPValue("printer-state", 0, &p.v, "ipp://other/ipp/print", "/ipp/print", 0, 0, " "), S_OK);
  EXPECT_EQ(Operation(address_->exchanges.back()), 11);
  EXPECT_EQ(provider_->GetIPPValue(nullptr, 0, &p.v, nullptr, "/ipp/print", 0, 0, " "), E_FAIL);
}

// Loopback listeners for the probe. Ports 631 and 80 need root and must be
// free; the tests that need them skip otherwise.
struct Listener {
  int fd = -1;
  uint16_t port = 0;
  Listener(int family, uint16_t wanted, bool listening) {
    fd = socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return;
    int one = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_storage storage{};
    socklen_t length;
    if (family == AF_INET6) {
      auto* a = reinterpret_cast<sockaddr_in6*>(&storage);
      a->sin6_family = AF_INET6;
      a->sin6_addr = in6addr_loopback;
      a->sin6_port = htons(wanted);
      length = sizeof *a;
    } else {
      auto* a = reinterpret_cast<sockaddr_in*>(&storage);
      a->sin_family = AF_INET;
      a->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      a->sin_port = htons(wanted);
      length = sizeof *a;
    }
    if (bind(fd, reinterpret_cast<sockaddr*>(&storage), length) != 0 || (listening && listen(fd, 4) != 0)) {
      close(fd);
      fd = -1;
      return;
    }
    getsockname(fd, reinterpret_cast<sockaddr*>(&storage), &length);
    port = ntohs(family == AF_INET6 ? reinterpret_cast<sockaddr_in6*>(&storage)->sin6_port
                                    : reinterpret_cast<sockaddr_in*>(&storage)->sin_port);
  }
  ~Listener() {
    if (fd >= 0) close(fd);
  }
  bool ok() const { return fd >= 0; }
};

TEST(IppProviderProbe, ConnectsOnlyToAddressTextAndReportsRefusal) {
  Listener open(AF_INET6, 0, true);
  Listener closed(AF_INET6, 0, false);  // bound, never listening: refuses
  if (!open.ok() || !closed.ok()) GTEST_SKIP() << "no IPv6 loopback";
  int error = -1;
  EXPECT_TRUE(IPPProviderImpl::DeviceExists(u"::1", QxUtils::Utf8ToWide(std::to_string(open.port)).c_str(), &error));
  EXPECT_EQ(error, 0);
  auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(IPPProviderImpl::DeviceExists(u"::1", QxUtils::Utf8ToWide(std::to_string(closed.port)).c_str(), &error));
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
      IPPProviderImpl::DeviceExists(u"::1", QxUtils::Utf8ToWide(std::to_string(full.port)).c_str(), &error, 300));
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

  close(web.fd);
  web.fd = -1;
  Listener webClosed(AF_INET, 80, false);
  if (!webClosed.ok()) GTEST_SKIP() << "port 80 taken meanwhile";
  EXPECT_EQ(IPPProviderImpl::Create2(address.get(), u"ipp://127.0.0.1/ipp/print", 0), nullptr);
  EXPECT_EQ(GetLastError(), 0x20000002u);

  // A listener on 631 lets creation go on to the request; the IPv4 probe
  // ignores the port of the address text.
  close(ipp.fd);
  ipp.fd = -1;
  Listener ippOpen(AF_INET, 631, true);
  if (!ippOpen.ok()) GTEST_SKIP() << "port 631 taken meanwhile";
  EXPECT_TRUE(IPPProviderImpl::DeviceExists(u"127.0.0.1:9", u"631"));
  address->responder = [](const FakeExchange&) { return Reply(kAllAttributes); };
  auto provider = QxUtils::AdoptRef(IPPProviderImpl::Create(address.get(), "/ipp/print", false, 0));
  EXPECT_NE(provider.get(), nullptr);
}

}  // namespace
