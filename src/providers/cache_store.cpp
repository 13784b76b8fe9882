#include "providers/cache_store.h"

#include <cerrno>
#include <cstdlib>
#include <map>

#include "datamap/item_key.h"
#include "norvane/datamap.h"
#include "support/expiry.h"
#include "support/string_utils.h"

namespace Norvane::CacheStore {

namespace {

bool ParseTime(const Variant& companion, int64_t* time) {
  if (companion.Type() != VT_BSTR || companion.Get().bstrVal == nullptr) return false;
  std::string text = QxUtils::WideToUtf8(companion.Get().bstrVal);
  if (text.empty()) return false;
  errno = 0;
  char* end = nullptr;
  long long v = std::strtoll(text.c_str(), &end, 10);
  if (errno != 0 || end == nullptr || *end != 0) return false;
  *time = v;
  return true;
}

// Lifespans by item key, the first item of a key in the data map's order winning.
std::map<std::u16string, uint32_t> LifespansOf(DataMapSpec* dataMap) {
  std::map<std::u16string, uint32_t> lifespans;
  if (dataMap == nullptr) return lifespans;
  dataMap->Begin();
  while (NvoDataItem* item = dataMap->GetNextDataItemSpec()) {
    auto* spec = dynamic_cast<DataItemSpec*>(item);
    lifespans.emplace(ItemKey(*item), spec != nullptr ? spec->GetLifespan() : 0);
  }
  return lifespans;
}

}  // namespace

bool AppendEntries(const std::u16string& name, const VARIANT& value, int64_t time, Registry::ValueList* out) {
  if (name.empty()) return true;
  Registry::ValueList entries;
  if (value.vt == VT_BSTR) {
    Registry::Value v;
    v.name = name;
    v.type = Registry::ValueType::String;
    if (value.bstrVal != nullptr) v.text.assign(value.bstrVal, SysStringLen(value.bstrVal));
    entries.push_back(std::move(v));
  } else if (value.vt == VT_I4) {
    Registry::Value v;
    v.name = name;
    v.type = Registry::ValueType::Dword;
    v.dword = static_cast<uint32_t>(value.lVal);
    entries.push_back(std::move(v));
  }
  Registry::Value companion;
  companion.name = name + kExpiresSuffix;
  companion.type = Registry::ValueType::String;
  companion.text = QxUtils::Utf8ToWide(std::to_string(time));
  entries.push_back(std::move(companion));
  for (const auto& entry : entries) {
    if (!Registry::WithinLimits(entry)) return false;
  }
  out->insert(out->end(), std::make_move_iterator(entries.begin()), std::make_move_iterator(entries.end()));
  return true;
}

bool EntriesOf(const ValueTable& table, Registry::ValueList* entries) {
  entries->reserve(entries->size() + table.size() * 2);
  bool all = true;
  for (const auto& [key, cached] : table) {
    if (IsExpired(cached.stamp, cached.lifespan)) continue;
    all = AppendEntries(key, cached.value.Get(), static_cast<int64_t>(cached.stamp), entries) && all;
  }
  return all;
}

Variant ToVariant(const Registry::Value& value) {
  if (value.type == Registry::ValueType::Dword) return Variant::FromInt32(static_cast<int32_t>(value.dword));
  return Variant::FromString(value.text);
}

HRESULT FillDataMapSpec(const CacheDictionary& dictionary, DataMapSpec* dataMap, ValueTable* table) {
  std::map<std::u16string, uint32_t> lifespans;
  bool lifespansRead = false;
  for (auto it = dictionary.begin(); it != dictionary.end(); ++it) {
    auto next = std::next(it);
    if (next == dictionary.end() || next->first != it->first + kExpiresSuffix) continue;
    int64_t stored = 0;
    if (!ParseTime(next->second, &stored)) continue;
    bool never = next->second.Get().bstrVal != nullptr && std::u16string_view(next->second.Get().bstrVal) == u"0";
    CachedValue cached;
    cached.value = it->second;
    if (never) {
      cached.stamp = 0;
      cached.lifespan = 0;
    } else {
      if (!lifespansRead) {
        lifespans = LifespansOf(dataMap);
        lifespansRead = true;
      }
      auto found = lifespans.find(it->first);
      if (found == lifespans.end()) continue;
      uint32_t lifespan = found->second;
      uint64_t stamp = static_cast<uint64_t>(stored);
      if (IsExpired(stamp, lifespan)) continue;
      cached.stamp = stamp;
      cached.lifespan = lifespan;
    }
    (*table)[it->first] = std::move(cached);
  }
  return S_OK;
}

}  // namespace Norvane::CacheStore
