// The spooler's printer data, kept in the registry store: the data of printer P
// under key K lives in HKLM key "Printers\<P>\<K>", with P percent-encoded into
// one path component so no printer name can reach outside that key. A name
// whose encoding passes 255 characters is cut to a prefix followed by "~" and a
// hash of the whole name ("~" itself is always encoded, so no shorter name
// looks the same).
#pragma once

#include <cstdint>
#include <string>

#include "norvane/platform.h"
#include "platform/registry_format.h"

namespace Norvane::PrinterData {

constexpr DWORD kRegSz = 1;
constexpr DWORD kRegDword = 4;

// One entry of an enumeration, laid out as the spooler lays it out: the
// entries first, their names and data after them in the same buffer.
struct PrinterEnumValue {
  char16_t* valueName;
  DWORD valueNameBytes;  // with the terminator
  DWORD type;
  uint8_t* data;
  DWORD dataBytes;
};

// Handle management behind OpenPrinterDataHandle / ClosePrinterDataHandle.
uintptr_t OpenHandle(const char16_t* printerName);
void CloseHandle(uintptr_t handle);
// The store key of a handle's printer; false for an unknown handle.
bool KeyPathOf(uintptr_t handle, const char16_t* keyName, std::u16string* path);
std::u16string EncodePrinterName(std::u16string_view printerName);

// Win32-style results: 0, 2 (not found), 6 (bad handle), 87, 234 (more data).
DWORD GetPrinterDataEx(uintptr_t handle, const char16_t* keyName, const char16_t* valueName, DWORD* type, uint8_t* data,
                       DWORD size, DWORD* needed);
DWORD SetPrinterDataEx(uintptr_t handle, const char16_t* keyName, const char16_t* valueName, DWORD type,
                       const uint8_t* data, DWORD size);
// Several values in one atomic update of the key.
DWORD SetPrinterDataValues(uintptr_t handle, const char16_t* keyName, const Registry::ValueList& values);
// With a buffer too small (or null), answers 234 and the size needed.
DWORD EnumPrinterDataEx(uintptr_t handle, const char16_t* keyName, uint8_t* buffer, DWORD size, DWORD* needed,
                        DWORD* count);

}  // namespace Norvane::PrinterData
