// IPP provider factories and the request/response object factories.
#include <string_view>

#include "ipp/ipp_provider_impl.h"
#include "ipp/ipp_request_attributes.h"
#include "ipp/ipp_response_attributes.h"
#include "norvane/api.h"
#include "support/log.h"
#include "support/string_utils.h"

QX_LOG_SOURCE_FILE()

namespace {

// Case-sensitive scheme classes, tested in this order: "ipps" is secure IPP,
// "ipp" plain IPP.
bool IsSecureIppUri(const char16_t* uri) { return uri != nullptr && QxUtils::StartsWith(uri, u"ipps"); }

bool IsPlainIppUri(const char16_t* uri) {
  return uri != nullptr && !IsSecureIppUri(uri) && QxUtils::StartsWith(uri, u"ipp");
}

}  // namespace

extern "C" Norvane::IPPProvider* CreateIPPProvider(Norvane::Address* address, const char* resourceURI) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreateIPPProvider");
  if (address == nullptr || resourceURI == nullptr) return nullptr;
  return Norvane::IPPProviderImpl::Create(address, resourceURI, false, Norvane::kIppDefaultSecurityFlags);
}

extern "C" Norvane::IPPProvider* CreateIPPPrintProvider(Norvane::Address* address, const char16_t* printerURI) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreateIPPPrintProvider");
  if (!IsPlainIppUri(printerURI)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  return Norvane::IPPProviderImpl::Create2(address, printerURI, 0);
}

extern "C" Norvane::IPPProvider* CreateSecureIPPPrintProvider(Norvane::Address* address,
                                                             const char16_t* printerURI,
                                                             uint32_t securityFlags) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreateSecureIPPPrintProvider");
  if (!IsSecureIppUri(printerURI)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  return Norvane::IPPProviderImpl::Create2(address, printerURI, securityFlags);
}

extern "C" Norvane::IPPRequestBase* CreateIPPRequest(void) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreateIPPRequest");
  return Norvane::IPPRequestAttributes::Create();
}

extern "C" Norvane::IPPResponseBase* CreateIPPResponse(void) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreateIPPResponse");
  return Norvane::IPPResponseAttributes::Create();
}
