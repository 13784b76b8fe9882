// One HTTP exchange on a channel, driven on the caller's thread through the
// handles of an engine it holds while it runs. A body is either given whole up
// front, or streamed: Write hands one piece at a time to libcurl's read
// callback and returns once libcurl has taken all of it, so the exchange never
// holds more than the piece being written (plus libcurl's own upload buffer).
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "curl_channel.h"

namespace NorvaneHost {

// What came back: the last response's status line, fields in the order
// received, and body.
struct ExchangeResponse {
  long status = 0;
  std::string statusLine;
  std::vector<std::pair<std::string, std::string>> headers;
  std::vector<uint8_t> body;
};

struct ExchangeSetup {
  std::string url;
  std::string method = "GET";            // an HTTP token, upper case
  std::vector<std::string> headerLines;  // "Name: value", sent as given
  const uint8_t* body = nullptr;         // whole body; must outlive the exchange
  size_t bodyLength = 0;
  bool streamed = false;  // body comes through Write/EndBody instead
  // A streamed body of this many bytes goes with a Content-Length; -1: chunked.
  int64_t streamLength = -1;
  std::string userName;
  std::string password;
  long authSchemes = CURLAUTH_BASIC | CURLAUTH_DIGEST;
  uint32_t securityFlags = 0;
  uint32_t connectTimeoutMs = 5000;
  uint32_t readTimeoutMs = 30000;
};

class HttpExchange {
 public:
  // Largest response body kept; a longer one fails the exchange.
  static constexpr size_t kMaxResponseBody = 64u << 20;

  explicit HttpExchange(CurlChannel& channel) : channel_(channel) {}
  ~HttpExchange();
  HttpExchange(const HttpExchange&) = delete;
  HttpExchange& operator=(const HttpExchange&) = delete;

  // Takes an engine, configures its easy handle for the channel and attaches
  // it to the multi handle.
  CURLcode Start(const ExchangeSetup& setup);
  // Drives the exchange to its end.
  CURLcode Finish();

  // Streamed body. OpenBody connects and sends the request head: it returns
  // once libcurl asks for body bytes, or with the end of the exchange.
  CURLcode OpenBody();
  // Returns once libcurl has taken every byte, or the exchange has ended (an
  // answer that came before the whole body, or a failure).
  CURLcode Write(const uint8_t* data, size_t length);
  // No more body: libcurl then writes its last chunk.
  void EndBody();
  // Reads what has arrived without waiting: an answer the device sent while
  // the caller was not writing.
  void Poll() {
    Drive([] { return true; });
  }

  // The caller held the body back on purpose (a printer that cannot take
  // data): that silence does not count against the read time-out.
  void RestartReadClock() { MarkProgress(); }

  bool Ended() const { return ended_; }
  CURLcode Result() const { return result_; }
  // A whole response head has arrived, whatever happened to the body upload.
  bool HasResponseHead() const { return headComplete_ && response_.status >= 200; }
  ExchangeResponse& Response() { return response_; }
  // Authentication schemes the server offered in its last challenge.
  long OfferedAuthSchemes() const;

 private:
  static size_t OnRead(char* buffer, size_t size, size_t count, void* self);
  static size_t OnHeader(char* buffer, size_t size, size_t count, void* self);
  static size_t OnWrite(char* buffer, size_t size, size_t count, void* self);
  static int OnConnected(void* self, char* primaryIp, char* localIp, int primaryPort, int localPort);
  static int OnProgress(void* self, curl_off_t dlTotal, curl_off_t dlNow, curl_off_t ulTotal, curl_off_t ulNow);
  static int OnDebug(CURL* easy, curl_infotype type, char* data, size_t size, void* self);
  // The exchange's trace line, while the engine is still held.
  void TraceEnd(CURLcode result);

  CURLcode Drive(const std::function<bool()>& done);
  void End(CURLcode result);
  void Detach();
  void MarkProgress() { lastProgress_ = std::chrono::steady_clock::now(); }

  CURL* Easy() const { return engine_->easy.get(); }

  CurlChannel& channel_;
  CurlListPtr headers_;
  std::unique_ptr<CurlEngine> engine_;  // from Start to the end
  bool attached_ = false;
  long offeredAuth_ = 0;  // kept when the engine goes
  bool ended_ = false;
  CURLcode result_ = CURLE_OK;
  std::chrono::milliseconds readTimeout_{30000};
  std::chrono::steady_clock::time_point lastProgress_;
  curl_off_t lastUl_ = 0;
  curl_off_t lastDl_ = 0;

  // Streamed body: the piece being written, and whether libcurl is waiting.
  const uint8_t* piece_ = nullptr;
  size_t pieceLeft_ = 0;
  bool bodyAsked_ = false;
  bool bodyEnded_ = false;
  bool paused_ = false;

  // What the trace line names, kept only while tracing.
  std::string traceTarget_;
  std::chrono::steady_clock::time_point started_;

  ExchangeResponse response_;
  bool headComplete_ = false;
  bool bodyTooLarge_ = false;
};

}  // namespace NorvaneHost
