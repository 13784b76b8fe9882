#include "ipp/ipp_variant.h"

#include <cstring>

#include "norvane/com.h"
#include "support/string_utils.h"

namespace Norvane {

namespace {

SAFEARRAY* NewByteArray(size_t length) {
  SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(length));
  if (array == nullptr) throw ComError(E_OUTOFMEMORY);
  return array;
}

}  // namespace

void StoreIppValue(IppValueMap::Kind kind, std::string_view data, VARIANT* value) {
  if (kind == IppValueMap::Kind::kBytes) {
    SAFEARRAY* array = NewByteArray(data.size());
    if (!data.empty()) std::memcpy(array->pvData, data.data(), data.size());
    VariantClear(value);
    value->vt = VT_ARRAY | VT_UI1;
    value->parray = array;
    return;
  }
  std::u16string wide = QxUtils::Utf8ToWide(data);
  BSTR text = SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size()));
  if (text == nullptr) throw ComError(E_OUTOFMEMORY);
  VariantClear(value);
  value->vt = VT_BSTR;
  value->bstrVal = text;
}

void AppendIppBytes(std::string_view data, VARIANT* value) {
  if (value->vt != (VT_ARRAY | VT_UI1) || value->parray == nullptr) {
    StoreIppValue(IppValueMap::Kind::kBytes, data, value);
    return;
  }
  ULONG held = value->parray->rgsabound[0].cElements;
  SAFEARRAY* array = NewByteArray(held + data.size());
  if (held != 0) std::memcpy(array->pvData, value->parray->pvData, held);
  if (!data.empty()) std::memcpy(static_cast<uint8_t*>(array->pvData) + held, data.data(), data.size());
  SafeArrayDestroy(value->parray);
  value->parray = array;
}

}  // namespace Norvane
