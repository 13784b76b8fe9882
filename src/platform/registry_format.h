// The text form of one registry key's values, one value a line:
//
//   ; comment
//   "Name"=dword:00000010
//   "Name"="text"
//
// Names and texts are UTF-8 between double quotes; backslash escapes \\ \" \n
// \r \t and \uXXXX (one UTF-16 code unit, so any value survives a round trip,
// lone surrogates included). Later lines with the same name replace earlier ones.
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

// Parses a value file. False (and `error` set to the line number) for text that
// does not follow the format; `out` is then unspecified.
bool ParseValues(std::string_view text, ValueList* out, size_t* errorLine = nullptr);
std::string FormatValues(const ValueList& values);

// Sorted insert or replace.
void PutValue(ValueList* values, Value value);
const Value* FindValue(const ValueList& values, std::u16string_view name);

}  // namespace Norvane::Registry
