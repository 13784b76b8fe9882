#include "job_ops.h"

#include <chrono>
#include <cstring>
#include <fstream>
#include <mutex>
#include <thread>

namespace NorvaneCli {

namespace {

using Clock = std::chrono::steady_clock;

double Since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

Owned<Norvane::IPPRequestBase> NewRequest(const Target& target) {
  Owned<Norvane::IPPRequestBase> request(CreateIPPRequest());
  if (!request) throw Failure(kExitFailed, "cannot make an IPP request object");
  request->SetPrinterURI(target.Uri().c_str());
  const char* user = std::getenv("USER");
  request->SetRequestingUserName(user != nullptr && *user != 0 ? user : "norvane");
  return request;
}

void NoteState(JobOutcome* outcome, const char* state, const char* reasons) {
  if (reasons != nullptr) outcome->reasons = reasons;
  if (state == nullptr || *state == 0) return;
  outcome->state = state;
  if (outcome->states.empty() || outcome->states.back() != outcome->state) outcome->states.push_back(outcome->state);
}

void NoteResponse(JobOutcome* outcome, Norvane::IPPResponseBase* response) {
  if (response->GetJobID() != 0) outcome->jobId = response->GetJobID();
  if (response->GetJobURI() != nullptr) outcome->jobUri = response->GetJobURI();
  NoteState(outcome, response->GetJobState(), response->GetJobStateReasons());
}

// The polling threads' reports, handed from their threads to the printing one.
class PollView {
 public:
  static void Observe(void* context, int kind, const char* state, const char* reasons) {
    auto* view = static_cast<PollView*>(context);
    std::lock_guard<std::mutex> lock(view->mutex_);
    std::string text;
    if (kind == 0) {
      text = PrinterStateName(state);
      if (*reasons != 0 && std::strcmp(reasons, "none") != 0) text += " (" + std::string(reasons) + ")";
      view->printer_ = text;
      text = "printer " + text;
    } else if (kind == 1) {
      // The caller's unfinished jobs: this one while it streams.
      text = *state != 0 ? JobStateName(state) : "";
      if (*reasons != 0) text += (text.empty() ? "" : " ") + std::string(reasons);
      if (text.empty()) return;
      view->job_ = text;
      text = "job " + text;
    } else {
      return;  // finished jobs of this user, earlier ones among them
    }
    if (view->seen_.empty() || view->seen_.back() != text) view->seen_.push_back(text);
  }
  void Into(PrintProgress* progress) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!job_.empty()) progress->state = job_;
    progress->printer = printer_;
  }
  std::vector<std::string> Seen() {
    std::lock_guard<std::mutex> lock(mutex_);
    return seen_;
  }

 private:
  std::mutex mutex_;
  std::string printer_;
  std::string job_;
  std::vector<std::string> seen_;
};

bool IsFinal(const std::string& state) {
  return state == "Completed" || state == "Canceled" || state == "Aborted" || state == "completed" ||
         state == "canceled" || state == "aborted";
}

}  // namespace

void AskJobState(Norvane::IPPProvider* provider, const Target& target, JobOutcome* outcome) {
  std::string jobUri = outcome->jobUri.empty() ? target.Uri() + "/" + std::to_string(outcome->jobId) : outcome->jobUri;
  Norvane::Variant value;
  if (SUCCEEDED(provider->GetIPPValue("job-state", 1, value.Ptr(), jobUri.c_str(), target.resource.c_str(), 0, 0,
                                      " ")) &&
      value.Type() != VT_EMPTY) {
    NoteState(outcome, JobStateName(VariantText(value.Get())).c_str(), nullptr);
  }
}

std::string PrinterStateName(const std::string& raw) {
  // A server's list of queues answers one state per queue.
  if (raw.find(',') != std::string::npos) {
    std::string names;
    size_t start = 0;
    for (size_t comma; (comma = raw.find(',', start)) != std::string::npos; start = comma + 1) {
      names += PrinterStateName(raw.substr(start, comma - start)) + ",";
    }
    return names + PrinterStateName(raw.substr(start));
  }
  if (raw == "3") return "idle";
  if (raw == "4") return "processing";
  if (raw == "5") return "stopped";
  return raw;
}

std::string JobStateName(const std::string& raw) {
  static const char* names[] = {"Pending", "Pending_held", "Processing", "Processing_stopped",
                                "Canceled", "Aborted", "Completed"};
  int n = std::atoi(raw.c_str());
  return n >= 3 && n <= 9 ? names[n - 3] : raw;
}

JobOutcome PrintDocument(Norvane::IPPProvider* provider, const Target& target, const PrintRequest& request) {
  std::ifstream in(request.file, std::ios::binary | std::ios::ate);
  if (!in) throw Failure(kExitUsage, "document '" + request.file + "': cannot be read");
  const uint64_t total = static_cast<uint64_t>(in.tellg());
  in.seekg(0);
  if (total == 0) throw Failure(kExitUsage, "document '" + request.file + "' is empty");
  if (!kJobOperationsBuilt) NotAvailable("printing (IPP job operations)");

  auto attributes = NewRequest(target);
  attributes->SetJobName(request.jobName.c_str());
  attributes->SetDocumentName(request.jobName.c_str());
  if (!request.format.empty()) {
    Norvane::IPPAttributeStruct format{};
    format.group = Norvane::kIPPOperationGroup;
    format.valueTag = 0x49;  // mimeMediaType
    std::snprintf(format.name, sizeof format.name, "document-format");
    std::snprintf(format.value.text, sizeof format.value.text, "%s", request.format.c_str());
    attributes->AddIPPRequest(format);
  }
  Owned<Norvane::IPPResponseBase> response(CreateIPPResponse());

  JobOutcome outcome;
  std::vector<uint8_t> chunk(request.chunkBytes);
  const auto start = Clock::now();
  PollView polling;
  SetIPPPollObserver(provider, &PollView::Observe, &polling);
  // The observer goes before `polling` does, on every way out.
  struct Unobserve {
    Norvane::IPPProvider* provider;
    ~Unobserve() { SetIPPPollObserver(provider, nullptr, nullptr); }
  } unobserve{provider};
  auto report = [&] {
    outcome.seconds = Since(start);
    PrintProgress progress{outcome.bytes, total, outcome.seconds, outcome.state, {}};
    polling.Into(&progress);
    if (request.progress) request.progress(progress);
  };
  auto fail = [&](const char* step, HRESULT hr) {
    CheckIppStatusText(response->GetSuccessStatus(), std::string(step) + " after " + std::to_string(outcome.bytes) +
                                                         " of " + std::to_string(total) + " bytes");
    throw Failure(kExitFailed, std::string(step) + " after " + std::to_string(outcome.bytes) + " of " +
                                   std::to_string(total) + " bytes: " + DescribeStatus(hr, GetLastError()));
  };

  bool first = true;
  while (outcome.bytes < total) {
    if (request.cancel != nullptr && request.cancel->load()) {
      // The provider finds the job it is streaming (Get-Jobs) and cancels it; the
      // stream is then ended so that the connection closes cleanly.
      SetLastError(0);
      HRESULT hr = provider->CancelJob(attributes.get(), response.get());
      NoteResponse(&outcome, response.get());
      provider->PrintJobWrite(attributes.get(), response.get(), nullptr, 0);
      if (FAILED(hr)) fail("cancelling the job failed", hr);
      outcome.canceled = true;
      outcome.polled = polling.Seen();
      return outcome;
    }
    size_t length = static_cast<size_t>(std::min<uint64_t>(chunk.size(), total - outcome.bytes));
    if (!in.read(reinterpret_cast<char*>(chunk.data()), static_cast<std::streamsize>(length))) {
      throw Failure(kExitUsage, "document '" + request.file + "': read failed");
    }
    SetLastError(0);
    HRESULT hr = first ? provider->PrintJob(attributes.get(), response.get(), chunk.data(),
                                            static_cast<int32_t>(length), true)
                       : provider->PrintJobWrite(attributes.get(), response.get(), chunk.data(),
                                                 static_cast<int32_t>(length));
    // A job Get-Jobs could not find still streams (S_FALSE); only failures end it.
    if (FAILED(hr)) fail(first ? "the printer refused the job" : "the printer stopped taking data", hr);
    first = false;
    outcome.bytes += length;
    NoteResponse(&outcome, response.get());
    report();
  }
  SetLastError(0);
  HRESULT hr = provider->PrintJobWrite(attributes.get(), response.get(), nullptr, 0);
  NoteResponse(&outcome, response.get());
  if (hr == S_DEVICECANCELED) {
    outcome.canceled = true;
  } else if (FAILED(hr)) {
    fail("the printer did not accept the finished document", hr);
  }
  report();
  outcome.polled = polling.Seen();
  return outcome;
}

JobOutcome CancelJobById(Norvane::IPPProvider* provider, const Target& target, int32_t jobId) {
  if (!kJobOperationsBuilt) NotAvailable("cancelling jobs (IPP job operations)");
  auto attributes = NewRequest(target);
  std::string jobUri = target.Uri() + "/" + std::to_string(jobId);
  const std::string name = "job " + std::to_string(jobId);
  // The library cancels the requesting user's current job, whatever id the
  // request names; so a job that is not that user's, or has ended, is refused
  // here before anything is cancelled.
  JobOutcome before;
  before.jobId = jobId;
  before.jobUri = jobUri;
  AskJobState(provider, target, &before);
  if (before.state.empty()) throw Failure(kExitFailed, "no " + name + " at " + target.Uri());
  if (IsFinal(before.state)) throw Failure(kExitFailed, name + " has already ended (" + before.state + ")");
  Norvane::Variant owner;
  const std::string user = attributes->GetRequestingUserName();
  if (SUCCEEDED(provider->GetIPPValue("job-originating-user-name", 1, owner.Ptr(), jobUri.c_str(),
                                      target.resource.c_str(), 0, 0, " ")) &&
      owner.Type() == VT_BSTR && VariantText(owner.Get()) != user) {
    throw Failure(kExitFailed, name + " belongs to '" + VariantText(owner.Get()) + "'; only the user's own job (" +
                                   user + ") can be cancelled");
  }
  attributes->SetJobURI(jobUri.c_str());
  Owned<Norvane::IPPResponseBase> response(CreateIPPResponse());
  SetLastError(0);
  HRESULT hr = provider->CancelJob(attributes.get(), response.get());
  if (FAILED(hr)) {
    CheckIppStatusText(response->GetSuccessStatus(), "cancelling " + name + " failed");
    throw Failure(kExitFailed, "cancelling " + name + " failed: " + DescribeStatus(hr, GetLastError()));
  }
  JobOutcome outcome;
  outcome.jobId = jobId;
  outcome.jobUri = jobUri;
  NoteResponse(&outcome, response.get());
  if (outcome.jobId != jobId) {
    throw Failure(kExitFailed, "the printer's current job of '" + user + "' was job " + std::to_string(outcome.jobId) +
                                   ", and that one was cancelled instead of " + name);
  }
  return outcome;
}

void FollowJob(Norvane::IPPProvider* provider, const Target& target, JobOutcome* outcome, double seconds) {
  if (outcome->jobId == 0) return;
  const auto start = Clock::now();
  while (!IsFinal(outcome->state) && Since(start) < seconds) {
    AskJobState(provider, target, outcome);
    if (!IsFinal(outcome->state)) std::this_thread::sleep_for(std::chrono::milliseconds(250));
  }
}

}  // namespace NorvaneCli
