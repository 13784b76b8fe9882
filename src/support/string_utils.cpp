#include "support/string_utils.h"

#include <netdb.h>
#include <sys/socket.h>

#include <cstring>
#include <cwchar>
#include <new>
#include <optional>
#include <string_view>

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

std::u16string ReplaceAll(std::u16string_view source, std::u16string_view search, std::u16string_view replacement) {
  if (source.empty()) return {};
  if (search.empty()) return std::u16string(source);
  std::u16string out;
  out.reserve(source.size());
  size_t from = 0;
  for (size_t at = source.find(search); at != std::u16string_view::npos; at = source.find(search, from)) {
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

namespace {

// One to `maxDigits` ASCII digits at `*at`, read into `value`; false when
// there are none or more.
bool ReadDigits(std::u16string_view text, size_t* at, size_t maxDigits, unsigned* value) {
  size_t start = *at;
  unsigned number = 0;
  for (; *at < text.size() && text[*at] >= u'0' && text[*at] <= u'9'; ++*at) {
    if (*at - start == maxDigits) return false;
    number = number * 10 + static_cast<unsigned>(text[*at] - u'0');
  }
  *value = number;
  return *at > start;
}

// Text of the plain form, four groups of one to three digits and perhaps a
// colon and one to five digits, answered without the scanner (which reads that
// form the same way); other text is left to the scanner.
std::optional<bool> PlainIPv4Address(std::u16string_view text) {
  unsigned parts[5] = {};
  size_t at = 0;
  for (int i = 0; i < 4; ++i) {
    if (i > 0 && (at >= text.size() || text[at++] != u'.')) return std::nullopt;
    if (!ReadDigits(text, &at, 3, &parts[i])) return std::nullopt;
  }
  if (at < text.size() && (text[at++] != u':' || !ReadDigits(text, &at, 5, &parts[4]) || at != text.size())) {
    return std::nullopt;
  }
  return parts[0] < 256 && parts[1] < 256 && parts[2] < 256 && parts[3] < 256 && parts[4] < 65536;
}

}  // namespace

bool IsIPv4Address(const char16_t* text) {
  if (text == nullptr) return false;
  if (std::optional<bool> plain = PlainIPv4Address(text)) return *plain;
  std::wstring wide(text, text + std::char_traits<char16_t>::length(text));
  unsigned a = 0, b = 0, c = 0, d = 0, port = 0;
  wchar_t separator = 0, trailing = 0;
  int fields = std::swscanf(wide.c_str(), L"%3u.%3u.%3u.%3u%lc%u%lc", &a, &b, &c, &d, &separator, &port, &trailing);
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
