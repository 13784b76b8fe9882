#include "engine/protocol_selection.h"

#include "engine/data_collection_impl.h"
#include "engine/ipp_data_mapper.h"
#include "engine/oid_data_mapper.h"
#include "ipp/ipp_provider_impl.h"
#include "providers/oid_provider_impl.h"
#include "support/string_utils.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

namespace {

// The providers detect their protocol at creation and the mappers wrap them.
// A protocol whose provider this build does not contain yet cannot be reached,
// exactly as for a device that does not answer it: its row yields no mapper
// and the next data map is tried.
DataCollectionImpl* OpenVexa(Address*, DataMapSpec*, bool, ProtocolAttempt*) { return nullptr; }
DataCollectionImpl* OpenWebServices(Address*, DataMapSpec*, bool, ProtocolAttempt*) { return nullptr; }
DataCollectionImpl* OpenProductInformation(Address*, DataMapSpec*, bool, ProtocolAttempt*) { return nullptr; }
DataCollectionImpl* OpenIpp(Address* address, DataMapSpec* dataMap, bool wantIdentity, ProtocolAttempt* attempt) {
  // The data map's IPPParams item names the printer resource.
  std::string resource = "/ipp/printer";
  if (auto* params = dynamic_cast<IPPDataItemSpec*>(dataMap->GetDataItemSpec(u"IPPParams"))) {
    resource = QxUtils::WideToUtf8(params->GetResourceUri());
  }
  IPPProviderImpl* provider = IPPProviderImpl::Create(address, resource.c_str(), false, kIppDefaultSecurityFlags);
  if (provider == nullptr) return nullptr;
  DataCollectionImpl* mapper = IPPDataMapper::Create(provider, dataMap);
  if (mapper != nullptr && wantIdentity) {
    // Whatever the provider leaves in the variant is the identity, whatever it answers.
    provider->GetValue("printer-uuid", attempt->identity.Ptr());
    attempt->identityRead = true;
  }
  provider->Dispose();
  return mapper;
}
DataCollectionImpl* OpenOid(Address* address, DataMapSpec* dataMap, bool wantIdentity, ProtocolAttempt* attempt) {
  OIDProviderImpl* provider = OIDProviderImpl::Create(address);
  if (provider == nullptr) return nullptr;
  DataCollectionImpl* mapper = OIDDataMapper::Create(provider, dataMap);
  if (mapper != nullptr && wantIdentity) {
    // The device's serial number in the maker's private MIB.
    Variant identity;
    if (provider->GetValue(u"1.3.6.1.4.1.32473.2.3.9.4.2.1.1.3.3.0", identity.Ptr()) == S_OK) {
      attempt->identity = std::move(identity);
      attempt->identityRead = true;
    }
  }
  provider->Dispose();
  return mapper;
}

// Web services are tried unless the host says its web-service port is absent.
bool WebServicePortAvailable(Address* address, QxLogging::CLogFunction& qxLog_) {
  auto* net = dynamic_cast<QxNetAddress*>(address);
  if (net == nullptr || net->GetWebServicePortFlag() != 0) return true;
  QX_LOG(QxLogging::kInfo,
         "Skipping the WSPrint DataModel, webservice port not created. bWebServicePortAvailable = %s", "FALSE");
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
