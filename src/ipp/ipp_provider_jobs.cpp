// One-shot job operations of the IPP provider: Print-URI, Send-URI,
// Create-Job, Cancel-Job, the Get-Jobs lookup of the caller's job and the
// credential check.
#include <string>

#include "ipp/ipp_provider_impl.h"
#include "norvane/com.h"
#include "support/log.h"
#include "support/string_utils.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

namespace {

bool HasText(const char* text) { return text != nullptr && *text != 0; }

bool MissingArguments(const void* attributes, const void* response) {
  if (attributes != nullptr && response != nullptr) return false;
  SetLastError(ERROR_INVALID_PARAMETER);
  return true;
}

}  // namespace

HRESULT IPPProviderImpl::SendJobRequest(uint32_t operation, IPPRequestBase* attributes, IPPResponseBase* response,
                                        bool secure, uint32_t securityFlags) {
  IPPOperations operations(address_.get());
  operations.SetResourceURI(QxUtils::WideToUtf8(resourceURI_).c_str());
  operations.SetSecurityFlags(securityFlags);
  HTTPResponse* reply = nullptr;
  if (FAILED(operations.SendIPPRequest(operation, &reply, attributes, secure)) ||
      FAILED(operations.ParseIPPResponse(reply, nullptr)) ||
      FAILED(operations.FormResponseStructure(operation, response))) {
    return E_FAIL;
  }
  return S_OK;
}

HRESULT IPPProviderImpl::PrintUri(IPPRequestBase* attributes, IPPResponseBase* response) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::PrintUri");
  if (MissingArguments(attributes, response)) return E_FAIL;
  if (!HasText(attributes->GetDocumentUri())) {
    QX_LOG(QxLogging::kStandout, "DocumentUri is not present");
    return E_FAIL;
  }
  bool secure = IsSecureIpp();
  return SendJobRequest(kIppPrintURI, attributes, response, secure, secure ? queryOperations_->GetSecurityFlags() : 0);
}

HRESULT IPPProviderImpl::SendURI(IPPRequestBase* attributes, IPPResponseBase* response) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::SendURI");
  if (MissingArguments(attributes, response)) return E_FAIL;
  if (!HasText(attributes->GetDocumentUri())) {
    QX_LOG(QxLogging::kStandout, "DocumentUri is not present");
    return E_FAIL;
  }
  bool secure = IsSecureIpp();
  return SendJobRequest(kIppSendURI, attributes, response, secure, secure ? queryOperations_->GetSecurityFlags() : 0);
}

HRESULT IPPProviderImpl::CreateJob(IPPRequestBase* attributes, IPPResponseBase* response) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::CreateJob");
  if (MissingArguments(attributes, response)) return E_FAIL;
  if (!HasText(attributes->GetJobName())) {
    QX_LOG(QxLogging::kStandout, "JobName is not present");
    return E_FAIL;
  }
  bool secure = IsSecureIpp();
  return SendJobRequest(kIppCreateJob, attributes, response, secure, secure ? queryOperations_->GetSecurityFlags() : 0);
}

std::unique_ptr<IPPOperations> IPPProviderImpl::MakeGetJobsOperations(bool completed, const char* user) {
  auto operations = std::make_unique<IPPOperations>(address_.get());
  // The encoder asks for finished jobs exactly when the attribute is
  // job-state, so this one name picks both the job list and what is read.
  operations->SetAttributeName(completed ? "job-state" : "job-state-reasons");
  operations->SetResourceURI(QxUtils::WideToUtf8(resourceURI_).c_str());
  operations->SetRequestedUserName(user);
  if (!printerURI_.empty()) operations->SetFullPrinterURI(printerURI_.c_str());
  operations->SetSecurityFlags(queryOperations_->GetSecurityFlags());
  return operations;
}

HRESULT IPPProviderImpl::GetJobs(IPPRequestBase* attributes, IPPResponseBase* response, bool completed) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::GetJobs");
  if (MissingArguments(attributes, response)) return E_FAIL;
  const char* user = attributes->GetRequestingUserName();
  if (!HasText(user)) return E_FAIL;
  std::unique_ptr<IPPOperations> operations = MakeGetJobsOperations(completed, user);
  HTTPResponse* reply = nullptr;
  if (FAILED(operations->SendIPPRequest(kIppGetJobs, &reply, attributes, secure_))) {
    QX_LOG(QxLogging::kStandout, "GetJobs(struct)..SendIPPRequest() failed");
    return E_FAIL;
  }
  Variant value;
  if (FAILED(operations->ParseIPPResponse(reply, value.Ptr()))) {
    QX_LOG(QxLogging::kStandout, "GetJobs(struct)..ParseIPPResponse() failed");
    return E_FAIL;
  }
  bool found = value.Type() == VT_BSTR && SysStringLen(value.Get().bstrVal) != 0;
  if (!found) {
    QX_LOG(QxLogging::kInfo,
           "May be we ask for which-jobs=completed but job is still in process else may be reverse condition");
    return S_FALSE;
  }
  return SUCCEEDED(operations->FormResponseStructure(kIppGetJobs, response)) ? S_OK : S_FALSE;
}

HRESULT IPPProviderImpl::GetJobValues(const char* user, bool completed, const char* const* names, VARIANT* values,
                                      uint32_t count) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::GetJobValues");
  if (!HasText(user)) return E_INVALIDARG;
  std::unique_ptr<IPPOperations> operations = MakeGetJobsOperations(completed, user);
  HTTPResponse* reply = nullptr;
  if (FAILED(operations->SendIPPRequest(kIppGetJobs, &reply, nullptr, secure_)) ||
      FAILED(operations->ParseIPPResponse(reply, nullptr)) || operations->GetResponseStatusCode() >= 0x400) {
    QX_LOG(QxLogging::kStandout, "GetJobValues: the Get-Jobs request failed");
    return E_FAIL;
  }
  for (uint32_t i = 0; i < count; ++i) {
    VariantClear(&values[i]);
    std::string lines = names[i] != nullptr ? operations->ValuesByOccurrence(names[i]) : std::string();
    if (lines.empty()) continue;
    std::u16string wide = QxUtils::Utf8ToWide(lines);
    values[i].vt = VT_BSTR;
    values[i].bstrVal = SysAllocStringLen(wide.data(), static_cast<uint32_t>(wide.size()));
  }
  return S_OK;
}

HRESULT IPPProviderImpl::CancelJobByURI(IPPRequestBase* attributes, IPPResponseBase* response) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::CancelJobByURI");
  if (!HasText(attributes->GetJobURI())) return E_INVALIDARG;
  return SendJobRequest(kIppCancelJob, attributes, response, secure_, queryOperations_->GetSecurityFlags());
}

HRESULT IPPProviderImpl::CancelJob(IPPRequestBase* attributes, IPPResponseBase* response) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::CancelJob");
  cancelFlag_.store(1);
  cancelSignal_.Set();
  StopAllThreadsRunning();
  if (MissingArguments(attributes, response)) return E_FAIL;
  if (!HasText(attributes->GetRequestingUserName())) {
    QX_LOG(QxLogging::kStandout, "RequestingUserName is not present");
    return E_FAIL;
  }
  HRESULT hr = GetJobs(attributes, response, false);
  if (hr != S_OK) {
    QX_LOG(QxLogging::kStandout, "GetJobs failed");
    return hr;
  }
  if (HasText(response->GetJobURI())) attributes->SetJobURI(response->GetJobURI());
  if (HasText(attributes->GetJobURI())) {
    // What the printer says to the cancel request is in the response; the
    // job was found, which is what the caller is told.
    SendJobRequest(kIppCancelJob, attributes, response, false, 0);
  }
  return S_OK;
}

HRESULT IPPProviderImpl::ValidateCredentials(IPPRequestBase* attributes, IPPResponseBase* response) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::ValidateCredentials");
  if (MissingArguments(attributes, response)) return E_FAIL;
  jobOperations_ = std::make_unique<IPPOperations>(address_.get());
  streamResponse_ = nullptr;
  if (FAILED(jobOperations_->SetResourceURI(QxUtils::WideToUtf8(resourceURI_).c_str()))) {
    SetLastError(kIppErrorShortResource);
    return E_FAIL;
  }
  if (!printerURI_.empty()) jobOperations_->SetFullPrinterURI(printerURI_.c_str());
  jobOperations_->SetSecurityFlags(securityFlags_);
  const std::u16string& uri = printerURI_.empty() ? resourceURI_ : printerURI_;
  if (uri.find(u"ipps") == std::u16string::npos) {
    QX_LOG(QxLogging::kStandout, "Credentials are only sent to an ipps printer");
    SetLastError(kErrorNotSecure);
    return E_FAIL;
  }
  if (secure_) jobOperations_->SetSecurityFlags(queryOperations_->GetSecurityFlags());
  jobSecurityFlags_.store(jobOperations_->GetSecurityFlags());
  hasJobOperations_.store(true);

  HTTPResponse* reply = nullptr;
  // A refused request leaves the HTTP status (401 among them) as last error.
  HRESULT hr = jobOperations_->SendIPPRequest(kIppPrintJobWithCredentials, &reply, attributes, secure_);
  if (FAILED(hr)) return hr;
  if (FAILED(jobOperations_->ParseIPPResponse(reply, nullptr)) ||
      FAILED(jobOperations_->FormResponseStructure(kIppPrintJobWithCredentials, response))) {
    SetLastError(kErrorJobSetup);
    return E_FAIL;
  }
  if (const char16_t* authorization = reply->GetHeader(u"Authorization")) {
    attributes->SetAuthorization(authorization);
  }
  switch (reply->GetStatus()) {
    case 200:
      return S_OK;
    case 401:
      SetLastError(kErrorCredentialsRefused);
      return E_FAIL;
    default:
      SetLastError(kErrorJobSetup);
      return E_FAIL;
  }
}

}  // namespace Norvane
