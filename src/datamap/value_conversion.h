// The matching rules of ConvertValue, apart from variants so that they can be
// tested and measured on their own.
#pragma once

#include <string>
#include <string_view>

#include "norvane/datamap.h"
#include "norvane/platform.h"

namespace Norvane::DataMapDetail {

// The lower-cased text form of a raw value: a 32-bit integer in decimal, a
// string as is, a byte array of at least eight bytes as "first-second" (two
// big-endian signed 32-bit integers), anything else (shorter byte arrays too)
// empty. Written into `out`, replacing its content.
void LowerTextForm(const VARIANT& value, std::u16string* out);

// Whether a contains-table key matches the lower-cased text form.
bool ContainsKeyMatches(std::u16string_view key, std::u16string_view text);

// The replacement for a lower-cased text form: an equals match, else the first
// contains match in key order, else a "default" entry (equals table first).
// Null when nothing applies and the raw value is to be kept.
const std::u16string* FindReplacement(const ConversionTable& equals, const ConversionTable& contains,
                                      std::u16string_view text);

}  // namespace Norvane::DataMapDetail
