// Reading item attributes: the number and flag rules of the data-map format and
// the copy of attribute text into the items' owned wide strings.
#pragma once

#include <cstdint>
#include <string_view>

#include "norvane/com.h"

namespace Norvane::DataMapDetail {

// Leading digits in base 10 after optional white space and sign, as a 32-bit
// unsigned value: a minus sign negates modulo 2^32 ("-1" is 4294967295) and an
// overflow saturates at 4294967295. No digits: 0.
uint32_t ParseUnsigned(std::string_view text);
// The same as a signed 32-bit value; overflow saturates at the end of the range
// that the sign points to.
int32_t ParseSigned(std::string_view text);
// "true" in any ASCII case.
bool IsTrueText(std::string_view text);
// UTF-8 to an owned wide string (malformed sequences become U+FFFD).
BStr ToBStr(std::string_view utf8);

}  // namespace Norvane::DataMapDetail
