// Owned optional texts of the IPP attribute objects: unset and empty are
// distinct, and a getter hands out the stored characters or null.
#pragma once

#include <new>
#include <optional>
#include <string>

#include "norvane/platform.h"

namespace Norvane::IppText {

// Copies `text` into `field`; null clears it. E_OUTOFMEMORY leaves the field unset.
template <class Char>
HRESULT Store(std::optional<std::basic_string<Char>>* field, const Char* text) {
  field->reset();
  if (text == nullptr) return S_OK;
  try {
    field->emplace(text);
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
  return S_OK;
}

template <class Char>
const Char* Get(const std::optional<std::basic_string<Char>>& field) {
  return field.has_value() ? field->c_str() : nullptr;
}

}  // namespace Norvane::IppText
