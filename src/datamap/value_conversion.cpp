// ConvertValue: raw device values translated through an item's conversions.
#include "datamap/value_conversion.h"

#include <cstring>

#include "support/log.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

namespace DataMapDetail {

namespace {

constexpr std::u16string_view kDefaultKey = u"default";

void AppendDecimal(int32_t number, std::u16string* out) {
  char16_t digits[12];
  size_t n = 0;
  uint32_t magnitude = number < 0 ? 0u - static_cast<uint32_t>(number) : static_cast<uint32_t>(number);
  do {
    digits[n++] = static_cast<char16_t>(u'0' + magnitude % 10);
    magnitude /= 10;
  } while (magnitude != 0);
  if (number < 0) out->push_back(u'-');
  while (n > 0) out->push_back(digits[--n]);
}

int32_t BigEndianInt32(const uint8_t* bytes) {
  uint32_t value = (static_cast<uint32_t>(bytes[0]) << 24) | (static_cast<uint32_t>(bytes[1]) << 16) |
                   (static_cast<uint32_t>(bytes[2]) << 8) | static_cast<uint32_t>(bytes[3]);
  return static_cast<int32_t>(value);
}

// Calls `visit` with each comma-separated token until it returns true.
template <class Visit>
bool AnyToken(std::u16string_view text, Visit visit) {
  size_t start = 0;
  while (true) {
    size_t comma = text.find(u',', start);
    std::u16string_view token =
        text.substr(start, comma == std::u16string_view::npos ? text.size() - start : comma - start);
    if (visit(token)) return true;
    if (comma == std::u16string_view::npos) return false;
    start = comma + 1;
  }
}

}  // namespace

void LowerTextForm(const VARIANT& value, std::u16string* out) {
  out->clear();
  if (value.vt == VT_I4) {
    AppendDecimal(value.lVal, out);
  } else if (value.vt == VT_BSTR) {
    if (value.bstrVal != nullptr) out->assign(value.bstrVal, SysStringLen(value.bstrVal));
  } else if (value.vt == (VT_ARRAY | VT_UI1)) {
    const SAFEARRAY* array = value.parray;
    if (array != nullptr && array->pvData != nullptr && array->rgsabound[0].cElements >= 8) {
      const auto* bytes = static_cast<const uint8_t*>(array->pvData);
      AppendDecimal(BigEndianInt32(bytes), out);
      out->push_back(u'-');
      AppendDecimal(BigEndianInt32(bytes + 4), out);
    }
  }
  for (char16_t& c : *out) {
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c - u'A' + u'a');
  }
}

bool ContainsKeyMatches(std::u16string_view key, std::u16string_view text) {
  if (key.find(u',') != std::u16string_view::npos) {
    // Every fragment of the key must occur somewhere in the text.
    return !AnyToken(key, [text](std::u16string_view token) { return text.find(token) == std::u16string_view::npos; });
  }
  if (key == text) return true;
  if (text.find(u',') != std::u16string_view::npos) {
    // Membership of the key in a comma-separated raw value.
    return AnyToken(text, [key](std::u16string_view token) { return token == key; });
  }
  return false;
}

const std::u16string* FindReplacement(const ConversionTable& equals, const ConversionTable& contains,
                                      std::u16string_view text) {
  // Keys are unique, so the first equal key in key order is the one lookup finds.
  if (auto hit = equals.find(text); hit != equals.end()) return &hit->second;
  for (const auto& [key, replacement] : contains) {
    if (ContainsKeyMatches(key, text)) return &replacement;
  }
  if (auto fallback = equals.find(kDefaultKey); fallback != equals.end()) return &fallback->second;
  if (auto fallback = contains.find(kDefaultKey); fallback != contains.end()) {
    return &fallback->second;
  }
  return nullptr;
}

}  // namespace DataMapDetail

VARIANT NvoDataItem::ConvertValue(VARIANT value) const {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::NvoDataItem::ConvertValue");
  VARIANT result;
  VariantInit(&result);
  const std::u16string* replacement = nullptr;
  if (!equals_.empty() || !contains_.empty()) {
    // One scratch buffer per thread: conversions run for every value read.
    thread_local std::u16string text;
    DataMapDetail::LowerTextForm(value, &text);
    replacement = DataMapDetail::FindReplacement(equals_, contains_, text);
  }
  if (replacement == nullptr) {
    HRESULT hr = VariantCopy(&result, &value);
    if (FAILED(hr)) throw ComError(hr);
    return result;
  }
  BSTR text = SysAllocStringLen(replacement->data(), static_cast<UINT>(replacement->size()));
  if (text == nullptr) throw ComError(E_OUTOFMEMORY);
  result.vt = VT_BSTR;
  result.bstrVal = text;
  return result;
}

}  // namespace Norvane
