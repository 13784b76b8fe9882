#include "engine/ipp_data_mapper.h"

#include <string>
#include <string_view>

#include "norvane/com.h"
#include "support/log.h"
#include "support/string_utils.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

namespace {

// The data map's request parameters are stored under this key.
constexpr std::u16string_view kParamsKey = u"IPPParams";
constexpr std::u16string_view kGetJobAttributes = u"Get-Job-Attributes";

}  // namespace

IPPDataMapper::IPPDataMapper(IPPProvider* provider, DataMapSpec* dataMap)
    : provider_(QxUtils::ShareRef(provider)), dataMap_(QxUtils::ShareRef(dataMap)) {}

IPPDataMapper::~IPPDataMapper() = default;

IPPDataMapper* IPPDataMapper::Create(IPPProvider* provider, DataMapSpec* dataMap) {
  if (provider == nullptr || dataMap == nullptr) return nullptr;
  auto* mapper = new IPPDataMapper(provider, dataMap);
  mapper->AddRef();
  return mapper;
}

HRESULT IPPDataMapper::GetValue(const char16_t* name, VARIANT* value) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPDataMapper::GetValue");
  if (name == nullptr || value == nullptr) return E_FAIL;
  Variant raw;
  HRESULT base = DataCollectionImpl::GetValue(name, raw.Ptr());
  if (base >= 0) {
    if (base == S_OK) *value = raw.Detach();
    return base;
  }

  std::u16string_view key(name);
  size_t colon = key.find(u':');
  std::u16string_view itemName = colon == std::u16string_view::npos ? key : key.substr(colon + 1);
  auto* item = dynamic_cast<IPPDataItemSpec*>(dataMap_->GetDataItemSpec(itemName));
  if (item == nullptr) return base;
  if (item->GetCommand() == nullptr || item->GetAttributeID() == nullptr || item->GetJobUri() == nullptr ||
      item->GetName() == nullptr) {
    QX_LOG(QxLogging::kStandout, "The IPP item %s lacks its command, attribute, job URI or name",
           QxUtils::WideToUtf8(itemName).c_str());
    return E_FAIL;
  }

  std::string attribute = QxUtils::WideToUtf8(item->GetAttributeID());
  HRESULT hr;
  if (!item->IsTransient()) {
    // Answered from the provider's cached printer attributes when it can.
    hr = provider_->GetValue(attribute.c_str(), raw.Ptr());
  } else {
    // A transient item asks the device every time.
    std::u16string_view command(item->GetCommand());
    if (command.empty()) return base;
    std::string resource;
    if (auto* params = dynamic_cast<IPPDataItemSpec*>(dataMap_->GetDataItemSpec(kParamsKey))) {
      resource = QxUtils::WideToUtf8(params->GetResourceUri());
    }
    bool jobQuery = command == kGetJobAttributes;
    std::string jobURI = jobQuery ? QxUtils::WideToUtf8(item->GetJobUri()) : std::string();
    hr = provider_->GetIPPValue(attribute.c_str(), jobQuery ? 1 : 0, raw.Ptr(), jobURI.c_str(), resource.c_str(), 0, 0,
                                " ");
  }
  if (hr != S_OK) return hr;

  Variant converted;
  *converted.Ptr() = item->ConvertValue(raw.Get());
  if (!item->IsTransient()) StoreValue(name, &converted.Get(), item->GetLifespan());
  *value = converted.Detach();
  return hr;
}

}  // namespace Norvane
