// The two threads that watch a chunked print: one asks whether the printer can
// take data and keeps the print-ready event in step, the other asks about the
// caller's job and raises the print-status flag once the job has ended at the
// device. Both wait on events, so stopping them takes no longer than the
// request in flight.
#include <string>
#include <system_error>
#include <utility>

#include "ipp/ipp_provider_impl.h"
#include "norvane/com.h"
#include "support/log.h"
#include "support/string_utils.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

namespace {

std::string TextOf(const Variant& value) {
  if (value.Type() != VT_BSTR) return {};
  BSTR text = value.Get().bstrVal;
  return QxUtils::WideToUtf8(std::u16string_view(text, SysStringLen(text)));
}

std::string Lookup(const IPPOperations& operations, const char* name) {
  Variant value;
  operations.GetValueFromIPPMap(name, value.Ptr());
  return TextOf(value);
}

bool IsEndState(const std::string& state) { return state == "7" || state == "8" || state == "9"; }

}  // namespace

void IPPProviderImpl::SetPrintStatus() {
  std::lock_guard<CriticalSection> lock(lockA_);
  printStatus_.store(1);
}

uint32_t IPPProviderImpl::GetbPrinteStatusThreadPoll() {
  std::lock_guard<CriticalSection> lock(lockB_);
  return printerStatusThreadPoll_;
}

void IPPProviderImpl::SetPrintReadyStatus() {
  std::lock_guard<CriticalSection> lock(lockB_);
  printerStatusThreadPoll_ = 0;
}

std::shared_ptr<ManualResetEvent> IPPProviderImpl::GetPrintStatusEventHandle() {
  std::lock_guard<std::mutex> lock(eventsMutex_);
  return printStatusEvent_;
}

std::shared_ptr<PrintReadySignal> IPPProviderImpl::GetPrintReadyStatusEventHandle() {
  std::lock_guard<std::mutex> lock(eventsMutex_);
  return printReadyEvent_;
}

bool IPPProviderImpl::IsPolling() {
  std::lock_guard<std::mutex> lock(jobMutex_);
  return printerStatusThread_.joinable() || jobThread_.joinable();
}

void IPPProviderImpl::StoreJobUser(const char* user) {
  std::lock_guard<std::mutex> lock(jobUserMutex_);
  queryOperations_->SetRequestedUserName(user);
}

std::string IPPProviderImpl::JobUser() {
  std::lock_guard<std::mutex> lock(jobUserMutex_);
  const char* user = queryOperations_->GetRequestedUserName();
  return user != nullptr ? user : "";
}

HRESULT IPPProviderImpl::RetrievePrinterState(std::string* state, std::string* reasons) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::RetrievePrinterState");
  IPPOperations operations(address_.get());
  operations.SetAttributeName("printer-state,printer-state-reasons");
  operations.SetResourceURI(QxUtils::WideToUtf8(resourceURI_).c_str());
  bool secure = IsSecureIpp();
  if (secure && hasJobOperations_.load()) operations.SetSecurityFlags(jobSecurityFlags_.load());
  HTTPResponse* reply = nullptr;
  if (FAILED(operations.SendIPPRequest(kIppGetPrinterAttributes, &reply, nullptr, secure))) return E_FAIL;
  HRESULT hr = operations.ParseIPPResponse(reply, nullptr);
  if (SUCCEEDED(hr)) {
    if (state != nullptr) *state = Lookup(operations, "printer-state");
    if (reasons != nullptr) *reasons = Lookup(operations, "printer-state-reasons");
  }
  return hr;
}

PrinterReadiness IPPProviderImpl::CheckForPrinterReadyState() {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::CheckForPrinterReadyState");
  std::string state;
  std::string reasons;
  if (RetrievePrinterState(&state, &reasons) < 0) {
    QX_LOG(QxLogging::kStandout, "RetrievePrinterState fails with %d", static_cast<int>(GetLastError()));
    return kPrinterStateUnknown;
  }
  if (state == "3" && reasons.find("spool-area-full") == std::string::npos) return kPrinterReady;
  QX_LOG(QxLogging::kInfo, "Printer State: %s", state.c_str());
  return kPrinterNotReady;
}

HRESULT IPPProviderImpl::GetJobs(bool completed) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::GetJobs");
  std::string user = JobUser();
  std::unique_ptr<IPPOperations> operations = MakeGetJobsOperations(completed, user.empty() ? nullptr : user.c_str());
  HTTPResponse* reply = nullptr;
  if (FAILED(operations->SendIPPRequest(kIppGetJobs, &reply, nullptr, IsSecureIpp()))) {
    QX_LOG(QxLogging::kStandout, "GetJobs()..SendIPPRequest() failed");
    return E_FAIL;
  }
  if (FAILED(operations->ParseIPPResponse(reply, nullptr))) {
    QX_LOG(QxLogging::kStandout, "GetJobs()..ParseIPPResponse() failed");
    return E_FAIL;
  }
  std::string state = Lookup(*operations, "job-state");
  std::string reasons = Lookup(*operations, "job-state-reasons");
  NotifyPollObserver(completed ? 2 : 1, state, reasons);
  if (state.empty()) {
    QX_LOG(QxLogging::kInfo, "value is empty");
    return S_FALSE;
  }
  QX_LOG(QxLogging::kInfo, "Print Job state=%s and JobstateReasons=%s", state.c_str(), reasons.c_str());
  // With several jobs of the user the state is a list, which never counts as
  // the end of this one.
  bool ended = IsEndState(state);
  if (ended) {
    QX_LOG(QxLogging::kInfo, "Job is canceled or completed");
  } else if (reasons.find("canceled") != std::string::npos) {
    QX_LOG(QxLogging::kInfo,
           "job-state-reasons can be job-canceled-at-device, canceled-by-user, canceled-by-operator,printer-stopped");
    ended = true;
  }
  if (!ended) {
    QX_LOG(QxLogging::kInfo, "Job is continuing..Print Job state=%s and JobstateReasons=%s", state.c_str(),
           reasons.c_str());
    return S_FALSE;
  }
  SetPrintStatus();
  if (auto event = GetPrintStatusEventHandle()) event->Set();
  return S_OK;
}

uint32_t IPPProviderImpl::GetPrinterStatusPollingThread(IPPProviderImpl* provider) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::GetPrinterStatusPollingThread");
  if (provider == nullptr) return 1;
  std::shared_ptr<PrintReadySignal> ready = provider->GetPrintReadyStatusEventHandle();
  if (!ready) return 1;
  while (provider->GetbPrinteStatusThreadPoll() != 0) {
    std::string state;
    std::string reasons;
    if (provider->RetrievePrinterState(&state, &reasons) < 0) {
      // The event keeps its last state; a writer waiting for it is told
      // that nobody will change it any more.
      ready->Unwatch();
      break;
    }
    // A stopped printer whose spool is full takes no more data until it
    // drains; the host's chunk writer waits on this event.
    if (state.find('5') != std::string::npos && reasons.find("spool-area-full") != std::string::npos) {
      ready->Reset();
    } else {
      ready->Set();
    }
    QX_LOG(QxLogging::kInfo, "Printer state = %s and Printer-State-Reasons = %s", state.c_str(), reasons.c_str());
    provider->NotifyPollObserver(0, state, reasons);
    if (provider->stopThreads_.Wait(provider->timings_.printerPollMs)) break;
  }
  return 0;
}

uint32_t IPPProviderImpl::GetJobsPollingThread(IPPProviderImpl* provider) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::GetJobsPollingThread");
  if (provider == nullptr) return 1;
  std::shared_ptr<ManualResetEvent> status = provider->GetPrintStatusEventHandle();
  if (!status) return 1;
  const uint32_t interval = provider->timings_.jobPollMs;
  if (status->Wait(interval)) return 0;
  for (bool completed = false;; completed = !completed) {
    if (provider->GetJobs(completed) != S_FALSE) {
      QX_LOG(QxLogging::kInfo, "GetJobs return some kind of Cancellation/Completion status");
      return 0;
    }
    if (status->Wait(interval)) return 0;
  }
}

namespace {
// The provider whose observer this thread is calling, if any.
thread_local const IPPProviderImpl* observerCaller = nullptr;
}  // namespace

void IPPProviderImpl::SetPollObserver(NorvanePollObserver observer, void* context) {
  std::unique_lock<std::mutex> lock(observerMutex_);
  observer_ = observer;
  observerContext_ = context;
  // An observer that clears itself from its own call waits only for the
  // calls of other threads.
  const int own = observerCaller == this ? 1 : 0;
  observerIdle_.wait(lock, [&] { return observerCalls_ == own; });
}

void IPPProviderImpl::NotifyPollObserver(int kind, const std::string& state, const std::string& reasons) {
  NorvanePollObserver observer;
  void* context;
  {
    std::lock_guard<std::mutex> lock(observerMutex_);
    if (observer_ == nullptr) return;
    observer = observer_;
    context = observerContext_;
    ++observerCalls_;
  }
  const IPPProviderImpl* outer = std::exchange(observerCaller, this);
  observer(context, kind, state.c_str(), reasons.c_str());
  observerCaller = outer;
  std::lock_guard<std::mutex> lock(observerMutex_);
  --observerCalls_;
  observerIdle_.notify_all();
}

void IPPProviderImpl::StartPollingThreads(bool jobFound) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::StartPollingThreads");
  std::lock_guard<std::mutex> lock(jobMutex_);
  // CancelJob on another thread has stopped this stream's threads already, or
  // is about to: threads started now would watch a cancelled job.
  if (cancelFlag_.load() != 0) {
    QX_LOG(QxLogging::kStandout, "Cancelled before the polling threads started");
    return;
  }
  stopThreads_.Reset();
  {
    std::lock_guard<std::mutex> lock(eventsMutex_);
    printStatusEvent_ = std::make_shared<ManualResetEvent>(false);
  }
  try {
    if (jobFound) {
      jobThread_ = std::thread([this] { GetJobsPollingThread(this); });
      QX_LOG(QxLogging::kInfo, "JobsPollingThread has been launched");
    }
    if (!GetPrintReadyStatusEventHandle()) {
      QX_LOG(QxLogging::kStandout, "Unable to create PrintJobSignaled event (%d)", static_cast<int>(GetLastError()));
      return;
    }
    printerStatusThread_ = std::thread([this] { GetPrinterStatusPollingThread(this); });
  } catch (const std::system_error& error) {
    // The stream goes on unwatched: the printer's own answer still ends it.
    QX_LOG(QxLogging::kStandout, "Unable to start a polling thread (%d)", error.code().value());
  }
}

void IPPProviderImpl::StopAllThreadsRunning() {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::StopAllThreadsRunning");
  StopThreads(true);
}

void IPPProviderImpl::StopLeftoverThreads() {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPProviderImpl::StopLeftoverThreads");
  StopThreads(false);
}

void IPPProviderImpl::StopThreads(bool raiseFlags) {
  std::lock_guard<std::mutex> lock(jobMutex_);
  if (raiseFlags) {
    SetPrintReadyStatus();
    SetPrintStatus();
  }
  stopThreads_.Set();
  if (auto event = GetPrintStatusEventHandle()) event->Set();
  // A host waiting in its chunk writer for a ready printer stops waiting.
  if (auto ready = GetPrintReadyStatusEventHandle()) ready->Stop();
  if (printerStatusThread_.joinable()) printerStatusThread_.join();
  if (jobThread_.joinable()) jobThread_.join();
  std::lock_guard<std::mutex> events(eventsMutex_);
  printReadyEvent_.reset();
  printStatusEvent_.reset();
}

}  // namespace Norvane
