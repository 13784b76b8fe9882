#include "platform/printer_data.h"

#include <cstring>
#include <map>
#include <mutex>

#include "platform/registry.h"

namespace Norvane::PrinterData {

namespace {

constexpr DWORD kInvalidHandle = 6;

std::mutex g_mutex;
std::map<uintptr_t, std::u16string> g_handles;
uintptr_t g_next = 0x5000;

bool Plain(char16_t c) {
  return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') || c == u'-' || c == u'_' ||
         c == u' ';
}

DWORD KeyFor(uintptr_t handle, const char16_t* keyName, bool create, Registry::Key* key) {
  std::u16string path;
  if (!KeyPathOf(handle, keyName, &path)) return kInvalidHandle;
  long rc = create ? Registry::Key::Create(Registry::Hive::LocalMachine, path, key)
                   : Registry::Key::Open(Registry::Hive::LocalMachine, path, key);
  return static_cast<DWORD>(rc);
}

size_t Align(size_t n) { return (n + 7) & ~size_t{7}; }

// A store key component holds 255 bytes; an encoded name longer than this
// keeps a readable prefix and gains a hash of the whole name.
constexpr size_t kMaxEncodedChars = 255;
constexpr size_t kPrefixChars = 200;

// FNV-1a over the upper-case name, so that names differing only in case (one
// printer to the spooler) meet in one key, as short names do.
uint64_t NameHash(std::u16string_view name) {
  uint64_t h = 0xcbf29ce484222325ull;
  for (char16_t c : Registry::FoldName(name)) {
    for (int shift : {0, 8}) {
      h ^= static_cast<uint8_t>(c >> shift);
      h *= 0x100000001b3ull;
    }
  }
  return h;
}

}  // namespace

std::u16string EncodePrinterName(std::u16string_view name) {
  std::u16string out;
  size_t prefixEnd = 0;  // the last escape boundary within the prefix length
  for (char16_t c : name) {
    if (out.size() <= kPrefixChars) prefixEnd = out.size();
    if (Plain(c)) {
      out.push_back(c);
    } else {
      char16_t hex[8];
      const char16_t* digits = u"0123456789ABCDEF";
      int n = 0;
      hex[n++] = u'%';
      if (c > 0xFF) {
        hex[n++] = u'u';
        hex[n++] = digits[(c >> 12) & 0xF];
        hex[n++] = digits[(c >> 8) & 0xF];
      }
      hex[n++] = digits[(c >> 4) & 0xF];
      hex[n++] = digits[c & 0xF];
      out.append(hex, n);
    }
  }
  if (out.size() <= kMaxEncodedChars) return out;
  char16_t hash[17];
  const char16_t* digits = u"0123456789abcdef";
  uint64_t h = NameHash(name);
  for (int i = 15; i >= 0; --i, h >>= 4) hash[i] = digits[h & 0xF];
  out.resize(prefixEnd);
  out += u'~';
  out.append(hash, 16);
  return out;
}

uintptr_t OpenHandle(const char16_t* printerName) {
  if (printerName == nullptr || *printerName == 0) return 0;
  std::lock_guard<std::mutex> lock(g_mutex);
  uintptr_t handle = g_next++;
  g_handles[handle] = printerName;
  return handle;
}

void CloseHandle(uintptr_t handle) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_handles.erase(handle);
}

bool KeyPathOf(uintptr_t handle, const char16_t* keyName, std::u16string* path) {
  std::lock_guard<std::mutex> lock(g_mutex);
  auto it = g_handles.find(handle);
  if (it == g_handles.end()) return false;
  *path = u"Printers\\" + EncodePrinterName(it->second);
  if (keyName != nullptr && *keyName != 0) *path += u"\\" + std::u16string(keyName);
  return true;
}

DWORD GetPrinterDataEx(uintptr_t handle, const char16_t* keyName, const char16_t* valueName, DWORD* type, uint8_t* data,
                       DWORD size, DWORD* needed) {
  if (valueName == nullptr || needed == nullptr) return ERROR_INVALID_PARAMETER;
  Registry::Key key;
  DWORD rc = KeyFor(handle, keyName, false, &key);
  if (rc != 0) return rc;
  Registry::Value value;
  rc = static_cast<DWORD>(key.QueryValue(valueName, &value));
  if (rc != 0) return rc;
  DWORD bytes =
      value.type == Registry::ValueType::Dword ? 4 : static_cast<DWORD>((value.text.size() + 1) * sizeof(char16_t));
  *needed = bytes;
  if (type != nullptr) *type = static_cast<DWORD>(value.type);
  if (data == nullptr || size < bytes) return ERROR_MORE_DATA;
  if (value.type == Registry::ValueType::Dword) {
    std::memcpy(data, &value.dword, 4);
  } else {
    std::memcpy(data, value.text.c_str(), bytes);
  }
  return 0;
}

DWORD SetPrinterDataEx(uintptr_t handle, const char16_t* keyName, const char16_t* valueName, DWORD type,
                       const uint8_t* data, DWORD size) {
  if (valueName == nullptr || *valueName == 0 || (data == nullptr && size != 0)) return ERROR_INVALID_PARAMETER;
  Registry::Value value;
  value.name = valueName;
  if (type == kRegDword) {
    if (size != 4) return ERROR_INVALID_PARAMETER;
    value.type = Registry::ValueType::Dword;
    std::memcpy(&value.dword, data, 4);
  } else if (type == kRegSz) {
    value.type = Registry::ValueType::String;
    size_t chars = size / sizeof(char16_t);
    std::u16string text(chars, u'\0');
    if (chars != 0) std::memcpy(text.data(), data, chars * sizeof(char16_t));
    // The stored text ends at its terminator, as the spooler hands it back.
    size_t end = text.find(u'\0');
    if (end != std::u16string::npos) text.resize(end);
    value.text = std::move(text);
  } else {
    return ERROR_INVALID_PARAMETER;
  }
  return SetPrinterDataValues(handle, keyName, Registry::ValueList{value});
}

DWORD SetPrinterDataValues(uintptr_t handle, const char16_t* keyName, const Registry::ValueList& values) {
  Registry::Key key;
  DWORD rc = KeyFor(handle, keyName, true, &key);
  if (rc != 0) return rc;
  return static_cast<DWORD>(key.SetValues(values));
}

DWORD EnumPrinterDataEx(uintptr_t handle, const char16_t* keyName, uint8_t* buffer, DWORD size, DWORD* needed,
                        DWORD* count) {
  if (needed == nullptr || count == nullptr) return ERROR_INVALID_PARAMETER;
  *count = 0;
  Registry::Key key;
  DWORD rc = KeyFor(handle, keyName, false, &key);
  if (rc != 0) return rc;
  Registry::ValueList values;
  rc = static_cast<DWORD>(key.ReadValues(&values));
  if (rc != 0) return rc;
  size_t total = Align(values.size() * sizeof(PrinterEnumValue));
  for (const auto& v : values) {
    total += Align((v.name.size() + 1) * sizeof(char16_t));
    total += Align(v.type == Registry::ValueType::Dword ? 4 : (v.text.size() + 1) * sizeof(char16_t));
  }
  if (total > 0xFFFFFFFFu) return ERROR_NOT_ENOUGH_MEMORY;
  *needed = static_cast<DWORD>(total);
  if (buffer == nullptr || size < total) return ERROR_MORE_DATA;
  auto* entries = reinterpret_cast<PrinterEnumValue*>(buffer);
  size_t at = Align(values.size() * sizeof(PrinterEnumValue));
  for (size_t i = 0; i < values.size(); ++i) {
    const auto& v = values[i];
    size_t nameBytes = (v.name.size() + 1) * sizeof(char16_t);
    std::memcpy(buffer + at, v.name.c_str(), nameBytes);
    entries[i].valueName = reinterpret_cast<char16_t*>(buffer + at);
    entries[i].valueNameBytes = static_cast<DWORD>(nameBytes);
    at += Align(nameBytes);
    entries[i].type = static_cast<DWORD>(v.type);
    entries[i].data = buffer + at;
    if (v.type == Registry::ValueType::Dword) {
      std::memcpy(buffer + at, &v.dword, 4);
      entries[i].dataBytes = 4;
      at += Align(4);
    } else {
      size_t bytes = (v.text.size() + 1) * sizeof(char16_t);
      std::memcpy(buffer + at, v.text.c_str(), bytes);
      entries[i].dataBytes = static_cast<DWORD>(bytes);
      at += Align(bytes);
    }
  }
  *count = static_cast<DWORD>(values.size());
  return 0;
}

}  // namespace Norvane::PrinterData
