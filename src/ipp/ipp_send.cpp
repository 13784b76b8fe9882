// Sending requests through the host's transport: the HTTP headers, the port,
// the one-shot POST and the Print-Job stream with its chunk framing.
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "ipp/ipp_operations.h"
#include "ipp/ipp_request_attributes.h"
#include "support/log.h"
#include "support/string_utils.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

namespace {

constexpr uint32_t kIppPort = 631;
constexpr uint32_t kIppsPort = 443;
constexpr HRESULT kUnauthorized = 1026;
constexpr uint32_t kHttpOk = 200;
constexpr uint32_t kHttpUnauthorized = 401;
constexpr uint16_t kIpp20 = 0x0200;
constexpr uint16_t kIpp11 = 0x0101;
constexpr int kStatusVersionNotSupported = 0x0503;
// The host's error codes (libcurl's) for a connection closed without an answer.
constexpr DWORD kNothingReceived = 52;
constexpr DWORD kReceiveFailed = 56;

bool AllocateRequestBuffer(uint32_t documentLength, std::vector<uint8_t>* buffer) {
  try {
    buffer->assign(static_cast<size_t>(documentLength) + kIppAttributeLimit + 1, 0);
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

}  // namespace

void IPPOperations::AddHttpHeaders(const std::map<std::u16string, std::u16string>& extraHeaders, HTTPRequest* request) {
  if (request == nullptr) return;
  bool cacheControl = false, connection = false, pragma = false;
  for (const auto& [name, value] : extraHeaders) {
    request->AddHeader(name.c_str(), value.c_str());
    // Any header whose name holds one of these words stands in for its default.
    cacheControl |= name.find(u"Cache-Control") != std::u16string::npos;
    connection |= name.find(u"Connection") != std::u16string::npos;
    pragma |= name.find(u"Pragma") != std::u16string::npos;
  }
  if (!cacheControl) request->AddHeader(u"Cache-Control", u"no-cache");
  if (!connection) request->AddHeader(u"Connection", u"Keep-Alive");
  if (!pragma) request->AddHeader(u"Pragma", u"no-cache");
}

uint32_t IPPOperations::ChoosePort(Address* address, bool secure) {
  if (!secure) return kIppPort;
  const char16_t* portText = address != nullptr ? address->GetPortText() : nullptr;
  return portText != nullptr && std::u16string_view(portText) == u"631" ? kIppPort : kIppsPort;
}

void IPPOperations::FrameChunk(const uint8_t* data, uint32_t length, std::vector<uint8_t>* chunk) {
  char prefix[16];
  int n = std::snprintf(prefix, sizeof prefix, "%X\r\n", length);
  chunk->clear();
  chunk->reserve(static_cast<size_t>(n) + length + 2);
  chunk->insert(chunk->end(), prefix, prefix + n);
  if (length != 0) chunk->insert(chunk->end(), data, data + length);
  chunk->push_back('\r');
  chunk->push_back('\n');
}

HRESULT IPPOperations::SendIPPRequest(uint32_t operation, HTTPResponse** response, IPPRequestBase* attributes,
                                      bool secure) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPOperations::SendIPPRequest");
  if (response != nullptr) *response = nullptr;
  if (address_ == nullptr || operation < 2 || operation > 16384) {
    QX_LOG(QxLogging::kStandout, "Invalid address or operation %u", operation);
    return E_FAIL;
  }
  // The caller has finished with the previous exchange when it sends the next
  // one, so its request (and the response it owns) can go now.
  request_.Reset();

  uint32_t port = ChoosePort(address_, secure);
  address_->SetSecure(secure);
  HRESULT hr = address_->CreateRequestEx(request_.Out(), port);
  if (FAILED(hr) || !request_) {
    QX_LOG(QxLogging::kStandout, "failed to create the http request (0x%08X)", hr);
    return E_FAIL;
  }
  // The encoder reaches the request for credentials, so it is held from here;
  // a failed exchange keeps nothing, an answered one keeps it for its response.
  hr = PostRequest(operation, response, attributes);
  if (RequestVersion() == kIpp20 && RefusedForVersion(hr, response != nullptr ? *response : nullptr)) {
    // An IPP/1.1 printer: this request and every later one to it go as 1.1.
    QX_LOG(QxLogging::kInfo, "IPP request %u refused as IPP/2.0; sending it as IPP/1.1", operation);
    FieldAddress()->SetIppRequestVersion(kIpp11);
    if (response != nullptr) *response = nullptr;
    request_.Reset();
    hr = address_->CreateRequestEx(request_.Out(), port);
    if (FAILED(hr) || !request_) return E_FAIL;
    hr = PostRequest(operation, response, attributes);
  }
  if (hr != S_OK) request_.Reset();
  return hr;
}

QxNetAddress* IPPOperations::FieldAddress() const { return dynamic_cast<QxNetAddress*>(address_); }

bool IPPOperations::FieldCompatible() const {
  QxNetAddress* address = FieldAddress();
  return address != nullptr && address->GetIppFieldCompatibility();
}

uint16_t IPPOperations::RequestVersion() const {
  QxNetAddress* address = FieldAddress();
  if (address == nullptr || !address->GetIppFieldCompatibility()) return kIpp20;
  uint16_t settled = address->GetIppRequestVersion();
  return settled != 0 ? settled : kIpp20;
}

bool IPPOperations::RefusedForVersion(HRESULT hr, HTTPResponse* response) const {
  if (!FieldCompatible()) return false;
  if (hr == S_OK) {
    // The answer's status-code, bytes 2 and 3.
    if (response == nullptr || response->GetBody() == nullptr || response->GetBodyLength() < 4) return false;
    const uint8_t* body = response->GetBody();
    return (body[2] << 8 | body[3]) == kStatusVersionNotSupported;
  }
  // Printers that know only 1.x close the connection on a 2.0 request: no
  // answer at all (libcurl's "empty reply" and "receive failure"), never a
  // refused connect or a time-out.
  const DWORD error = GetLastError();
  return error == kNothingReceived || error == kReceiveFailed;
}

HRESULT IPPOperations::PostRequest(uint32_t operation, HTTPResponse** response, IPPRequestBase* attributes) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPOperations::PostRequest");
  HTTPRequest* request = request_.get();
  if (FAILED(request->SetMethod(u"POST"))) {
    QX_LOG(QxLogging::kStandout, "SetMethod failed");
    return E_FAIL;
  }
  std::u16string resource = QxUtils::Utf8ToWide(GetResourceURI());
  request->SetResource(resource.c_str());
  request->SetContentType(u"application/ipp");
  request->SetSecurityFlags(securityFlags_);

  if (operation != kIppPrintJob) documentLength_ = 0;
  std::vector<uint8_t> buffer;
  if (!AllocateRequestBuffer(documentLength_, &buffer)) {
    QX_LOG(QxLogging::kStandout, "Unable to allocate the request buffer");
    return E_FAIL;
  }
  uint32_t length = 0;
  HRESULT hr = FormIPPRequestBasedOnOperation(buffer.data(), operation, &length, attributes);
  if (FAILED(hr)) return hr;
  if (operation == kIppPrintJob) {
    auto offset = static_cast<int32_t>(length);
    AddPrinterFileBufferToRequestData(buffer.data(), &offset);
    length = static_cast<uint32_t>(offset);
  }
  if (attributes != nullptr) AddHttpHeaders(attributes->GetExtraHTTPHeader(), request);
  request->SetBody(buffer.data(), length);
  std::vector<uint8_t>().swap(buffer);

  HTTPResponse* reply = nullptr;
  hr = request->Send(&reply);
  if (SUCCEEDED(hr) && reply != nullptr && reply->GetStatus() == kHttpOk && reply->GetBody() != nullptr) {
    QX_LOG(QxLogging::kInfo, "IPP request %u answered", operation);
    if (response != nullptr) *response = reply;
    return S_OK;
  }
  DWORD error = reply != nullptr ? reply->GetStatus() : request->GetErrorCode();
  QX_LOG(QxLogging::kStandout, "IPP request %u failed: send 0x%08X, error %u", operation, hr, error);
  SetLastError(error);
  return E_FAIL;
}

HRESULT IPPOperations::SendIPPRequest(IppStartableRequest* request, IPPRequestBase* attributes, bool sendFlag,
                                      uint32_t sendValue) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPOperations::SendIPPRequest");
  if (request == nullptr || attributes == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return E_FAIL;
  }
  request->SetMethod(u"POST");
  std::u16string resource = QxUtils::Utf8ToWide(GetResourceURI());
  request->SetResource(resource.c_str());
  request->SetContentType(u"application/ipp");
  const char16_t* host = address_ != nullptr ? address_->GetHost() : nullptr;
  request->SetHost(host != nullptr ? host : u"");
  const char16_t* user = attributes->GetUsername();
  const char16_t* password = attributes->GetPassword();
  request->SetUserName(user != nullptr ? user : u"");
  request->SetPassword(password != nullptr ? password : u"");

  std::vector<uint8_t> buffer;
  if (!AllocateRequestBuffer(documentLength_, &buffer)) return E_FAIL;
  uint32_t length = 0;
  HRESULT hr = FormIPPRequestBasedOnOperation(buffer.data(), kIppPrintJob, &length, attributes);
  if (FAILED(hr)) return hr;
  auto offset = static_cast<int32_t>(length);
  AddPrinterFileBufferToRequestData(buffer.data(), &offset);
  length = static_cast<uint32_t>(offset);
  request->SetLength(length);
  request->SetBody(buffer.data(), length);
  if (sendFlag) request->SetSendValue(sendValue);
  std::vector<uint8_t>().swap(buffer);
  hr = request->Start();
  if (SUCCEEDED(hr) && !sendFlag) hr = request->Complete();
  return hr;
}

HRESULT IPPOperations::ReadFinalResponse(HTTPRequest* request, HTTPResponse** response) {
  HTTPResponse* reply = nullptr;
  HRESULT hr = request->Send(&reply);
  if (response != nullptr) *response = reply;
  if (SUCCEEDED(hr) && reply != nullptr) {
    uint32_t status = reply->GetStatus();
    if (status == kHttpOk) return reply->GetBody() != nullptr ? S_OK : E_FAIL;
    return status == kHttpUnauthorized ? kUnauthorized : E_FAIL;
  }
  return hr == kHostResponseReadBenign ? S_FALSE : hr;
}

HRESULT IPPOperations::SendPrintJobRequest(HTTPResponse** response, IPPRequestBase* attributes, bool chunked,
                                           uint32_t chunkLength, uint64_t context, bool secure) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPOperations::SendPrintJobRequest");
  if (address_ == nullptr) return E_FAIL;

  if (streamRequest_ != nullptr) {
    auto* stream = dynamic_cast<QxHTTPRequestEx*>(streamRequest_.get());
    if (stream == nullptr) return E_FAIL;
    if (chunkLength > documentLength_) {
      QX_LOG(QxLogging::kStandout, "Chunk of %u bytes but only %u bytes of data", chunkLength, documentLength_);
      return E_FAIL;
    }
    FrameChunk(document_.data(), chunkLength, &chunk_);
    if (FAILED(stream->WriteChunk(chunk_.data(), static_cast<uint32_t>(chunk_.size()), context))) {
      QX_LOG(QxLogging::kStandout, "WriteChunk failed");
      streamRequest_.Reset();
      return E_FAIL;
    }
    if (chunkLength != 0) return S_OK;
    return ReadFinalResponse(streamRequest_.get(), response);
  }

  uint32_t port = ChoosePort(address_, secure);
  address_->SetSecure(secure);
  if (FAILED(address_->CreateRequestEx(streamRequest_.Out(), port)) || !streamRequest_) {
    QX_LOG(QxLogging::kStandout, "failed to createhttpRequest");
    return E_FAIL;
  }
  HTTPRequest* request = streamRequest_.get();
  if (FAILED(request->SetMethod(u"POST"))) {
    QX_LOG(QxLogging::kStandout, "SetMethod failed");
    return ReadFinalResponse(request, response);
  }
  std::u16string resource = QxUtils::Utf8ToWide(GetResourceURI());
  request->SetResource(resource.c_str());
  request->SetContentType(u"application/ipp");
  if (dynamic_cast<IPPRequestAttributes*>(attributes) != nullptr) {
    AddHttpHeaders(attributes->GetExtraHTTPHeader(), request);
  }
  if (attributes != nullptr) {
    if (const char16_t* user = attributes->GetUsername()) request->SetUserName(user);
    if (const char16_t* password = attributes->GetPassword()) request->SetPassword(password);
  }

  std::vector<uint8_t> buffer;
  if (!AllocateRequestBuffer(documentLength_, &buffer)) {
    streamRequest_.Reset();
    return E_FAIL;
  }
  uint32_t length = 0;
  if (FAILED(FormIPPRequestBasedOnOperation(buffer.data(), kIppPrintJob, &length, attributes))) {
    streamRequest_.Reset();
    return E_FAIL;
  }
  auto offset = static_cast<int32_t>(length);
  AddPrinterFileBufferToRequestData(buffer.data(), &offset);
  length = static_cast<uint32_t>(offset);

  auto* stream = dynamic_cast<QxHTTPRequestEx*>(request);
  if (stream == nullptr) {
    QX_LOG(QxLogging::kStandout, "The host request cannot stream a body");
    streamRequest_.Reset();
    return E_FAIL;
  }
  request->SetSecurityFlags(securityFlags_);
  if (!chunked) {
    HRESULT hr = stream->SendBody(buffer.data(), length);
    std::vector<uint8_t>().swap(buffer);
    if (FAILED(hr)) {
      QX_LOG(QxLogging::kStandout, "SendBody failed (0x%08X)", hr);
      streamRequest_.Reset();
      return E_FAIL;
    }
    return ReadFinalResponse(request, response);
  }

  request->AddHeader(u"Transfer-Encoding", u"chunked");
  request->AddHeader(u"Content-Type", u"application/ipp");
  FrameChunk(buffer.data(), length, &chunk_);
  std::vector<uint8_t>().swap(buffer);
  HRESULT hr = stream->Open(context);
  if (SUCCEEDED(hr)) hr = stream->WriteChunk(chunk_.data(), static_cast<uint32_t>(chunk_.size()), context);
  if (FAILED(hr)) {
    QX_LOG(QxLogging::kStandout, "Opening the print stream failed (0x%08X)", hr);
    streamRequest_.Reset();
    return E_FAIL;
  }
  return S_OK;
}

}  // namespace Norvane
