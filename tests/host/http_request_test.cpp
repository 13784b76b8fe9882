// Whole-body requests against a real HTTP peer on loopback.
#include <curl/curl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <openssl/evp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <map>

#include "host_test_util.h"
#include "loopback_http_server.h"

namespace NorvaneHostTest {
namespace {

class HttpRequestTest : public ::testing::Test {
 protected:
  Ref<Norvane::QxNetAddress> address_ = Ref<Norvane::QxNetAddress>::Adopt(CreateNetAddress(u"127.0.0.1"));

  // Creates a request for the port, sets what is given and sends it.
  HRESULT Exchange(Ref<Norvane::HTTPRequest>& request, uint16_t port, const std::string& resource,
                   Norvane::HTTPResponse** response, const char16_t* method = nullptr,
                   const std::string& body = {}) {
    HRESULT hr = address_->CreateRequestEx(request.Out(), port);
    if (FAILED(hr)) return hr;
    request->SetResource(Wide(resource).c_str());
    if (method != nullptr) request->SetMethod(method);
    if (!body.empty()) request->SetBody(Bytes(body), static_cast<uint32_t>(body.size()));
    return request->Send(response);
  }
};

TEST_F(HttpRequestTest, ReadsLengthDelimitedAndChunkedBodiesAlikeOnOneKeptConnection) {
  const std::string xml = "<?xml version=\"1.0\"?><Tree>" + Pattern(70000) + "</Tree>";
  LoopbackHttpServer server([&](const ReceivedRequest& request) {
    Reply reply;
    reply.body = xml;
    reply.chunked = request.target == "/chunked";
    reply.headers = {{"Content-Type", "text/xml"}, {"X-Twice", "a"}, {"x-twice", "b"}};
    return reply;
  });
  for (const char* path : {"/plain", "/chunked", "/plain"}) {
    SCOPED_TRACE(path);
    Ref<Norvane::HTTPRequest> request;
    Norvane::HTTPResponse* response = nullptr;
    ASSERT_EQ(S_OK, Exchange(request, server.Port(), path, &response));
    ASSERT_NE(nullptr, response);
    EXPECT_EQ(200u, response->GetStatus());
    EXPECT_EQ(0u, request->GetErrorCode());
    EXPECT_EQ(xml, BodyOf(response));
    // Text bodies end with a zero the length does not count.
    EXPECT_EQ(0, response->GetBody()[response->GetBodyLength()]);
    ASSERT_NE(nullptr, response->GetHeader(u"content-TYPE"));
    EXPECT_EQ(u"text/xml", std::u16string(response->GetHeader(u"content-TYPE")));
    EXPECT_EQ(u"a, b", std::u16string(response->GetHeader(u"X-Twice")));
    EXPECT_EQ(nullptr, response->GetHeader(u"X-Absent"));
  }
  // Three requests, each from its own request object, on one connection.
  EXPECT_EQ(1, server.Connections());
  auto received = server.Requests();
  ASSERT_EQ(3u, received.size());
  EXPECT_EQ("GET", received[0].method);
  EXPECT_EQ("/plain", received[0].target);
}

TEST_F(HttpRequestTest, ErrorStatusesAndEmptyBodiesAreAnswersNotFailures) {
  LoopbackHttpServer server([](const ReceivedRequest& request) {
    Reply reply;
    if (request.target == "/missing") reply.status = 404, reply.reason = "Not Found", reply.body = "gone";
    if (request.target == "/broken") reply.status = 500, reply.reason = "Internal Server Error";
    return reply;
  });
  Ref<Norvane::HTTPRequest> request;
  Norvane::HTTPResponse* response = nullptr;
  ASSERT_EQ(S_OK, Exchange(request, server.Port(), "/missing", &response));
  EXPECT_EQ(404u, response->GetStatus());
  EXPECT_EQ("gone", BodyOf(response));
  const char16_t* reason = nullptr;
  ASSERT_EQ(S_OK, response->GetStatusText(&reason));
  EXPECT_EQ(u"Not Found", std::u16string(reason));

  ASSERT_EQ(S_OK, Exchange(request, server.Port(), "/broken", &response));
  EXPECT_EQ(500u, response->GetStatus());
  EXPECT_EQ(0u, request->GetErrorCode());
  // No body: null, as the library tests for.
  EXPECT_EQ(nullptr, response->GetBody());
  EXPECT_EQ(0u, response->GetBodyLength());
}

TEST_F(HttpRequestTest, PostSendsItsBodyOnceTypedWithoutExpectContinue) {
  // Large enough that libcurl would ask for 100-continue if allowed to.
  const std::string body = Pattern(3 << 20, 7);
  LoopbackHttpServer server([](const ReceivedRequest&) { return Reply{}; });
  Ref<Norvane::HTTPRequest> request;
  ASSERT_EQ(S_OK, address_->CreateRequest(request.Out(), server.Port()));
  request->SetResource(u"/ipp/print");
  request->SetMethod(u"POST");
  request->SetContentType(u"application/ipp");
  // The library sets the type both ways; the peer must see it once.
  request->AddHeader(u"Content-Type", u"application/ipp");
  request->AddHeader(u"Connection", u"Keep-Alive");
  request->AddHeader(u"Cache-Control", u"no-cache");
  request->AddHeader(u"Cache-Control", u"no-store");
  request->SetBody(Bytes(body), static_cast<uint32_t>(body.size()));
  Norvane::HTTPResponse* response = nullptr;
  ASSERT_EQ(S_OK, request->Send(&response));
  EXPECT_EQ(200u, response->GetStatus());

  auto received = server.Requests();
  ASSERT_EQ(1u, received.size());
  const ReceivedRequest& got = received[0];
  EXPECT_EQ("POST", got.method);
  EXPECT_EQ(body.size(), got.body.size());
  EXPECT_TRUE(got.body == body);
  EXPECT_FALSE(got.chunked);
  EXPECT_EQ(0, got.HeaderCount("Expect"));
  EXPECT_EQ(1, got.HeaderCount("Content-Type"));
  EXPECT_EQ("application/ipp", got.Header("Content-Type"));
  EXPECT_EQ("no-store", got.Header("Cache-Control"));
  EXPECT_EQ(1, got.HeaderCount("Cache-Control"));

  // A POST with no type named goes out untyped, not as a form.
  ASSERT_EQ(S_OK, Exchange(request, server.Port(), "/x", &response, u"POST", "a=b"));
  EXPECT_EQ(0, server.Requests().back().HeaderCount("Content-Type"));
  EXPECT_EQ("a=b", server.Requests().back().body);
}

TEST_F(HttpRequestTest, RefusesHeaderInjectionAndBadMethods) {
  Ref<Norvane::HTTPRequest> request;
  ASSERT_EQ(S_OK, address_->CreateRequest(request.Out(), 80));
  EXPECT_EQ(E_INVALIDARG, request->AddHeader(u"X-A", u"1\r\nX-B: 2"));
  EXPECT_EQ(E_INVALIDARG, request->AddHeader(u"Bad Name", u"1"));
  EXPECT_EQ(E_INVALIDARG, request->SetContentType(u"text/xml\r\nX: y"));
  EXPECT_EQ(E_INVALIDARG, request->SetMethod(u"GE T"));
  EXPECT_EQ(E_INVALIDARG, request->SetMethod(nullptr));
  EXPECT_EQ(E_POINTER, request->Send(nullptr));
}

std::string Md5Hex(const std::string& text) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  EVP_Digest(text.data(), text.size(), digest, &length, EVP_md5(), nullptr);
  std::string hex;
  char pair[3];
  for (unsigned int i = 0; i < length; ++i) {
    std::snprintf(pair, sizeof pair, "%02x", digest[i]);
    hex += pair;
  }
  return hex;
}

std::map<std::string, std::string> DigestFields(std::string text) {
  std::map<std::string, std::string> fields;
  if (text.rfind("Digest ", 0) != 0) return fields;
  text.erase(0, 7);
  size_t pos = 0;
  while (pos < text.size()) {
    while (pos < text.size() && (text[pos] == ' ' || text[pos] == ',')) ++pos;
    size_t eq = text.find('=', pos);
    if (eq == std::string::npos) break;
    std::string name = text.substr(pos, eq - pos);
    std::string value;
    pos = eq + 1;
    if (pos < text.size() && text[pos] == '"') {
      size_t end = text.find('"', pos + 1);
      value = text.substr(pos + 1, end - pos - 1);
      pos = end + 1;
    } else {
      size_t end = text.find(',', pos);
      value = text.substr(pos, end == std::string::npos ? std::string::npos : end - pos);
      pos = end == std::string::npos ? text.size() : end;
    }
    fields[name] = value;
  }
  return fields;
}

TEST_F(HttpRequestTest, CredentialsAnswerBasicAndDigestChallenges) {
  // Basic, as the web-services port is asked with user "guest" and no password.
  LoopbackHttpServer basic([](const ReceivedRequest& request) {
    Reply reply;
    if (request.Header("Authorization") != "Basic Z3Vlc3Q6") {  // guest:
      reply.status = 401, reply.reason = "Unauthorized";
      reply.headers = {{"WWW-Authenticate", "Basic realm=\"printer\""}};
      return reply;
    }
    reply.body = "<soap/>";
    return reply;
  });
  Ref<Norvane::HTTPRequest> request;
  ASSERT_EQ(S_OK, address_->CreateRequest(request.Out(), basic.Port()));
  request->SetMethod(u"POST");
  request->SetResource(u"/device");
  request->SetUserName(u"guest");
  request->SetContentType(u"application/soap+xml");
  const std::string envelope = "<Envelope/>";
  request->SetBody(Bytes(envelope), static_cast<uint32_t>(envelope.size()));
  Norvane::HTTPResponse* response = nullptr;
  ASSERT_EQ(S_OK, request->Send(&response));
  EXPECT_EQ(200u, response->GetStatus());
  EXPECT_EQ("<soap/>", BodyOf(response));
  EXPECT_EQ(envelope, basic.Requests().back().body);

  // Digest: the body goes again with the answer to the challenge.
  const std::string nonce = "5f0c2a";
  LoopbackHttpServer digest([&](const ReceivedRequest& request) {
    Reply reply;
    auto fields = DigestFields(request.Header("Authorization"));
    if (!fields.empty()) {
      std::string ha1 = Md5Hex(fields["username"] + ":" + fields["realm"] + ":s3cret");
      std::string ha2 = Md5Hex(request.method + ":" + fields["uri"]);
      std::string expected = Md5Hex(ha1 + ":" + fields["nonce"] + ":" + fields["nc"] + ":" + fields["cnonce"] +
                                    ":" + fields["qop"] + ":" + ha2);
      if (fields["username"] == "admin" && fields["nonce"] == nonce && fields["response"] == expected) {
        reply.body = "ok";
        return reply;
      }
    }
    reply.status = 401, reply.reason = "Unauthorized";
    reply.headers = {{"WWW-Authenticate", "Digest realm=\"ipp\", qop=\"auth\", nonce=\"" + nonce + "\""}};
    return reply;
  });
  for (const char16_t* password : {u"wrong", u"s3cret"}) {
    ASSERT_EQ(S_OK, address_->CreateRequest(request.Out(), digest.Port()));
    request->SetMethod(u"POST");
    request->SetResource(u"/ipp/print");
    request->SetUserName(u"admin");
    request->SetPassword(password);
    request->SetBody(Bytes(envelope), static_cast<uint32_t>(envelope.size()));
    ASSERT_EQ(S_OK, request->Send(&response));
    if (std::u16string(password) == u"wrong") {
      EXPECT_EQ(401u, response->GetStatus());
    } else {
      EXPECT_EQ(200u, response->GetStatus());
      EXPECT_EQ("ok", BodyOf(response));
      EXPECT_EQ(envelope, digest.Requests().back().body);
    }
  }
}

uint16_t UnusedPort() {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  close(fd);  // nobody listens there now
  return ntohs(address.sin_port);
}

TEST_F(HttpRequestTest, RefusedAndSilentPeersFailWithinTheirBounds) {
  Ref<Norvane::HTTPRequest> request;
  Norvane::HTTPResponse* response = reinterpret_cast<Norvane::HTTPResponse*>(1);
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(E_FAIL, Exchange(request, UnusedPort(), "/", &response));
  EXPECT_LT(SecondsSince(start), 2.0);
  EXPECT_EQ(nullptr, response);
  EXPECT_EQ(static_cast<uint32_t>(CURLE_COULDNT_CONNECT), request->GetErrorCode());
  EXPECT_STRNE("", NetAddressErrorText(request->GetErrorCode()));

  LoopbackHttpServer silent([](const ReceivedRequest& request) {
    Reply reply;
    reply.silent = request.target == "/silent";
    reply.delayMs = request.target == "/slow" ? 300 : 0;
    return reply;
  });
  ASSERT_EQ(S_OK, NetAddressSetHttpTimeouts(address_.get(), 2000, 700));
  start = std::chrono::steady_clock::now();
  EXPECT_EQ(E_FAIL, Exchange(request, silent.Port(), "/silent", &response));
  double waited = SecondsSince(start);
  // Bounded by the read time-out once connected, not by connect + read.
  EXPECT_GT(waited, 0.6);
  EXPECT_LT(waited, 1.8);
  EXPECT_EQ(static_cast<uint32_t>(CURLE_OPERATION_TIMEDOUT), request->GetErrorCode());
  // A peer slower than usual but within the read time-out is waited for.
  EXPECT_EQ(S_OK, Exchange(request, silent.Port(), "/slow", &response));
  EXPECT_EQ(200u, response->GetStatus());
}

TEST_F(HttpRequestTest, PortTextRedirectsIppRequestsToTheDevicePort) {
  LoopbackHttpServer server([](const ReceivedRequest&) { return Reply{}; });
  // The device's IPP service listens on an unusual port, named by the printer URI.
  ASSERT_EQ(S_OK, address_->SetPortText(Wide(std::to_string(server.Port())).c_str()));
  EXPECT_EQ(Wide(std::to_string(server.Port())), std::u16string(address_->GetPortText()));
  Ref<Norvane::HTTPRequest> request;
  Norvane::HTTPResponse* response = nullptr;
  ASSERT_EQ(S_OK, Exchange(request, 631, "/ipp/print", &response, u"POST", "x"));
  EXPECT_EQ(200u, response->GetStatus());
  ASSERT_EQ(1u, server.Requests().size());
  EXPECT_EQ("/ipp/print", server.Requests()[0].target);
}

}  // namespace
}  // namespace NorvaneHostTest
