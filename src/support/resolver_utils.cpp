#include "support/resolver_utils.h"

#include <regex>
#include <string>

#include "support/log.h"
#include "support/string_utils.h"

QX_LOG_SOURCE_FILE()

namespace QxUtils {

namespace {

constexpr uint32_t kMaxCopyCount = 0x7FFFFFFEu;

std::wstring ToWchar(const char16_t* text) {
  std::wstring out;
  for (const char16_t* p = text; *p != 0; ++p) out.push_back(static_cast<wchar_t>(*p));
  return out;
}

std::string ErrorTextUtf8(HRESULT code) { return WideToUtf8(FormatErrorText(static_cast<uint32_t>(code))); }

}  // namespace

uint32_t GetStringLength(const char16_t* text) {
  QX_LOG_FUNCTION(QxLogging::NorvaneResolver(), "GetStringLength");
  if (text == nullptr) return 0;
  for (uint32_t i = 0; i < kMaxCountedChars; ++i) {
    if (text[i] == 0) return i;
  }
  QX_LOG(QxLogging::kInfo, "StringCchLength failed %s", ErrorTextUtf8(E_INVALIDARG).c_str());
  return 0;
}

bool RegexSearch(const char16_t* text, const char16_t* pattern) {
  if (text == nullptr || pattern == nullptr || *text == 0 || *pattern == 0) return false;
  try {
    std::wregex re(ToWchar(pattern), std::regex_constants::ECMAScript);
    return std::regex_search(ToWchar(text), re);
  } catch (...) {
    return false;
  }
}

int CaptureSubString(const char16_t* text, char16_t* buffer, const char16_t* pattern, uint32_t group,
                     uint32_t bufferChars) {
  QX_LOG_FUNCTION(QxLogging::NorvaneResolver(), "CaptureSubString");
  if (text == nullptr || buffer == nullptr || pattern == nullptr) return 0;
  std::u16string capture;
  try {
    std::wregex re(ToWchar(pattern), std::regex_constants::ECMAScript);
    std::wstring subject = ToWchar(text);
    std::wsmatch match;
    if (!std::regex_search(subject, match, re)) return 0;
    if (group < match.size() && match[group].matched) {
      for (wchar_t c : match[group].str()) capture.push_back(static_cast<char16_t>(c));
    }
  } catch (...) {
    return 0;
  }
  if (capture.empty()) return 0;
  QX_LOG(QxLogging::kInfo, "Result is: %s", WideToUtf8(capture).c_str());
  StrWcsNCpy(buffer, capture.c_str(), static_cast<uint32_t>(capture.size() + 1), bufferChars);
  return 1;
}

HRESULT StrWcsNCpy(char16_t* destination, const char16_t* source, uint32_t count, uint32_t destChars) {
  QX_LOG_FUNCTION(QxLogging::NorvaneResolver(), "StrWcsNCpy");
  if (destination == nullptr || source == nullptr) {
    QX_LOG(QxLogging::kInfo, "Source or Destination String is NULL");
    return E_INVALIDARG;
  }
  uint32_t capacity = destChars < kResolverBufferChars ? destChars : kResolverBufferChars;
  HRESULT hr = S_OK;
  if (capacity == 0) {
    hr = E_INVALIDARG;
  } else if (count > kMaxCopyCount) {
    destination[0] = 0;
    hr = E_INVALIDARG;
  } else {
    uint32_t i = 0;
    while (i < count && source[i] != 0 && i + 1 < capacity) {
      destination[i] = source[i];
      ++i;
    }
    bool cut = i < count && source[i] != 0;
    destination[i] = 0;
    if (cut) hr = HRESULT_INSUFFICIENT_BUFFER;
  }
  if (FAILED(hr)) QX_LOG(QxLogging::kInfo, "StringCchCopyNW failed %s", ErrorTextUtf8(hr).c_str());
  return hr;
}

HRESULT StrWcsCpy(char16_t* destination, uint32_t capacity, const char16_t* source) {
  QX_LOG_FUNCTION(QxLogging::NorvaneResolver(), "StrWcsCpy");
  if (destination == nullptr || source == nullptr) {
    QX_LOG(QxLogging::kInfo, "Source or Destination String is NULL");
    return E_INVALIDARG;
  }
  HRESULT hr = S_OK;
  if (capacity == 0 || capacity > 0x7FFFFFFFu) {
    hr = E_INVALIDARG;
  } else {
    uint32_t i = 0;
    while (source[i] != 0 && i + 1 < capacity) {
      destination[i] = source[i];
      ++i;
    }
    bool cut = source[i] != 0;
    destination[i] = 0;
    if (cut) hr = HRESULT_INSUFFICIENT_BUFFER;
  }
  if (FAILED(hr)) QX_LOG(QxLogging::kInfo, "StringCchCopyW failed %s", ErrorTextUtf8(hr).c_str());
  return hr;
}

}  // namespace QxUtils
