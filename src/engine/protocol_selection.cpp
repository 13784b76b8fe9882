#include "engine/protocol_selection.h"

#include <optional>
#include <string>
#include <vector>

#include "engine/data_collection_impl.h"
#include "engine/ipp_data_mapper.h"
#include "engine/oid_data_mapper.h"
#include "engine/xml_data_mapper.h"
#include "ipp/ipp_provider_impl.h"
#include "providers/oid_provider_impl.h"
#include "providers/plsxml_provider_impl.h"
#include "providers/vexa_provider_impl.h"
#include "providers/ws_provider_impl.h"
#include "support/ref.h"
#include "support/string_utils.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

namespace {

// The providers detect their protocol at creation and the mappers wrap them.

// One identifying text read through an XML provider; nothing unless the read
// answers S_OK.
std::optional<std::u16string> ReadXmlIdentity(IXMLProvider* provider, const char16_t* uri, const char16_t* xpath,
                                              uint32_t bufferSize, uint32_t useCache) {
  std::vector<char16_t> buffer(bufferSize, u'\0');
  uint32_t needed = 0;
  if (provider->GetValue(uri, xpath, buffer.data(), bufferSize, &needed, useCache, 0) != S_OK) return std::nullopt;
  return std::u16string(buffer.data());
}

void KeepIdentity(const std::optional<std::u16string>& identity, ProtocolAttempt* attempt) {
  if (!identity) return;
  attempt->identity = Variant::FromString(*identity);
  attempt->identityRead = true;
}

// The mapper over a created XML provider, whose reference this call consumes;
// the identity is read only once the mapper exists.
template <class ReadIdentity>
DataCollectionImpl* WrapXmlProvider(IXMLProvider* provider, DataMapSpec* dataMap, bool wantIdentity,
                                    ProtocolAttempt* attempt, ReadIdentity readIdentity) {
  if (provider == nullptr) return nullptr;
  QxUtils::Ref<IXMLProvider> held = QxUtils::AdoptRef(provider);
  DataCollectionImpl* mapper = XMLDataMapper::Create(provider, dataMap);
  if (mapper != nullptr && wantIdentity) KeepIdentity(readIdentity(provider), attempt);
  return mapper;
}

DataCollectionImpl* OpenVexa(Address* address, DataMapSpec* dataMap, bool wantIdentity, ProtocolAttempt* attempt) {
  return WrapXmlProvider(VEXAProviderImpl::Create(address), dataMap, wantIdentity, attempt, [](IXMLProvider* p) {
    return ReadXmlIdentity(p, VEXAProviderImpl::kProductConfigType, u"//dd:SerialNumber", 256, 0);
  });
}

DataCollectionImpl* OpenWebServices(Address* address, DataMapSpec* dataMap, bool wantIdentity,
                                    ProtocolAttempt* attempt) {
  return WrapXmlProvider(WSProviderImpl::Create(address), dataMap, wantIdentity, attempt, [](IXMLProvider* p) {
    // The serial number is the ten characters after "SN:" in the IEEE 1284
    // device id; a device id without one gives no identity.
    std::optional<std::u16string> deviceId =
        ReadXmlIdentity(p, WSProviderImpl::kDeviceServiceUrn, WSProviderImpl::kDeviceIdXPath, 2048, 0);
    if (!deviceId) return deviceId;
    size_t at = deviceId->find(u"SN:");
    if (at == std::u16string::npos) return std::optional<std::u16string>();
    return std::optional<std::u16string>(deviceId->substr(at + 3, 10));
  });
}

DataCollectionImpl* OpenProductInformation(Address* address, DataMapSpec* dataMap, bool wantIdentity,
                                           ProtocolAttempt* attempt) {
  return WrapXmlProvider(PLSXMLProviderImpl::Create(address), dataMap, wantIdentity, attempt, [](IXMLProvider* p) {
    return ReadXmlIdentity(p, PLSXMLProviderImpl::kProductInformationPath, PLSXMLProviderImpl::kSerialNumberXPath, 256,
                           1);
  });
}

DataCollectionImpl* OpenIpp(Address* address, DataMapSpec* dataMap, bool wantIdentity, ProtocolAttempt* attempt) {
  // The data map's IPPParams item names the printer resource.
  std::string resource = "/ipp/printer";
  if (auto* params = dynamic_cast<IPPDataItemSpec*>(dataMap->GetDataItemSpec(u"IPPParams"))) {
    resource = QxUtils::WideToUtf8(params->GetResourceUri());
  }
  auto provider =
      QxUtils::AdoptRef(IPPProviderImpl::Create(address, resource.c_str(), false, kIppDefaultSecurityFlags));
  if (!provider) return nullptr;
  DataCollectionImpl* mapper = IPPDataMapper::Create(provider.get(), dataMap);
  if (mapper != nullptr && wantIdentity) {
    // Whatever the provider leaves in the variant is the identity, whatever it answers.
    provider->GetValue("printer-uuid", attempt->identity.Ptr());
    attempt->identityRead = true;
  }
  return mapper;
}
DataCollectionImpl* OpenOid(Address* address, DataMapSpec* dataMap, bool wantIdentity, ProtocolAttempt* attempt) {
  auto provider = QxUtils::AdoptRef(OIDProviderImpl::Create(address));
  if (!provider) return nullptr;
  DataCollectionImpl* mapper = OIDDataMapper::Create(provider.get(), dataMap);
  if (mapper != nullptr && wantIdentity) {
    // The device's serial number in the maker's private MIB.
    Variant identity;
    if (provider->GetValue(u"1.3.6.1.4.1.32473.2.3.9.4.2.1.1.3.3.0", identity.Ptr()) == S_OK) {
      attempt->identity = std::move(identity);
      attempt->identityRead = true;
    }
  }
  return mapper;
}

// Web services are tried unless the host says its web-service port is absent.
bool WebServicePortAvailable(Address* address, QxLogging::CLogFunction& qxLog_) {
  auto* net = dynamic_cast<QxNetAddress*>(address);
  if (net == nullptr || net->GetWebServicePortFlag() != 0) return true;
  QX_LOG(QxLogging::kInfo, "Skipping the WSPrint DataModel, webservice port not created. bWebServicePortAvailable = %s",
         "FALSE");
  return false;
}

}  // namespace

ProtocolAttempt TryDataMap(Address* address, DataMapSpec* dataMap, bool wantIdentity, QxLogging::CLogFunction& log) {
  ProtocolAttempt attempt;
  switch (dataMap->GetDataMapType()) {
    case DataMapTypeVEXA:
      // Print-contract devices are not read through their discovery tree.
      if (DataCollectionImpl::IsPrintContractDevice(address) == S_OK) break;
      attempt.mapper = OpenVexa(address, dataMap, wantIdentity, &attempt);
      break;
    case DataMapTypeWS:
      if (!WebServicePortAvailable(address, log)) break;
      attempt.mapper = OpenWebServices(address, dataMap, wantIdentity, &attempt);
      break;
    case DataMapTypePLSXML:
      attempt.mapper = OpenProductInformation(address, dataMap, wantIdentity, &attempt);
      break;
    case DataMapTypeIPP:
      attempt.mapper = OpenIpp(address, dataMap, wantIdentity, &attempt);
      break;
    case DataMapTypeOID:
      attempt.mapper = OpenOid(address, dataMap, wantIdentity, &attempt);
      break;
    case DataMapTypeNone:
    default:
      break;
  }
  return attempt;
}

}  // namespace Norvane
