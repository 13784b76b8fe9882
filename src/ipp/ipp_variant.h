// Decoded IPP values as the variants callers receive: texts as UTF-16 strings
// converted from the UTF-8 the printer sent, raw values as byte arrays.
#pragma once

#include <string_view>

#include "ipp/ipp_value_map.h"
#include "norvane/platform.h"

namespace Norvane {

// Replaces `value` with the text or bytes. Throws ComError(E_OUTOFMEMORY) when
// memory runs out, as the variant wrappers do.
void StoreIppValue(IppValueMap::Kind kind, std::string_view data, VARIANT* value);
// Appends bytes to a byte-array `value`, or replaces any other kind.
void AppendIppBytes(std::string_view data, VARIANT* value);

}  // namespace Norvane
