// One HTTP/1.x response read from a connection's bytes as they arrive: the
// status line and fields, then a body delimited by Content-Length, by chunks or
// by the end of the connection. For the exchanges the host writes on a socket
// itself instead of through libcurl; every length in it is the device's, so
// every one is bounded before it is believed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "chunk_deframer.h"

namespace NorvaneHost {

struct ExchangeResponse {
  long status = 0;
  std::string statusLine;
  std::vector<std::pair<std::string, std::string>> headers;  // in order received
  std::vector<uint8_t> body;
};

class HttpResponseReader {
 public:
  // A response head (all its lines) longer than this is refused.
  static constexpr size_t kMaxHead = 64 * 1024;

  enum class State { kHead, kBody, kDone, kFailed };
  enum class Fault { kNone, kMalformed, kTooLarge, kTruncated };

  // `noBody`: the answer to a HEAD request, whose fields describe a body that
  // never comes.
  HttpResponseReader(bool noBody, size_t maxBody) : noBody_(noBody), maxBody_(maxBody) {}

  // Takes the next bytes of the connection; answers the state after them.
  State Feed(const uint8_t* data, size_t length);
  // The device ended the connection: a body read to the end is whole then,
  // anything else is cut short.
  State End();

  State GetState() const { return state_; }
  Fault GetFault() const { return fault_; }
  // Some byte of a response has arrived.
  bool Started() const { return started_; }
  // The connection may carry another request: an HTTP/1.1 answer whose body
  // ended where its framing said, with nothing after it and no "close".
  bool Reusable() const { return state_ == State::kDone && keepAlive_ && !extra_; }
  ExchangeResponse& Response() { return response_; }

 private:
  enum class Framing { kNone, kLength, kChunked, kToEnd };

  State Fail(Fault fault) {
    fault_ = fault;
    return state_ = State::kFailed;
  }
  // Fails, for the steps that answer whether reading may go on.
  bool Refuse(Fault fault) {
    Fail(fault);
    return false;
  }
  // One line of the head, without its line end.
  bool TakeLine(std::string_view line);
  bool TakeStatusLine(std::string_view line);
  // The head has ended: decides how the body is delimited.
  bool BeginBody();
  size_t FeedBody(const uint8_t* data, size_t length);
  bool Append(const uint8_t* data, size_t length);

  const bool noBody_;
  const size_t maxBody_;
  State state_ = State::kHead;
  Fault fault_ = Fault::kNone;
  bool started_ = false;
  bool keepAlive_ = false;
  bool extra_ = false;
  bool http11_ = false;
  bool sawStatus_ = false;
  size_t headBytes_ = 0;
  std::string line_;  // a head line split across reads
  Framing framing_ = Framing::kNone;
  uint64_t left_ = 0;  // body bytes still to come with a Content-Length
  ChunkDeframer deframer_;
  ExchangeResponse response_;
};

}  // namespace NorvaneHost
