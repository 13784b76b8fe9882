// Streamed request bodies (Open / WriteChunk / Send) against a real HTTP peer.
#include <curl/curl.h>
#include <gtest/gtest.h>

#include "host_test_util.h"
#include "loopback_http_server.h"

namespace NorvaneHostTest {
namespace {

class HttpStreamTest : public ::testing::Test {
 protected:
  void SetUp() override {
    server_ = std::make_unique<LoopbackHttpServer>([](const ReceivedRequest& request) {
      Reply reply;
      reply.headers = {{"Content-Type", "application/ipp"}};
      reply.body = "answer to " + std::to_string(request.body.size());
      return reply;
    });
  }

  // A request set up as the library sets up a print stream.
  Norvane::QxHTTPRequestEx* OpenStream(Ref<Norvane::HTTPRequest>& holder, bool libraryFrames = true) {
    EXPECT_EQ(S_OK, address_->CreateRequestEx(holder.Out(), server_->Port()));
    auto* stream = dynamic_cast<Norvane::QxHTTPRequestEx*>(holder.get());
    if (stream == nullptr) return nullptr;
    stream->SetMethod(u"POST");
    stream->SetResource(u"/ipp/print");
    stream->SetContentType(u"application/ipp");
    if (libraryFrames) stream->AddHeader(u"Transfer-Encoding", u"chunked");
    stream->AddHeader(u"Content-Type", u"application/ipp");
    stream->SetSecurityFlags(0x3100);
    EXPECT_EQ(S_OK, stream->Open(42));
    return stream;
  }

  HRESULT Write(Norvane::QxHTTPRequestEx* stream, const std::string& bytes) {
    return stream->WriteChunk(Bytes(bytes), static_cast<uint32_t>(bytes.size()), 42);
  }

  Ref<Norvane::QxNetAddress> address_ = Ref<Norvane::QxNetAddress>::Adopt(CreateNetAddress(u"127.0.0.1"));
  std::unique_ptr<LoopbackHttpServer> server_;
};

TEST_F(HttpStreamTest, LibraryFramedChunksReachThePeerAsOneChunkedBody) {
  Ref<Norvane::HTTPRequest> holder;
  Norvane::QxHTTPRequestEx* stream = OpenStream(holder);
  ASSERT_NE(nullptr, stream);
  // Pieces as the library sends them: header plus first data, then data
  // pieces; one frame cut across two writes, two frames in one write.
  const std::string first = "\x02\x00\x00\x02" + Pattern(3000, 1);
  const std::string second = Pattern(255, 2);
  const std::string third = Pattern(70000, 3);
  const std::string fourth = Pattern(10, 4);
  const std::string fifth = Pattern(1, 5);
  std::string framedThird = Frame(third);
  ASSERT_EQ(S_OK, Write(stream, Frame(first)));
  ASSERT_EQ(S_OK, Write(stream, Frame(second)));
  ASSERT_EQ(S_OK, Write(stream, framedThird.substr(0, 3)));  // inside the size line
  ASSERT_EQ(S_OK, Write(stream, framedThird.substr(3, 40000)));
  ASSERT_EQ(S_OK, Write(stream, framedThird.substr(40003)));
  ASSERT_EQ(S_OK, Write(stream, Frame(fourth) + Frame(fifth)));
  ASSERT_EQ(S_OK, Write(stream, kLastChunk));
  Norvane::HTTPResponse* response = nullptr;
  ASSERT_EQ(S_OK, stream->Send(&response));
  ASSERT_NE(nullptr, response);
  EXPECT_EQ(200u, response->GetStatus());
  const std::string payload = first + second + third + fourth + fifth;
  EXPECT_EQ("answer to " + std::to_string(payload.size()), BodyOf(response));

  auto received = server_->Requests();
  ASSERT_EQ(1u, received.size());
  const ReceivedRequest& got = received[0];
  EXPECT_TRUE(got.chunked);
  // Framed once on the wire: the library's frame headers are not payload.
  EXPECT_TRUE(got.body == payload) << "received " << got.body.size() << " bytes, sent " << payload.size();
  EXPECT_EQ(1, got.HeaderCount("Transfer-Encoding"));
  EXPECT_EQ(0, got.HeaderCount("Content-Length"));
  EXPECT_EQ(0, got.HeaderCount("Expect"));
  EXPECT_EQ(1, got.HeaderCount("Content-Type"));
}

TEST_F(HttpStreamTest, EachChunkReachesThePeerBeforeTheDocumentEnds) {
  Ref<Norvane::HTTPRequest> holder;
  Norvane::QxHTTPRequestEx* stream = OpenStream(holder);
  ASSERT_NE(nullptr, stream);
  const std::string piece = Pattern(1 << 20, 9);
  for (int i = 1; i <= 3; ++i) {
    ASSERT_EQ(S_OK, Write(stream, Frame(piece)));
    // Not held back until the end: the peer has this piece while the caller
    // still owns the rest of the document.
    EXPECT_TRUE(server_->WaitForBodyBytes(piece.size() * i, 5000)) << "piece " << i;
  }
  ASSERT_EQ(S_OK, Write(stream, kLastChunk));
  Norvane::HTTPResponse* response = nullptr;
  ASSERT_EQ(S_OK, stream->Send(&response));
  EXPECT_EQ(200u, response->GetStatus());
  EXPECT_EQ(3 * piece.size(), server_->Requests()[0].body.size());
}

TEST_F(HttpStreamTest, WithoutChunkedHeaderTheWrittenBytesAreTheBody) {
  Ref<Norvane::HTTPRequest> holder;
  Norvane::QxHTTPRequestEx* stream = OpenStream(holder, /*libraryFrames=*/false);
  ASSERT_NE(nullptr, stream);
  // Looks like framing, but nobody framed it: it must arrive as written.
  const std::string raw = "5\r\nhello\r\n" + Pattern(5000, 11);
  ASSERT_EQ(S_OK, Write(stream, raw.substr(0, 7)));
  ASSERT_EQ(S_OK, Write(stream, raw.substr(7)));
  Norvane::HTTPResponse* response = nullptr;
  ASSERT_EQ(S_OK, stream->Send(&response));
  EXPECT_EQ(200u, response->GetStatus());
  EXPECT_EQ(raw, server_->Requests()[0].body);
}

TEST_F(HttpStreamTest, BrokenFramingIsRefusedAndNothingIsSentAfterTheLastChunk) {
  Ref<Norvane::HTTPRequest> holder;
  Norvane::QxHTTPRequestEx* stream = OpenStream(holder);
  ASSERT_NE(nullptr, stream);
  EXPECT_EQ(E_INVALIDARG, Write(stream, "zz\r\nabc"));
  EXPECT_NE(S_OK, Write(stream, Frame("abc")));  // stays refused

  stream = OpenStream(holder);
  ASSERT_NE(nullptr, stream);
  ASSERT_EQ(S_OK, Write(stream, Frame("abc") + kLastChunk));
  EXPECT_EQ(E_INVALIDARG, Write(stream, Frame("def")));
  Norvane::HTTPResponse* response = nullptr;
  ASSERT_EQ(S_OK, stream->Send(&response));
  EXPECT_EQ("abc", server_->Requests().back().body);
  // A chunk whose data runs into the next size line is not valid framing.
  stream = OpenStream(holder);
  ASSERT_NE(nullptr, stream);
  EXPECT_EQ(E_INVALIDARG, Write(stream, "3\r\nabcd\r\n"));
}

TEST_F(HttpStreamTest, AnEarlyAnswerEndsTheStreamAndIsWhatSendReports) {
  Reply refusal;
  refusal.status = 401;
  refusal.reason = "Unauthorized";
  refusal.headers = {{"WWW-Authenticate", "Basic realm=\"ipp\""}};
  refusal.body = "login first";
  server_->AnswerBeforeBody(refusal);
  Ref<Norvane::HTTPRequest> holder;
  Norvane::QxHTTPRequestEx* stream = OpenStream(holder);
  ASSERT_NE(nullptr, stream);
  const std::string piece = Pattern(1 << 20, 5);
  // The rest of the document has nowhere to go but is not an error of the
  // writer: the answer explains what happened.
  for (int i = 0; i < 8; ++i) ASSERT_EQ(S_OK, Write(stream, Frame(piece))) << i;
  ASSERT_EQ(S_OK, Write(stream, kLastChunk));
  Norvane::HTTPResponse* response = nullptr;
  ASSERT_EQ(S_OK, stream->Send(&response));
  ASSERT_NE(nullptr, response);
  EXPECT_EQ(401u, response->GetStatus());
  EXPECT_EQ("login first", BodyOf(response));
}

TEST_F(HttpStreamTest, OpenFailsWhenTheDeviceCannotBeReached) {
  server_.reset();  // nobody listens on that port any more
  Ref<Norvane::HTTPRequest> holder;
  ASSERT_EQ(S_OK, address_->CreateRequestEx(holder.Out(), 1));  // port 1: nothing listens
  auto* stream = dynamic_cast<Norvane::QxHTTPRequestEx*>(holder.get());
  ASSERT_NE(nullptr, stream);
  stream->SetMethod(u"POST");
  stream->AddHeader(u"Transfer-Encoding", u"chunked");
  EXPECT_EQ(E_FAIL, stream->Open(1));
  EXPECT_EQ(static_cast<uint32_t>(CURLE_COULDNT_CONNECT), stream->GetErrorCode());
  EXPECT_EQ(E_FAIL, Write(stream, Frame("abc")));
}

TEST_F(HttpStreamTest, SendBodySendsAtOnceAndSendReadsTheAnswer) {
  Ref<Norvane::HTTPRequest> holder;
  ASSERT_EQ(S_OK, address_->CreateRequestEx(holder.Out(), server_->Port()));
  auto* request = dynamic_cast<Norvane::QxHTTPRequestEx*>(holder.get());
  ASSERT_NE(nullptr, request);
  request->SetMethod(u"POST");
  const std::string body = Pattern(100000, 3);
  ASSERT_EQ(S_OK, request->SendBody(Bytes(body), static_cast<uint32_t>(body.size())));
  // Sent before Send is called.
  ASSERT_EQ(1u, server_->Requests().size());
  EXPECT_EQ(body, server_->Requests()[0].body);
  Norvane::HTTPResponse* response = nullptr;
  ASSERT_EQ(S_OK, request->Send(&response));
  EXPECT_EQ("answer to 100000", BodyOf(response));
  EXPECT_EQ(1u, server_->Requests().size());
}

}  // namespace
}  // namespace NorvaneHostTest
