// Text conversion and inspection. These write no log records.
#pragma once

#include <string>
#include <string_view>

#include "platform/utf.h"

namespace QxUtils {

// A heap copy (length + 1 characters) to be released with FreeString; null when
// memory runs out or text is null.
char16_t* DuplicateString(const char16_t* text);
void FreeString(char16_t* text);

// Replaces every occurrence of search, scanning left to right and resuming after
// each match. An empty search leaves the source unchanged.
std::u16string ReplaceAll(std::u16string_view source, std::u16string_view search, std::u16string_view replacement);

bool StartsWith(std::u16string_view text, std::u16string_view prefix);

// Dotted IPv4 text with an optional ":port".
bool IsIPv4Address(const char16_t* text);
// Numeric IPv6 text (no name lookup).
bool IsIPv6Address(const char16_t* text);

// ASCII-only case-insensitive comparison, for element names and protocol words.
bool EqualsIgnoreAsciiCase(std::u16string_view a, std::u16string_view b);

}  // namespace QxUtils
