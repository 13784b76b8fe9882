// Print-Job through the IPP provider: one body, or a chunked stream that
// PrintJob opens with the first block and PrintJobWrite continues block by
// block while the polling threads watch the printer and the job.
#include <cstring>
#include <string>

#include "ipp/ipp_provider_impl.h"
#include "support/log.h"
#include "support/string_utils.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

namespace {

// The host's chunk writer receives the print-ready event as its context; the
// caller keeps the event alive for as long as the host may wait on it.
uint64_t EventContext(const std::shared_ptr<PrintReadySignal>& event) { return event ? event->Context() : 0; }

bool HasText(const char* text) { return text != nullptr && *text != 0; }

}  // namespace

HRESULT IPPProviderImpl::StartPrintJob(IPPRequestBase* attributes, const uint8_t* data, int32_t length) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::StartPrintJob");
  jobOperations_ = std::make_unique<IPPOperations>(address_.get());
  streamResponse_ = nullptr;
  jobOperations_->SetPrinterFileBufferContent(data, length);
  jobOperations_->SetResourceURI(QxUtils::WideToUtf8(resourceURI_).c_str());
  HRESULT uriStored = printerURI_.empty() ? E_FAIL : jobOperations_->SetFullPrinterURI(printerURI_.c_str());
  uint32_t flags = queryOperations_->GetSecurityFlags();
  jobOperations_->SetSecurityFlags(flags);
  securityFlags_ = flags;
  jobSecurityFlags_.store(flags);
  hasJobOperations_.store(true);
  std::u16string authorization = attributes->GetAuthorization();
  if (!authorization.empty()) attributes->AddExtraHTTPHeader(u"Authorization", authorization.c_str());
  if (FAILED(uriStored)) {
    QX_LOG(QxLogging::kStandout, "The printer URI could not be stored");
    SetLastError(kErrorJobSetup);
    return E_FAIL;
  }
  return S_OK;
}

HRESULT IPPProviderImpl::WaitForReadyPrinter() {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::WaitForReadyPrinter");
  for (;;) {
    PrinterReadiness readiness = CheckForPrinterReadyState();
    if (readiness == kPrinterReady) break;
    if (readiness == kPrinterStateUnknown) {
      SetLastError(kIppErrorStateUnreadable);
      return E_FAIL;
    }
    if (cancelFlag_.load() != 0) {
      QX_LOG(QxLogging::kStandout, "Cancelled while waiting for the printer");
      return E_FAIL;
    }
    // CancelJob on another thread ends the wait early.
    cancelSignal_.Wait(timings_.readyRetryMs);
  }
  std::lock_guard<std::mutex> lock(eventsMutex_);
  printReadyEvent_ = PrintReadySignal::Create(true);
  return S_OK;
}

HRESULT IPPProviderImpl::FinishOneBodyPrintJob(IPPResponseBase* response, HRESULT sent, bool* restart) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::FinishOneBodyPrintJob");
  if (FAILED(jobOperations_->ParseIPPResponse(streamResponse_, nullptr)) ||
      FAILED(jobOperations_->FormResponseStructure(kIppPrintJob, response))) {
    return sent;
  }
  const char* status = response->GetSuccessStatus();
  std::string text = status != nullptr ? status : "";
  if (text == "1287") {
    QX_LOG(QxLogging::kStandout, "server-error-busy..Please restart the job");
    *restart = true;
    return S_OK;
  }
  if (text == "1288") {
    QX_LOG(QxLogging::kStandout, "server-error-job-canceled");
    return S_DEVICECANCELED;
  }
  if (text == "0") return S_OK;
  QX_LOG(QxLogging::kStandout, "Failed: some error occured IPP status code=%s", text.c_str());
  return E_FAIL;
}

HRESULT IPPProviderImpl::FindStreamedJob(IPPRequestBase* attributes, IPPResponseBase* response) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::FindStreamedJob");
  HRESULT hr = GetJobs(attributes, response, false);
  if (hr != S_FALSE) return hr;
  QX_LOG(QxLogging::kStandout, "GetJobs fails - not completed job");
  SleepMilliseconds(timings_.jobLookupRetryMs);
  hr = GetJobs(attributes, response, false);
  if (hr != S_FALSE) return hr;
  QX_LOG(QxLogging::kStandout, "GetJobs fails again - not completed job");
  hr = GetJobs(attributes, response, true);
  if (hr != S_FALSE) return hr;
  QX_LOG(QxLogging::kStandout, "GetJobs fails again - completed job");
  SetLastError(kErrorJobNotFound);
  return hr;
}

HRESULT IPPProviderImpl::PrintJob(IPPRequestBase* attributes, IPPResponseBase* response, const uint8_t* data,
                                  int32_t length, bool chunked) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::PrintJob");
  if (length < 1) {
    SetLastError(kErrorNoData);
    return E_FAIL;
  }
  if (attributes == nullptr || response == nullptr || data == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return E_FAIL;
  }
  // Threads of an earlier stream that was never ended watch the wrong job.
  // Only they go: the flags they share belong to the stream about to open.
  if (chunked) StopLeftoverThreads();

  HRESULT hr = E_FAIL;
  for (uint32_t restarts = 0;; ++restarts) {
    hr = StartPrintJob(attributes, data, length);
    if (SUCCEEDED(hr) && chunked) hr = WaitForReadyPrinter();
    if (FAILED(hr)) break;

    std::shared_ptr<PrintReadySignal> ready = chunked ? GetPrintReadyStatusEventHandle() : nullptr;
    hr = jobOperations_->SendPrintJobRequest(&streamResponse_, attributes, chunked, static_cast<uint32_t>(length),
                                             EventContext(ready), secure_);
    if (chunked) {
      if (FAILED(hr)) break;
      const char* user = attributes->GetRequestingUserName();
      if (!HasText(user)) return hr;
      StoreJobUser(user);
      hr = FindStreamedJob(attributes, response);
      DWORD error = GetLastError();
      StartPollingThreads(!(hr == S_FALSE && error == kErrorJobNotFound));
      QX_LOG(QxLogging::kInfo, "PrintJob exits with result 0x%08X", hr);
      SetLastError(error);
      return hr;
    }

    bool restart = false;
    if (SUCCEEDED(hr)) hr = FinishOneBodyPrintJob(response, hr, &restart);
    if (!restart) break;
    if (restarts + 1 >= timings_.maxBusyRestarts) {
      QX_LOG(QxLogging::kStandout, "The printer stayed busy after %u restarts", restarts + 1);
      hr = E_FAIL;
      break;
    }
    // Started over at once with the same data: the cancel flag is for the
    // wait of a stream, and the bound above ends a printer that stays busy.
  }

  if (hr == S_FALSE && !chunked && HasText(attributes->GetRequestingUserName())) {
    StoreJobUser(attributes->GetRequestingUserName());
    hr = GetJobs(attributes, response, false);
    if (hr == S_FALSE) hr = GetJobs(attributes, response, true);
  }
  DWORD error = GetLastError();
  EndJobOperations();
  QX_LOG(QxLogging::kInfo, "PrintJob exits with result 0x%08X", hr);
  SetLastError(error);
  return hr;
}

void IPPProviderImpl::EndJobOperations() {
  hasJobOperations_.store(false);
  streamResponse_ = nullptr;
  jobOperations_.reset();
}

HRESULT IPPProviderImpl::AnswerFromGetJobs(IPPRequestBase* attributes, IPPResponseBase* response) {
  HRESULT hr = GetJobs(attributes, response, false);
  if (hr == S_FALSE) hr = GetJobs(attributes, response, true);
  return hr == S_OK ? S_DEVICECANCELED : hr;
}

HRESULT IPPProviderImpl::PrintJobWrite(IPPRequestBase* attributes, IPPResponseBase* response, const uint8_t* data,
                                       int32_t length) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::PrintJobWrite");
  if (!jobOperations_ || attributes == nullptr || response == nullptr || length < 0 ||
      (data == nullptr && length > 0)) {
    QX_LOG(QxLogging::kStandout, "PrintJobWrite exits with result 0x%08X", E_FAIL);
    return E_FAIL;
  }
  const bool cancelledBefore = printStatus_.load() != 0;
  // Held through the sends: CancelJob on another thread may drop the field.
  const std::shared_ptr<PrintReadySignal> ready = GetPrintReadyStatusEventHandle();
  const uint64_t context = EventContext(ready);
  if (cancelledBefore) {
    QX_LOG(QxLogging::kStandout, "PrintJobWrite Cancelled from Device end");
  } else if (length > 0) {
    jobOperations_->SetPrinterFileBufferContent(data, length);
    HRESULT hr = jobOperations_->SendPrintJobRequest(&streamResponse_, attributes, true, static_cast<uint32_t>(length),
                                                     context, secure_);
    if (SUCCEEDED(hr)) {
      QX_LOG(QxLogging::kInfo, "PrintJobWrite exits with result 0x%08X", S_OK);
      return S_OK;
    }
    QX_LOG(QxLogging::kStandout, "Failed while sending chunk data");
    StopAllThreadsRunning();
    hr = AnswerFromGetJobs(attributes, response);
    EndJobOperations();
    QX_LOG(QxLogging::kStandout, "PrintJobWrite exits with result 0x%08X", hr);
    return hr;
  }

  HRESULT hr = jobOperations_->SendPrintJobRequest(&streamResponse_, attributes, true, 0, context, secure_);
  if (hr < 0) {
    QX_LOG(QxLogging::kStandout, "Failed while sending last chunk data");
    StopAllThreadsRunning();
    hr = AnswerFromGetJobs(attributes, response);
    EndJobOperations();
    QX_LOG(QxLogging::kStandout, "PrintJobWrite exits with result 0x%08X", hr);
    return hr;
  }
  const bool endedAtDevice = printStatus_.load() != 0;
  StopAllThreadsRunning();
  const bool decoded =
      streamResponse_ != nullptr && SUCCEEDED(jobOperations_->ParseIPPResponse(streamResponse_, nullptr));
  if (decoded && SUCCEEDED(jobOperations_->FormResponseStructure(kIppPrintJob, response))) {
    hr = S_OK;
  } else if (decoded || hr == E_FAIL) {
    QX_LOG(QxLogging::kStandout, "httpBase->GetResponse() failed try GetJobs");
    hr = AnswerFromGetJobs(attributes, response);
  }
  // Otherwise the send's own answer stands: 1026 for refused credentials, 1
  // for the host's benign read status.
  EndJobOperations();
  if (endedAtDevice) {
    hr = S_DEVICECANCELED;
    QX_LOG(QxLogging::kStandout, "hr is set to S_DEVICECANCELED");
  }
  SetPrintReadyStatus();
  SetPrintStatus();
  QX_LOG(QxLogging::kInfo, "PrintJobWrite exits with result 0x%08X", hr);
  return hr;
}

}  // namespace Norvane
