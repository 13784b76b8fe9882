// BSTR: a 32-bit byte length, then the UTF-16 text and a terminator. The pointer
// handed out points at the text, so a BSTR reads as an ordinary wide string.
#include <cstdlib>
#include <cstring>

#include "norvane/platform.h"

namespace {

constexpr UINT kMaxChars = 0x7FFFFFF0u / sizeof(WCHAR);

size_t Length(const WCHAR* text) {
  size_t n = 0;
  while (text[n] != 0) ++n;
  return n;
}

}  // namespace

extern "C" BSTR SysAllocStringLen(const WCHAR* text, UINT length) {
  if (length > kMaxChars) return nullptr;
  size_t bytes = sizeof(uint32_t) + (static_cast<size_t>(length) + 1) * sizeof(WCHAR);
  auto* block = static_cast<uint8_t*>(std::malloc(bytes));
  if (block == nullptr) return nullptr;
  uint32_t byteLength = length * sizeof(WCHAR);
  std::memcpy(block, &byteLength, sizeof byteLength);
  auto* chars = reinterpret_cast<WCHAR*>(block + sizeof(uint32_t));
  if (text != nullptr) {
    std::memcpy(chars, text, static_cast<size_t>(length) * sizeof(WCHAR));
  } else {
    std::memset(chars, 0, static_cast<size_t>(length) * sizeof(WCHAR));
  }
  chars[length] = 0;
  return chars;
}

extern "C" BSTR SysAllocString(const WCHAR* text) {
  if (text == nullptr) return nullptr;
  size_t n = Length(text);
  if (n > kMaxChars) return nullptr;
  return SysAllocStringLen(text, static_cast<UINT>(n));
}

extern "C" void SysFreeString(BSTR text) {
  if (text == nullptr) return;
  std::free(reinterpret_cast<uint8_t*>(text) - sizeof(uint32_t));
}

extern "C" UINT SysStringLen(BSTR text) {
  if (text == nullptr) return 0;
  uint32_t byteLength;
  std::memcpy(&byteLength, reinterpret_cast<uint8_t*>(text) - sizeof(uint32_t), sizeof byteLength);
  return byteLength / sizeof(WCHAR);
}
