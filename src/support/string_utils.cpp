#include "support/string_utils.h"

#include <netdb.h>
#include <sys/socket.h>

#include <cstring>
#include <cwchar>
#include <new>

namespace QxUtils {

char16_t* DuplicateString(const char16_t* text) {
  if (text == nullptr) return nullptr;
  size_t n = std::char_traits<char16_t>::length(text);
  auto* copy = new (std::nothrow) char16_t[n + 1];
  if (copy == nullptr) return nullptr;
  std::memcpy(copy, text, (n + 1) * sizeof(char16_t));
  return copy;
}

void FreeString(char16_t* text) { delete[] text; }

std::u16string ReplaceAll(std::u16string_view source, std::u16string_view search,
                          std::u16string_view replacement) {
  if (source.empty()) return {};
  if (search.empty()) return std::u16string(source);
  std::u16string out;
  out.reserve(source.size());
  size_t from = 0;
  for (size_t at = source.find(search); at != std::u16string_view::npos;
       at = source.find(search, from)) {
    out.append(source.substr(from, at - from));
    out.append(replacement);
    from = at + search.size();
  }
  out.append(source.substr(from));
  return out;
}

bool StartsWith(std::u16string_view text, std::u16string_view prefix) {
  return text.size() >= prefix.size() && text.compare(0, prefix.size(), prefix) == 0;
}

bool IsIPv4Address(const char16_t* text) {
  if (text == nullptr) return false;
  std::wstring wide(text, text + std::char_traits<char16_t>::length(text));
  unsigned a = 0, b = 0, c = 0, d = 0, port = 0;
  wchar_t separator = 0, trailing = 0;
  int fields = std::swscanf(wide.c_str(), L"%3u.%3u.%3u.%3u%lc%u%lc", &a, &b, &c, &d, &separator,
                            &port, &trailing);
  if (fields != 4 && !(fields == 6 && separator == L':')) return false;
  if (fields == 4) port = 0;
  return a < 256 && b < 256 && c < 256 && d < 256 && port < 65536;
}

bool IsIPv6Address(const char16_t* text) {
  if (text == nullptr) return false;
  // Every IPv6 literal has a colon; the resolver is asked only about those.
  if (std::u16string_view(text).find(u':') == std::u16string_view::npos) return false;
  std::string host = WideToUtf8(text);
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST;
  hints.ai_family = AF_UNSPEC;
  addrinfo* result = nullptr;
  if (getaddrinfo(host.c_str(), nullptr, &hints, &result) != 0 || result == nullptr) return false;
  bool v6 = result->ai_family == AF_INET6;
  freeaddrinfo(result);
  return v6;
}

bool EqualsIgnoreAsciiCase(std::u16string_view a, std::u16string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char16_t x = a[i], y = b[i];
    if (x >= u'A' && x <= u'Z') x = static_cast<char16_t>(x + 32);
    if (y >= u'A' && y <= u'Z') y = static_cast<char16_t>(y + 32);
    if (x != y) return false;
  }
  return true;
}

}  // namespace QxUtils
