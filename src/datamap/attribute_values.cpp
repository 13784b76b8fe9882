#include "datamap/attribute_values.h"

#include <string>

#include "support/string_utils.h"

namespace Norvane::DataMapDetail {

namespace {

bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Skips white space and a sign; returns the digits' magnitude saturated just
// above `limit`, and whether any digit was seen.
struct Magnitude {
  uint64_t value = 0;
  bool negative = false;
  bool digits = false;
  bool overflow = false;
};

Magnitude ReadMagnitude(std::string_view text, uint64_t limit) {
  Magnitude m;
  size_t i = 0;
  while (i < text.size() && IsSpace(text[i])) ++i;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
    m.negative = text[i] == '-';
    ++i;
  }
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    m.digits = true;
    if (!m.overflow) {
      m.value = m.value * 10 + static_cast<uint64_t>(text[i] - '0');
      if (m.value > limit) m.overflow = true;
    }
  }
  return m;
}

}  // namespace

uint32_t ParseUnsigned(std::string_view text) {
  Magnitude m = ReadMagnitude(text, UINT32_MAX);
  if (!m.digits) return 0;
  if (m.overflow) return UINT32_MAX;
  uint32_t value = static_cast<uint32_t>(m.value);
  return m.negative ? static_cast<uint32_t>(0u - value) : value;
}

int32_t ParseSigned(std::string_view text) {
  Magnitude m = ReadMagnitude(text, static_cast<uint64_t>(INT32_MAX) + 1);
  if (!m.digits) return 0;
  if (m.negative) {
    if (m.overflow) return INT32_MIN;
    return static_cast<int32_t>(-static_cast<int64_t>(m.value));
  }
  if (m.overflow || m.value > static_cast<uint64_t>(INT32_MAX)) return INT32_MAX;
  return static_cast<int32_t>(m.value);
}

bool IsTrueText(std::string_view text) {
  static constexpr std::string_view kTrue = "true";
  if (text.size() != kTrue.size()) return false;
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if (c != kTrue[i]) return false;
  }
  return true;
}

BStr ToBStr(std::string_view utf8) {
  // Attribute texts are nearly always ASCII: widen those in place, one allocation.
  bool ascii = true;
  for (char c : utf8) {
    if (static_cast<unsigned char>(c) >= 0x80) {
      ascii = false;
      break;
    }
  }
  if (!ascii) return BStr(QxUtils::Utf8ToWide(utf8));
  if (utf8.size() > 0x3FFFFFF0u) throw ComError(E_OUTOFMEMORY);
  BSTR text = SysAllocStringLen(nullptr, static_cast<UINT>(utf8.size()));
  if (text == nullptr) throw ComError(E_OUTOFMEMORY);
  for (size_t i = 0; i < utf8.size(); ++i) text[i] = static_cast<char16_t>(static_cast<unsigned char>(utf8[i]));
  return BStr::Attach(text);
}

}  // namespace Norvane::DataMapDetail
