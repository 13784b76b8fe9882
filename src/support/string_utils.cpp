#include "support/string_utils.h"

#include <netdb.h>
#include <sys/socket.h>

#include <cstring>
#include <cwchar>
#include <new>

namespace QxUtils {

namespace {

constexpr char16_t kReplacement = 0xFFFD;

void AppendCodePoint(std::u16string* out, char32_t cp) {
  if (cp < 0x10000) {
    out->push_back(static_cast<char16_t>(cp));
  } else {
    cp -= 0x10000;
    out->push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
    out->push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
  }
}

void AppendUtf8(std::string* out, char32_t cp) {
  if (cp < 0x80) {
    out->push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out->push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out->push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out->push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out->push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

}  // namespace

std::u16string Utf8ToWide(std::string_view text) {
  std::u16string out;
  try {
    out.reserve(text.size());
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    size_t n = text.size();
    size_t i = 0;
    while (i < n) {
      unsigned char c = p[i];
      if (c < 0x80) {
        out.push_back(c);
        ++i;
        continue;
      }
      size_t len;
      char32_t cp;
      char32_t min;
      if ((c & 0xE0) == 0xC0) {
        len = 2, cp = c & 0x1F, min = 0x80;
      } else if ((c & 0xF0) == 0xE0) {
        len = 3, cp = c & 0x0F, min = 0x800;
      } else if ((c & 0xF8) == 0xF0) {
        len = 4, cp = c & 0x07, min = 0x10000;
      } else {
        out.push_back(kReplacement);
        ++i;
        continue;
      }
      size_t k = 1;
      for (; k < len && i + k < n && (p[i + k] & 0xC0) == 0x80; ++k) cp = (cp << 6) | (p[i + k] & 0x3F);
      if (k < len || cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
        out.push_back(kReplacement);
        i += k;
        continue;
      }
      AppendCodePoint(&out, cp);
      i += len;
    }
  } catch (...) {
    return {};
  }
  return out;
}

std::u16string Utf8ToWide(const char* text) {
  if (text == nullptr) return {};
  return Utf8ToWide(std::string_view(text));
}

std::string WideToUtf8(std::u16string_view text) {
  std::string out;
  try {
    // Keys, expressions and device values are nearly always ASCII: copy that
    // leading run in one pass.
    size_t ascii = 0;
    while (ascii < text.size() && text[ascii] < 0x80) ++ascii;
    out.reserve(text.size());
    out.resize(ascii);
    for (size_t i = 0; i < ascii; ++i) out[i] = static_cast<char>(text[i]);
    for (size_t i = ascii; i < text.size(); ++i) {
      char32_t c = text[i];
      if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
          text[i + 1] <= 0xDFFF) {
        c = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00);
        ++i;
      } else if (c >= 0xD800 && c <= 0xDFFF) {
        c = kReplacement;
      }
      AppendUtf8(&out, c);
    }
  } catch (...) {
    return {};
  }
  return out;
}

std::string WideToUtf8(const char16_t* text) {
  if (text == nullptr) return {};
  return WideToUtf8(std::u16string_view(text));
}

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
