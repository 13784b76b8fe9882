// Bounded text operations used when resolving device data: lengths, regular
// expression search and capture, bounded copies and error texts. They log
// through the "NorvaneResolver" module.
#pragma once

#include <cstdint>
#include <string>

#include "norvane/platform.h"

namespace QxUtils {

// The destination size StrWcsNCpy works within unless the caller states a smaller one.
constexpr uint32_t kResolverBufferChars = 1025;
constexpr uint32_t kMaxCountedChars = 2048;

// Characters before the terminator, looking at most at 2047; a text without a
// terminator in range gives 0 (and a log record).
uint32_t GetStringLength(const char16_t* text);

// ECMAScript pattern anywhere in the text; false for null/empty input or a bad pattern.
bool RegexSearch(const char16_t* text, const char16_t* pattern);

// Copies capture group `group` of the first match into buffer (capacity in
// characters, at most kResolverBufferChars used). 1 when a non-empty capture was
// found, else 0 with the buffer untouched.
int CaptureSubString(const char16_t* text, char16_t* buffer, const char16_t* pattern, uint32_t group,
                     uint32_t bufferChars = kResolverBufferChars);

// The system's message for a code, at most 99 characters; "Format message
// failed" when there is none. Each call returns its own storage.
std::u16string FormatErrorText(uint32_t code);

// Copies at most count characters, stopping after the source's terminator, into
// a destination of min(destChars, 1025) characters. 0, E_INVALIDARG, or
// HRESULT_INSUFFICIENT_BUFFER when the text had to be cut (it stays terminated).
HRESULT StrWcsNCpy(char16_t* destination, const char16_t* source, uint32_t count,
                   uint32_t destChars = kResolverBufferChars);
// Copies the whole source into a destination of `capacity` characters.
HRESULT StrWcsCpy(char16_t* destination, uint32_t capacity, const char16_t* source);

}  // namespace QxUtils
