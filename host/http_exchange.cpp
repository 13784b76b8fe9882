#include "http_exchange.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "norvane/host.h"
#include "text.h"
#include "trace.h"

#ifndef NORVANE_HOST_VERSION
#define NORVANE_HOST_VERSION "0"
#endif

namespace NorvaneHost {

namespace {

const char kUserAgent[] = "norvane-host/" NORVANE_HOST_VERSION;

// Upload buffer: libcurl frames each read as one chunk, so a large buffer keeps
// the framing overhead and the number of socket writes low.
constexpr long kUploadBuffer = 256 * 1024;
// Longest single wait; the read time-out is checked between waits.
constexpr int kMaxPollMs = 1000;

}  // namespace

HttpExchange::~HttpExchange() { Detach(); }

void HttpExchange::Detach() {
  if (!engine_) return;
  CURL* easy = Easy();
  if (attached_) curl_multi_remove_handle(engine_->multi.get(), easy);
  attached_ = false;
  curl_easy_getinfo(easy, CURLINFO_HTTPAUTH_AVAIL, &offeredAuth_);
  // Off the share, which stays with the channel (and closes its connections).
  curl_easy_setopt(easy, CURLOPT_SHARE, static_cast<CURLSH*>(nullptr));
  ReturnEngine(std::move(engine_));
}

CURLcode HttpExchange::Start(const ExchangeSetup& setup) {
  Detach();
  engine_ = TakeEngine();
  if (!engine_) return CURLE_FAILED_INIT;
  CURL* easy = Easy();
  // Options of the previous exchange go (whichever address it was for).
  curl_easy_reset(easy);
  response_ = ExchangeResponse();
  traceTarget_.clear();
  headComplete_ = bodyTooLarge_ = false;
  ended_ = false;
  result_ = CURLE_OK;
  piece_ = nullptr;
  pieceLeft_ = 0;
  bodyAsked_ = bodyEnded_ = paused_ = false;
  lastUl_ = lastDl_ = 0;
  readTimeout_ = std::chrono::milliseconds(setup.readTimeoutMs);
  // The first wait may take the connect time-out as well.
  lastProgress_ = std::chrono::steady_clock::now() + std::chrono::milliseconds(setup.connectTimeoutMs);

  curl_slist* list = nullptr;
  for (const std::string& line : setup.headerLines) {
    curl_slist* grown = curl_slist_append(list, line.c_str());
    if (grown == nullptr) {
      curl_slist_free_all(list);
      return CURLE_OUT_OF_MEMORY;
    }
    list = grown;
  }
  headers_.reset(list);

  CURLcode rc = CURLE_OK;
  const auto set = [&](CURLoption option, auto value) {
    if (rc == CURLE_OK) rc = curl_easy_setopt(easy, option, value);
  };
  // The channel's connection, lookups and TLS sessions.
  set(CURLOPT_SHARE, channel_.Share());
  set(CURLOPT_URL, setup.url.c_str());
  // The path goes out as the library wrote it: "/a/../b" is not ours to
  // shorten, a device may mean something by it.
  set(CURLOPT_PATH_AS_IS, 1L);
  set(CURLOPT_PROTOCOLS_STR, "http,https");
  set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  set(CURLOPT_NOSIGNAL, 1L);
  set(CURLOPT_TCP_KEEPALIVE, 1L);
  set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(setup.connectTimeoutMs));
  set(CURLOPT_USERAGENT, kUserAgent);
  set(CURLOPT_HTTPHEADER, headers_.get());
  set(CURLOPT_HEADERFUNCTION, &HttpExchange::OnHeader);
  set(CURLOPT_HEADERDATA, this);
  set(CURLOPT_WRITEFUNCTION, &HttpExchange::OnWrite);
  set(CURLOPT_WRITEDATA, this);
  set(CURLOPT_NOPROGRESS, 0L);
  set(CURLOPT_XFERINFOFUNCTION, &HttpExchange::OnProgress);
  set(CURLOPT_XFERINFODATA, this);
  // Connected: from here on the read time-out alone bounds the waits.
  set(CURLOPT_PREREQFUNCTION, &HttpExchange::OnConnected);
  set(CURLOPT_PREREQDATA, this);

  bool ignoreChain =
      (setup.securityFlags & (NORVANE_SECURITY_IGNORE_UNKNOWN_CA | NORVANE_SECURITY_IGNORE_CERT_DATE_INVALID)) != 0;
  bool ignoreName = (setup.securityFlags & NORVANE_SECURITY_IGNORE_CERT_CN_INVALID) != 0;
  set(CURLOPT_SSL_VERIFYPEER, ignoreChain ? 0L : 1L);
  set(CURLOPT_SSL_VERIFYHOST, ignoreName ? 0L : 2L);

  if (!setup.userName.empty()) {
    set(CURLOPT_USERNAME, setup.userName.c_str());
    set(CURLOPT_PASSWORD, setup.password.c_str());
    set(CURLOPT_HTTPAUTH, setup.authSchemes);
  }

  if (setup.streamed) {
    set(CURLOPT_POST, 1L);
    set(CURLOPT_READFUNCTION, &HttpExchange::OnRead);
    set(CURLOPT_READDATA, this);
    set(CURLOPT_UPLOAD_BUFFERSIZE, kUploadBuffer);
    if (setup.streamLength >= 0) set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(setup.streamLength));
    if (setup.method != "POST") set(CURLOPT_CUSTOMREQUEST, setup.method.c_str());
  } else if (setup.method == "GET") {
    set(CURLOPT_HTTPGET, 1L);
  } else if (setup.method == "HEAD") {
    set(CURLOPT_NOBODY, 1L);
  } else {
    // The body is copied by nobody: it lives in the request until the end.
    set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(setup.bodyLength));
    set(CURLOPT_POSTFIELDS, setup.body != nullptr ? reinterpret_cast<const char*>(setup.body) : "");
    if (setup.method != "POST") set(CURLOPT_CUSTOMREQUEST, setup.method.c_str());
  }
  if (uint32_t level = TraceLevel(); level != 0 && rc == CURLE_OK) {
    traceTarget_ = setup.method + " " + setup.url;
    started_ = std::chrono::steady_clock::now();
    if (level >= NORVANE_HOST_TRACE_WIRE) {
      set(CURLOPT_DEBUGFUNCTION, &HttpExchange::OnDebug);
      set(CURLOPT_DEBUGDATA, this);
      set(CURLOPT_VERBOSE, 1L);
    }
  }
  if (rc != CURLE_OK) return rc;

  if (curl_multi_add_handle(engine_->multi.get(), easy) != CURLM_OK) return CURLE_FAILED_INIT;
  attached_ = true;
  return CURLE_OK;
}

void HttpExchange::End(CURLcode result) {
  if (ended_) return;
  ended_ = true;
  result_ = bodyTooLarge_ && result == CURLE_WRITE_ERROR ? CURLE_FILESIZE_EXCEEDED : result;
  if (!traceTarget_.empty()) TraceEnd(result_);
  Detach();
}

void HttpExchange::TraceEnd(CURLcode result) {
  curl_off_t sent = 0, received = 0;
  long connects = 0;
  curl_easy_getinfo(Easy(), CURLINFO_SIZE_UPLOAD_T, &sent);
  curl_easy_getinfo(Easy(), CURLINFO_SIZE_DOWNLOAD_T, &received);
  curl_easy_getinfo(Easy(), CURLINFO_NUM_CONNECTS, &connects);
  double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started_).count();
  std::string outcome;
  if (HasResponseHead()) {
    // The status line without its protocol: "200 OK".
    std::string_view status = response_.statusLine;
    outcome = status.substr(std::min(status.size(), status.find(' ') + 1));
  }
  if (result != CURLE_OK) {
    if (!outcome.empty()) outcome += ", then ";
    outcome += "failed: ";
    outcome += curl_easy_strerror(result);
    outcome += " (" + std::to_string(static_cast<int>(result)) + ")";
  }
  char figures[160];
  std::snprintf(figures, sizeof figures, " (sent %" PRId64 " B, received %" PRId64 " B, %s connection, %.1f ms)",
                static_cast<int64_t>(sent), static_cast<int64_t>(received), connects > 0 ? "new" : "kept", ms);
  TraceLine("http " + traceTarget_ + " -> " + outcome + figures);
}

int HttpExchange::OnDebug(CURL*, curl_infotype type, char* data, size_t size, void*) {
  const char* mark;
  switch (type) {
    case CURLINFO_TEXT:
      mark = "http * ";
      break;
    case CURLINFO_HEADER_IN:
      mark = "http < ";
      break;
    case CURLINFO_HEADER_OUT:
      mark = "http > ";
      break;
    case CURLINFO_DATA_IN:
    case CURLINFO_DATA_OUT:
      // Sizes only: a body may hold anything a user would not want in a log.
      TraceLine(std::string(type == CURLINFO_DATA_IN ? "http < " : "http > ") + "[" + std::to_string(size) +
                " body bytes]");
      return 0;
    default:
      return 0;  // TLS records
  }
  // Header blocks come whole, several lines at once.
  std::string_view text(data, size);
  while (!text.empty()) {
    size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (!line.empty()) TraceLine(mark + std::string(line));
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return 0;
}

CURLcode HttpExchange::Drive(const std::function<bool()>& done) {
  for (;;) {
    if (ended_) return result_;
    CURLM* multi = engine_->multi.get();
    int running = 0;
    if (curl_multi_perform(multi, &running) != CURLM_OK) {
      End(CURLE_OUT_OF_MEMORY);
      return result_;
    }
    // Ended only once the queue is read: ending gives the engine away.
    bool finished = false;
    CURLcode result = CURLE_OK;
    int queued = 0;
    while (CURLMsg* message = curl_multi_info_read(multi, &queued)) {
      if (message->msg == CURLMSG_DONE && message->easy_handle == Easy()) {
        finished = true;
        result = message->data.result;
      }
    }
    if (finished) End(result);
    if (ended_) return result_;
    if (done && done()) return CURLE_OK;

    auto now = std::chrono::steady_clock::now();
    if (now >= lastProgress_ + readTimeout_) {
      End(CURLE_OPERATION_TIMEDOUT);
      return result_;
    }
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(lastProgress_ + readTimeout_ - now);
    int waitMs = static_cast<int>(std::clamp<int64_t>(left.count(), 1, kMaxPollMs));
    curl_multi_poll(multi, nullptr, 0, waitMs, nullptr);
  }
}

CURLcode HttpExchange::Finish() {
  EndBody();
  return Drive(nullptr);
}

CURLcode HttpExchange::OpenBody() {
  return Drive([this] { return bodyAsked_; });
}

CURLcode HttpExchange::Write(const uint8_t* data, size_t length) {
  if (ended_) return result_;
  if (bodyEnded_) return CURLE_SEND_ERROR;
  piece_ = data;
  pieceLeft_ = length;
  if (paused_) {
    paused_ = false;
    curl_easy_pause(Easy(), CURLPAUSE_CONT);
  }
  CURLcode rc = Drive([this] { return pieceLeft_ == 0; });
  // The caller's bytes are not touched after Write returns.
  piece_ = nullptr;
  pieceLeft_ = 0;
  return rc;
}

void HttpExchange::EndBody() {
  if (bodyEnded_) return;
  bodyEnded_ = true;
  if (paused_ && !ended_) {
    paused_ = false;
    curl_easy_pause(Easy(), CURLPAUSE_CONT);
  }
}

long HttpExchange::OfferedAuthSchemes() const {
  if (!engine_) return offeredAuth_;
  long schemes = 0;
  curl_easy_getinfo(Easy(), CURLINFO_HTTPAUTH_AVAIL, &schemes);
  return schemes;
}

size_t HttpExchange::OnRead(char* buffer, size_t size, size_t count, void* self) {
  auto* exchange = static_cast<HttpExchange*>(self);
  exchange->bodyAsked_ = true;
  size_t room = size * count;
  if (exchange->pieceLeft_ > 0) {
    size_t take = std::min(room, exchange->pieceLeft_);
    std::memcpy(buffer, exchange->piece_, take);
    exchange->piece_ += take;
    exchange->pieceLeft_ -= take;
    exchange->MarkProgress();
    return take;
  }
  if (exchange->bodyEnded_) return 0;
  exchange->paused_ = true;
  return CURL_READFUNC_PAUSE;
}

size_t HttpExchange::OnHeader(char* buffer, size_t size, size_t count, void* self) {
  auto* exchange = static_cast<HttpExchange*>(self);
  size_t length = size * count;
  exchange->MarkProgress();
  std::string_view line(buffer, length);
  ExchangeResponse& response = exchange->response_;
  if (line.starts_with("HTTP/")) {
    // A new status line: an interim answer, or the 401 before an
    // authenticated retry, is forgotten.
    response = ExchangeResponse();
    // Printers send a dozen fields or so: one allocation for all of them.
    response.headers.reserve(16);
    exchange->headComplete_ = false;
    std::string_view status = TrimSpaces(line);
    response.statusLine.assign(status);
    size_t space = status.find(' ');
    if (space != std::string_view::npos) {
      long code = 0;
      for (size_t i = space + 1; i < status.size() && status[i] >= '0' && status[i] <= '9'; ++i) {
        code = code * 10 + (status[i] - '0');
        if (code > 999) break;
      }
      response.status = code;
    }
    return length;
  }
  std::string_view field = TrimSpaces(line);
  if (field.empty()) {
    exchange->headComplete_ = true;
    return length;
  }
  if ((line.front() == ' ' || line.front() == '\t') && !response.headers.empty()) {
    response.headers.back().second += ' ';
    response.headers.back().second += field;
    return length;
  }
  size_t colon = field.find(':');
  if (colon == std::string_view::npos || colon == 0) return length;
  response.headers.emplace_back(std::string(TrimSpaces(field.substr(0, colon))),
                                std::string(TrimSpaces(field.substr(colon + 1))));
  return length;
}

size_t HttpExchange::OnWrite(char* buffer, size_t size, size_t count, void* self) {
  auto* exchange = static_cast<HttpExchange*>(self);
  size_t length = size * count;
  exchange->MarkProgress();
  std::vector<uint8_t>& body = exchange->response_.body;
  if (body.size() + length > kMaxResponseBody) {
    exchange->bodyTooLarge_ = true;
    return 0;
  }
  if (body.capacity() == 0) {
    // Room for the announced body and the zero the response puts after it,
    // so that neither growing nor that zero copies the bytes again.
    curl_off_t announced = -1;
    curl_easy_getinfo(exchange->Easy(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &announced);
    if (announced > 0 && static_cast<size_t>(announced) < kMaxResponseBody) {
      body.reserve(static_cast<size_t>(announced) + 1);
    }
  }
  body.insert(body.end(), reinterpret_cast<uint8_t*>(buffer), reinterpret_cast<uint8_t*>(buffer) + length);
  return length;
}

int HttpExchange::OnConnected(void* self, char*, char*, int, int) {
  static_cast<HttpExchange*>(self)->MarkProgress();
  return CURL_PREREQFUNC_OK;
}

int HttpExchange::OnProgress(void* self, curl_off_t, curl_off_t dlNow, curl_off_t, curl_off_t ulNow) {
  auto* exchange = static_cast<HttpExchange*>(self);
  if (dlNow != exchange->lastDl_ || ulNow != exchange->lastUl_) {
    exchange->lastDl_ = dlNow;
    exchange->lastUl_ = ulNow;
    exchange->MarkProgress();
  }
  return 0;
}

}  // namespace NorvaneHost
