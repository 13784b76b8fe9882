// A file-backed registry: one directory per key below a hive root, the key's
// values in a text file "values.reg" inside it (format in registry_format.h), the
// key's last-write time that file's modification time.
//
// Every change is one atomic update of the value file (write a temporary file,
// fsync, rename over, fsync the directory) made under an exclusive flock on the
// key's ".lock" file, so neither a crash nor a second process writing the same
// key loses a value: readers see the file as before or as after, never torn.
//
// Hive roots: $NORVANE_REGISTRY_DIR/HKLM and /HKCU when that is set; otherwise
// HKLM under $XDG_STATE_HOME/norvane/registry (~/.local/state/...) and HKCU under
// $XDG_CONFIG_HOME/norvane/registry (~/.config/...).
//
// Key paths use "\" between components and, like value names, ignore case
// while keeping the case they were created with. Empty components are skipped. A
// component that is ".", "..", begins with ".", is "values.reg", or holds "/"
// or a control character is refused with kInvalidParameter: no key can name a
// place outside its hive root.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/registry_format.h"

namespace Norvane::Registry {

enum class Hive { LocalMachine, CurrentUser };

// Results are Win32 error codes.
constexpr long kSuccess = 0;
constexpr long kNotFound = 2;
constexpr long kAccessDenied = 5;
constexpr long kInvalidData = 13;
constexpr long kInvalidParameter = 87;
constexpr long kMoreData = 234;
constexpr long kGenericFailure = 31;
constexpr long kNoResources = 1450;  // the key's value file would pass its size limit

// Receives a line on what the store did of its own accord (a damaged value file
// set aside), called after the key's lock is released. The store cannot log for
// itself: the logging reads its settings from the store, so the logging installs
// the handler. None is installed at first; one at a time.
using NoticeHandler = void (*)(const char* text);
void SetNoticeHandler(NoticeHandler handler);

// The directory of a hive; empty when no root can be determined.
std::string HiveRoot(Hive hive);

class Key {
 public:
  Key() = default;

  // Opens an existing key (kNotFound when absent).
  static long Open(Hive hive, std::u16string_view path, Key* key);
  // Opens a key, creating it and its parents when missing.
  static long Create(Hive hive, std::u16string_view path, Key* key);

  bool IsOpen() const { return !directory_.empty(); }
  void Close() { directory_.clear(); }
  const std::string& Directory() const { return directory_; }

  // All values in name order. A key without a value file has none;
  // kInvalidData when the file does not parse.
  long ReadValues(ValueList* values) const;
  long QueryValue(std::u16string_view name, Value* value) const;
  // One atomic update each. A value over the limits of registry_format.h is
  // refused (kInvalidParameter) and a file that would grow past its limit
  // (kNoResources), before anything is written. A value file that does not
  // parse is moved aside as "values.reg.unreadable-<UTC time>-..." (told to the
  // notice handler) and the update starts from an empty key.
  long SetValue(const Value& value);
  long SetValues(const ValueList& values);
  long DeleteValue(std::u16string_view name);
  long EnumSubkeys(std::vector<std::u16string>* names) const;
  // 100-ns units since 1601.
  long LastWriteTime(uint64_t* fileTime) const;

 private:
  template <class Change>
  long Update(Change change);

  std::string directory_;
};

}  // namespace Norvane::Registry
