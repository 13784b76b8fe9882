// The registry store as hosts see it: a thin face over the store's keys.
#include <filesystem>
#include <system_error>

#include "norvane/registry.h"
#include "platform/registry.h"

namespace Norvane {

namespace {

Registry::Hive ToHive(RegistryHive hive) {
  return hive == RegistryHive::CurrentUser ? Registry::Hive::CurrentUser : Registry::Hive::LocalMachine;
}

}  // namespace

std::string RegistryHiveRoot(RegistryHive hive) { return Registry::HiveRoot(ToHive(hive)); }

long RegistryReadKey(RegistryHive hive, std::u16string_view path, std::vector<RegistryEntry>* values,
                     std::vector<std::u16string>* subkeys) {
  Registry::Key key;
  long status = Registry::Key::Open(ToHive(hive), path, &key);
  if (status != Registry::kSuccess) return status;
  if (values != nullptr) {
    Registry::ValueList stored;
    status = key.ReadValues(&stored);
    if (status != Registry::kSuccess) return status;
    values->clear();
    for (auto& value : stored) {
      RegistryEntry entry;
      entry.name = std::move(value.name);
      entry.isDword = value.type == Registry::ValueType::Dword;
      entry.text = std::move(value.text);
      entry.dword = value.dword;
      values->push_back(std::move(entry));
    }
  }
  if (subkeys != nullptr) status = key.EnumSubkeys(subkeys);
  return status;
}

long RegistryWriteValue(RegistryHive hive, std::u16string_view path, const RegistryEntry& value) {
  if (value.name.empty()) return Registry::kInvalidParameter;
  Registry::Key key;
  long status = Registry::Key::Create(ToHive(hive), path, &key);
  if (status != Registry::kSuccess) return status;
  Registry::Value stored;
  stored.name = value.name;
  stored.type = value.isDword ? Registry::ValueType::Dword : Registry::ValueType::String;
  stored.text = value.text;
  stored.dword = value.dword;
  return key.SetValue(stored);
}

long RegistryDeleteValue(RegistryHive hive, std::u16string_view path, std::u16string_view name) {
  Registry::Key key;
  long status = Registry::Key::Open(ToHive(hive), path, &key);
  return status != Registry::kSuccess ? status : key.DeleteValue(name);
}

long RegistryDeleteKey(RegistryHive hive, std::u16string_view path) {
  if (path.find_first_not_of(u'\\') == std::u16string_view::npos) return Registry::kInvalidParameter;
  Registry::Key key;
  long status = Registry::Key::Open(ToHive(hive), path, &key);
  if (status != Registry::kSuccess) return status;
  std::error_code error;
  std::filesystem::remove_all(key.Directory(), error);
  return error ? Registry::kAccessDenied : Registry::kSuccess;
}

}  // namespace Norvane
