#include "snmp_value.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>

#include "text.h"

namespace NorvaneHost {

namespace {

HRESULT SetText(VARIANT* value, std::u16string_view text) {
  BSTR copy = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
  if (copy == nullptr) return E_OUTOFMEMORY;
  value->vt = VT_BSTR;
  value->bstrVal = copy;
  return S_OK;
}

HRESULT SetBytes(VARIANT* value, const uint8_t* data, size_t length) {
  SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(length));
  if (array == nullptr) return E_OUTOFMEMORY;
  if (length > 0) std::memcpy(array->pvData, data, length);
  value->vt = VT_ARRAY | VT_UI1;
  value->parray = array;
  return S_OK;
}

HRESULT SetUnsigned(VARIANT* value, uint64_t number) {
  if (number <= static_cast<uint64_t>(std::numeric_limits<int32_t>::max())) {
    value->vt = VT_I4;
    value->lVal = static_cast<LONG>(number);
    return S_OK;
  }
  std::string digits = std::to_string(number);
  return SetText(value, std::u16string(digits.begin(), digits.end()));
}

// No control characters (C0, DEL, and C1 unless the text is UTF-8, where those
// bytes are parts of characters) but tab, CR and LF.
bool IsPrintable(std::string_view bytes, bool utf8) {
  for (unsigned char c : bytes) {
    if ((c < 0x20 && c != '\t' && c != '\r' && c != '\n') || c == 0x7F || (!utf8 && c >= 0x80 && c < 0xA0)) {
      return false;
    }
  }
  return true;
}

std::u16string FromLatin1(std::string_view bytes) {
  std::u16string text;
  text.reserve(bytes.size());
  for (unsigned char c : bytes) text.push_back(static_cast<char16_t>(c));
  return text;
}

}  // namespace

std::optional<std::vector<oid>> ParseOid(std::u16string_view text) {
  if (!text.empty() && text.front() == u'.') text.remove_prefix(1);
  std::vector<oid> arcs;
  uint64_t arc = 0;
  bool digits = false;
  for (size_t i = 0; i <= text.size(); ++i) {
    if (i == text.size() || text[i] == u'.') {
      if (!digits || arcs.size() == MAX_OID_LEN) return std::nullopt;
      arcs.push_back(static_cast<oid>(arc));
      arc = 0;
      digits = false;
    } else if (text[i] >= u'0' && text[i] <= u'9') {
      arc = arc * 10 + (text[i] - u'0');
      if (arc > 0xFFFFFFFFu) return std::nullopt;
      digits = true;
    } else {
      return std::nullopt;
    }
  }
  if (arcs.size() < 2) return std::nullopt;
  return arcs;
}

std::u16string FormatOid(const oid* arcs, size_t count) {
  std::u16string text;
  for (size_t i = 0; i < count; ++i) {
    if (i > 0) text.push_back(u'.');
    std::string digits = std::to_string(static_cast<unsigned long>(arcs[i]));
    text.append(digits.begin(), digits.end());
  }
  return text;
}

bool FollowsOid(const netsnmp_variable_list& answer, const std::vector<oid>& asked) {
  return snmp_oid_compare(answer.name, answer.name_length, asked.data(), asked.size()) > 0;
}

HRESULT VariableToVariant(const netsnmp_variable_list& variable, VARIANT* value) {
  VariantInit(value);
  switch (variable.type) {
    case ASN_INTEGER:
      value->vt = VT_I4;
      value->lVal = static_cast<LONG>(*variable.val.integer);
      return S_OK;
    case ASN_COUNTER:
    case ASN_GAUGE:
    case ASN_TIMETICKS:
    case ASN_UINTEGER:
      return SetUnsigned(value, static_cast<uint32_t>(*variable.val.integer));
    case ASN_COUNTER64: {
      const counter64* big = variable.val.counter64;
      return SetUnsigned(value, (static_cast<uint64_t>(big->high) << 32) | (big->low & 0xFFFFFFFFu));
    }
    case ASN_OCTET_STR: {
      const uint8_t* data = variable.val.string;
      size_t length = variable.val_len;
      std::string_view bytes(reinterpret_cast<const char*>(data), data == nullptr ? 0 : length);
      std::string_view text = bytes;
      while (!text.empty() && text.back() == '\0') text.remove_suffix(1);
      bool utf8 = IsValidUtf8(text);
      if (IsPrintable(text, utf8)) return SetText(value, utf8 ? Utf8ToWide(text) : FromLatin1(text));
      return SetBytes(value, data, bytes.size());
    }
    case ASN_OPAQUE:
      return SetBytes(value, variable.val.string, variable.val_len);
    case ASN_IPADDRESS: {
      if (variable.val_len != 4) return E_FAIL;
      const uint8_t* a = variable.val.string;
      char text[16];
      std::snprintf(text, sizeof text, "%u.%u.%u.%u", a[0], a[1], a[2], a[3]);
      std::string narrow(text);
      return SetText(value, std::u16string(narrow.begin(), narrow.end()));
    }
    case ASN_OBJECT_ID:
      return SetText(value, FormatOid(variable.val.objid, variable.val_len / sizeof(oid)));
    case ASN_NULL:
      value->vt = VT_NULL;
      return S_OK;
    default:  // SNMP_NOSUCHOBJECT, SNMP_NOSUCHINSTANCE, SNMP_ENDOFMIBVIEW, ...
      return E_FAIL;
  }
}

std::optional<SnmpSetValue> VariantToSetValue(const VARIANT& value) {
  SnmpSetValue out;
  switch (value.vt) {
    case VT_I4:
      out.integer = value.lVal;
      return out;
    case VT_INT:
      out.integer = value.intVal;
      return out;
    case VT_I2:
      out.integer = value.iVal;
      return out;
    case VT_UI1:
      out.integer = value.bVal;
      return out;
    case VT_UI2:
      out.integer = value.uiVal;
      return out;
    case VT_UI4:
      if (value.ulVal > static_cast<ULONG>(std::numeric_limits<int32_t>::max())) return std::nullopt;
      out.integer = static_cast<long>(value.ulVal);
      return out;
    case VT_BOOL:
      out.integer = value.boolVal != 0 ? 1 : 0;
      return out;
    case VT_BSTR:
      out.type = ASN_OCTET_STR;
      if (value.bstrVal != nullptr)
        out.bytes = WideToUtf8(std::u16string_view(value.bstrVal, SysStringLen(value.bstrVal)));
      return out;
    case VT_ARRAY | VT_UI1: {
      out.type = ASN_OCTET_STR;
      const SAFEARRAY* array = value.parray;
      if (array == nullptr) return std::nullopt;
      const char* data = static_cast<const char*>(array->pvData);
      out.bytes.assign(data, data + array->rgsabound[0].cElements);
      return out;
    }
    default:
      return std::nullopt;
  }
}

}  // namespace NorvaneHost
