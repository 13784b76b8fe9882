#include "engine/requestor.h"

#include "norvane/com.h"
#include "platform/xml.h"
#include "providers/oid_provider_impl.h"
#include "providers/ws_provider_impl.h"
#include "support/log.h"
#include "support/ref.h"
#include "support/runtime_scope.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

namespace {

using QxUtils::Ref;

// A web-services value is read into a fixed buffer once; a longer value fails
// rather than being fetched a second time with a larger buffer.
constexpr uint32_t kWsValueChars = 256;

bool IsNonEmptyText(const char16_t* text) { return text != nullptr && text[0] != u'\0'; }

}  // namespace

Requestor::Requestor() { QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::Requestor::Requestor"); }

Requestor::~Requestor() { QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::Requestor::~Requestor"); }

HRESULT Requestor::GetValueFromSingleRequest(Address* address, const char16_t* text, VARIANT* value) {
  return Run("Norvane::Requestor::GetValueFromSingleRequest", address, text, value, false);
}

HRESULT Requestor::SetValueFromSingleRequest(Address* address, const char16_t* text, VARIANT* value) {
  return Run("Norvane::Requestor::SetValueFromSingleRequest", address, text, value, true);
}

HRESULT Requestor::Run(const char* scopeName, Address* address, const char16_t* text, VARIANT* value, bool isSet) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), scopeName);
  ComponentRuntimeScope runtime(&qxLog_);
  HRESULT hr = S_FALSE;
  Requestor requestor;
  bool complete = address != nullptr && text != nullptr && value != nullptr;
  if (complete && isSet) complete = value->vt != VT_EMPTY;
  if (complete) {
    hr = requestor.LoadRequestXML(address, text, value);
  } else {
    requestor.Record(kMissingArgument);
  }
  if (requestor.errorCode_ != kNoError) hr = static_cast<HRESULT>(requestor.errorCode_);
  return hr;
}

HRESULT Requestor::LoadRequestXML(Address* address, const char16_t* text, VARIANT* value) {
  Xml::DocumentPtr document;
  HRESULT hr = Xml::LoadText(text, &document);
  if (hr != S_OK || document == nullptr) {
    Record(kNotXml);
    return hr;
  }
  return CreateFromDOM(address, reinterpret_cast<xmlNode*>(document.get()), value);
}

HRESULT Requestor::CreateFromDOM(Address* address, xmlNode* document, VARIANT* value) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::Requestor::CreateFromDOM");
  if (document == nullptr) return S_FALSE;
  xmlNode* dataMaps = nullptr;
  HRESULT hr = Xml::SelectFirstNode(document, std::string_view("DataMaps"), &dataMaps);
  if (hr != S_OK || dataMaps == nullptr) {
    Record(kNoDataMaps);
    return hr;
  }
  Ref<DataMapSpecCollection> specs =
      Ref<DataMapSpecCollection>::Adopt(DataMapSpecCollection::CreateDataMapSpecCollection(dataMaps));
  if (!specs) return E_OUTOFMEMORY;
  return GetValueOrSetValueFromDataMapSpecsColl(address, specs.get(), value);
}

HRESULT Requestor::GetValueOrSetValueFromDataMapSpecsColl(Address* address, DataMapSpecCollection* specs,
                                                          VARIANT* value) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::Requestor::GetValueOrSetValueFromDataMapSpecsColl");
  if (address == nullptr || specs == nullptr) return S_FALSE;
  // An empty DataMaps element has no first data map: nothing this processor serves.
  DataMapSpec* dataMap = specs->GetDataMapSpec(0);
  DataMapTypeEnum type = dataMap != nullptr ? dataMap->GetDataMapType() : DataMapTypeNone;
  bool isSet = value->vt != VT_EMPTY;
  switch (type) {
    case DataMapTypeWS:
      if (isSet) {
        Record(kSetOnWebServices);
        return S_FALSE;
      }
      return GetWSValue(address, dataMap, value);
    case DataMapTypeOID:
      return isSet ? SetOIDValue(address, dataMap, value) : GetOIDValue(address, dataMap, value);
    default:
      Record(kUnsupportedDataMap);
      return S_FALSE;
  }
}

std::u16string Requestor::FindItemName(DataMapSpec* dataMap) {
  std::u16string name;
  if (dataMap == nullptr || dataMap->SizeOf() == 0) {
    Record(kNoItemName);
    return name;
  }
  DataMapTypeEnum type = dataMap->GetDataMapType();
  int32_t steps = dataMap->SizeOf();
  dataMap->Begin();
  // The walk is in key order, so the last item of the right kind names the value.
  for (int32_t i = 0; i < steps; ++i) {
    NvoDataItem* item = dataMap->GetNextDataItemSpec();
    bool wanted = (type == DataMapTypeWS && dynamic_cast<XMLDataItemSpec*>(item) != nullptr) ||
                  (type == DataMapTypeOID && dynamic_cast<OIDDataItemSpec*>(item) != nullptr);
    if (wanted && item->GetName() != nullptr) name = item->GetName();
  }
  if (name.empty()) Record(kNoItemName);
  return name;
}

template <class Item>
Item* Requestor::FindItem(DataMapSpec* dataMap, ErrorCode missingCode) {
  std::u16string name = FindItemName(dataMap);
  auto* item = dynamic_cast<Item*>(dataMap->GetDataItemSpec(name));
  if (item == nullptr) Record(missingCode);
  return item;
}

HRESULT Requestor::GetWSValue(Address* address, DataMapSpec* dataMap, VARIANT* value) {
  Ref<WSProviderImpl> provider = Ref<WSProviderImpl>::Adopt(WSProviderImpl::Create(address));
  if (!provider) Record(kNoWebServicesProvider);
  auto* item = FindItem<XMLDataItemSpec>(dataMap, kNoXmlItem);
  if (item == nullptr || !provider) return S_FALSE;
  if (item->GetUri() == nullptr || item->GetXPath() == nullptr) {
    Record(kNoXmlItem);
    return E_FAIL;
  }
  if (!IsNonEmptyText(item->GetUri()) || !IsNonEmptyText(item->GetXPath())) return S_FALSE;

  char16_t buffer[kWsValueChars] = {};
  uint32_t required = 0;
  HRESULT hr = provider->GetValue(item->GetUri(), item->GetXPath(), buffer, kWsValueChars, &required, 0, 0);
  if (hr != S_OK) {
    Record(kWebServicesReadFailed);
    return hr;
  }
  buffer[kWsValueChars - 1] = u'\0';
  Variant text = Variant::FromString(buffer);
  *value = text.Detach();
  return S_OK;
}

HRESULT Requestor::GetOIDValue(Address* address, DataMapSpec* dataMap, VARIANT* value) {
  Ref<OIDProviderImpl> provider = Ref<OIDProviderImpl>::Adopt(OIDProviderImpl::Create(address));
  if (!provider) Record(kNoOidProvider);
  auto* item = FindItem<OIDDataItemSpec>(dataMap, kNoOidItem);
  if (item == nullptr || !provider) return S_FALSE;
  // The OID is used as written: sequence and template forms are not expanded.
  if (item->GetOid() == nullptr) {
    Record(kNoOidItem);
    return E_FAIL;
  }
  Variant read;
  HRESULT hr = provider->GetValue(item->GetOid(), read.Ptr());
  if (hr != S_OK) {
    Record(kOidReadFailed);
    return hr;
  }
  *value = read.Detach();
  return S_OK;
}

HRESULT Requestor::SetOIDValue(Address* address, DataMapSpec* dataMap, const VARIANT* value) {
  auto* item = FindItem<OIDDataItemSpec>(dataMap, kNoOidItem);
  if (item == nullptr) return S_FALSE;
  if (item->GetOid() == nullptr) {
    Record(kNoOidItem);
    return E_FAIL;
  }
  Ref<MIBConnection> connection;
  if (address->GetMIBConnection(connection.Out()) != S_OK || !connection) return S_FALSE;
  if (value->vt != VT_INT) {
    Record(kNotAnInteger);
    return S_FALSE;
  }
  Variant number = Variant::FromInt(value->intVal);
  HRESULT hr = connection->SetValue(item->GetOid(), &number.Get());
  if (hr != S_OK) Record(kOidSetFailed);
  return hr;
}

}  // namespace Norvane
