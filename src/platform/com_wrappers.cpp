#include <cstring>
#include <utility>

#include "norvane/com.h"

namespace Norvane {

ComError::ComError(HRESULT code) noexcept : code_(code) {}

const char* ComError::what() const noexcept {
  return code_ == E_OUTOFMEMORY ? "out of memory (0x8007000E)" : "COM error";
}

namespace {

BSTR CopyOrThrow(const WCHAR* text, size_t length) {
  if (text == nullptr) return nullptr;
  BSTR copy = SysAllocStringLen(text, static_cast<UINT>(length));
  if (copy == nullptr) throw ComError(E_OUTOFMEMORY);
  return copy;
}

}  // namespace

BStr::BStr(std::u16string_view text) : value_(CopyOrThrow(text.data() ? text.data() : u"", text.size())) {}

BStr::BStr(const BStr& other) : value_(CopyOrThrow(other.value_, other.Length())) {}

BStr::BStr(BStr&& other) noexcept : value_(std::exchange(other.value_, nullptr)) {}

BStr& BStr::operator=(const BStr& other) {
  if (this != &other) {
    BSTR copy = CopyOrThrow(other.value_, other.Length());
    SysFreeString(value_);
    value_ = copy;
  }
  return *this;
}

BStr& BStr::operator=(BStr&& other) noexcept {
  if (this != &other) {
    SysFreeString(value_);
    value_ = std::exchange(other.value_, nullptr);
  }
  return *this;
}

BStr::~BStr() { SysFreeString(value_); }

BStr BStr::Attach(BSTR raw) noexcept {
  BStr b;
  b.value_ = raw;
  return b;
}

BSTR BStr::Detach() noexcept { return std::exchange(value_, nullptr); }

UINT BStr::Length() const noexcept { return SysStringLen(value_); }

std::u16string_view BStr::View() const noexcept {
  return value_ == nullptr ? std::u16string_view() : std::u16string_view(value_, Length());
}

Variant::Variant() noexcept { VariantInit(&value_); }

Variant::Variant(const VARIANT& other) {
  VariantInit(&value_);
  HRESULT hr = VariantCopy(&value_, &other);
  if (FAILED(hr)) throw ComError(hr);
}

Variant::Variant(const Variant& other) : Variant(other.value_) {}

Variant::Variant(Variant&& other) noexcept : value_(other.value_) { VariantInit(&other.value_); }

Variant& Variant::operator=(const Variant& other) {
  if (this != &other) {
    HRESULT hr = VariantCopy(&value_, &other.value_);
    if (FAILED(hr)) throw ComError(hr);
  }
  return *this;
}

Variant& Variant::operator=(Variant&& other) noexcept {
  if (this != &other) {
    VariantClear(&value_);
    value_ = other.value_;
    VariantInit(&other.value_);
  }
  return *this;
}

Variant::~Variant() { VariantClear(&value_); }

Variant Variant::FromInt32(int32_t value) {
  Variant v;
  v.value_.vt = VT_I4;
  v.value_.lVal = value;
  return v;
}

Variant Variant::FromInt(int32_t value) {
  Variant v;
  v.value_.vt = VT_INT;
  v.value_.intVal = value;
  return v;
}

Variant Variant::FromString(std::u16string_view text) {
  Variant v;
  v.value_.bstrVal = BStr(text).Detach();
  v.value_.vt = VT_BSTR;
  return v;
}

Variant Variant::FromBytes(const void* data, size_t length) {
  if (length > 0xFFFFFFFFu) throw ComError(E_OUTOFMEMORY);
  SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(length));
  if (array == nullptr) throw ComError(E_OUTOFMEMORY);
  if (length != 0) std::memcpy(array->pvData, data, length);
  Variant v;
  v.value_.vt = VT_ARRAY | VT_UI1;
  v.value_.parray = array;
  return v;
}

void Variant::Clear() noexcept { VariantClear(&value_); }

VARIANT Variant::Detach() noexcept {
  VARIANT out = value_;
  VariantInit(&value_);
  return out;
}

}  // namespace Norvane
