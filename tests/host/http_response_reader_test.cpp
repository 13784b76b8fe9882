// Reading a device's HTTP answer from a connection's bytes, whatever the read
// boundaries, and refusing what a device should not send.
#include <gtest/gtest.h>

#include <string>

#include "http_response_reader.h"

namespace NorvaneHost {
namespace {

using State = HttpResponseReader::State;
using Fault = HttpResponseReader::Fault;

struct Read {
  State state;
  Fault fault;
  bool reusable;
  long status;
  std::string body;
  std::string fields;  // "name=value;" each
};

// Feeds `bytes` cut at `cut`, then the end of the connection when `closed`.
Read ReadAnswer(const std::string& bytes, size_t cut, bool closed, bool noBody = false, size_t maxBody = 1000) {
  HttpResponseReader reader(noBody, maxBody);
  const auto* data = reinterpret_cast<const uint8_t*>(bytes.data());
  reader.Feed(data, cut);
  reader.Feed(data + cut, bytes.size() - cut);
  if (closed) reader.End();
  ExchangeResponse& got = reader.Response();
  std::string fields;
  for (const auto& [name, value] : got.headers) fields += name + "=" + value + ";";
  return {reader.GetState(), reader.GetFault(), reader.Reusable(), got.status,
          std::string(got.body.begin(), got.body.end()), fields};
}

TEST(HttpResponseReaderTest, AnswersSurviveEverySplitPoint) {
  const std::string ipp("\x02\x00\x00\x00\x00\x00\x00\x01\x03\r\n", 11);
  const std::string answers[] = {
      "HTTP/1.1 200 OK\r\nContent-Length: 11\r\nContent-Type: application/ipp\r\n\r\n" + ipp,
      "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
      "4\r\n" + ipp.substr(0, 4) + "\r\n7;x=y\r\n" + ipp.substr(4) + "\r\n0\r\nX-Sum: 1\r\n\r\n",
  };
  for (const std::string& answer : answers) {
    for (size_t cut = 0; cut <= answer.size(); ++cut) {
      Read got = ReadAnswer(answer, cut, false);
      ASSERT_EQ(State::kDone, got.state) << "cut at " << cut;
      ASSERT_EQ(200, got.status);
      ASSERT_EQ(ipp, got.body) << "cut at " << cut;
      ASSERT_TRUE(got.reusable);
    }
  }
}

TEST(HttpResponseReaderTest, FramingKeepAliveAndRefusals) {
  struct Case {
    const char* name;
    std::string bytes;
    bool closed;
    State state;
    Fault fault = Fault::kNone;
    bool reusable = false;
    std::string body = "";
    bool noBody = false;
    std::string fields = "";
  } const cases[] = {
      {"to the end", "HTTP/1.1 200 OK\r\n\r\nabc", true, State::kDone, Fault::kNone, false, "abc"},
      {"close", "HTTP/1.1 200 OK\r\nConnection: keep-alive, Close\r\nContent-Length: 1\r\n\r\nx", false, State::kDone,
       Fault::kNone, false, "x"},
      {"HTTP/1.0", "HTTP/1.0 200 OK\r\nContent-Length: 1\r\n\r\nx", false, State::kDone, Fault::kNone, false, "x"},
      {"bytes after", "HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\nxy", false, State::kDone, Fault::kNone, false, "x"},
      {"after the chunks", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1\r\nx\r\n0\r\n\r\nHTTP", false,
       State::kDone, Fault::kNone, false, "x"},
      {"HEAD", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n", false, State::kDone, Fault::kNone, true, "", true},
      {"204", "HTTP/1.1 204 No Content\r\nContent-Length: 9\r\n\r\n", false, State::kDone, Fault::kNone, true},
      {"LF only, folded", "\r\nHTTP/1.1 401 Unauthorized\nWWW-Authenticate: Basic\n realm=\"a\"\nno colon\n\n",
       true, State::kDone, Fault::kNone, false, "", false, "WWW-Authenticate=Basic realm=\"a\";"},
      {"coding and length", "HTTP/1.1 200 OK\r\nContent-Length: 3\r\nTransfer-Encoding: chunked\r\n\r\n1\r\nx\r\n0\r\n\r\n",
       false, State::kDone, Fault::kNone, false, "x"},
      {"cut body", "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nab", true, State::kFailed, Fault::kTruncated},
      {"cut head", "HTTP/1.1 200 OK\r\nContent-", true, State::kFailed, Fault::kTruncated},
      {"two lengths", "HTTP/1.1 200 OK\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\n", false, State::kFailed,
       Fault::kMalformed},
      {"signed length", "HTTP/1.1 200 OK\r\nContent-Length: +1\r\n\r\n", false, State::kFailed, Fault::kMalformed},
      {"long length", "HTTP/1.1 200 OK\r\nContent-Length: 99999999999999999999999\r\n\r\n", false, State::kFailed,
       Fault::kTooLarge},
      {"long chunks", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3E9\r\n" + std::string(1001, 'x'), false,
       State::kFailed, Fault::kTooLarge},
      {"long to the end", "HTTP/1.1 200 OK\r\n\r\n" + std::string(1001, 'x'), false, State::kFailed,
       Fault::kTooLarge},
      {"bad chunks", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n", false, State::kFailed,
       Fault::kMalformed},
      {"not HTTP", "SSH-2.0-dropbear\r\n", false, State::kFailed, Fault::kMalformed},
      {"two-digit status", "HTTP/1.1 20 OK\r\n", false, State::kFailed, Fault::kMalformed},
      {"status below 100", "HTTP/1.1 099 OK\r\n", false, State::kFailed, Fault::kMalformed},
      {"endless head", "HTTP/1.1 200 OK\r\nX: " + std::string(HttpResponseReader::kMaxHead, 'x'), false,
       State::kFailed, Fault::kTooLarge},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Read got = ReadAnswer(c.bytes, c.bytes.size() / 2, c.closed, c.noBody);
    EXPECT_EQ(c.state, got.state);
    EXPECT_EQ(c.fault, got.fault);
    EXPECT_EQ(c.reusable, got.reusable);
    // A failed answer's body is never handed on, whatever it holds.
    if (c.state == State::kDone) {
      EXPECT_EQ(c.body, got.body);
    }
    if (!c.fields.empty()) {
      EXPECT_EQ(c.fields, got.fields);
    }
  }
}

}  // namespace
}  // namespace NorvaneHost
