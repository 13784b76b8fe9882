// Requests going through the host transport: HTTP set-up, ports, headers,
// failures, request lifetime and the chunked Print-Job stream.
#include <gtest/gtest.h>

#include <vector>

#include "ipp/ipp_operations.h"
#include "ipp_test_util.h"
#include "norvane/norvane.h"
#include "testlib/fake_host.h"
#include "support/ref.h"

namespace {

using namespace IppTest;
using Norvane::IPPOperations;
using Norvane::IPPRequestBase;
using NorvaneTest::FakeAddress;
using NorvaneTest::FakeExchange;
using NorvaneTest::FakeReply;

QxUtils::Ref<FakeAddress> NewAddress() { return QxUtils::AdoptRef(FakeAddress::Create(u"192.0.2.10")); }
QxUtils::Ref<IPPRequestBase> NewRequest() { return QxUtils::AdoptRef(CreateIPPRequest()); }

const std::string kOkBody = ResponseStart() + Attr(0x23, "printer-state", Be32(3)) + B({0x03});

FakeReply Ok() { return FakeReply{200, kOkBody, {}, S_OK}; }

std::string Expected(IPPOperations& ops, uint32_t operation, IPPRequestBase* attributes) {
  std::vector<uint8_t> buffer(Norvane::kIppAttributeLimit + 1);
  uint32_t length = 0;
  EXPECT_EQ(ops.FormIPPRequestBasedOnOperation(buffer.data(), operation, &length, attributes), S_OK);
  return std::string(buffer.begin(), buffer.begin() + length);
}

using Headers = std::vector<std::pair<std::u16string, std::u16string>>;

TEST(IppSend, PostsTheEncodedRequestWithItsHttpSetUp) {
  auto address = NewAddress();
  address->responder = [](const FakeExchange&) { return Ok(); };
  IPPOperations ops(address.get());
  ops.SetResourceURI("/ipp/print");
  ops.SetAttributeName("printer-state");
  ops.SetSecurityFlags(0x3300);
  Norvane::HTTPResponse* response = nullptr;
  ASSERT_EQ(ops.SendIPPRequest(11, &response, nullptr, false), S_OK);
  ASSERT_NE(response, nullptr);
  ASSERT_EQ(address->exchanges.size(), 1u);
  const FakeExchange& e = address->exchanges[0];
  EXPECT_EQ(e.method, u"POST");
  EXPECT_EQ(e.resource, u"/ipp/print");
  EXPECT_EQ(e.contentType, u"application/ipp");
  EXPECT_EQ(e.port, 631u);
  EXPECT_EQ(e.securityFlags, 0x3300u);
  EXPECT_FALSE(address->secure);
  // Without request attributes no headers are added.
  EXPECT_TRUE(e.headers.empty());
  IPPOperations reference(nullptr);
  reference.SetResourceURI("/ipp/print");
  reference.SetAttributeName("printer-state");
  EXPECT_TRUE(SameBytes(Expected(reference, 11, nullptr), e.body));
  EXPECT_EQ(ops.ParseIPPResponse(response, nullptr), S_OK);
}

TEST(IppSend, PortChoiceFollowsSecurityAndThePortText) {
  struct Case {
    bool secure;
    const char16_t* portText;
    uint32_t port;
  } cases[] = {{false, u"", 631}, {false, u"443", 631}, {true, u"", 443}, {true, u"443", 443},
               {true, u"631", 631}, {true, u"8631", 443}};
  for (const Case& c : cases) {
    auto address = NewAddress();
    address->responder = [](const FakeExchange&) { return Ok(); };
    address->SetPortText(c.portText);
    IPPOperations ops(address.get());
    ops.SetAttributeName("printer-state");
    Norvane::HTTPResponse* response = nullptr;
    ASSERT_EQ(ops.SendIPPRequest(11, &response, nullptr, c.secure), S_OK);
    EXPECT_EQ(address->exchanges.at(0).port, c.port);
    EXPECT_EQ(address->secure, c.secure);
    EXPECT_EQ(IPPOperations::ChoosePort(address.get(), c.secure), c.port);
  }
}

TEST(IppSend, CallerHeadersGoInKeyOrderAndStandInForTheDefaultsTheyNameWithin) {
  auto address = NewAddress();
  address->responder = [](const FakeExchange&) { return Ok(); };
  IPPOperations ops(address.get());
  ops.SetAttributeName("printer-state");
  auto attributes = NewRequest();
  attributes->AddExtraHTTPHeader(u"X-Cache-Control-Test", u"1");
  attributes->AddExtraHTTPHeader(u"Accept-Language", u"de");
  Norvane::HTTPResponse* response = nullptr;
  ASSERT_EQ(ops.SendIPPRequest(11, &response, attributes.get(), false), S_OK);
  EXPECT_EQ(address->exchanges.at(0).headers, (Headers{{u"Accept-Language", u"de"},
                                                       {u"X-Cache-Control-Test", u"1"},
                                                       {u"Connection", u"Keep-Alive"},
                                                       {u"Pragma", u"no-cache"}}));

  // Names compare case-sensitively: a lower-case "pragma" does not count.
  attributes->AddExtraHTTPHeader(u"X-Cache-Control-Test", nullptr);
  attributes->AddExtraHTTPHeader(u"pragma", u"x");
  ASSERT_EQ(ops.SendIPPRequest(11, &response, attributes.get(), false), S_OK);
  EXPECT_EQ(address->exchanges.at(1).headers, (Headers{{u"Accept-Language", u"de"},
                                                       {u"pragma", u"x"},
                                                       {u"Cache-Control", u"no-cache"},
                                                       {u"Connection", u"Keep-Alive"},
                                                       {u"Pragma", u"no-cache"}}));
}

TEST(IppSend, FailuresReportTheHttpStatusOrTheTransportErrorAndReleaseTheRequest) {
  struct Case {
    FakeReply reply;
    DWORD lastError;
  } cases[] = {{FakeReply{401, kOkBody, {}, S_OK}, 401},
               {FakeReply{500, kOkBody, {}, S_OK}, 500},
               {FakeReply{200, "", {}, S_OK}, 200},
               {FakeReply{200, "", {}, E_FAIL, 12029}, 12029}};
  for (const Case& c : cases) {
    auto address = NewAddress();
    address->responder = [&](const FakeExchange&) { return c.reply; };
    {
      IPPOperations ops(address.get());
      ops.SetAttributeName("printer-state");
      Norvane::HTTPResponse* response = reinterpret_cast<Norvane::HTTPResponse*>(0x1);
      SetLastError(0);
      EXPECT_EQ(ops.SendIPPRequest(11, &response, nullptr, false), E_FAIL);
      EXPECT_EQ(GetLastError(), c.lastError);
      EXPECT_EQ(response, nullptr);
      EXPECT_EQ(address->requestsAlive, 0);
    }
  }
}

TEST(IppSend, RefusesBadOperationsAndMissingTransport) {
  auto address = NewAddress();
  IPPOperations ops(address.get());
  ops.SetAttributeName("printer-state");
  Norvane::HTTPResponse* response = nullptr;
  EXPECT_EQ(ops.SendIPPRequest(1, &response, nullptr, false), E_FAIL);
  EXPECT_EQ(ops.SendIPPRequest(16385, &response, nullptr, false), E_FAIL);
  EXPECT_EQ(address->requestsCreated, 0);
  address->createRequestResult = E_OUTOFMEMORY;
  EXPECT_EQ(ops.SendIPPRequest(11, &response, nullptr, false), E_FAIL);
  IPPOperations detached(nullptr);
  EXPECT_EQ(detached.SendIPPRequest(11, &response, nullptr, false), E_FAIL);
}

TEST(IppSend, AnEncodingFailureSendsNothing) {
  auto address = NewAddress();
  address->responder = [](const FakeExchange&) { return Ok(); };
  IPPOperations ops(address.get());  // no attribute name for Get-Printer-Attributes
  Norvane::HTTPResponse* response = nullptr;
  EXPECT_EQ(ops.SendIPPRequest(11, &response, nullptr, false), E_FAIL);
  EXPECT_TRUE(address->exchanges.empty());
  EXPECT_EQ(address->requestsAlive, 0);
}

TEST(IppSend, TheResponseStaysReadableUntilTheNextSendOrTheEnd) {
  auto address = NewAddress();
  int sent = 0;
  address->responder = [&](const FakeExchange&) {
    ++sent;
    return FakeReply{200, ResponseStart() + Attr(0x21, "n", Be32(sent)) + B({0x03}), {}, S_OK};
  };
  {
    IPPOperations ops(address.get());
    ops.SetAttributeName("n");
    Norvane::HTTPResponse* first = nullptr;
    ASSERT_EQ(ops.SendIPPRequest(11, &first, nullptr, false), S_OK);
    EXPECT_EQ(address->requestsAlive, 1);
    VARIANT v;
    VariantInit(&v);
    ASSERT_EQ(ops.ParseIPPResponse(first, &v), S_OK);
    EXPECT_EQ(Text(v), "1");
    VariantClear(&v);
    Norvane::HTTPResponse* second = nullptr;
    ASSERT_EQ(ops.SendIPPRequest(11, &second, nullptr, false), S_OK);
    EXPECT_EQ(address->requestsAlive, 1);  // the first request is gone
    ASSERT_EQ(ops.ParseIPPResponse(second, &v), S_OK);
    EXPECT_EQ(Text(v), "2");
    VariantClear(&v);
  }
  EXPECT_EQ(address->requestsAlive, 0);
}

TEST(IppSend, PrintJobCarriesTheDocumentOtherOperationsDropIt) {
  auto address = NewAddress();
  address->responder = [](const FakeExchange&) { return Ok(); };
  IPPOperations ops(address.get());
  ops.SetResourceURI("/ipp/print");
  ops.SetAttributeName("printer-state");
  const std::string document = "%PDF-1.4 tiny";
  ops.SetPrinterFileBufferContent(reinterpret_cast<const uint8_t*>(document.data()),
                                  static_cast<int32_t>(document.size()));
  auto attributes = NewRequest();
  Norvane::HTTPResponse* response = nullptr;
  ASSERT_EQ(ops.SendIPPRequest(2, &response, attributes.get(), false), S_OK);
  IPPOperations reference(nullptr);
  reference.SetResourceURI("/ipp/print");
  EXPECT_TRUE(SameBytes(Expected(reference, 2, attributes.get()) + document, address->exchanges.at(0).body));
  // A request of any other kind forgets the document.
  ASSERT_EQ(ops.SendIPPRequest(11, &response, attributes.get(), false), S_OK);
  EXPECT_EQ(ops.GetDocumentLength(), 0u);
  ASSERT_EQ(ops.SendIPPRequest(2, &response, attributes.get(), false), S_OK);
  EXPECT_TRUE(SameBytes(Expected(reference, 2, attributes.get()), address->exchanges.at(2).body));
}

TEST(IppSend, CredentialCheckIsAPrintJobCarryingTheCallersCredentials) {
  auto address = NewAddress();
  address->responder = [](const FakeExchange&) { return Ok(); };
  IPPOperations ops(address.get());
  auto attributes = NewRequest();
  attributes->SetUsername(u"alice");
  attributes->SetPassword(u"s3cret");
  Norvane::HTTPResponse* response = nullptr;
  ASSERT_EQ(ops.SendIPPRequest(50, &response, attributes.get(), true), S_OK);
  const FakeExchange& e = address->exchanges.at(0);
  EXPECT_EQ(e.userName, u"alice");
  EXPECT_EQ(e.password, u"s3cret");
  EXPECT_EQ(e.body.substr(2, 2), B({0x00, 0x02}));

  auto anonymous = NewRequest();
  ASSERT_EQ(ops.SendIPPRequest(50, &response, anonymous.get(), true), S_OK);
  EXPECT_EQ(address->exchanges.at(1).userName, u"");
  EXPECT_EQ(address->exchanges.at(1).password, u"");
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
  auto attributes = NewRequest();
  attributes->SetUsername(u"u");
  StartableRecorder completed;
  EXPECT_EQ(ops.SendIPPRequest(&completed, attributes.get(), false, 0), 7);
  IPPOperations reference(nullptr);
  reference.SetResourceURI("/ipp/print");
  std::string expected = Expected(reference, 2, attributes.get()) + document;
  EXPECT_EQ(completed.calls,
            (std::vector<std::u16string>{u"method=POST", u"resource=/ipp/print", u"type=application/ipp",
                                         u"host=192.0.2.10", u"user=u", u"password=",
                                         u"length=" + QxUtils::Utf8ToWide(std::to_string(expected.size())), u"body",
                                         u"start", u"complete"}));
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
  EXPECT_EQ(ops.SendIPPRequest(static_cast<Norvane::IppStartableRequest*>(nullptr), attributes.get(), false, 0), E_FAIL);
  EXPECT_EQ(GetLastError(), 87u);
}

class IppPrintStream : public ::testing::Test {
 protected:
  void SetUp() override {
    address->responder = [this](const FakeExchange&) { return finalReply; };
    ops.SetResourceURI("/ipp/print");
  }
  void SetData(const std::string& data) {
    ops.SetPrinterFileBufferContent(reinterpret_cast<const uint8_t*>(data.data()), static_cast<int32_t>(data.size()));
  }
  QxUtils::Ref<FakeAddress> address = NewAddress();
  IPPOperations ops{address.get()};
  QxUtils::Ref<IPPRequestBase> attributes = NewRequest();
  FakeReply finalReply = Ok();
  Norvane::HTTPResponse* response = nullptr;
};

TEST_F(IppPrintStream, ChunksAreFramedByTheLibraryAndTheLastOneIsExact) {
  attributes->AddExtraHTTPHeader(u"Authorization", u"Basic eDp5");
  attributes->SetUsername(u"alice");
  SetData("RaS2-first");
  ASSERT_EQ(ops.SendPrintJobRequest(&response, attributes.get(), true, 0, 77, false), S_OK);
  IPPOperations reference(nullptr);
  reference.SetResourceURI("/ipp/print");
  std::string first = Expected(reference, 2, attributes.get()) + "RaS2-first";
  char size[16];
  std::snprintf(size, sizeof size, "%X\r\n", static_cast<unsigned>(first.size()));

  const std::string block(255, '\xAB');
  SetData(block);
  ASSERT_EQ(ops.SendPrintJobRequest(&response, attributes.get(), true, 255, 77, false), S_OK);
  ASSERT_EQ(ops.SendPrintJobRequest(&response, attributes.get(), true, 0, 77, false), S_OK);
  ASSERT_NE(response, nullptr);
  EXPECT_EQ(ops.ParseIPPResponse(response, nullptr), S_OK);

  ASSERT_EQ(address->exchanges.size(), 1u);
  const FakeExchange& e = address->exchanges[0];
  ASSERT_EQ(e.chunks.size(), 3u);
  EXPECT_TRUE(SameBytes(std::string(size) + first + "\r\n", e.chunks[0]));
  EXPECT_TRUE(SameBytes(B({'F', 'F', '\r', '\n'}) + block + "\r\n", e.chunks[1]));
  EXPECT_TRUE(SameBytes(B({'0', '\r', '\n', '\r', '\n'}), e.chunks[2]));
  EXPECT_EQ(e.method, u"POST");
  EXPECT_EQ(e.userName, u"alice");
  EXPECT_EQ(e.headers, (Headers{{u"Authorization", u"Basic eDp5"},
                                {u"Cache-Control", u"no-cache"},
                                {u"Connection", u"Keep-Alive"},
                                {u"Pragma", u"no-cache"},
                                {u"Transfer-Encoding", u"chunked"},
                                {u"Content-Type", u"application/ipp"}}));
  EXPECT_EQ(address->requestsCreated, 1);
}

TEST_F(IppPrintStream, TheFinalAnswerMapsToTheStreamResult) {
  struct Case {
    FakeReply reply;
    HRESULT result;
  } cases[] = {{FakeReply{200, kOkBody, {}, S_OK}, S_OK},
               {FakeReply{200, "", {}, S_OK}, E_FAIL},
               {FakeReply{401, kOkBody, {}, S_OK}, 1026},
               {FakeReply{500, kOkBody, {}, S_OK}, E_FAIL},
               {FakeReply{200, "", {}, Norvane::kHostResponseReadBenign}, S_FALSE},
               {FakeReply{200, "", {}, E_OUTOFMEMORY}, E_OUTOFMEMORY}};
  for (const Case& c : cases) {
    IPPOperations stream(address.get());
    finalReply = c.reply;
    SetData("RaS2");
    ASSERT_EQ(stream.SendPrintJobRequest(&response, attributes.get(), true, 0, 0, false), S_OK);
    EXPECT_EQ(stream.SendPrintJobRequest(&response, attributes.get(), true, 0, 0, false), c.result)
        << "status " << c.reply.status;
  }
}

TEST_F(IppPrintStream, AFailedChunkDropsTheStreamAndTheNextCallStartsAfresh) {
  SetData("RaS2");
  address->failWriteChunkAt = 2;
  ASSERT_EQ(ops.SendPrintJobRequest(&response, attributes.get(), true, 0, 0, false), S_OK);
  EXPECT_EQ(ops.SendPrintJobRequest(&response, attributes.get(), true, 4, 0, false), E_FAIL);
  EXPECT_EQ(address->requestsAlive, 0);
  ASSERT_EQ(ops.SendPrintJobRequest(&response, attributes.get(), true, 0, 0, false), S_OK);
  EXPECT_EQ(address->requestsCreated, 2);
}

TEST_F(IppPrintStream, AFailedOpenFailsTheFirstCall) {
  SetData("RaS2");
  address->openResult = static_cast<HRESULT>(0x80070005);
  EXPECT_EQ(ops.SendPrintJobRequest(&response, attributes.get(), true, 0, 0, false), E_FAIL);
  EXPECT_EQ(address->requestsAlive, 0);
}

TEST_F(IppPrintStream, AChunkLongerThanTheDataIsRefused) {
  SetData("RaS2");
  ASSERT_EQ(ops.SendPrintJobRequest(&response, attributes.get(), true, 0, 0, false), S_OK);
  EXPECT_EQ(ops.SendPrintJobRequest(&response, attributes.get(), true, 5, 0, false), E_FAIL);
  EXPECT_EQ(address->exchanges.size(), 0u);
}

TEST_F(IppPrintStream, UnchunkedSendsTheWholeBodyAndReadsTheAnswer) {
  SetData("RaS2-whole");
  ASSERT_EQ(ops.SendPrintJobRequest(&response, attributes.get(), false, 0, 0, true), S_OK);
  ASSERT_EQ(address->exchanges.size(), 1u);
  const FakeExchange& e = address->exchanges[0];
  IPPOperations reference(nullptr);
  reference.SetResourceURI("/ipp/print");
  EXPECT_TRUE(SameBytes(Expected(reference, 2, attributes.get()) + "RaS2-whole", e.body));
  EXPECT_TRUE(e.chunks.empty());
  EXPECT_EQ(e.port, 443u);
  EXPECT_TRUE(address->secure);
}

}  // namespace
