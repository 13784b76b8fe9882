#include "providers/ws_provider_impl.h"

#include <cstdio>
#include <cstring>
#include <new>

#include "platform/uuid.h"
#include "providers/xml_response_body.h"
#include "support/log.h"
#include "support/ref.h"
#include "support/string_utils.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

namespace {

// A device id is a short IEEE 1284 text; this is the room the probe announces.
constexpr uint32_t kDeviceIdProbeSize = 2048;
// The formatted envelope must fit here, terminator included.
constexpr size_t kEnvelopeBufferBytes = 2048;

// One line; elements separated by one space. Arguments: host, port, message id,
// sender id.
constexpr const char* kGetPrinterElementsTemplate =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?> "
    "<soap:Envelope xmlns:soap=\"http://www.w3.org/2003/05/soap-envelope\""
    " xmlns:wsa=\"http://schemas.xmlsoap.org/ws/2004/08/addressing\""
    " xmlns:UNS1=\"http://www.microsoft.com/windows/test/testdevice/11/2005\""
    " xmlns:pri=\"http://schemas.microsoft.com/windows/2006/08/wdp/print\"> "
    "<soap:Header> "
    "<wsa:To>%s:%d</wsa:To> "
    "<wsa:Action>http://schemas.microsoft.com/windows/2006/08/wdp/print/GetPrinterElements</wsa:Action> "
    "<wsa:MessageID>urn:uuid:%s</wsa:MessageID> "
    "<wsa:ReplyTo> <wsa:Address>http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous</wsa:Address> "
    "</wsa:ReplyTo> "
    "<wsa:From> <wsa:Address>urn:uuid:%s</wsa:Address> </wsa:From> "
    "<UNS1:ServiceIdentifier>uri:prn</UNS1:ServiceIdentifier> "
    "</soap:Header> "
    "<soap:Body> <pri:GetPrinterElementsRequest> <pri:RequestedElements> "
    "<pri:Name>pri:PrinterDescription</pri:Name> "
    "<pri:Name>pri:PrinterConfiguration</pri:Name> "
    "<pri:Name>pri:PrinterCapabilities</pri:Name> "
    "<pri:Name>pri:DefaultPrintTicket</pri:Name> "
    "<pri:Name>pri:PrinterStatus</pri:Name> "
    "</pri:RequestedElements> </pri:GetPrinterElementsRequest> </soap:Body> "
    "</soap:Envelope>";

// Host names and address literals never hold markup; escaping keeps a strange
// host text from breaking the envelope.
std::string EscapedText(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

}  // namespace

WSProviderImpl* WSProviderImpl::Create(Address* address) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::WSProviderImpl::Create");
  return KeepWhenNodeExists(new (std::nothrow) WSProviderImpl(address), kDeviceServiceUrn, kDeviceIdXPath,
                            kDeviceIdProbeSize);
}

HRESULT WSProviderImpl::BuildServicePath(const char16_t* urn, std::u16string* path) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::WSProviderImpl::BuildServicePath");
  if (urn == nullptr || path == nullptr) return E_FAIL;
  std::u16string_view text(urn);
  size_t last = text.rfind(u':');
  if (last == std::u16string_view::npos || last == 0) return E_FAIL;
  size_t before = text.rfind(u':', last - 1);
  if (before == std::u16string_view::npos) return E_FAIL;
  std::u16string built(1, u'/');
  built.append(text.substr(before + 1, last - before - 1));
  *path = std::move(built);
  return S_OK;
}

HRESULT WSProviderImpl::GetServicePath(const char16_t* urn, char16_t* buffer, uint32_t bufferSize,
                                       uint32_t* requiredSize) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::WSProviderImpl::GetServicePath");
  if (requiredSize != nullptr) *requiredSize = 0;
  std::u16string path;
  HRESULT hr = BuildServicePath(urn, &path);
  if (hr != S_OK) return hr;
  uint32_t needed = static_cast<uint32_t>(path.size()) + 1;
  if (requiredSize != nullptr) *requiredSize = needed;
  if (buffer == nullptr || bufferSize < needed) return E_OUTOFMEMORY;
  std::memcpy(buffer, path.c_str(), needed * sizeof(char16_t));
  return S_OK;
}

HRESULT WSProviderImpl::BuildGetPrinterElementsRequest(const char16_t*, const char16_t*, std::string* envelope) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::WSProviderImpl::BuildGetPrinterElementsRequest");
  if (envelope == nullptr || GetAddress() == nullptr) return E_FAIL;
  std::string messageId = GenerateUuid();
  std::string senderId = GenerateUuid();
  if (messageId.empty() || senderId.empty()) return E_FAIL;
  const char16_t* host = GetAddress()->GetHost();
  std::string hostText = EscapedText(QxUtils::WideToUtf8(host != nullptr ? host : u""));
  char formatted[kEnvelopeBufferBytes] = {};
  int written = std::snprintf(formatted, sizeof formatted, kGetPrinterElementsTemplate, hostText.c_str(),
                              static_cast<int>(kPort), messageId.c_str(), senderId.c_str());
  if (written < 0 || static_cast<size_t>(written) >= sizeof formatted) {
    QX_LOG(QxLogging::kStandout, "The request for host %s does not fit its buffer", hostText.c_str());
    return E_FAIL;
  }
  envelope->assign(formatted, static_cast<size_t>(written));
  return S_OK;
}

HRESULT WSProviderImpl::GetContent(const char16_t* urn, std::string* content) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::WSProviderImpl::GetContent");
  Address* address = GetAddress();
  if (address == nullptr || content == nullptr) return E_FAIL;
  std::u16string path;
  if (BuildServicePath(urn, &path) != S_OK) return E_FAIL;

  QxUtils::Ref<HTTPRequest> request;
  HRESULT hr = address->CreateRequest(request.Out(), kPort);
  if (hr != S_OK) {
    QX_LOG(AnswerCategory(), "The host made no request for port %u (0x%08x)", kPort, static_cast<unsigned>(hr));
    return hr;
  }
  if (!request) return S_OK;
  std::string envelope;
  if (FAILED(request->SetMethod(u"POST")) || FAILED(request->SetResource(path.c_str())) ||
      FAILED(request->SetUserName(u"guest")) || BuildGetPrinterElementsRequest(urn, path.c_str(), &envelope) != S_OK ||
      FAILED(request->SetBody(reinterpret_cast<const uint8_t*>(envelope.data()),
                              static_cast<uint32_t>(envelope.size()))) ||
      FAILED(request->SetContentType(u"application/soap+xml"))) {
    return E_FAIL;
  }
  HTTPResponse* response = nullptr;
  hr = request->Send(&response);
  return ReadDocumentBody(qxLog_, AnswerCategory(), hr, response, content);
}

}  // namespace Norvane
