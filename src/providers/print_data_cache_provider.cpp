#include <cstring>
#include <vector>

#include "norvane/cache.h"
#include "platform/printer_data.h"
#include "providers/cache_store.h"
#include "support/log.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

namespace {
constexpr char16_t kBidiKey[] = u"UBidiData";
}

PrintDataCacheProvider* PrintDataCacheProvider::Create(uintptr_t printer) {
  auto* provider = new PrintDataCacheProvider(printer);
  provider->AddRef();
  return provider;
}

PrintDataCacheProvider::PrintDataCacheProvider(uintptr_t printer) : printer_(printer) { InitializeDictionary(); }

PrintDataCacheProvider::~PrintDataCacheProvider() = default;

void PrintDataCacheProvider::InitializeDictionary() {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::PrintDataCacheProvider::InitializeDictionary");
  dictionary_.clear();
  if (printer_ == kNoPrinter) return;
  DWORD needed = 0, count = 0;
  if (PrinterData::EnumPrinterDataEx(printer_, kBidiKey, nullptr, 0, &needed, &count) != ERROR_MORE_DATA) return;
  std::vector<uint8_t> buffer(needed);
  if (PrinterData::EnumPrinterDataEx(printer_, kBidiKey, buffer.data(), needed, &needed, &count) != 0) return;
  const auto* entries = reinterpret_cast<const PrinterData::PrinterEnumValue*>(buffer.data());
  for (DWORD i = 0; i < count; ++i) {
    const auto& e = entries[i];
    if (e.type == PrinterData::kRegSz) {
      size_t chars = e.dataBytes / sizeof(char16_t);
      std::u16string text(reinterpret_cast<const char16_t*>(e.data), chars);
      if (!text.empty() && text.back() == 0) text.pop_back();
      dictionary_.emplace(e.valueName, Variant::FromString(text));
    } else if (e.type == PrinterData::kRegDword && e.dataBytes == 4) {
      uint32_t v = static_cast<uint32_t>(e.data[0]) | static_cast<uint32_t>(e.data[1]) << 8 |
                   static_cast<uint32_t>(e.data[2]) << 16 | static_cast<uint32_t>(e.data[3]) << 24;
      dictionary_.emplace(e.valueName, Variant::FromInt32(static_cast<int32_t>(v)));
    }
  }
}

HRESULT PrintDataCacheProvider::GetDataValue(const char16_t* name, VARIANT* value) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::PrintDataCacheProvider::GetDataValue");
  if (name == nullptr || value == nullptr) return S_FALSE;
  auto it = dictionary_.find(name);
  if (it == dictionary_.end()) return S_FALSE;
  return SUCCEEDED(VariantCopy(value, &it->second.Get())) ? S_OK : S_FALSE;
}

namespace {

// Writes the entries in one update; false, logged, when nothing could be
// written (no printer, or the store refused them).
bool WriteEntries(QxLogging::CLogFunction& qxLog_, uintptr_t printer, const Registry::ValueList& entries) {
  if (printer == PrintDataCacheProvider::kNoPrinter) return false;
  if (entries.empty()) return true;
  DWORD rc = PrinterData::SetPrinterDataValues(printer, kBidiKey, entries);
  if (rc != 0)
    QX_LOG(QxLogging::kStandout, "Printer Registry writing failed with the error = %d ", static_cast<int>(rc));
  return rc == 0;
}

}  // namespace

HRESULT PrintDataCacheProvider::SetDataValue(const char16_t* name, const VARIANT* value, int64_t time) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::PrintDataCacheProvider::SetDataValue");
  if (name == nullptr || value == nullptr || value->vt == VT_NULL) return S_FALSE;
  Registry::ValueList entries;
  if (!CacheStore::AppendEntries(name, *value, time, &entries)) {
    QX_LOG(QxLogging::kStandout, "Printer Registry writing failed with the error = %d ",
           static_cast<int>(ERROR_INVALID_PARAMETER));
    return S_FALSE;
  }
  return WriteEntries(qxLog_, printer_, entries) ? S_OK : S_FALSE;
}

HRESULT PrintDataCacheProvider::SetDataValues(const ValueTable& table) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::PrintDataCacheProvider::SetDataValues");
  Registry::ValueList entries;
  bool all = CacheStore::EntriesOf(table, &entries);
  if (!all)
    QX_LOG(QxLogging::kStandout, "Printer Registry writing failed with the error = %d ",
           static_cast<int>(ERROR_INVALID_PARAMETER));
  return WriteEntries(qxLog_, printer_, entries) && all ? S_OK : S_FALSE;
}

HRESULT PrintDataCacheProvider::PopulateFromRegistry(DataMapSpec* dataMap, ValueTable* table) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::PrintDataCacheProvider::PopulateFromRegistry");
  if (dataMap == nullptr || table == nullptr || dictionary_.empty()) return S_FALSE;
  return CacheStore::FillDataMapSpec(dictionary_, dataMap, table);
}

}  // namespace Norvane
