// The host transport against the simulated printer's web ports, through the
// Address interface alone: whole bodies, streamed bodies and the simulator's
// faults, with what the printer received read back from its request journal.
// The web-services exchange as the providers post it runs in tests/integration/xml.
#include <curl/curl.h>
#include <gtest/gtest.h>
#include <strings.h>

#include <filesystem>
#include <optional>
#include <set>
#include <vector>

#include "../bench_env.h"
#include "host_test_util.h"

namespace NorvaneHostTest {
namespace {

using namespace NorvaneBench;

// The last request the simulator received for one path.
struct Received {
  std::string head;  // request line and "Name: value" lines
  std::string body;

  int HeaderCount(const std::string& name) const {
    int count = 0;
    for (size_t at = head.find('\n'); at != std::string::npos; at = head.find('\n', at + 1)) {
      if (strncasecmp(head.c_str() + at + 1, (name + ":").c_str(), name.size() + 1) == 0) ++count;
    }
    return count;
  }
  bool Has(const std::string& line) const { return head.find("\n" + line + "\n") != std::string::npos; }
};

// Inodes of this process's open sockets: a kept connection keeps its inode.
std::set<std::string> OpenSockets() {
  std::set<std::string> sockets;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code error;
    std::string target = std::filesystem::read_symlink(entry.path(), error).string();
    if (target.rfind("socket:", 0) == 0) sockets.insert(target);
  }
  return sockets;
}

class HostHttpPeers : public ::testing::Test {
 protected:
  void SetUp() override {
    NORVANE_REQUIRE_BENCH();
    address_ = Ref<Norvane::QxNetAddress>::Adopt(
        CreateNetAddress(Wide(BenchValue("NORVANE_PRINTER_HOST", "127.0.0.1")).c_str()));
    ASSERT_NE(nullptr, address_.get());
  }

  // GET through CreateRequestEx, as the XML providers do: resource only.
  HRESULT Get(uint32_t port, const std::u16string& resource, Ref<Norvane::HTTPRequest>& request,
              Norvane::HTTPResponse** response) {
    HRESULT hr = address_->CreateRequestEx(request.Out(), port);
    if (FAILED(hr)) return hr;
    request->SetResource(resource.c_str());
    return request->Send(response);
  }

  Received Journal(const std::string& path) {
    Ref<Norvane::HTTPRequest> request;
    Norvane::HTTPResponse* response = nullptr;
    EXPECT_EQ(S_OK, Get(altPort_, Wide("/__sim/requests?path=" + path), request, &response));
    std::string text = BodyOf(response);
    size_t headStart = text.find("\n\n");
    size_t headEnd = headStart == std::string::npos ? headStart : text.find("\n\n", headStart + 2);
    if (headEnd == std::string::npos) return {};
    return {text.substr(headStart + 1, headEnd - headStart), text.substr(headEnd + 2)};
  }

  // A request set up as the library sets up a print stream, opened on the web port.
  Norvane::QxHTTPRequestEx* OpenStream(Ref<Norvane::HTTPRequest>& holder, bool libraryFrames, uint32_t port,
                                       const char16_t* resource = u"/ipp/print") {
    EXPECT_EQ(S_OK, address_->CreateRequestEx(holder.Out(), port));
    auto* stream = dynamic_cast<Norvane::QxHTTPRequestEx*>(holder.get());
    if (stream == nullptr) return nullptr;
    stream->SetMethod(u"POST");
    stream->SetResource(resource);
    stream->SetContentType(u"application/ipp");
    if (libraryFrames) stream->AddHeader(u"Transfer-Encoding", u"chunked");
    stream->AddHeader(u"Content-Type", u"application/ipp");
    stream->SetSecurityFlags(0x3100);
    return stream;
  }

  // A whole-body request on the second web port, sent when a response is asked for.
  HRESULT Post(Ref<Norvane::HTTPRequest>& request, const char16_t* resource, const std::string& body,
               Norvane::HTTPResponse** response, const char16_t* method = u"POST") {
    EXPECT_EQ(S_OK, address_->CreateRequest(request.Out(), altPort_));
    request->SetMethod(method);
    request->SetResource(resource);
    if (!body.empty()) request->SetBody(Bytes(body), static_cast<uint32_t>(body.size()));
    return response == nullptr ? S_OK : request->Send(response);
  }

  Ref<Norvane::QxNetAddress> address_;
  uint32_t webPort_ = BenchPort("NORVANE_SIM_HTTP_PORT", 80);
  uint32_t altPort_ = BenchPort("NORVANE_SIM_ALT_PORT", 8080);
};

TEST_F(HostHttpPeers, ReadsTheDeviceXmlResourcesOnOneKeptConnection) {
  Ref<Norvane::HTTPRequest> request;
  Norvane::HTTPResponse* response = nullptr;
  const std::set<std::string> before = OpenSockets();
  ASSERT_EQ(S_OK, Get(altPort_, u"/DevMgmt/DiscoveryTree.xml", request, &response));
  const std::set<std::string> kept = OpenSockets();
  EXPECT_EQ(200u, response->GetStatus());
  std::string tree = BodyOf(response);
  EXPECT_NE(std::string::npos, tree.find("/DevMgmt/ProductConfigDyn.xml"));
  // Text bodies end with a zero the length does not count.
  EXPECT_EQ(0, response->GetBody()[response->GetBodyLength()]);
  EXPECT_EQ(u"text/xml", std::u16string(response->GetHeader(u"content-TYPE")));
  EXPECT_EQ(nullptr, response->GetHeader(u"X-Absent"));

  // The same document in chunked framing reads the same, and each request
  // object of the address takes the connection the one before left open.
  ASSERT_EQ(S_OK, Get(altPort_, u"/DevMgmt/DiscoveryTree.xml?sim-fault=chunked", request, &response));
  EXPECT_EQ(u"chunked", std::u16string(response->GetHeader(u"Transfer-Encoding")));
  EXPECT_EQ(tree, BodyOf(response));
  ASSERT_EQ(S_OK, Get(altPort_, u"/DevMgmt/DiscoveryTree.xml", request, &response));
  EXPECT_GT(kept.size(), before.size());
  EXPECT_EQ(kept, OpenSockets());

  // Another address of the same device never gets that connection: it opens
  // its own, which closes with it.
  {
    auto other = Ref<Norvane::QxNetAddress>::Adopt(
        CreateNetAddress(Wide(BenchValue("NORVANE_PRINTER_HOST", "127.0.0.1")).c_str()));
    Ref<Norvane::HTTPRequest> otherRequest;
    ASSERT_EQ(S_OK, other->CreateRequestEx(otherRequest.Out(), altPort_));
    otherRequest->SetResource(u"/DevMgmt/DiscoveryTree.xml");
    ASSERT_EQ(S_OK, otherRequest->Send(&response));
    EXPECT_EQ(kept.size() + 1, OpenSockets().size());
  }
  EXPECT_EQ(kept, OpenSockets());

  // Dot segments are the device's business: they go as given, and a GET
  // carries nothing but these fields (which the journal lists sorted).
  ASSERT_EQ(S_OK, Get(altPort_, u"/a/../ipp/./print", request, &response));
  std::string head = Journal("/a/../ipp/./print").head;
  const size_t agent = head.find("User-Agent: norvane-host/");
  ASSERT_NE(std::string::npos, agent);
  head.erase(agent + 25, head.find('\n', agent) - agent - 25);  // the version
  EXPECT_EQ("\nGET /a/../ipp/./print HTTP/1.1\nAccept: */*\nHost: 127.0.0.1:" + std::to_string(altPort_) +
                "\nUser-Agent: norvane-host/\n",
            head);
}

TEST_F(HostHttpPeers, WholeBodiesGoOnceTypedWithoutExpectContinue) {
  // Large enough that libcurl would ask for 100-continue (answered 417) if allowed to.
  const std::string body = Pattern(3 << 20, 7);
  Ref<Norvane::HTTPRequest> request;
  Norvane::HTTPResponse* response = nullptr;
  Post(request, u"/ipp/print", body, nullptr);
  request->SetContentType(u"application/ipp");
  // The library sets the type both ways; the peer must see it once.
  request->AddHeader(u"Content-Type", u"application/ipp");
  request->AddHeader(u"Cache-Control", u"no-cache");
  request->AddHeader(u"Cache-Control", u"no-store");
  ASSERT_EQ(S_OK, request->Send(&response));
  EXPECT_EQ(404u, response->GetStatus());  // no printer at that path; the body still arrived
  Received got = Journal("/ipp/print");
  EXPECT_TRUE(got.body == body) << "received " << got.body.size() << " bytes";
  EXPECT_EQ(0, got.HeaderCount("Transfer-Encoding"));
  EXPECT_TRUE(got.Has("Content-Type: application/ipp")) << got.head;
  EXPECT_EQ(1, got.HeaderCount("Content-Type"));
  EXPECT_TRUE(got.Has("Cache-Control: no-store")) << got.head;
  EXPECT_EQ(1, got.HeaderCount("Cache-Control"));

  // A POST with no type named goes out untyped, not as a form.
  ASSERT_EQ(S_OK, Post(request, u"/ipp/print", "a=b", &response));
  got = Journal("/ipp/print");
  EXPECT_EQ(0, got.HeaderCount("Content-Type")) << got.head;
  EXPECT_EQ("a=b", got.body);

  // An empty body put with another method: the answer to the document is
  // then empty too, and an empty body is null, as the library tests for.
  Post(request, u"/__sim/resource?path=/empty.xml", "", nullptr, u"PUT");
  request->SetContentType(u"application/vnd.norvane+xml");  // the simulator serves it back
  ASSERT_EQ(S_OK, request->Send(&response));
  ASSERT_EQ(200u, response->GetStatus()) << BodyOf(response);
  ASSERT_EQ(S_OK, Get(altPort_, u"/empty.xml", request, &response));
  EXPECT_EQ(200u, response->GetStatus());
  EXPECT_EQ(u"application/vnd.norvane+xml", std::u16string(response->GetContentType()));
  EXPECT_EQ(nullptr, response->GetBody());
  EXPECT_EQ(0u, response->GetBodyLength());

  // SendBody sends at once (Get-Printer-Attributes, request id 0x01020304); Send reads the answer.
  Norvane::QxHTTPRequestEx* ex = OpenStream(request, false, altPort_, u"/ipp/printer");
  const std::string ipp("\x02\x00\x00\x0B\x01\x02\x03\x04\x03", 9);
  ASSERT_EQ(S_OK, ex->SendBody(Bytes(ipp), static_cast<uint32_t>(ipp.size())));
  EXPECT_EQ(ipp, Journal("/ipp/printer").body);
  ASSERT_EQ(S_OK, ex->Send(&response));
  EXPECT_EQ(std::string("\x02\x00\x00\x00\x01\x02\x03\x04", 8), BodyOf(response).substr(0, 8));
}

TEST_F(HostHttpPeers, FaultsAreAnswersOrFailuresWithinTheTimeOuts) {
  struct Case {
    uint32_t port;  // 9: nobody listens there
    const char16_t* resource;
    HRESULT result;
    uint32_t status;
    CURLcode error;
    double atLeast;  // seconds the answer may not come before
  } const cases[] = {
      {8080, u"/DevMgmt/ProductConfigDyn.xml?sim-fault=404", S_OK, 404, CURLE_OK, 0},
      // Trickled, but never silent for the read time-out.
      {80, u"/qv/device/product_information.xml?sim-fault=slow:1500", S_OK, 200, CURLE_OK, 1.3},
      {80, u"/qv/device/product_information.xml?sim-fault=truncate:40,stall:4000", E_FAIL, 0, CURLE_OPERATION_TIMEDOUT,
       0.9},
      {9, u"/", E_FAIL, 0, CURLE_COULDNT_CONNECT, 0},
  };
  // (A silent device and a body cut short under Content-Length, as the IPP
  // requests meet them: IppSimFaults.SendAndDecodeOutcomes.)
  // Connected, the read time-out alone bounds the waits.
  ASSERT_EQ(S_OK, NetAddressSetHttpTimeouts(address_.get(), 2000, 1000));
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.resource, c.resource + std::char_traits<char16_t>::length(c.resource)));
    Ref<Norvane::HTTPRequest> request;
    Norvane::HTTPResponse* response = reinterpret_cast<Norvane::HTTPResponse*>(1);
    auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(c.result, Get(c.port == 8080 ? altPort_
                            : c.port == 80 ? webPort_
                                           : c.port,
                            c.resource, request, &response));
    double waited = SecondsSince(start);
    EXPECT_GE(waited, c.atLeast);
    EXPECT_LT(waited, c.atLeast + 1.5);
    EXPECT_EQ(static_cast<uint32_t>(c.error), request->GetErrorCode());
    if (FAILED(c.result)) {
      EXPECT_EQ(nullptr, response);
      EXPECT_STRNE("", NetAddressErrorText(request->GetErrorCode()));
      continue;
    }
    EXPECT_EQ(c.status, response->GetStatus());
    const char16_t* reason = nullptr;
    ASSERT_EQ(S_OK, response->GetStatusText(&reason));
    EXPECT_EQ(c.status == 404 ? u"Not Found" : u"OK", std::u16string(reason));
    // The answer on the second web port is the product information.
    EXPECT_NE(std::string::npos, BodyOf(response).find(c.port == 80 && c.status == 200 ? "NV42A17Q9X" : "<"));
  }
}

TEST_F(HostHttpPeers, StreamedBodiesReachThePrinterAsWrittenOrDeframedOnce) {
  const std::string first = "\x02\x00\x00\x02" + Pattern(3000, 1);
  const std::string third = Pattern(70000, 3);
  const std::string framedThird = Frame(third);
  const std::string unframed = "5\r\nhello\r\n" + Pattern(5000, 11);
  struct Write {
    std::string bytes;
    HRESULT result = S_OK;
  };
  // The rest of a document answered early has nowhere to go but is not an
  // error of the writer: the answer explains what happened.
  std::vector<Write> early(8, {Frame(Pattern(1 << 20, 5))});
  early.push_back({kLastChunk});
  // After the first chunk, the rest of `third` in two writes.
  auto sized = [&](HRESULT last) {
    return std::vector<Write>{
        {Frame(first)}, {Frame(third.substr(0, 40000))}, {Frame(third.substr(40000)) + kLastChunk, last}};
  };
  const std::string whole = Frame(Pattern(3000, 7)) + kLastChunk;
  struct Case {
    const char* what;
    bool libraryFrames;
    std::vector<Write> writes;
    bool sent;
    std::string body;  // what the printer received, or the answer's text when not 404
    uint32_t status = 404;
    const char16_t* resource = u"/ipp/print";
    std::optional<uint64_t> declared = std::nullopt;  // after the first chunk, for a printer that refused chunks
  } const cases[] = {
      // Pieces as the library sends them: header plus first data, then data
      // pieces; one frame cut across writes (inside its size line too), two
      // frames in one write.
      {"library framed",
       true,
       {{Frame(first)},
        {Frame(Pattern(255, 2))},
        {framedThird.substr(0, 3)},
        {framedThird.substr(3, 40000)},
        {framedThird.substr(40003)},
        {Frame(Pattern(10, 4)) + Frame("x")},
        {kLastChunk}},
       true,
       first + Pattern(255, 2) + third + Pattern(10, 4) + "x"},
      // Looks like framing, but nobody framed it: it must arrive as written.
      {"unframed", false, {{unframed.substr(0, 7)}, {unframed.substr(7)}}, true, unframed},
      {"nothing after the last chunk", true, {{Frame("abc") + kLastChunk}, {Frame("def"), E_INVALIDARG}}, true, "abc"},
      {"answered early", true, early, true, "401 Unauthorized", 401, u"/ipp/print?sim-fault=401,early"},
      // The stream with its length: the first chunk's payload and the declared
      // rest, no more and no less.
      {"declared", true, sized(S_OK), true, first + third, 404, u"/ipp/print", third.size()},
      {"one byte more than declared", true, sized(E_INVALIDARG), false, "", 404, u"/ipp/print", third.size() - 1},
      {"one byte less than declared", true, sized(E_FAIL), false, "", 404, u"/ipp/print", third.size() + 1},
      // Answered only once the whole body has gone: a 411 still refuses the
      // framing, a 400 or 501 is about the request itself. The 411 comes last,
      // as the address keeps it.
      {"400 after the body", true, {{whole}}, true, "400 Bad Request", 400, u"/ipp/print?sim-fault=400"},
      {"501 after the body", true, {{whole}}, true, "501 Not Implemented", 501, u"/ipp/print?sim-fault=501"},
      {"411 after the body", true, {{whole}}, true, "411 Length Required", 411, u"/ipp/print?sim-fault=411"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Ref<Norvane::HTTPRequest> holder;
    if (c.declared) {
      ASSERT_EQ(S_OK, NetAddressSetNextStreamLength(address_.get(), *c.declared));
    }
    Norvane::QxHTTPRequestEx* stream = OpenStream(holder, c.libraryFrames, altPort_, c.resource);
    ASSERT_NE(nullptr, stream);
    ASSERT_EQ(S_OK, stream->Open(42));
    for (const Write& write : c.writes) {
      EXPECT_EQ(write.result, stream->WriteChunk(Bytes(write.bytes), static_cast<uint32_t>(write.bytes.size()), 0));
    }
    if (!c.sent) continue;
    Norvane::HTTPResponse* response = nullptr;
    ASSERT_EQ(S_OK, stream->Send(&response));
    ASSERT_EQ(c.status, response->GetStatus());
    EXPECT_EQ(c.status == 411 ? 411u : 0u, NetAddressChunkedRefusal(address_.get()));
    if (c.status != 404) {
      EXPECT_NE(std::string::npos, BodyOf(response).find(c.body));
      continue;
    }
    Received got = Journal("/ipp/print");
    // Framed once on the wire: the library's frame headers are not payload.
    EXPECT_TRUE(got.body == c.body) << "received " << got.body.size() << " bytes, sent " << c.body.size();
    EXPECT_EQ(c.declared ? 0 : 1, got.HeaderCount("Transfer-Encoding"));
    EXPECT_EQ(c.declared ? 1 : 0, got.HeaderCount("Content-Length"));
    EXPECT_EQ(1, got.HeaderCount("Content-Type"));
  }
}

TEST_F(HostHttpPeers, CredentialsAnswerTheChallengeAndStreamsSendThemAtOnce) {
  const struct {
    const char16_t* user;
    const char16_t* password;
    uint32_t status;  // 404: let in, but no printer at that path
  } cases[] = {{u"", u"", 401}, {u"admin", u"wrong", 401}, {u"admin", u"s3cret", 404}};
  for (const auto& c : cases) {
    Ref<Norvane::HTTPRequest> request;
    Norvane::HTTPResponse* response = nullptr;
    Post(request, u"/ipp/print?sim-fault=basic:admin:s3cret", "<Envelope/>", nullptr);
    request->SetUserName(c.user);
    request->SetPassword(c.password);
    ASSERT_EQ(S_OK, request->Send(&response));
    EXPECT_EQ(c.status, response->GetStatus()) << std::string(c.password, c.password + 6);
  }
  EXPECT_EQ("<Envelope/>", Journal("/ipp/print").body);

  // A streamed body cannot be sent twice: the scheme the device asked for
  // goes with the first attempt.
  Ref<Norvane::HTTPRequest> holder;
  Norvane::QxHTTPRequestEx* stream = OpenStream(holder, true, altPort_, u"/ipp/print?sim-fault=basic:admin:s3cret");
  ASSERT_NE(nullptr, stream);
  stream->SetUserName(u"admin");
  stream->SetPassword(u"s3cret");
  ASSERT_EQ(S_OK, stream->Open(42));
  const std::string payload = Pattern(300000, 9);
  const std::string framed = Frame(payload) + kLastChunk;
  ASSERT_EQ(S_OK, stream->WriteChunk(Bytes(framed), static_cast<uint32_t>(framed.size()), 0));
  Norvane::HTTPResponse* response = nullptr;
  ASSERT_EQ(S_OK, stream->Send(&response));
  EXPECT_EQ(404u, response->GetStatus());
  EXPECT_TRUE(Journal("/ipp/print").body == payload);
}

}  // namespace
}  // namespace NorvaneHostTest
