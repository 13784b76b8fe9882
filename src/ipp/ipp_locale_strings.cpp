#include "ipp/ipp_locale_strings.h"

#include <cstring>
#include <utility>

#include "norvane/api.h"
#include "norvane/com.h"
#include "norvane/interfaces.h"
#include "support/log.h"
#include "support/ref.h"
#include "support/resolver_utils.h"
#include "support/string_utils.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

namespace {

// Printers expose their IPP service to this request under this path.
constexpr char kPrinterResource[] = "/ipp/printer";
constexpr uint32_t kCaptureChars = 260;
constexpr uint32_t kIppPort = 631;
constexpr uint32_t kWebPort = 8080;

constexpr char16_t kAddressPattern[] =
    u"(\\b(?:(?:25[0-5]|2[0-4][0-9]|[01]?[0-9][0-9]?)\\.){3}(?:25[0-5]|2[0-4][0-9]|[01]?[0-9][0-9]?)\\b)";
// Group 1: the port digits after an address.
constexpr char16_t kAddressPortPattern[] = u"(?:(?:\\b(?:\\d{1,3}\\.){3}(?:\\d{1,3})\\b)(?:(?::)([0-9]+))?)";
// Group 1: the letters between a "/" and the next ".", the language of a file name.
constexpr char16_t kFileLanguagePattern[] = u"(?:\\/)([a-zA-Z]+)(?:\\.)";

std::u16string Capture(const std::u16string& text, const char16_t* pattern, uint32_t group) {
  char16_t buffer[kCaptureChars] = {};
  if (QxUtils::CaptureSubString(text.c_str(), buffer, pattern, group, kCaptureChars) != 1) return {};
  return buffer;
}

std::u16string RemoveAll(const std::u16string& text, std::u16string_view what) {
  return QxUtils::ReplaceAll(text, what, u"");
}

// Each byte becomes one character, read as a signed 8-bit value, as hosts of
// this interface have always received the strings.
std::u16string WidenBytes(const uint8_t* body, size_t length) {
  std::u16string text;
  text.reserve(length);
  for (size_t i = 0; i < length; ++i) {
    text.push_back(static_cast<char16_t>(static_cast<int16_t>(static_cast<int8_t>(body[i]))));
  }
  return text;
}

HRESULT FetchFailed() {
  SetLastError(kStringsFetchLastError);
  return kStringsFetchFailed;
}

}  // namespace

StringsResource LocateStringsResource(const std::u16string& stringsUri, const std::u16string& locale) {
  std::u16string path = RemoveAll(RemoveAll(stringsUri, u"http://"), u"localhost");
  // The address and port are found in the URI as the printer gave it; the
  // removals apply to the path being built.
  if (QxUtils::GetStringLength(stringsUri.c_str()) >= 1) {
    std::u16string address = Capture(stringsUri, kAddressPattern, 0);
    if (!address.empty()) path = RemoveAll(path, address);
  }
  std::u16string port = Capture(stringsUri, kAddressPortPattern, 1);
  if (!port.empty()) path = RemoveAll(RemoveAll(path, port), u":");
  std::u16string language = Capture(path, kFileLanguagePattern, 1);
  if (!language.empty()) path = QxUtils::ReplaceAll(path, language, locale);
  return {path, port == u"631" ? kIppPort : kWebPort};
}

HRESULT FetchDeviceLocaleStrings(Address* address, const std::u16string& requestedLocale,
                                 std::u16string& localeStrings) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::FetchDeviceLocaleStrings");
  if (address == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return E_FAIL;
  }
  auto provider = QxUtils::AdoptRef(CreateIPPProvider(address, kPrinterResource));
  if (!provider) {
    QX_LOG(QxLogging::kStandout, "IPPProvider failed!!");
    return E_FAIL;
  }
  // A read that fails leaves its text empty and the next one is tried all the same.
  std::u16string supported, stringsUri, configured;
  const std::pair<const char*, std::u16string*> reads[] = {{"generated-natural-language-supported", &supported},
                                                           {"printer-strings-uri", &stringsUri},
                                                           {"natural-language-configured", &configured}};
  for (const auto& [name, text] : reads) {
    Variant value;
    if (provider->GetValue(name, value.Ptr()) != S_OK) {
      QX_LOG(QxLogging::kStandout, "Unable to fetch IPP %s attribute\n", name);
      continue;
    }
    if (value.Type() == VT_BSTR && value.Get().bstrVal != nullptr) {
      text->assign(value.Get().bstrVal, SysStringLen(value.Get().bstrVal));
      QX_LOG(QxLogging::kInfo, "IPP %s : %s", name, QxUtils::WideToUtf8(*text).c_str());
    }
  }
  if (supported.empty() || configured.empty()) {
    QX_LOG(QxLogging::kStandout, "IPP attribute fetch failed");
    return E_FAIL;
  }

  // A plain substring test: an empty request is "found" and fails below.
  std::u16string locale = configured;
  if (supported.find(requestedLocale) != std::u16string::npos) {
    QX_LOG(QxLogging::kInfo, "Requested locale code : %s", QxUtils::WideToUtf8(requestedLocale).c_str());
    locale = requestedLocale;
  }
  QX_LOG(QxLogging::kInfo, "Set locale code : %s", QxUtils::WideToUtf8(locale).c_str());
  if (locale.empty() || stringsUri.empty()) return E_FAIL;

  StringsResource resource = LocateStringsResource(stringsUri, locale);
  if (resource.path.empty()) return E_FAIL;
  QX_LOG(QxLogging::kInfo, "Locale Resource URI  : %s", QxUtils::WideToUtf8(resource.path).c_str());

  // The request comes with the one reference this function gives back; the
  // response belongs to it.
  QxUtils::Ref<HTTPRequest> request;
  HTTPResponse* response = nullptr;
  if (FAILED(address->CreateRequest(request.Out(), resource.port)) || !request || FAILED(request->SetMethod(u"GET")) ||
      FAILED(request->SetResource(resource.path.c_str())) || FAILED(request->Send(&response)) || response == nullptr) {
    QX_LOG(QxLogging::kStandout, "HTTP Response failed");
    return FetchFailed();
  }
  const uint8_t* body = response->GetBody();
  if (response->GetStatus() != 200 || body == nullptr) {
    QX_LOG(QxLogging::kStandout, "HTTP Response status not 200 OK");
    return FetchFailed();
  }
  size_t length = strnlen(reinterpret_cast<const char*>(body), response->GetBodyLength());
  if (length == 0) return E_FAIL;
  localeStrings = WidenBytes(body, length);
  return S_OK;
}

}  // namespace Norvane
