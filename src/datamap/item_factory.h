// The creation functions allocate without throwing std::bad_alloc: running out
// of memory leaves the library as the platform's out-of-memory error.
#pragma once

#include <new>

#include "norvane/com.h"

namespace Norvane::DataMapDetail {

template <class T>
T* Created(T* object) {
  if (object == nullptr) throw ComError(E_OUTOFMEMORY);
  return object;
}

inline BStr CopyText(const char16_t* text) { return text == nullptr ? BStr() : BStr(std::u16string_view(text)); }

}  // namespace Norvane::DataMapDetail
