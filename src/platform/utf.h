// UTF-8 <-> UTF-16 conversion, the one copy shared by the library and the host
// transport (each links its own hidden instance of this file's object).
#pragma once

#include <string>
#include <string_view>

namespace QxUtils {

// Each invalid, truncated, overlong or surrogate sequence becomes one U+FFFD;
// null gives an empty string, and so does running out of memory.
std::u16string Utf8ToWide(std::string_view text);
std::u16string Utf8ToWide(const char* text);
// Unpaired surrogates become U+FFFD.
std::string WideToUtf8(std::u16string_view text);
std::string WideToUtf8(const char16_t* text);

bool IsValidUtf8(std::string_view text);

}  // namespace QxUtils
