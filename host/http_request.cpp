#include "http_request.h"

#include <cstdint>

#include "net_address.h"
#include "norvane/api.h"
#include "text.h"

namespace NorvaneHost {

namespace {

bool IsTokenChar(char16_t c) {
  if ((c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9')) return true;
  for (char16_t allowed : std::u16string_view(u"!#$%&'*+-.^_`|~")) {
    if (c == allowed) return true;
  }
  return false;
}

bool IsToken(std::u16string_view text) {
  if (text.empty()) return false;
  for (char16_t c : text) {
    if (!IsTokenChar(c)) return false;
  }
  return true;
}

// Header values may hold any text but line breaks, which would start a new
// field.
bool IsFieldValue(std::u16string_view text) {
  for (char16_t c : text) {
    if (c == u'\r' || c == u'\n' || c == 0) return false;
  }
  return true;
}

bool IsOneOf(const std::string& name, std::initializer_list<std::string_view> names) {
  for (std::string_view candidate : names) {
    if (EqualsIgnoreAsciiCase(name, candidate)) return true;
  }
  return false;
}

}  // namespace

// ---------------------------------------------------------------- response --

HttpResponseImpl::HttpResponseImpl(ExchangeResponse&& response)
    : status_(static_cast<uint32_t>(response.status)),
      statusLine_(std::move(response.statusLine)),
      received_(std::move(response.headers)),
      body_(std::move(response.body)) {
  length_ = body_.size();
  body_.push_back(0);
}

void HttpResponseImpl::MergeFields() {
  fieldsMerged_ = true;
  for (const auto& [name, value] : received_) {
    bool merged = false;
    for (Field& known : fields_) {
      if (EqualsIgnoreAsciiCase(known.name, name)) {
        known.value += ", ";
        known.value += value;
        merged = true;
        break;
      }
    }
    if (!merged) fields_.push_back({name, value, std::nullopt});
  }
}

HRESULT HttpResponseImpl::GetStatusText(const char16_t** text) {
  if (text == nullptr) return E_POINTER;
  if (!statusText_) {
    std::string_view line = statusLine_;
    size_t first = line.find(' ');
    size_t second = first == std::string_view::npos ? first : line.find(' ', first + 1);
    statusText_ = second == std::string_view::npos ? std::u16string() : Utf8ToWide(line.substr(second + 1));
  }
  *text = statusText_->c_str();
  return S_OK;
}

HRESULT HttpResponseImpl::GetAllHeaders(const char16_t** text) {
  if (text == nullptr) return E_POINTER;
  if (!allHeaders_) {
    std::string all;
    for (const auto& [name, value] : received_) all += name + ": " + value + "\r\n";
    allHeaders_ = Utf8ToWide(all);
  }
  *text = allHeaders_->c_str();
  return S_OK;
}

const char16_t* HttpResponseImpl::GetHeader(const char16_t* name) {
  if (name == nullptr) return nullptr;
  std::string wanted = WideToUtf8(name);
  if (!fieldsMerged_) MergeFields();
  for (Field& field : fields_) {
    if (!EqualsIgnoreAsciiCase(field.name, wanted)) continue;
    if (!field.wide) field.wide = Utf8ToWide(field.value);
    return field.wide->c_str();
  }
  return nullptr;
}

// ----------------------------------------------------------------- request --

HttpRequestImpl::HttpRequestImpl(NetAddressImpl* address, HostName host, bool tls, uint32_t port, HttpSettings settings)
    : address_(QxUtils::ShareRef(address)), host_(std::move(host)), tls_(tls), port_(port), settings_(settings) {}

HttpRequestImpl::~HttpRequestImpl() {
  exchange_.reset();
  if (channel_) address_->ReturnChannel(std::move(channel_));
  Wipe(password_);
}

const char16_t* HttpRequestImpl::GetURL() {
  url_ = Utf8ToWide(BuildUrl(host_, tls_, port_, resource_));
  return url_.c_str();
}

HRESULT HttpRequestImpl::SetResource(const char16_t* path) {
  if (path == nullptr) return E_INVALIDARG;
  resource_ = WideToUtf8(path);
  return S_OK;
}

HRESULT HttpRequestImpl::SetUserName(const char16_t* name) {
  userName_ = WideToUtf8(name);
  return S_OK;
}

HRESULT HttpRequestImpl::SetPassword(const char16_t* password) {
  Wipe(password_);
  password_ = WideToUtf8(password);
  return S_OK;
}

HRESULT HttpRequestImpl::SetMethod(const char16_t* method) {
  if (method == nullptr || !IsToken(method)) return E_INVALIDARG;
  method_ = WideToUtf8(method);
  return S_OK;
}

HRESULT HttpRequestImpl::AddHeader(const char16_t* name, const char16_t* value) {
  if (name == nullptr || !IsToken(name)) return E_INVALIDARG;
  std::u16string_view text = value == nullptr ? std::u16string_view() : std::u16string_view(value);
  if (!IsFieldValue(text)) return E_INVALIDARG;
  std::string field = WideToUtf8(name);
  std::string content(TrimSpaces(WideToUtf8(text)));
  for (auto& [known, known_value] : headers_) {
    if (EqualsIgnoreAsciiCase(known, field)) {
      known_value = std::move(content);
      return S_OK;
    }
  }
  headers_.emplace_back(std::move(field), std::move(content));
  return S_OK;
}

HRESULT HttpRequestImpl::SetContentType(const char16_t* contentType) {
  std::u16string_view text = contentType == nullptr ? std::u16string_view() : contentType;
  if (!IsFieldValue(text)) return E_INVALIDARG;
  contentType_ = WideToUtf8(text);
  return S_OK;
}

HRESULT HttpRequestImpl::SetBody(const uint8_t* body, uint32_t length) {
  if (body == nullptr && length != 0) return E_INVALIDARG;
  body_.assign(body, body + length);
  return S_OK;
}

HRESULT HttpRequestImpl::SetSecurityFlags(uint32_t flags) {
  securityFlags_ = flags;
  return S_OK;
}

HRESULT HttpRequestImpl::SetTimeout(uint32_t milliseconds) {
  if (milliseconds == 0) return E_INVALIDARG;
  settings_.readTimeoutMs = milliseconds;
  return S_OK;
}

bool HttpRequestImpl::CallerFramesChunks() const {
  for (const auto& [name, value] : headers_) {
    if (EqualsIgnoreAsciiCase(name, "Transfer-Encoding") && value.find("chunked") != std::string::npos) {
      return true;
    }
  }
  return false;
}

std::vector<std::string> HttpRequestImpl::HeaderLines(bool chunked) const {
  std::vector<std::string> lines;
  bool typed = false;
  for (const auto& [name, value] : headers_) {
    // The body's length and framing are the transport's: libcurl writes them.
    if (IsOneOf(name, {"Content-Length", "Transfer-Encoding", "Expect"})) continue;
    if (EqualsIgnoreAsciiCase(name, "Content-Type")) typed = true;
    // libcurl drops a field written "Name:"; "Name;" sends it empty.
    lines.push_back(value.empty() ? name + ";" : name + ": " + value);
  }
  if (!typed && !contentType_.empty()) {
    lines.push_back("Content-Type: " + contentType_);
  } else if (!typed && SendsBody()) {
    // Otherwise libcurl would label the body as a form.
    lines.push_back("Content-Type:");
  }
  // Printers answer 417 to "Expect: 100-continue", which libcurl adds to large
  // bodies unless told not to.
  lines.push_back("Expect:");
  if (chunked) lines.push_back("Transfer-Encoding: chunked");
  return lines;
}

ExchangeSetup HttpRequestImpl::MakeSetup(bool streamed, const uint8_t* body, size_t length,
                                         int64_t streamLength) const {
  ExchangeSetup setup;
  setup.url = BuildUrl(host_, tls_, port_, resource_);
  setup.method = method_;
  setup.headerLines = HeaderLines(streamed && streamLength < 0);
  setup.body = body;
  setup.bodyLength = length;
  setup.streamed = streamed;
  setup.streamLength = streamed ? streamLength : -1;
  setup.userName = userName_;
  setup.password = password_;
  if (streamed && (address_->KnownAuthSchemes() & CURLAUTH_BASIC) != 0) {
    // A streamed body cannot be sent twice, so a challenge in the middle of it
    // would end the job: answer the scheme the device is known to ask for at once.
    setup.authSchemes = CURLAUTH_BASIC;
  }
  setup.securityFlags = securityFlags_;
  setup.connectTimeoutMs = settings_.connectTimeoutMs;
  setup.readTimeoutMs = settings_.readTimeoutMs;
  return setup;
}

HRESULT HttpRequestImpl::SendWhole() {
  if (!TakeChannel()) return E_OUTOFMEMORY;
  exchange_ = std::make_unique<HttpExchange>(*channel_);
  CURLcode rc = exchange_->Start(MakeSetup(false, body_.data(), body_.size()));
  return Conclude(rc == CURLE_OK ? exchange_->Finish() : rc);
}

bool HttpRequestImpl::TakeChannel() {
  if (!channel_) channel_ = address_->TakeChannel();
  return channel_ != nullptr;
}

HRESULT HttpRequestImpl::Conclude(CURLcode result) {
  bool streamed = phase_ == Phase::kStreaming;
  bool answered =
      exchange_->HasResponseHead() && (result == CURLE_OK ||
                                       // The device answered before taking the whole streamed body
                                       // and closed: its answer stands.
                                       (streamed && (result == CURLE_SEND_ERROR || result == CURLE_SEND_FAIL_REWIND)));
  errorCode_ = static_cast<uint32_t>(result);
  ExchangeResponse& received = exchange_->Response();
  if (received.status == 401) address_->NoteAuthSchemes(exchange_->OfferedAuthSchemes());
  // A 411 that came only after the last chunk still says the body's framing
  // was refused.
  if (streamed && !sized_ && answered && received.status == 411) address_->NoteChunkedRefusal(411);
  if (answered) response_ = QxUtils::ShareRef(new HttpResponseImpl(std::move(received)));
  exchange_.reset();
  address_->ReturnChannel(std::move(channel_));
  phase_ = Phase::kIdle;
  return answered ? S_OK : E_FAIL;
}

HRESULT HttpRequestImpl::Send(Norvane::HTTPResponse** response) {
  if (response == nullptr) return E_POINTER;
  *response = nullptr;
  HRESULT hr;
  if (phase_ == Phase::kStreaming && !exchange_) {
    // A sized stream that never had its first chunk never started.
    phase_ = Phase::kIdle;
    return E_FAIL;
  }
  if (phase_ == Phase::kStreaming) {
    hr = Conclude(exchange_->Finish());
  } else if (phase_ == Phase::kAnswered) {
    phase_ = Phase::kIdle;
    hr = answer_;
  } else {
    response_.Reset();
    hr = SendWhole();
  }
  if (SUCCEEDED(hr)) {
    if (response_ == nullptr) return E_FAIL;
    *response = response_.get();
  }
  return hr;
}

HRESULT HttpRequestImpl::SendBody(const uint8_t* body, uint32_t length) {
  if (phase_ == Phase::kStreaming) return E_FAIL;
  HRESULT hr = SetBody(body, length);
  if (FAILED(hr)) return hr;
  Norvane::HTTPResponse* ignored = nullptr;
  phase_ = Phase::kIdle;
  answer_ = Send(&ignored);
  phase_ = Phase::kAnswered;
  // Only a transport failure is a failure of the sending; the status of the
  // answer is for Send to report.
  return answer_;
}

HRESULT HttpRequestImpl::Open(uint64_t /*context: the library's, unused here*/) {
  if (phase_ == Phase::kStreaming) return E_FAIL;
  phase_ = Phase::kIdle;
  response_.Reset();
  deframe_ = CallerFramesChunks();
  deframer_ = ChunkDeframer();
  sizedOverrun_ = false;
  std::optional<uint64_t> rest = address_->TakeNextStreamLength();
  sized_ = rest.has_value();
  sizedLeft_ = rest.value_or(0);
  if (sized_) {
    // The Content-Length is known with the first chunk: the exchange starts then.
    phase_ = Phase::kStreaming;
    return S_OK;
  }
  return StartStream(-1);
}

HRESULT HttpRequestImpl::StartStream(int64_t streamLength) {
  if (!TakeChannel()) {
    phase_ = Phase::kIdle;
    return E_OUTOFMEMORY;
  }
  exchange_ = std::make_unique<HttpExchange>(*channel_);
  phase_ = Phase::kStreaming;
  CURLcode rc = exchange_->Start(MakeSetup(true, nullptr, 0, streamLength));
  if (rc == CURLE_OK) rc = exchange_->OpenBody();
  if (exchange_->Ended() || rc != CURLE_OK) {
    // An answer before any body (a refusal) is kept for Send; no answer at all
    // means the device was not reached.
    if (rc == CURLE_OK && exchange_->HasResponseHead()) return S_OK;
    Conclude(rc == CURLE_OK ? exchange_->Result() : rc);
    return E_FAIL;
  }
  errorCode_ = 0;
  return S_OK;
}

HRESULT HttpRequestImpl::StartSizedStream(const uint8_t* bytes, uint32_t length) {
  // The first chunk holds the IPP request and the document's first block, one
  // block's worth: it is kept until the exchange has its length.
  std::vector<uint8_t> first;
  if (deframe_) {
    bool framed = deframer_.Feed(bytes, length, [&first](const uint8_t* piece, size_t size) {
      first.insert(first.end(), piece, piece + size);
      return true;
    });
    if (!framed && deframer_.Failed()) {
      phase_ = Phase::kIdle;
      errorCode_ = CURLE_BAD_FUNCTION_ARGUMENT;
      return E_INVALIDARG;
    }
  } else {
    first.assign(bytes, bytes + length);
  }
  if (sizedLeft_ > static_cast<uint64_t>(INT64_MAX) - first.size()) {
    phase_ = Phase::kIdle;
    errorCode_ = CURLE_BAD_FUNCTION_ARGUMENT;
    return E_INVALIDARG;
  }
  HRESULT hr = StartStream(static_cast<int64_t>(first.size() + sizedLeft_));
  if (FAILED(hr)) return hr;
  if (!exchange_->Ended()) exchange_->Write(first.data(), first.size());
  if (deframer_.Finished()) exchange_->EndBody();
  if (exchange_->Ended() && !exchange_->HasResponseHead()) {
    errorCode_ = static_cast<uint32_t>(exchange_->Result());
    return E_FAIL;
  }
  return S_OK;
}

bool HttpRequestImpl::Forward(const uint8_t* piece, size_t size) {
  if (sized_) {
    if (size > sizedLeft_) {
      sizedOverrun_ = true;
      return false;
    }
    sizedLeft_ -= size;
  }
  exchange_->Write(piece, size);
  return !exchange_->Ended();
}

bool HttpRequestImpl::RefusedChunkedBody() {
  if (sized_ || !exchange_ || !exchange_->HasResponseHead()) return false;
  const ExchangeResponse& answer = exchange_->Response();
  bool ipp = false;
  for (const auto& [name, value] : answer.headers) {
    if (EqualsIgnoreAsciiCase(name, "Content-Type") && value.starts_with("application/ipp")) ipp = true;
  }
  // 411 says it outright; 400 and 501 without an IPP answer are what servers
  // that do not implement chunked requests send before reading the body. An
  // IPP answer is the printer's own word on the request and stands.
  const bool refused = answer.status == 411 || ((answer.status == 400 || answer.status == 501) && !ipp);
  if (refused) {
    address_->NoteChunkedRefusal(static_cast<uint32_t>(answer.status));
    errorCode_ = CURLE_HTTP_RETURNED_ERROR;
  }
  return refused;
}

HRESULT HttpRequestImpl::WriteChunk(const uint8_t* bytes, uint32_t length, uint64_t context) {
  if (phase_ != Phase::kStreaming) return E_FAIL;
  if (bytes == nullptr && length != 0) return E_INVALIDARG;
  if (length == 0) return S_OK;
  // A printer stopped with its spool full takes nothing until it drains; the
  // library wakes this wait as soon as the stream is cancelled.
  HRESULT ready = WaitForPrintReady(context, 0);
  if (ready == S_FALSE) {
    ready = WaitForPrintReady(context, 0xFFFFFFFFu /* for good */);
    if (exchange_) exchange_->RestartReadClock();
  }
  if (ready == E_ABORT) {
    errorCode_ = CURLE_ABORTED_BY_CALLBACK;
    return E_ABORT;
  }
  if (!exchange_) return StartSizedStream(bytes, length);
  // The rest of a document the printer refused to take chunked has nowhere to
  // go: failing here ends the stream at once. The refusal may have come while
  // the library was busy elsewhere (its job lookup), with nobody reading.
  if (!exchange_->Ended()) exchange_->Poll();
  if (!deframer_.Finished() && RefusedChunkedBody()) return E_FAIL;
  if (!exchange_->Ended()) {
    if (deframe_) {
      bool framed =
          deframer_.Feed(bytes, length, [this](const uint8_t* piece, size_t size) { return Forward(piece, size); });
      if ((!framed && deframer_.Failed()) || sizedOverrun_) {
        errorCode_ = CURLE_BAD_FUNCTION_ARGUMENT;
        return E_INVALIDARG;
      }
      if (deframer_.Finished()) {
        if (sized_ && sizedLeft_ != 0) {
          // libcurl would wait for the bytes it was promised.
          errorCode_ = CURLE_READ_ERROR;
          return E_FAIL;
        }
        exchange_->EndBody();
      }
    } else if (!Forward(bytes, length) && sizedOverrun_) {
      errorCode_ = CURLE_BAD_FUNCTION_ARGUMENT;
      return E_INVALIDARG;
    }
  }
  if (exchange_->Ended() && !exchange_->HasResponseHead()) {
    errorCode_ = static_cast<uint32_t>(exchange_->Result());
    return E_FAIL;
  }
  if (!deframer_.Finished() && RefusedChunkedBody()) return E_FAIL;
  // After an early answer the rest of the document has nowhere to go; Send
  // reports that answer.
  return S_OK;
}

}  // namespace NorvaneHost
