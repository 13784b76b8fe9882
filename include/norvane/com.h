// Owning wrappers over BSTR and VARIANT. Allocation failure throws ComError
// carrying E_OUTOFMEMORY (0x8007000E); a failed type change throws ComError with
// the conversion's status. These are the only exceptions that cross operations.
#pragma once

#include <exception>
#include <string>
#include <string_view>

#include "norvane/platform.h"

namespace Norvane {

class NORVANE_API ComError : public std::exception {
 public:
  explicit ComError(HRESULT code) noexcept;
  HRESULT Error() const noexcept { return code_; }
  const char* what() const noexcept override;

 private:
  HRESULT code_;
};

// Owns one BSTR. Null and empty are distinct: a default BStr holds null.
class NORVANE_API BStr {
 public:
  BStr() noexcept = default;
  explicit BStr(std::u16string_view text);
  BStr(const BStr& other);
  BStr(BStr&& other) noexcept;
  BStr& operator=(const BStr& other);
  BStr& operator=(BStr&& other) noexcept;
  ~BStr();

  // Takes ownership of a BSTR allocated with SysAllocString*.
  static BStr Attach(BSTR raw) noexcept;
  BSTR Detach() noexcept;
  BSTR Get() const noexcept { return value_; }
  UINT Length() const noexcept;
  std::u16string_view View() const noexcept;

 private:
  BSTR value_ = nullptr;
};

// Owns one VARIANT and clears it on destruction.
class NORVANE_API Variant {
 public:
  Variant() noexcept;
  Variant(const VARIANT& other);
  Variant(const Variant& other);
  Variant(Variant&& other) noexcept;
  Variant& operator=(const Variant& other);
  Variant& operator=(Variant&& other) noexcept;
  ~Variant();

  static Variant FromInt32(int32_t value);
  static Variant FromInt(int32_t value);  // VT_INT
  static Variant FromString(std::u16string_view text);
  static Variant FromBytes(const void* data, size_t length);

  VARIANT* Ptr() noexcept { return &value_; }
  const VARIANT& Get() const noexcept { return value_; }
  VARIANT& Get() noexcept { return value_; }
  VARTYPE Type() const noexcept { return value_.vt; }
  void Clear() noexcept;
  // Moves the value out to a caller-owned VARIANT, leaving this one empty.
  VARIANT Detach() noexcept;

 private:
  VARIANT value_;
};

}  // namespace Norvane
