#include <string>

#include "norvane/cache.h"
#include "platform/registry.h"
#include "providers/cache_store.h"
#include "support/log.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

RegCacheProvider* RegCacheProvider::Create(const char16_t* keyPath) {
  auto* provider = new RegCacheProvider(keyPath);
  provider->AddRef();
  return provider;
}

RegCacheProvider::RegCacheProvider(const char16_t* keyPath) {
  if (keyPath != nullptr) path_ = keyPath;
}

RegCacheProvider::~RegCacheProvider() = default;

void RegCacheProvider::SetDeviceIdentity(std::u16string_view identity, std::u16string_view protocol) {
  identity_ = identity;
  protocol_ = protocol;
}

std::u16string RegCacheProvider::GetKeyName() const { return path_ + u"\\" + identity_ + u"\\" + protocol_; }

HRESULT RegCacheProvider::GetDataValue(const char16_t* name, VARIANT* value) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::RegCacheProvider::GetDataValue");
  if (name == nullptr || value == nullptr) return S_FALSE;
  auto it = dictionary_.find(name);
  if (it == dictionary_.end()) return S_FALSE;
  return SUCCEEDED(VariantCopy(value, &it->second.Get())) ? S_OK : S_FALSE;
}

namespace {

// Writes the entries in one update of the key; false, logged, when the store
// refused them.
bool WriteEntries(QxLogging::CLogFunction& qxLog_, Registry::Key& key, const Registry::ValueList& entries) {
  if (entries.empty()) return true;
  long rc = key.SetValues(entries);
  if (rc != Registry::kSuccess)
    QX_LOG(QxLogging::kStandout, "Registry writing failed with the error = %d ", static_cast<int>(rc));
  return rc == Registry::kSuccess;
}

}  // namespace

HRESULT RegCacheProvider::SetDataValue(const char16_t* name, const VARIANT* value, int64_t time) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::RegCacheProvider::SetDataValue");
  if (name == nullptr || value == nullptr || path_.empty()) return S_FALSE;
  Registry::ValueList entries;
  if (!CacheStore::AppendEntries(name, *value, time, &entries)) {
    QX_LOG(QxLogging::kStandout, "Registry writing failed with the error = %d ",
           static_cast<int>(Registry::kInvalidParameter));
    return S_FALSE;
  }
  Registry::Key key;
  long rc = Registry::Key::Create(Registry::Hive::LocalMachine, GetKeyName(), &key);
  if (rc != Registry::kSuccess) {
    QX_LOG(QxLogging::kStandout, "RegCreateKeyEx failed with error code =%ld", rc);
    return S_FALSE;
  }
  return WriteEntries(qxLog_, key, entries) ? S_OK : S_FALSE;
}

HRESULT RegCacheProvider::SetDataValues(const ValueTable& table) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::RegCacheProvider::SetDataValues");
  if (path_.empty()) return S_FALSE;
  Registry::Key key;
  long rc = Registry::Key::Create(Registry::Hive::LocalMachine, GetKeyName(), &key);
  if (rc != Registry::kSuccess) {
    QX_LOG(QxLogging::kStandout, "RegCreateKeyEx failed with error code =%ld", rc);
    return S_FALSE;
  }
  Registry::ValueList entries;
  bool all = CacheStore::EntriesOf(table, &entries);
  if (!all)
    QX_LOG(QxLogging::kStandout, "Registry writing failed with the error = %d ",
           static_cast<int>(Registry::kInvalidParameter));
  return WriteEntries(qxLog_, key, entries) && all ? S_OK : S_FALSE;
}

HRESULT RegCacheProvider::PopulateFromRegistry(DataMapSpec* dataMap, ValueTable* table) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::RegCacheProvider::PopulateFromRegistry");
  dictionary_.clear();
  if (path_.empty() || table == nullptr) return S_FALSE;
  Registry::Key key;
  if (Registry::Key::Open(Registry::Hive::LocalMachine, GetKeyName(), &key) != Registry::kSuccess) return S_FALSE;
  Registry::ValueList values;
  long rc = key.ReadValues(&values);
  if (rc != Registry::kSuccess) {
    QX_LOG(QxLogging::kStandout, "Registry reading failed with the error = %d ", static_cast<int>(rc));
    return S_FALSE;
  }
  for (const auto& v : values) dictionary_.emplace(v.name, CacheStore::ToVariant(v));
  return CacheStore::FillDataMapSpec(dictionary_, dataMap, table);
}

}  // namespace Norvane
