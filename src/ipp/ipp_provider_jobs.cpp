// Job operations of the IPP provider.
//
// NOT BUILT YET: Print-URI, Send-URI, Create-Job, Cancel-Job, Print-Job with its
// chunked stream, the credential check and the status polling threads are still
// to be written. Until then every job operation fails with 0x80004005 and sends
// nothing, so that no host mistakes a job that never reached the printer for a
// printed one.
#include "ipp/ipp_provider_impl.h"
#include "support/log.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

namespace {

HRESULT NotBuilt(QxLogging::CLogFunction& qxLog_) {
  QX_LOG(QxLogging::kStandout, "IPP job operations are not available in this build");
  return E_FAIL;
}

}  // namespace

HRESULT IPPProviderImpl::PrintUri(IPPRequestBase*, IPPResponseBase*) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::PrintUri");
  return NotBuilt(qxLog_);
}

HRESULT IPPProviderImpl::SendURI(IPPRequestBase*, IPPResponseBase*) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::SendURI");
  return NotBuilt(qxLog_);
}

HRESULT IPPProviderImpl::CreateJob(IPPRequestBase*, IPPResponseBase*) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::CreateJob");
  return NotBuilt(qxLog_);
}

HRESULT IPPProviderImpl::CancelJob(IPPRequestBase*, IPPResponseBase*) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::CancelJob");
  return NotBuilt(qxLog_);
}

HRESULT IPPProviderImpl::PrintJob(IPPRequestBase*, IPPResponseBase*, const uint8_t*, int32_t, bool) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::PrintJob");
  return NotBuilt(qxLog_);
}

HRESULT IPPProviderImpl::PrintJobWrite(IPPRequestBase*, IPPResponseBase*, const uint8_t*, int32_t) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::PrintJobWrite");
  return NotBuilt(qxLog_);
}

HRESULT IPPProviderImpl::ValidateCredentials(IPPRequestBase*, IPPResponseBase*) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::ValidateCredentials");
  return NotBuilt(qxLog_);
}

}  // namespace Norvane
