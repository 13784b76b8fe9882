// IPP provider factories and the request/response object factories.
#include "ipp/ipp_provider_impl.h"
#include "ipp/ipp_request_attributes.h"
#include "ipp/ipp_response_attributes.h"
#include "norvane/api.h"
#include "support/log.h"

QX_LOG_SOURCE_FILE()

extern "C" Norvane::IPPProvider* CreateIPPProvider(Norvane::Address* address, const char* resourceURI) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreateIPPProvider");
  if (address == nullptr || resourceURI == nullptr) return nullptr;
  return Norvane::IPPProviderImpl::Create(address, resourceURI, false, Norvane::kIppDefaultSecurityFlags);
}

extern "C" Norvane::IPPProvider* CreateIPPPrintProvider(Norvane::Address* address, const char16_t* printerURI) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreateIPPPrintProvider");
  if (Norvane::IPPProviderImpl::GetURIScheme(printerURI) != Norvane::IppUriScheme::kPlainIpp) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  return Norvane::IPPProviderImpl::Create2(address, printerURI, 0);
}

extern "C" Norvane::IPPProvider* CreateSecureIPPPrintProvider(Norvane::Address* address, const char16_t* printerURI,
                                                              uint32_t securityFlags) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreateSecureIPPPrintProvider");
  if (Norvane::IPPProviderImpl::GetURIScheme(printerURI) != Norvane::IppUriScheme::kSecureIpp) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  return Norvane::IPPProviderImpl::Create2(address, printerURI, securityFlags);
}

extern "C" HRESULT SetIPPPollObserver(Norvane::IPPProvider* provider, NorvanePollObserver observer, void* context) {
  auto* impl = dynamic_cast<Norvane::IPPProviderImpl*>(provider);
  if (impl == nullptr) return E_INVALIDARG;
  impl->SetPollObserver(observer, context);
  return S_OK;
}

extern "C" HRESULT GetIPPJobValues(Norvane::IPPProvider* provider, const char* user, bool completed,
                                   const char* const* names, VARIANT* values, uint32_t count) {
  auto* impl = dynamic_cast<Norvane::IPPProviderImpl*>(provider);
  if (impl == nullptr || (count != 0 && (names == nullptr || values == nullptr))) return E_INVALIDARG;
  return impl->GetJobValues(user, completed, names, values, count);
}

extern "C" HRESULT CancelIPPJobByURI(Norvane::IPPProvider* provider, Norvane::IPPRequestBase* attributes,
                                     Norvane::IPPResponseBase* response) {
  auto* impl = dynamic_cast<Norvane::IPPProviderImpl*>(provider);
  if (impl == nullptr || attributes == nullptr || response == nullptr) return E_INVALIDARG;
  return impl->CancelJobByURI(attributes, response);
}

extern "C" HRESULT WaitForPrintReady(uint64_t context, uint32_t milliseconds) {
  return Norvane::PrintReadySignal::WaitFor(context, milliseconds);
}

extern "C" Norvane::IPPRequestBase* CreateIPPRequest(void) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreateIPPRequest");
  return Norvane::IPPRequestAttributes::Create();
}

extern "C" Norvane::IPPResponseBase* CreateIPPResponse(void) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreateIPPResponse");
  return Norvane::IPPResponseAttributes::Create();
}
