// The address as hosts and the library see it: creation, run-time type tests
// across libnorvane and libnorvane-host, reference counting, URL choice.
#include <gtest/gtest.h>

#include "host_test_util.h"
#include "norvane/disposable.h"
#include "testlib/fake_host.h"

namespace NorvaneHostTest {
namespace {

std::u16string UrlFor(Norvane::QxNetAddress* address, uint32_t port) {
  Ref<Norvane::HTTPRequest> request;
  if (FAILED(address->CreateRequestEx(request.Out(), port))) return u"<failed>";
  request->SetResource(u"/r");
  return request->GetURL();
}

TEST(NetAddressTest, TypeTestsAgreeAcrossTheTwoLibraries) {
  size_t before = QxUtils::LiveDisposableCount();
  Norvane::QxNetAddress* made = CreateNetAddress(u"192.0.2.7");
  ASSERT_NE(nullptr, made);
  // Seen through the library's own interface type, as the data collection
  // holds it, the object is still a QxNetAddress.
  Norvane::Address* plain = made;
  auto* address = dynamic_cast<Norvane::QxNetAddress*>(plain);
  ASSERT_EQ(made, address);
  address->SetWebServicePortFlag(Norvane::QxNetAddress::kWebServicePortAvailable);
  EXPECT_EQ(Norvane::QxNetAddress::kWebServicePortAvailable,
            dynamic_cast<Norvane::QxNetAddress*>(plain)->GetWebServicePortFlag());
  // The library's object registry (in libnorvane) knows the host's object.
  auto* internal = dynamic_cast<::IDisposable*>(plain);
  ASSERT_NE(nullptr, internal);
  EXPECT_TRUE(QxUtils::IsRegisteredDisposable(internal));
  EXPECT_EQ(before + 1, QxUtils::LiveDisposableCount());

  for (bool extended : {false, true}) {
    Norvane::HTTPRequest* request = nullptr;
    ASSERT_EQ(S_OK, extended ? plain->CreateRequestEx(&request, 631) : plain->CreateRequest(&request, 3910));
    ASSERT_NE(nullptr, request);
    EXPECT_NE(nullptr, dynamic_cast<Norvane::QxHTTPRequestEx*>(request));
    // The request keeps the address alive after the caller lets go of it.
    if (extended) {
      EXPECT_EQ(1u, plain->Dispose());
    }
    EXPECT_EQ(u"192.0.2.7", std::u16string(plain->GetHost()));
    EXPECT_EQ(0u, request->Dispose());
  }
  EXPECT_EQ(before, QxUtils::LiveDisposableCount());
}

TEST(NetAddressTest, CreationAndSettersRefuseWhatTheyCannotUse) {
  EXPECT_EQ(nullptr, CreateNetAddress(nullptr));
  EXPECT_EQ(nullptr, CreateNetAddress(u""));

  // A host's own address class is not ours to configure.
  auto other = Ref<Norvane::QxNetAddress>::Adopt(NorvaneTest::FakeAddress::Create(u"x"));
  EXPECT_EQ(E_INVALIDARG, NetAddressSetSnmpCommunity(other.get(), u"private"));
  EXPECT_EQ(E_INVALIDARG, NetAddressSetHttpTimeouts(other.get(), 1, 1));
  EXPECT_EQ(E_INVALIDARG, NetAddressSetSnmpVersion(nullptr, 1));

  auto address = Ref<Norvane::QxNetAddress>::Adopt(CreateNetAddress(u"printer.example"));
  EXPECT_EQ(E_INVALIDARG, NetAddressSetSnmpVersion(address.get(), 4));
  EXPECT_EQ(E_INVALIDARG, NetAddressSetSnmpPort(address.get(), 70000));
  EXPECT_EQ(E_INVALIDARG, NetAddressSetSnmpTimeout(address.get(), 0, 1));
  EXPECT_EQ(S_OK, NetAddressSetSnmpCommunity(address.get(), u"private"));
  EXPECT_EQ(S_OK, NetAddressSetSnmpCommunity(address.get(), nullptr));
  EXPECT_EQ(u"public", std::u16string(address->GetCommunityName()));

  // A port name is a valid address text but reaches nothing over the network.
  auto usb = Ref<Norvane::QxNetAddress>::Adopt(CreateNetAddress(u"USB001"));
  ASSERT_NE(nullptr, usb.get());
  auto bad = Ref<Norvane::QxNetAddress>::Adopt(CreateNetAddress(u"host/with/slash"));
  ASSERT_NE(nullptr, bad.get());
  Ref<Norvane::HTTPRequest> request;
  EXPECT_EQ(E_FAIL, bad->CreateRequest(request.Out(), 80));
  EXPECT_EQ(nullptr, request.get());
  Ref<Norvane::MIBConnection> connection;
  EXPECT_EQ(E_FAIL, bad->GetMIBConnection(connection.Out()));
  EXPECT_EQ(E_POINTER, address->CreateRequest(nullptr, 80));

  // Nothing a caller sets may start a header field of its own.
  ASSERT_EQ(S_OK, address->CreateRequest(request.Out(), 80));
  EXPECT_EQ(E_INVALIDARG, request->AddHeader(u"X-A", u"1\r\nX-B: 2"));
  EXPECT_EQ(E_INVALIDARG, request->AddHeader(u"Bad Name", u"1"));
  EXPECT_EQ(E_INVALIDARG, request->SetContentType(u"text/xml\r\nX: y"));
  EXPECT_EQ(E_INVALIDARG, request->SetMethod(u"GE T"));
  EXPECT_EQ(E_INVALIDARG, request->SetMethod(nullptr));
  EXPECT_EQ(E_POINTER, request->Send(nullptr));
}

TEST(NetAddressTest, ANamedPortSendsTheProviderProbeThere) {
  // The user's port (a URI's, HOST:PORT's) turns the probe's port on; the library
  // clears the text for a URI without one, and the probe goes back to 631.
  auto address = Ref<Norvane::QxNetAddress>::Adopt(CreateNetAddress(u"192.0.2.7"));
  EXPECT_FALSE(address->GetProbePortTextFlag());
  struct Case {
    const char16_t* port;
    bool probesIt;
  } cases[] = {{u"8000", true}, {u"", false}, {u"631", true}, {u"USB001", false}, {u"70000", false}, {nullptr, false}};
  for (size_t i = 0; i < std::size(cases); ++i) {
    address->SetPortText(cases[i].port);
    EXPECT_EQ(address->GetProbePortTextFlag(), cases[i].probesIt) << "case " << i;
  }
}

TEST(NetAddressTest, RequestUrlsCarryPortTextSecurityAndResolvedNames) {
  // The choices themselves are the URL helpers' (url_test.cpp): the address
  // hands them its host, port text and security.
  auto address = Ref<Norvane::QxNetAddress>::Adopt(CreateNetAddress(u"192.0.2.7"));
  address->SetPortText(u"8631");
  address->SetSecure(true);
  EXPECT_EQ(u"https://192.0.2.7:8631/r", UrlFor(address.get(), 631));
  EXPECT_EQ(u"http://192.0.2.7:8080/r", UrlFor(address.get(), 8080));
  auto scoped = Ref<Norvane::QxNetAddress>::Adopt(CreateNetAddress(u"fe80::1%eth0"));
  EXPECT_EQ(u"http://[fe80::1%25eth0]:631/r", UrlFor(scoped.get(), 631));
  // A host name reaches the library's connect probe as the address it resolved
  // to (from /etc/hosts here: no name server is asked), and keeps its name.
  auto named = Ref<Norvane::QxNetAddress>::Adopt(CreateNetAddress(u"localhost"));
  EXPECT_EQ(u"127.0.0.1", std::u16string(named->GetHost()));
  EXPECT_EQ(u"localhost", std::u16string(named->GetName()));
  EXPECT_EQ(nullptr, NetAddressResolveError(named.get()));
}

}  // namespace
}  // namespace NorvaneHostTest
