// Sending without a printer: what is refused before any request is made, the
// port a request goes to, and the second overload's hand-over to a host-made
// request. Exchanges with a printer are in the integration bench.
#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "ipp/ipp_operations.h"
#include "ipp_test_util.h"
#include "norvane/norvane.h"
#include "support/ref.h"
#include "testlib/fake_host.h"

namespace {

using namespace IppTest;
using Norvane::IPPOperations;
using NorvaneTest::FakeAddress;

QxUtils::Ref<FakeAddress> NewAddress() { return QxUtils::AdoptRef(FakeAddress::Create(u"192.0.2.10")); }

TEST(IppSend, RefusalsMakeNoRequest) {
  struct Case {
    uint32_t operation;
    const char* attributeName;  // null: none, so Get-Printer-Attributes cannot be encoded
    HRESULT createRequest;
  } cases[] = {{1, "printer-state", S_OK},
               {16385, "printer-state", S_OK},
               {11, nullptr, S_OK},
               {11, "printer-state", E_OUTOFMEMORY}};
  for (const Case& c : cases) {
    auto address = NewAddress();
    address->createRequestResult = c.createRequest;
    IPPOperations ops(address.get());
    if (c.attributeName != nullptr) ops.SetAttributeName(c.attributeName);
    Norvane::HTTPResponse* response = reinterpret_cast<Norvane::HTTPResponse*>(0x1);
    EXPECT_EQ(ops.SendIPPRequest(c.operation, &response, nullptr, false), E_FAIL) << c.operation;
    EXPECT_EQ(response, nullptr);
    EXPECT_TRUE(address->exchanges.empty());
    EXPECT_EQ(address->requestsAlive, 0);
  }
  Norvane::HTTPResponse* response = nullptr;
  EXPECT_EQ(IPPOperations(nullptr).SendIPPRequest(11, &response, nullptr, false), E_FAIL);
}

TEST(IppSend, PortFollowsSecurityAndThePortText) {
  auto address = NewAddress();
  for (auto [secure, text, port] : std::initializer_list<std::tuple<bool, const char16_t*, uint32_t>>{
           {false, u"443", 631}, {true, u"", 443}, {true, u"631", 631}, {true, u"8631", 443}}) {
    address->SetPortText(text);
    EXPECT_EQ(IPPOperations::ChoosePort(address.get(), secure), port) << secure << QxUtils::WideToUtf8(text);
  }
}

// The second overload's transport, recording what it is told.
class StartableRecorder : public Norvane::IppStartableRequest {
 public:
  HRESULT SetMethod(const char16_t* m) override { return Log(u"method=" + std::u16string(m)); }
  HRESULT SetResource(const char16_t* r) override { return Log(u"resource=" + std::u16string(r)); }
  HRESULT SetContentType(const char16_t* t) override { return Log(u"type=" + std::u16string(t)); }
  HRESULT SetHost(const char16_t* h) override { return Log(u"host=" + std::u16string(h)); }
  HRESULT SetUserName(const char16_t* n) override { return Log(u"user=" + std::u16string(n)); }
  HRESULT SetPassword(const char16_t* p) override { return Log(u"password=" + std::u16string(p)); }
  HRESULT SetLength(uint32_t n) override { return Log(u"length=" + QxUtils::Utf8ToWide(std::to_string(n))); }
  HRESULT SetBody(const uint8_t* b, uint32_t n) override {
    body.assign(reinterpret_cast<const char*>(b), n);
    return Log(u"body");
  }
  HRESULT SetSendValue(uint32_t v) override { return Log(u"send=" + QxUtils::Utf8ToWide(std::to_string(v))); }
  HRESULT Start() override {
    Log(u"start");
    return startResult;
  }
  HRESULT Complete() override { return Log(u"complete"), 7; }
  HRESULT Log(std::u16string s) {
    calls.push_back(std::move(s));
    return S_OK;
  }
  std::vector<std::u16string> calls;
  std::string body;
  HRESULT startResult = S_OK;
};

TEST(IppSend, SecondOverloadStartsAndCompletesUnlessASendValueIsGiven) {
  auto address = NewAddress();
  IPPOperations ops(address.get());
  ops.SetResourceURI("/ipp/print");
  const std::string document = "RaS2";
  ops.SetPrinterFileBufferContent(reinterpret_cast<const uint8_t*>(document.data()), 4);
  auto attributes = QxUtils::AdoptRef(CreateIPPRequest());
  attributes->SetUsername(u"u");
  StartableRecorder completed;
  EXPECT_EQ(ops.SendIPPRequest(&completed, attributes.get(), false, 0), 7);
  // A Print-Job of a fresh request object, the document after its end tag.
  std::string expected = RequestStart(2, "/ipp/print") + B({0x02}) + IntAttr(0x21, "copies", 1) + B({0x03}) + document;
  EXPECT_EQ(
      completed.calls,
      (std::vector<std::u16string>{
          u"method=POST", u"resource=/ipp/print", u"type=application/ipp", u"host=192.0.2.10", u"user=u", u"password=",
          u"length=" + QxUtils::Utf8ToWide(std::to_string(expected.size())), u"body", u"start", u"complete"}));
  EXPECT_TRUE(SameBytes(expected, completed.body));

  StartableRecorder valued;
  EXPECT_EQ(ops.SendIPPRequest(&valued, attributes.get(), true, 9), S_OK);
  EXPECT_EQ(valued.calls.at(valued.calls.size() - 2), u"send=9");
  EXPECT_EQ(valued.calls.back(), u"start");

  StartableRecorder failing;
  failing.startResult = E_FAIL;
  EXPECT_EQ(ops.SendIPPRequest(&failing, attributes.get(), false, 0), E_FAIL);
  EXPECT_EQ(failing.calls.back(), u"start");

  SetLastError(0);
  EXPECT_EQ(ops.SendIPPRequest(static_cast<Norvane::IppStartableRequest*>(nullptr), attributes.get(), false, 0),
            E_FAIL);
  EXPECT_EQ(GetLastError(), 87u);
}

}  // namespace
