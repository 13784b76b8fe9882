// IPP provider creation, lifetime and the printer URIs.
#include "ipp/ipp_provider_impl.h"

#include <new>

#include "support/log.h"
#include "support/string_utils.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

IPPProviderImpl::IPPProviderImpl(Address* address, std::unique_ptr<IPPOperations> queryOperations)
    : address_(QxUtils::ShareRef(address)), queryOperations_(std::move(queryOperations)) {
  securityFlags_ = queryOperations_->GetSecurityFlags();
}

IPPProviderImpl::~IPPProviderImpl() {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::~IPPProviderImpl");
  StopAllThreadsRunning();
  // The operations borrow the address: they go first.
  EndJobOperations();
  queryOperations_.reset();
  address_.Reset();
}

IPPProviderImpl* IPPProviderImpl::Create(Address* address, const char* resourceURI, bool secure,
                                         uint32_t securityFlags) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::Create");
  if (address == nullptr || resourceURI == nullptr) return nullptr;

  const char16_t* host = address->GetHost();
  // A port name (USB001) has no TCP stack to probe: ask over IPP straight away.
  if (!IsUSBPort(host)) {
    int error = 0;
    // A host that named the printer's port asks for the probe to go there.
    std::u16string probePort = u"631";
    auto* net = dynamic_cast<QxNetAddress*>(address);
    const char16_t* portText = address->GetPortText();
    const bool ownPort = net != nullptr && net->GetProbePortTextFlag() && portText != nullptr && *portText != 0;
    if (ownPort) probePort = portText;
    if (!DeviceExists(host, probePort.c_str(), &error, kDeviceProbeTimeoutMs, ownPort)) {
      QX_LOG(QxLogging::kStandout, "IPP support is not present in the device");
      QX_LOG(QxLogging::kStandout, "Failed with error %d", error);
      // Port 80 answering says nothing about a printer the host placed on its own port.
      SetLastError(!ownPort && DeviceExists(host, u"80") ? kIppErrorOnlyPort80 : kIppErrorNotReachable);
      return nullptr;
    }
  }

  auto operations = std::make_unique<IPPOperations>(address);
  if (secure) operations->SetSecurityFlags(securityFlags);
  operations->SetAttributeName("all");
  operations->SetResourceURI(resourceURI);
  HTTPResponse* response = nullptr;
  if (FAILED(operations->SendIPPRequest(kIppGetPrinterAttributes, &response, nullptr, secure)) ||
      FAILED(operations->ParseIPPResponse(response, nullptr))) {
    QX_LOG(QxLogging::kStandout, "ptrIPPOperations->ParseIPPResponse(httpResponse,&value) cretae failed");
    return nullptr;
  }
  QX_LOG(QxLogging::kInfo, "ptrIPPOperations->ParseIPPResponse(httpResponse,&value) cretae");

  auto* provider = new IPPProviderImpl(address, std::move(operations));
  provider->AddRef();
  std::u16string resource = QxUtils::Utf8ToWide(resourceURI);
  // A resource that cannot be stored leaves the provider without one; its
  // queries then name no resource, which the device answers or refuses.
  DWORD saved = GetLastError();
  provider->SetPrinterURIs(resource.c_str(), nullptr);
  SetLastError(saved);
  return provider;
}

IPPProviderImpl* IPPProviderImpl::Create2(Address* address, const char16_t* printerURI, uint32_t securityFlags) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::Create2");
  if (address == nullptr || printerURI == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  std::u16string port;
  std::u16string rest;
  SplitPortFromURI(printerURI, &port, &rest);
  address->SetPortText(port.c_str());

  std::u16string resource;
  std::u16string full;
  uint32_t crackError = CrackPrinterURI(rest, &resource, &full);
  if (crackError != 0) {
    QX_LOG(QxLogging::kStandout, "The printer URI %s is not usable (%u)", QxUtils::WideToUtf8(rest).c_str(),
           crackError);
    SetLastError(crackError);
    return nullptr;
  }

  bool secure = GetURIScheme(full.c_str()) == IppUriScheme::kSecureIpp;
  auto provider = QxUtils::AdoptRef(Create(address, QxUtils::WideToUtf8(resource).c_str(), secure, securityFlags));
  if (provider && !provider->SetPrinterURIs(resource.c_str(), full.c_str())) {
    provider.Reset();
  } else if (!provider) {
    // A refused creation request is reported as one code; 401 and transport
    // errors stay as they are so that the host can ask for credentials.
    DWORD error = GetLastError();
    if (error == 400 || error == 404 || error == 405) SetLastError(kIppErrorRequestRefused);
  }
  QX_LOG(QxLogging::kInfo, "Resource URI is %s \r\n", QxUtils::WideToUtf8(resource).c_str());
  QX_LOG(QxLogging::kInfo, "Resource URI is %s \r\n", QxUtils::WideToUtf8(full).c_str());
  return provider.Release();
}

bool IPPProviderImpl::SetPrinterURIs(const char16_t* resourceURI, const char16_t* printerURI) {
  if (resourceURI == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  if (*resourceURI == 0) {
    SetLastError(kIppErrorEmptyResource);
    return false;
  }
  resourceURI_ = resourceURI;
  if (printerURI == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  if (*printerURI != 0) {
    printerURI_ = printerURI;
    secure_ = GetURIScheme(printerURI) == IppUriScheme::kSecureIpp;
  }
  return true;
}

HRESULT IPPProviderImpl::SetTimeValues(uint32_t first, uint32_t second, uint32_t third) {
  timeValues_[0] = first;
  timeValues_[1] = second;
  timeValues_[2] = third;
  return S_OK;
}

}  // namespace Norvane
