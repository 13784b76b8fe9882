// The host's HTTP request and response objects on libcurl.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "chunk_deframer.h"
#include "http_exchange.h"
#include "norvane/transport.h"
#include "settings.h"
#include "support/ref.h"
#include "url.h"

namespace NorvaneHost {

class NetAddressImpl;

// A received response. Text bodies are followed by a zero byte that the length
// does not count. Header values are kept as received; the first GetHeader
// merges repeated fields, and widens only the value it asks for: most callers
// read the body and at most one header.
class HttpResponseImpl final : public Norvane::DisposableObject<Norvane::HTTPResponse> {
 public:
  explicit HttpResponseImpl(ExchangeResponse&& response);

  HRESULT GetStatusText(const char16_t** text) override;
  uint32_t GetStatus() override { return status_; }
  const char16_t* GetContentType() override { return GetHeader(u"Content-Type"); }
  HRESULT GetAllHeaders(const char16_t** text) override;
  uint32_t GetBodyLength() override { return static_cast<uint32_t>(length_); }
  const uint8_t* GetBody() override { return length_ == 0 ? nullptr : body_.data(); }
  // Repeated fields are answered joined by ", ", as one field.
  const char16_t* GetHeader(const char16_t* name) override;
  const char* GetTypeName() override { return "NorvaneHost::HttpResponseImpl"; }

 private:
  struct Field {
    std::string name;
    std::string value;                   // repeated fields joined
    std::optional<std::u16string> wide;  // the value widened, once asked for
  };

  void MergeFields();

  uint32_t status_;
  std::string statusLine_;
  std::vector<std::pair<std::string, std::string>> received_;  // each field as received, in order
  std::vector<Field> fields_;                                  // one entry per field name, once merged
  bool fieldsMerged_ = false;
  std::optional<std::u16string> statusText_;
  std::optional<std::u16string> allHeaders_;
  std::vector<uint8_t> body_;  // the bytes, then a zero
  size_t length_;
};

// One request to one port of a device. It may run several exchanges in turn
// (each Send, SendBody or Open starts one); the response of the last stays
// valid until the next exchange or the request's end. Used by one thread at a
// time.
class HttpRequestImpl final : public Norvane::DisposableObject<Norvane::QxHTTPRequestEx> {
 public:
  HttpRequestImpl(NetAddressImpl* address, HostName host, bool tls, uint32_t port, HttpSettings settings);
  ~HttpRequestImpl() override;

  const char16_t* GetURL() override;
  HRESULT SetResource(const char16_t* path) override;
  HRESULT SetUserName(const char16_t* name) override;
  HRESULT SetPassword(const char16_t* password) override;
  HRESULT SetMethod(const char16_t* method) override;
  // A field set again (names compare ignoring case) replaces the earlier value.
  HRESULT AddHeader(const char16_t* name, const char16_t* value) override;
  HRESULT SetContentType(const char16_t* contentType) override;
  HRESULT SetBody(const uint8_t* body, uint32_t length) override;
  HRESULT Send(Norvane::HTTPResponse** response) override;
  HRESULT SetSecurityFlags(uint32_t flags) override;
  uint32_t GetErrorCode() override { return errorCode_; }
  HRESULT SetTimeout(uint32_t milliseconds) override;

  HRESULT SendBody(const uint8_t* body, uint32_t length) override;
  HRESULT Open(uint64_t context) override;
  HRESULT WriteChunk(const uint8_t* bytes, uint32_t length, uint64_t context) override;
  const char* GetTypeName() override { return "NorvaneHost::HttpRequestImpl"; }

 private:
  enum class Phase { kIdle, kStreaming, kAnswered };

  // The header lines an exchange sends (for a chunked body or a sized one).
  std::vector<std::string> HeaderLines(bool chunked) const;
  // `streamLength` is a streamed body's Content-Length; -1: chunked.
  ExchangeSetup MakeSetup(bool streamed, const uint8_t* body, size_t length, int64_t streamLength = -1) const;
  // Starts the streamed exchange: the request head goes and libcurl waits for
  // body bytes, or the device has answered already.
  HRESULT StartStream(int64_t streamLength);
  // The first chunk of a sized stream gives its length: the exchange starts
  // with it.
  HRESULT StartSizedStream(const uint8_t* bytes, uint32_t length);
  // Hands payload bytes to the exchange; false once it has ended or when a
  // sized stream would carry more than it declared.
  bool Forward(const uint8_t* piece, size_t size);
  // Whether the device's early answer refuses the chunked body itself; the
  // address remembers it.
  bool RefusedChunkedBody();
  bool TakeChannel();
  // One exchange of the whole body on the channel.
  HRESULT SendWhole();
  // Whether the method carries the request's body (all but GET and HEAD).
  bool SendsBody() const { return method_ != "GET" && method_ != "HEAD"; }
  // Ends the exchange in progress: keeps its error code, the schemes a 401
  // offered and its response when one came, gives the channel back to the
  // address, and answers S_OK (a response came) or E_FAIL.
  HRESULT Conclude(CURLcode result);
  bool CallerFramesChunks() const;

  QxUtils::Ref<NetAddressImpl> address_;
  HostName host_;
  bool tls_;
  uint32_t port_;
  HttpSettings settings_;

  std::string method_ = "GET";
  std::string resource_ = "/";
  std::string userName_;
  std::string password_;
  std::string contentType_;
  std::vector<std::pair<std::string, std::string>> headers_;
  std::vector<uint8_t> body_;
  uint32_t securityFlags_ = 0;
  uint32_t errorCode_ = 0;
  std::u16string url_;

  // Declared before the exchange, which refers to it.
  std::unique_ptr<CurlChannel> channel_;
  std::unique_ptr<HttpExchange> exchange_;
  Phase phase_ = Phase::kIdle;
  HRESULT answer_ = S_OK;  // what Send reports after SendBody
  bool deframe_ = false;
  ChunkDeframer deframer_;
  // A stream with a Content-Length: the payload bytes it still owes.
  bool sized_ = false;
  uint64_t sizedLeft_ = 0;
  bool sizedOverrun_ = false;
  QxUtils::Ref<HttpResponseImpl> response_;
};

}  // namespace NorvaneHost
