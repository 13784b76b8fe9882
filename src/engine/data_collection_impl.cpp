#include "engine/data_collection_impl.h"

#include <optional>

#include "datamap/item_key.h"
#include "engine/protocol_selection.h"
#include "ipp/ipp_provider_impl.h"
#include "norvane/cache.h"
#include "platform/clock.h"
#include "platform/xml.h"
#include "support/expiry.h"
#include "support/log.h"
#include "support/string_utils.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

namespace {

// The identity text of a device: what follows "uuid:" when present. Nothing
// when no text was read; an empty text is an identity all the same, so a device
// without one keeps its values apart from those of other protocols.
std::optional<std::u16string> IdentityText(const Variant& identity) {
  if (identity.Type() != VT_BSTR || identity.Get().bstrVal == nullptr) return std::nullopt;
  std::u16string text(identity.Get().bstrVal, SysStringLen(identity.Get().bstrVal));
  size_t at = text.find(u"uuid:");
  if (at != std::u16string::npos) text = text.substr(at + 5);
  return text;
}

}  // namespace

DataCollectionImpl::DataCollectionImpl() {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::DataCollectionImpl::DataCollectionImpl");
  runtime_.emplace(&qxLog_);
}

DataCollectionImpl::~DataCollectionImpl() {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::DataCollectionImpl::~DataCollectionImpl");
  if (cache_ != nullptr) {
    cache_->SetDataValues(values_);
    cache_.Reset();
  }
  ForgetIndex();
  values_.clear();
}

HRESULT DataCollectionImpl::CreateFromFile(Address* address, const char16_t* path, DataCollection** collection,
                                           ICacheProvider* cache) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::DataCollectionImpl::CreateFromFile");
  ComponentRuntimeScope runtime(&qxLog_);
  Xml::DocumentPtr document;
  // No document named is a caller's error; a document that cannot be read is not.
  HRESULT hr = path == nullptr ? E_FAIL : Xml::LoadFile(path, &document);
  if (hr == S_OK) hr = CreateFromDOM(address, reinterpret_cast<xmlNode*>(document.get()), collection, cache);
  return hr;
}

HRESULT DataCollectionImpl::CreateFromXML(Address* address, const char16_t* text, DataCollection** collection,
                                          ICacheProvider* cache) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::DataCollectionImpl::CreateFromXML");
  ComponentRuntimeScope runtime;
  Xml::DocumentPtr document;
  HRESULT hr = text == nullptr ? E_FAIL : Xml::LoadText(text, &document);
  if (hr == S_OK) hr = CreateFromDOM(address, reinterpret_cast<xmlNode*>(document.get()), collection, cache);
  return hr;
}

HRESULT DataCollectionImpl::CreateFromDOM(Address* address, xmlNode* node, DataCollection** collection,
                                          ICacheProvider* cache) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::DataCollectionImpl::CreateFromDOM");
  if (node == nullptr) return E_FAIL;
  xmlNode* dataMaps = nullptr;
  HRESULT hr = Xml::SelectFirstNode(node, std::string_view("DataMaps"), &dataMaps);
  if (hr != S_OK || dataMaps == nullptr) return FAILED(hr) ? hr : S_FALSE;
  auto specs = QxUtils::AdoptRef(DataMapSpecCollection::CreateDataMapSpecCollection(dataMaps));
  if (!specs) return E_OUTOFMEMORY;
  QxLogging::CLogFunction inner(&QxLogging::NorvaneDM(), &qxLogSourceFile_,
                                "Norvane::CreateDataCollectionFromDataMapSpecsCollection", __LINE__);
  return CreateFromSpecs(address, specs.get(), collection, cache);
}

HRESULT DataCollectionImpl::CreateFromSpecs(Address* address, DataMapSpecCollection* specs, DataCollection** collection,
                                            ICacheProvider* cache) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::DataCollectionImpl::CreateFromSpecs");
  if (address == nullptr || specs == nullptr) return E_FAIL;
  auto* registryCache = dynamic_cast<RegCacheProvider*>(cache);
  bool wantIdentity = registryCache != nullptr && registryCache->HasPath();
  if (specs->GetCount() == 0) return E_FAIL;

  ProtocolAttempt chosen;
  DataMapSpec* dataMap = nullptr;
  for (int32_t i = 0; i < specs->GetCount() && chosen.mapper == nullptr; ++i) {
    dataMap = specs->GetDataMapSpec(i);
    if (dataMap == nullptr) continue;
    chosen = TryDataMap(address, dataMap, wantIdentity, qxLog_);
  }
  if (chosen.mapper == nullptr) return E_FAIL;

  auto mapper = QxUtils::AdoptRef(chosen.mapper);
  if (cache != nullptr) mapper->SetCache(cache);
  if (registryCache != nullptr && chosen.identityRead) {
    if (std::optional<std::u16string> identity = IdentityText(chosen.identity)) {
      registryCache->SetDeviceIdentity(*identity, dataMap->GetProtocolType());
    }
  }
  if (cache != nullptr) mapper->PopulateValueFromCache(cache, dataMap);
  mapper->LoadStaticValues(dataMap);
  if (collection != nullptr) *collection = mapper.Release();
  return S_OK;
}

HRESULT DataCollectionImpl::IsPrintContractDevice(Address* address) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::DataCollectionImpl::IsPrintContractDevice");
  if (address == nullptr) return E_FAIL;
  auto provider = QxUtils::AdoptRef(IPPProviderImpl::Create(address, "/ipp/printer", false, kIppDefaultSecurityFlags));
  if (!provider) return E_FAIL;
  Variant version;
  return provider->GetValue("qv-pc-version-major", version.Ptr()) == S_OK && version.Type() != VT_EMPTY ? S_OK : E_FAIL;
}

HRESULT DataCollectionImpl::PopulateValueFromCache(ICacheProvider* cache, DataMapSpec* dataMap) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::DataCollectionImpl::PopulateValueFromCache");
  ForgetIndex();
  if (auto* printData = dynamic_cast<PrintDataCacheProvider*>(cache)) {
    printData->PopulateFromRegistry(dataMap, &values_);
    return S_OK;
  }
  if (auto* registry = dynamic_cast<RegCacheProvider*>(cache)) {
    registry->PopulateFromRegistry(dataMap, &values_);
    return S_OK;
  }
  return S_FALSE;
}

void DataCollectionImpl::SetCache(ICacheProvider* cache) {
  if (cache != cache_.get()) cache_ = QxUtils::ShareRef(cache);
}

const CachedValue* DataCollectionImpl::FindValue(std::u16string_view key) {
  if (!index_.Built()) index_.Build(values_);
  return index_.Find(key);
}

HRESULT DataCollectionImpl::GetValue(const char16_t* key, VARIANT* value) {
  if (key == nullptr || value == nullptr) return E_FAIL;
  const CachedValue* found = FindValue(key);
  if (found == nullptr) return E_FAIL;
  // An expired entry stays in the table until replaced; the caller's variant
  // is left as it was.
  if (IsExpired(found->stamp, found->lifespan)) return E_FAIL;
  VARIANT copy;
  VariantInit(&copy);
  HRESULT hr = VariantCopy(&copy, &found->value.Get());
  if (FAILED(hr)) throw ComError(hr);
  *value = copy;
  return S_OK;
}

HRESULT DataCollectionImpl::StoreValue(const char16_t* key, const VARIANT* value, uint32_t lifespan) {
  if (key == nullptr || value == nullptr) return E_FAIL;
  uint64_t stamp = 0;
  if (lifespan != 0 && GetCurrentFileTime(&stamp) == 0) return E_FAIL;
  CachedValue cached;
  cached.value = Variant(*value);
  cached.stamp = stamp;
  cached.lifespan = lifespan;
  auto it = values_.find(std::u16string_view(key));
  if (it != values_.end()) {
    it->second = std::move(cached);
  } else {
    auto made = values_.emplace(key, std::move(cached)).first;
    if (index_.Built()) index_.Add(made->first, &made->second);
  }
  return S_OK;
}

HRESULT DataCollectionImpl::RemoveValuesWithPrefix(const char16_t* prefix) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::DataCollectionImpl::RemoveValuesWithPrefix");
  if (prefix == nullptr) return E_FAIL;
  std::u16string_view wanted(prefix);
  bool removed = false;
  for (auto it = values_.begin(); it != values_.end();) {
    size_t colon = it->first.find(u':');
    if (colon != std::u16string::npos && colon != 0 && std::u16string_view(it->first).substr(0, colon) == wanted) {
      it = values_.erase(it);
      removed = true;
    } else {
      ++it;
    }
  }
  if (removed) ForgetIndex();
  return removed ? S_OK : E_FAIL;
}

HRESULT DataCollectionImpl::LoadStaticValues(DataMapSpec* dataMap) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::DataCollectionImpl::LoadStaticValues");
  if (dataMap == nullptr || dataMap->SizeOf() == 0) return E_FAIL;
  int32_t steps = dataMap->SizeOf();
  dataMap->Begin();
  for (int32_t i = 0; i < steps; ++i) {
    auto* item = dynamic_cast<StaticDataItemSpec*>(dataMap->GetNextDataItemSpec());
    if (item == nullptr) continue;
    std::u16string key = ItemKey(*item);
    const char16_t* text = item->GetStaticDataItemValue();
    if (!key.empty() && text != nullptr) {
      Variant value = Variant::FromString(text);
      StoreValue(key.c_str(), &value.Get(), 0);
    }
    // Destroys the item, unless it is the last in key order.
    dataMap->RemoveFromMap();
  }
  return S_OK;
}

}  // namespace Norvane
