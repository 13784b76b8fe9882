#include "platform/utf.h"

namespace QxUtils {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

// Decodes the sequence at text[*pos] and moves past it. An invalid sequence
// moves past its lead byte and the continuation bytes that followed it, so a
// broken sequence costs one replacement character, not one per byte.
bool DecodeUtf8(std::string_view text, size_t* pos, char32_t* cp) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  unsigned char lead = byte(*pos);
  size_t length;
  char32_t min;
  if (lead < 0x80) {
    *cp = lead;
    ++*pos;
    return true;
  }
  if ((lead & 0xE0) == 0xC0) {
    length = 2, min = 0x80, *cp = lead & 0x1F;
  } else if ((lead & 0xF0) == 0xE0) {
    length = 3, min = 0x800, *cp = lead & 0x0F;
  } else if ((lead & 0xF8) == 0xF0) {
    length = 4, min = 0x10000, *cp = lead & 0x07;
  } else {
    ++*pos;
    return false;
  }
  size_t k = 1;
  for (; k < length && *pos + k < text.size() && (byte(*pos + k) & 0xC0) == 0x80; ++k) {
    *cp = (*cp << 6) | (byte(*pos + k) & 0x3F);
  }
  *pos += k;
  return k == length && *cp >= min && *cp <= 0x10FFFF && !(*cp >= 0xD800 && *cp <= 0xDFFF);
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
    size_t pos = 0;
    while (pos < text.size()) {
      char32_t cp;
      if (!DecodeUtf8(text, &pos, &cp)) cp = kReplacement;
      if (cp < 0x10000) {
        out.push_back(static_cast<char16_t>(cp));
      } else {
        cp -= 0x10000;
        out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
        out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
      }
    }
  } catch (...) {
    return {};
  }
  return out;
}

std::u16string Utf8ToWide(const char* text) {
  return text == nullptr ? std::u16string() : Utf8ToWide(std::string_view(text));
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
      if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
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
  return text == nullptr ? std::string() : WideToUtf8(std::u16string_view(text));
}

bool IsValidUtf8(std::string_view text) {
  size_t pos = 0;
  char32_t cp;
  while (pos < text.size()) {
    if (!DecodeUtf8(text, &pos, &cp)) return false;
  }
  return true;
}

}  // namespace QxUtils
