#include "text.h"

#include <cstdint>

namespace NorvaneHost {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

void AppendUtf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

// Decodes one sequence at text[pos]; advances pos; false for an invalid one
// (pos then moves past the first byte only).
bool DecodeUtf8(std::string_view text, size_t& pos, char32_t& cp) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  unsigned char lead = byte(pos);
  size_t extra;
  char32_t min;
  if (lead < 0x80) {
    cp = lead;
    ++pos;
    return true;
  } else if ((lead & 0xE0) == 0xC0) {
    extra = 1, min = 0x80, cp = lead & 0x1F;
  } else if ((lead & 0xF0) == 0xE0) {
    extra = 2, min = 0x800, cp = lead & 0x0F;
  } else if ((lead & 0xF8) == 0xF0) {
    extra = 3, min = 0x10000, cp = lead & 0x07;
  } else {
    ++pos;
    return false;
  }
  if (text.size() - pos <= extra) {
    ++pos;
    return false;
  }
  for (size_t i = 1; i <= extra; ++i) {
    unsigned char c = byte(pos + i);
    if ((c & 0xC0) != 0x80) {
      ++pos;
      return false;
    }
    cp = (cp << 6) | (c & 0x3F);
  }
  if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
    ++pos;
    return false;
  }
  pos += extra + 1;
  return true;
}

}  // namespace

std::string ToUtf8(std::u16string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    char32_t c = text[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
        text[i + 1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      ++i;
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      c = kReplacement;
    }
    AppendUtf8(out, c);
  }
  return out;
}

std::string ToUtf8(const char16_t* text) {
  return text == nullptr ? std::string() : ToUtf8(std::u16string_view(text));
}

std::u16string ToUtf16(std::string_view text) {
  std::u16string out;
  out.reserve(text.size());
  size_t pos = 0;
  while (pos < text.size()) {
    char32_t cp;
    if (!DecodeUtf8(text, pos, cp)) cp = kReplacement;
    if (cp >= 0x10000) {
      cp -= 0x10000;
      out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
    } else {
      out.push_back(static_cast<char16_t>(cp));
    }
  }
  return out;
}

bool IsValidUtf8(std::string_view text) {
  size_t pos = 0;
  char32_t cp;
  while (pos < text.size()) {
    if (!DecodeUtf8(text, pos, cp)) return false;
  }
  return true;
}

bool EqualsIgnoreAsciiCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
    if (x != y) return false;
  }
  return true;
}

std::string_view TrimSpaces(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r' ||
                           text.back() == '\n')) {
    text.remove_suffix(1);
  }
  return text;
}

void Wipe(std::string& secret) {
  volatile char* p = secret.data();
  for (size_t i = 0; i < secret.size(); ++i) p[i] = 0;
  secret.clear();
}

}  // namespace NorvaneHost
