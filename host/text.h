// Text helpers of the host transport: UTF-8 at libcurl and net-snmp, UTF-16 at
// the library's interface.
#pragma once

#include <string>
#include <string_view>

// The two conversions below are also exported to hosts; declaring them from the
// public header first gives their definitions its visibility.
#include "norvane/host.h"

namespace NorvaneHost {

// Unpaired surrogates become U+FFFD.
std::string ToUtf8(std::u16string_view text);
// Invalid or overlong sequences become U+FFFD.
std::u16string ToUtf16(std::string_view text);
// Null gives an empty string.
std::string ToUtf8(const char16_t* text);

bool IsValidUtf8(std::string_view text);
bool EqualsIgnoreAsciiCase(std::string_view a, std::string_view b);
std::string_view TrimSpaces(std::string_view text);

// Overwrites a secret before its memory is released.
void Wipe(std::string& secret);

}  // namespace NorvaneHost
