#include "engine/xml_data_mapper.h"

#include <new>
#include <string_view>
#include <vector>

#include "norvane/com.h"
#include "support/log.h"
#include "support/string_utils.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

namespace {

// Most device values are short; a longer one costs a second provider call,
// answered from the provider's document cache.
constexpr uint32_t kFirstBuffer = 256;

std::u16string_view ProtocolOfPort(uint32_t port) {
  switch (port) {
    case 80:
      return u"PLSXML";
    case 3910:
      return u"WS";
    case 8080:
      return u"VEXA";
    default:
      return u"";
  }
}

}  // namespace

XMLDataMapper::XMLDataMapper(IXMLProvider* provider, DataMapSpec* dataMap)
    : provider_(QxUtils::ShareRef(provider)), dataMap_(QxUtils::ShareRef(dataMap)) {}

XMLDataMapper::~XMLDataMapper() = default;

XMLDataMapper* XMLDataMapper::Create(IXMLProvider* provider, DataMapSpec* dataMap) {
  if (dataMap == nullptr) return nullptr;
  auto* mapper = new (std::nothrow) XMLDataMapper(provider, dataMap);
  if (mapper != nullptr) mapper->AddRef();
  return mapper;
}

std::u16string XMLDataMapper::GetDataMapName() {
  if (provider_ == nullptr) return {};
  std::u16string name(u"XMLDataMap[@Protocol='");
  name.append(ProtocolOfPort(provider_->GetPort()));
  name.append(u"']");
  return name;
}

HRESULT XMLDataMapper::GetValue(const char16_t* name, VARIANT* value) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::XMLDataMapper::GetValue");
  Variant result;
  HRESULT base = DataCollectionImpl::GetValue(name, result.Ptr());
  if (base >= 0) {
    if (base == S_OK && value != nullptr) *value = result.Detach();
    return base;
  }
  if (name == nullptr || *name == u'\0' || value == nullptr || provider_ == nullptr) return base;

  std::u16string_view key(name);
  size_t colon = key.find(u':');
  std::u16string_view itemName = colon == std::u16string_view::npos ? key : key.substr(colon + 1);
  auto* item = dynamic_cast<XMLDataItemSpec*>(dataMap_->GetDataItemSpec(itemName));
  if (item == nullptr) return base;
  if (item->GetUri() == nullptr || item->GetXPath() == nullptr) return E_FAIL;
  if (*item->GetUri() == u'\0' || *item->GetXPath() == u'\0') return base;

  uint32_t useCache = item->IsTransient() ? 0 : 1;
  std::vector<char16_t> buffer(kFirstBuffer, u'\0');
  uint32_t needed = 0;
  HRESULT hr = provider_->GetValue(item->GetUri(), item->GetXPath(), buffer.data(), kFirstBuffer, &needed, useCache,
                                   item->GetLifespan());
  if (hr == E_OUTOFMEMORY) {
    // Lifespan 0: the document the first call fetched answers this one.
    buffer.assign(static_cast<size_t>(needed) + 1, u'\0');
    hr = provider_->GetValue(item->GetUri(), item->GetXPath(), buffer.data(), needed, &needed, useCache, 0);
  }
  Variant raw;
  if (hr == S_OK) {
    raw = Variant::FromString(buffer.data());
  } else if (hr != S_FALSE) {
    if (qxLog_.Enabled(QxLogging::kStandout)) {
      QX_LOG(QxLogging::kStandout, "Reading %s failed (0x%08x)", QxUtils::WideToUtf8(itemName).c_str(),
             static_cast<unsigned>(hr));
    }
    return hr;
  }

  result.Clear();
  *result.Ptr() = item->ConvertValue(raw.Get());
  if (result.Type() != VT_EMPTY) hr = S_OK;
  if (!item->IsTransient()) StoreValue(name, &result.Get(), item->GetLifespan());
  if (hr == S_OK) *value = result.Detach();
  return hr;
}

}  // namespace Norvane
