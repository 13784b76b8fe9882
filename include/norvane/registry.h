// The file-backed registry store the library keeps its caches, printer data and
// logging settings in, opened to hosts and tools so they can read and change
// what the library reads (docs/registry.md describes the files).
//
// Results are Win32 error codes: 0 success, 2 no such key or value, 5 access
// denied, 13 a value file that does not parse (it is never overwritten), 87 a
// key path that names a place outside its hive.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "norvane/export.h"

namespace Norvane {

enum class RegistryHive : uint32_t {
  LocalMachine = 0,  // caches and printer data
  CurrentUser = 1,   // per-user settings such as logging
};

struct RegistryEntry {
  std::u16string name;
  bool isDword = false;
  std::u16string text;  // when not isDword
  uint32_t dword = 0;   // when isDword
};

// The directory holding a hive; empty when no root can be determined.
NORVANE_API std::string RegistryHiveRoot(RegistryHive hive);
// Values (in name order) and subkey names of an existing key; either output may
// be null.
NORVANE_API long RegistryReadKey(RegistryHive hive, std::u16string_view path, std::vector<RegistryEntry>* values,
                                 std::vector<std::u16string>* subkeys);
// Writes one value, creating the key and its parents when missing.
NORVANE_API long RegistryWriteValue(RegistryHive hive, std::u16string_view path, const RegistryEntry& value);
NORVANE_API long RegistryDeleteValue(RegistryHive hive, std::u16string_view path, std::u16string_view name);
// Removes a key with its values and subkeys. The hive itself (empty path) is
// refused with 87.
NORVANE_API long RegistryDeleteKey(RegistryHive hive, std::u16string_view path);

}  // namespace Norvane
