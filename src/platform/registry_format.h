// The text form of one registry key's values, one value a line:
//
//   ; comment
//   "Name"=dword:00000010
//   "Name"="text"
//
// Names and texts are UTF-8 between double quotes; backslash escapes \\ \" \n
// \r \t and \uXXXX (one UTF-16 code unit, so any value survives a round trip,
// lone surrogates included). Later lines with the same name replace earlier ones.
//
// Names compare ignoring case (as the platform's registry does) and keep the
// case they were first written with.
//
// Reader and writer share the limits below: a value over them is refused
// before anything is written, so the store never holds a file it cannot read
// back.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Norvane::Registry {

enum class ValueType : uint32_t { String = 1, Dword = 4 };

struct Value {
  std::u16string name;
  ValueType type = ValueType::String;
  std::u16string text;  // String
  uint32_t dword = 0;   // Dword
};

// Values in name order (code unit), as the store keeps them.
using ValueList = std::vector<Value>;

// The platform's own limits: a value name of 16383 characters, and a text of
// 1 MiB counted as UTF-16 with its terminator.
constexpr size_t kMaxNameChars = 16383;
constexpr size_t kMaxTextChars = (1u << 19) - 1;
// A line holding the longest name and text, every unit escaped as \uXXXX.
constexpr size_t kMaxLineBytes = 6 * (kMaxNameChars + kMaxTextChars) + 32;
// A whole value file.
constexpr size_t kMaxFileBytes = 64u << 20;

// True when the value may be stored: a name that is not empty and both within
// their limits.
bool WithinLimits(const Value& value);

// Ordinal comparison of the upper-case forms, one UTF-16 unit at a time.
bool SameName(std::u16string_view a, std::u16string_view b);
std::u16string FoldName(std::u16string_view name);

// Parses a value file. False (and `error` set to the line number) for text that
// does not follow the format; `out` is then unspecified.
bool ParseValues(std::string_view text, ValueList* out, size_t* errorLine = nullptr);
std::string FormatValues(const ValueList& values);

// Sorted insert, or replace of the value of the same name (ignoring case),
// which keeps the name it had.
void PutValue(ValueList* values, Value value);
// The same for many values at once, in order, later ones winning.
void PutValues(ValueList* values, ValueList updates);
const Value* FindValue(const ValueList& values, std::u16string_view name);

}  // namespace Norvane::Registry
