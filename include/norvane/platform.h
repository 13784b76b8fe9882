// Platform types the interface is written in: status codes, wide characters,
// length-prefixed strings and tagged variants, with the sizes and tags hosts
// written against the original platform expect.
#pragma once

#include <cstdint>

#include "norvane/export.h"

typedef int32_t HRESULT;
typedef uint32_t DWORD;
typedef uint16_t WORD;
typedef uint8_t BYTE;
typedef int32_t LONG;
typedef uint32_t ULONG;
typedef int64_t LONGLONG;
typedef uint64_t ULONGLONG;
typedef int32_t INT;
typedef uint32_t UINT;
typedef uint16_t USHORT;
typedef char16_t WCHAR;
typedef WCHAR* BSTR;
typedef uint16_t VARTYPE;
typedef int16_t VARIANT_BOOL;

// Status values used throughout the library.
#define S_OK ((HRESULT)0)
#define S_FALSE ((HRESULT)1)
#define E_FAIL ((HRESULT)0x80004005L)
#define E_NOTIMPL ((HRESULT)0x80004001L)
#define E_OUTOFMEMORY ((HRESULT)0x8007000EL)
#define E_INVALIDARG ((HRESULT)0x80070057L)
#define E_POINTER ((HRESULT)0x80004003L)
#define E_ABORT ((HRESULT)0x80004004L)
#define HRESULT_INSUFFICIENT_BUFFER ((HRESULT)0x8007007AL)
#define DISP_E_TYPEMISMATCH ((HRESULT)0x80020005L)
#define S_DEVICECANCELED ((HRESULT)0x902A010AL)
#define SUCCEEDED(hr) (((HRESULT)(hr)) >= 0)
#define FAILED(hr) (((HRESULT)(hr)) < 0)

// Thread last-error codes the library sets.
#define ERROR_SUCCESS 0L
#define ERROR_INVALID_PARAMETER 87L
#define ERROR_MORE_DATA 234L
#define ERROR_FILE_NOT_FOUND 2L
#define ERROR_NOT_ENOUGH_MEMORY 8L

// Variant type tags.
enum VARENUM : VARTYPE {
  VT_EMPTY = 0,
  VT_NULL = 1,
  VT_I2 = 2,
  VT_I4 = 3,
  VT_BSTR = 8,
  VT_BOOL = 11,
  VT_I1 = 16,
  VT_UI1 = 17,
  VT_UI2 = 18,
  VT_UI4 = 19,
  VT_I8 = 20,
  VT_UI8 = 21,
  VT_INT = 22,
  VT_UINT = 23,
  VT_ARRAY = 0x2000,
};

struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};

struct SAFEARRAYBOUND {
  ULONG cElements;
  LONG lLbound;
};

// One-dimensional arrays only: the library exchanges byte arrays and nothing else.
struct SAFEARRAY {
  USHORT cDims;
  USHORT fFeatures;
  ULONG cbElements;
  ULONG cLocks;
  void* pvData;
  SAFEARRAYBOUND rgsabound[1];
};

struct VARIANT {
  VARTYPE vt;
  WORD wReserved1;
  WORD wReserved2;
  WORD wReserved3;
  union {
    LONGLONG llVal;
    ULONGLONG ullVal;
    LONG lVal;
    ULONG ulVal;
    INT intVal;
    UINT uintVal;
    int16_t iVal;
    uint16_t uiVal;
    BYTE bVal;
    char cVal;
    VARIANT_BOOL boolVal;
    BSTR bstrVal;
    SAFEARRAY* parray;
    void* byref;
  };
};
typedef VARIANT VARIANTARG;

extern "C" {
NORVANE_API DWORD GetLastError(void);
NORVANE_API void SetLastError(DWORD code);

NORVANE_API void VariantInit(VARIANT* v);
NORVANE_API HRESULT VariantClear(VARIANT* v);
NORVANE_API HRESULT VariantCopy(VARIANT* dest, const VARIANT* src);

NORVANE_API BSTR SysAllocString(const WCHAR* text);
NORVANE_API BSTR SysAllocStringLen(const WCHAR* text, UINT length);
NORVANE_API void SysFreeString(BSTR text);
NORVANE_API UINT SysStringLen(BSTR text);

// Byte arrays (VT_ARRAY | VT_UI1) as the library produces and accepts them.
NORVANE_API SAFEARRAY* SafeArrayCreateVector(VARTYPE vt, LONG lowerBound, ULONG count);
NORVANE_API HRESULT SafeArrayDestroy(SAFEARRAY* array);
}
