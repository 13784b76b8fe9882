#include <cstdlib>
#include <cstring>
#include <new>

#include "norvane/platform.h"

extern "C" SAFEARRAY* SafeArrayCreateVector(VARTYPE vt, LONG lowerBound, ULONG count) {
  // Only byte arrays cross this interface.
  if (vt != VT_UI1) return nullptr;
  auto* array = static_cast<SAFEARRAY*>(std::calloc(1, sizeof(SAFEARRAY)));
  if (array == nullptr) return nullptr;
  array->cDims = 1;
  array->cbElements = 1;
  array->rgsabound[0].cElements = count;
  array->rgsabound[0].lLbound = lowerBound;
  array->pvData = std::malloc(count == 0 ? 1 : count);
  if (array->pvData == nullptr) {
    std::free(array);
    return nullptr;
  }
  return array;
}

extern "C" HRESULT SafeArrayDestroy(SAFEARRAY* array) {
  if (array == nullptr) return S_OK;
  std::free(array->pvData);
  std::free(array);
  return S_OK;
}

extern "C" void VariantInit(VARIANT* v) {
  if (v == nullptr) return;
  std::memset(v, 0, sizeof *v);
  v->vt = VT_EMPTY;
}

extern "C" HRESULT VariantClear(VARIANT* v) {
  if (v == nullptr) return E_INVALIDARG;
  if (v->vt == VT_BSTR) {
    SysFreeString(v->bstrVal);
  } else if (v->vt == (VT_ARRAY | VT_UI1)) {
    SafeArrayDestroy(v->parray);
  }
  std::memset(v, 0, sizeof *v);
  v->vt = VT_EMPTY;
  return S_OK;
}

extern "C" HRESULT VariantCopy(VARIANT* dest, const VARIANT* src) {
  if (dest == nullptr || src == nullptr) return E_INVALIDARG;
  if (dest == src) return S_OK;
  VARIANT copy = *src;
  if (src->vt == VT_BSTR && src->bstrVal != nullptr) {
    copy.bstrVal = SysAllocStringLen(src->bstrVal, SysStringLen(src->bstrVal));
    if (copy.bstrVal == nullptr) return E_OUTOFMEMORY;
  } else if (src->vt == (VT_ARRAY | VT_UI1) && src->parray != nullptr) {
    ULONG n = src->parray->rgsabound[0].cElements;
    copy.parray = SafeArrayCreateVector(VT_UI1, src->parray->rgsabound[0].lLbound, n);
    if (copy.parray == nullptr) return E_OUTOFMEMORY;
    if (n != 0) std::memcpy(copy.parray->pvData, src->parray->pvData, n);
  }
  VariantClear(dest);
  *dest = copy;
  return S_OK;
}
