#include "job_ops.h"

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <fstream>
#include <mutex>
#include <thread>

namespace NorvaneCli {

namespace {

// How long a one-body print keeps asking a printer that is busy with another
// job, when the user set no wait limit.
constexpr double kBusyLimitSeconds = 120;

using Clock = std::chrono::steady_clock;

double Since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

Owned<Norvane::IPPRequestBase> NewRequest(const Target& target) {
  Owned<Norvane::IPPRequestBase> request(CreateIPPRequest());
  if (!request) throw Failure(kExitFailed, "cannot make an IPP request object");
  request->SetPrinterURI(target.Uri().c_str());
  request->SetRequestingUserName(JobUser().c_str());
  return request;
}

// One line per job, as GetIPPJobValues gives them.
std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> items;
  size_t start = 0;
  while (start <= text.size() && !text.empty()) {
    size_t end = text.find('\n', start);
    items.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return items;
}

void NoteState(JobOutcome* outcome, const std::string& state) {
  if (state.empty()) return;
  outcome->state = state;
  if (outcome->states.empty() || outcome->states.back() != state) outcome->states.push_back(state);
}

void NoteResponse(JobOutcome* outcome, Norvane::IPPResponseBase* response) {
  if (response->GetJobID() != 0) outcome->jobId = response->GetJobID();
  if (response->GetJobURI() != nullptr) outcome->jobUri = response->GetJobURI();
  if (response->GetJobStateReasons() != nullptr && *response->GetJobStateReasons() != 0) {
    outcome->reasons = response->GetJobStateReasons();
  }
  if (response->GetJobState() != nullptr) NoteState(outcome, JobStateName(response->GetJobState()));
}

// One job of a Get-Jobs list.
struct ListedJob {
  int32_t id = 0;
  std::string state;
  std::string reasons;
  std::string name;
  std::string uri;
};

// The user's jobs as one Get-Jobs request lists them; an attribute that not every
// job carries cannot be matched to its job and is left out.
bool ListJobs(Norvane::IPPProvider* provider, bool completed, std::vector<ListedJob>* jobs) {
  const char* names[] = {"job-id", "job-state", "job-name", "job-state-reasons", "job-uri"};
  VARIANT values[5];
  for (auto& value : values) VariantInit(&value);
  HRESULT hr = GetIPPJobValues(provider, JobUser().c_str(), completed, names, values, 5);
  std::vector<std::string> texts;
  for (auto& value : values) {
    texts.push_back(value.vt == VT_EMPTY ? "" : VariantText(value));
    VariantClear(&value);
  }
  if (FAILED(hr)) return false;
  std::vector<std::string> ids = SplitLines(texts[0]), states = SplitLines(texts[1]), jobNames = SplitLines(texts[2]),
                           reasons = SplitLines(texts[3]), uris = SplitLines(texts[4]);
  for (size_t i = 0; i < ids.size(); ++i) {
    ListedJob job;
    job.id = std::atoi(ids[i].c_str());
    if (states.size() == ids.size()) job.state = JobStateName(states[i]);
    if (jobNames.size() == ids.size()) job.name = jobNames[i];
    if (reasons.size() == ids.size()) job.reasons = reasons[i];
    if (uris.size() == ids.size()) job.uri = uris[i];
    jobs->push_back(job);
  }
  return true;
}

// Printers that refuse Get-Job-Attributes as the library asks (a printer URI and a
// job URI together) are asked through Get-Jobs from then on.
std::atomic<bool> jobAttributesRefused{false};

std::string JobAttribute(Norvane::IPPProvider* provider, const Target& target, const std::string& jobUri,
                         const char* name, bool* refused) {
  Norvane::Variant value;
  HRESULT hr = provider->GetIPPValue(name, 1, value.Ptr(), jobUri.c_str(), target.resource.c_str(), 0, 0, " ");
  if (FAILED(hr)) {
    *refused = true;
    return {};
  }
  return value.Type() == VT_EMPTY ? "" : VariantText(value.Get());
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
  void SetPrinter(const std::string& printer) {
    std::lock_guard<std::mutex> lock(mutex_);
    printer_ = printer;
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

// While the library waits for a ready printer (before the first byte goes), this
// thread shows the printer's state and ends the wait on a cancel request or when
// the wait limit passes: the library's wait ends only by CancelJob. The request
// it cancels with names no user, so that no other job of the user is touched.
class WaitWatcher {
 public:
  WaitWatcher(Norvane::IPPProvider* provider, const Target& target, const PrintRequest& request, PollView* view,
              JobOutcome* outcome)
      : provider_(provider), target_(target), request_(request), view_(view), outcome_(outcome), thread_([this] {
          Run();
        }) {}
  ~WaitWatcher() { Stop(); }

  // The first block has gone (or failed): nothing is waited for any more.
  void Stop() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (stopped_) return;
      stopped_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable()) thread_.join();
  }
  bool Canceled() const { return canceled_.load(); }
  bool TimedOut() const { return timedOut_.load(); }
  std::string Printer() {
    std::lock_guard<std::mutex> lock(mutex_);
    return printer_;
  }

 private:
  void Run() {
    const auto start = Clock::now();
    auto nextLook = start + std::chrono::milliseconds(1000);
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stopped_) {
      wake_.wait_for(lock, std::chrono::milliseconds(50));
      if (stopped_) break;
      const bool cancel = request_.cancel != nullptr && request_.cancel->load();
      const bool late = request_.waitLimit > 0 && Since(start) >= request_.waitLimit;
      if (cancel || late) {
        (cancel ? canceled_ : timedOut_).store(true);
        lock.unlock();
        Owned<Norvane::IPPRequestBase> noUser(CreateIPPRequest());
        Owned<Norvane::IPPResponseBase> scratch(CreateIPPResponse());
        if (noUser && scratch) provider_->CancelJob(noUser.get(), scratch.get());
        lock.lock();
        break;
      }
      if (Clock::now() < nextLook) continue;
      // The printer has kept the job waiting for a second: say why.
      lock.unlock();
      std::string text = LookAtPrinter();
      lock.lock();
      printer_ = text;
      nextLook = Clock::now() + std::chrono::milliseconds(1000);
      if (request_.progress) {
        view_->SetPrinter(text);
        PrintProgress progress{0, 0, Since(start), {}, text, true};
        request_.progress(progress);
      }
    }
  }

  std::string LookAtPrinter() {
    Norvane::Variant state, reasons;
    if (FAILED(provider_->GetIPPValue("printer-state", 0, state.Ptr(), nullptr, target_.resource.c_str(), 0, 0, " "))) {
      return "not answering";
    }
    provider_->GetIPPValue("printer-state-reasons", 0, reasons.Ptr(), nullptr, target_.resource.c_str(), 0, 0, " ");
    std::string text = PrinterStateName(VariantText(state.Get()));
    if (reasons.Type() != VT_EMPTY) text += " (" + VariantText(reasons.Get()) + ")";
    return text;
  }

  Norvane::IPPProvider* provider_;
  const Target& target_;
  const PrintRequest& request_;
  PollView* view_;
  JobOutcome* outcome_;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool stopped_ = false;
  std::atomic<bool> canceled_{false};
  std::atomic<bool> timedOut_{false};
  std::string printer_;
  std::thread thread_;
};

}  // namespace

std::string JobUser() {
  const char* user = std::getenv("USER");
  return user != nullptr && *user != 0 ? user : "norvane";
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
  static const char* keywords[] = {"pending",  "pending-held", "processing", "processing-stopped",
                                   "canceled", "aborted",      "completed"};
  static const char* words[] = {"Pending",  "Pending_held", "Processing", "Processing_stopped",
                                "Canceled", "Aborted",      "Completed"};
  for (int i = 0; i < 7; ++i) {
    if (raw == words[i]) return keywords[i];
  }
  int n = std::atoi(raw.c_str());
  return n >= 3 && n <= 9 && raw == std::to_string(n) ? keywords[n - 3] : raw;
}

bool IsFinalJobState(const std::string& keyword) {
  return keyword == "completed" || keyword == "canceled" || keyword == "aborted";
}

std::string IppStatusName(const std::string& decimal) {
  char* end = nullptr;
  long code = std::strtol(decimal.c_str(), &end, 10);
  if (decimal.empty() || *end != 0) return decimal;
  if (code >= 0 && code <= 0xFFFF) {
    std::string name = IppStatusName(static_cast<uint32_t>(code));
    if (name.rfind("status 0x", 0) != 0) return name;
  }
  // An unknown code still says which class of status it is.
  char hex[16];
  std::snprintf(hex, sizeof hex, "0x%04lX", code);
  return std::string(code < 0x400 ? "successful-ok" : code < 0x500 ? "client-error" : "server-error") + " " + hex;
}

bool AskJobState(Norvane::IPPProvider* provider, const Target& target, JobOutcome* outcome) {
  if (outcome->jobId == 0) return false;
  if (!jobAttributesRefused.load()) {
    std::string jobUri =
        outcome->jobUri.empty() ? target.Uri() + "/" + std::to_string(outcome->jobId) : outcome->jobUri;
    bool refused = false;
    std::string state = JobAttribute(provider, target, jobUri, "job-state", &refused);
    if (!refused && !state.empty()) {
      NoteState(outcome, JobStateName(state));
      outcome->reasons = JobAttribute(provider, target, jobUri, "job-state-reasons", &refused);
      if (outcome->name.empty()) outcome->name = JobAttribute(provider, target, jobUri, "job-name", &refused);
      return true;
    }
    if (refused) jobAttributesRefused.store(true);
  }
  for (bool completed : {false, true}) {
    std::vector<ListedJob> jobs;
    if (!ListJobs(provider, completed, &jobs)) continue;
    for (const ListedJob& job : jobs) {
      if (job.id != outcome->jobId) continue;
      NoteState(outcome, job.state);
      // Reasons belong to the state they came with.
      outcome->reasons = job.reasons;
      if (!job.uri.empty()) outcome->jobUri = job.uri;
      if (outcome->name.empty()) outcome->name = job.name;
      return true;
    }
  }
  return false;
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
    PrintProgress progress{outcome.bytes, total, outcome.seconds, outcome.state, {}, false};
    polling.Into(&progress);
    if (request.progress) request.progress(progress);
  };
  auto fail = [&](const char* step, HRESULT hr) {
    CheckIppStatusText(response->GetSuccessStatus(), std::string(step) + " after " + std::to_string(outcome.bytes) +
                                                         " of " + std::to_string(total) + " bytes");
    throw Failure(kExitFailed, std::string(step) + " after " + std::to_string(outcome.bytes) + " of " +
                                   std::to_string(total) + " bytes: " + DescribeStatus(hr, GetLastError()));
  };

  if (request.oneBody && total <= kOneBodyLimit) {
    std::vector<uint8_t> whole(total);
    if (!in.read(reinterpret_cast<char*>(whole.data()), static_cast<std::streamsize>(total))) {
      throw Failure(kExitUsage, "document '" + request.file + "': read failed");
    }
    // A printer busy with another job refuses this one (server-error-busy)
    // after the library's own quick restarts: it is asked again once a second,
    // as long as the wait limit allows and nobody cancels, since the job
    // ahead of it ends by itself.
    HRESULT hr;
    const char* status;
    for (;;) {
      SetLastError(0);
      hr = provider->PrintJob(attributes.get(), response.get(), whole.data(), static_cast<int32_t>(total), false);
      status = response->GetSuccessStatus();
      const bool busy = status != nullptr && std::atoi(status) == 0x0507;
      const double waited = Since(start);
      if (!busy || (request.waitLimit > 0 && waited + 1 > request.waitLimit) || waited + 1 > kBusyLimitSeconds) break;
      outcome.state = "printer busy";
      report();
      for (int i = 0; i < 20 && (request.cancel == nullptr || !request.cancel->load()); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
      }
      if (request.cancel != nullptr && request.cancel->load()) {
        outcome.canceled = true;
        outcome.seconds = Since(start);
        return outcome;
      }
      outcome.state.clear();
    }
    if (status != nullptr && std::strcmp(status, "NOT_SET_ERROR") != 0) outcome.status = IppStatusName(status);
    if (FAILED(hr) && outcome.status.empty()) fail("the printer refused the job", hr);
    if (status == nullptr || std::atoi(status) < 0x400) NoteResponse(&outcome, response.get());
    outcome.bytes = total;
    outcome.body = "one";
    report();
    return outcome;
  }

  // One block at a time either way: a printer that refuses chunked bodies is
  // sent the same stream with the length of the whole body declared up front.
  const bool sized = request.address != nullptr && NetAddressChunkedRefusal(request.address) != 0;
  if (sized) outcome.body = "content-length";
  auto refusedChunked = [&] {
    const uint32_t status = request.address != nullptr ? NetAddressChunkedRefusal(request.address) : 0;
    if (sized || status == 0) return false;
    // The printer took none of it, so there is no job to report.
    outcome = JobOutcome{};
    outcome.chunkedRefused = status;
    outcome.seconds = Since(start);
    return true;
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
    HRESULT hr;
    if (first) {
      if (sized) NetAddressSetNextStreamLength(request.address, total - length);
      WaitWatcher watcher(provider, target, request, &polling, &outcome);
      hr = provider->PrintJob(attributes.get(), response.get(), chunk.data(), static_cast<int32_t>(length), true);
      watcher.Stop();
      // Not left for a later stream when this one never opened.
      if (sized) NetAddressSetNextStreamLength(request.address, UINT64_MAX);
      outcome.printerWaited = watcher.Printer();
      if (watcher.Canceled() || watcher.TimedOut()) {
        outcome.canceled = watcher.Canceled();
        outcome.timedOut = watcher.TimedOut();
        outcome.seconds = Since(start);
        // Had the wait ended just before the cancel, the stream is open: end it.
        if (SUCCEEDED(hr)) provider->PrintJobWrite(attributes.get(), response.get(), nullptr, 0);
        NoteResponse(&outcome, response.get());
        return outcome;
      }
    } else {
      hr = provider->PrintJobWrite(attributes.get(), response.get(), chunk.data(), static_cast<int32_t>(length));
    }
    if (hr != S_OK && refusedChunked()) return outcome;
    // A job Get-Jobs could not find still streams (S_FALSE); only failures end it.
    if (FAILED(hr)) fail(first ? "the printer refused the job" : "the printer stopped taking data", hr);
    first = false;
    outcome.bytes += length;
    NoteResponse(&outcome, response.get());
    report();
  }
  SetLastError(0);
  HRESULT hr = provider->PrintJobWrite(attributes.get(), response.get(), nullptr, 0);
  if (hr != S_OK && refusedChunked()) return outcome;
  NoteResponse(&outcome, response.get());
  const char* status = response->GetSuccessStatus();
  if (status != nullptr && std::strcmp(status, "NOT_SET_ERROR") != 0) outcome.status = IppStatusName(status);
  if (status != nullptr && std::atoi(status) >= 0x400) {
    // A refused Print-Job made no job: what the response holds besides the
    // status is the user's earlier job, found by the library's Get-Jobs.
    const std::string refused = outcome.status;
    outcome = JobOutcome{};
    outcome.status = refused;
    outcome.bytes = total;
    report();
    return outcome;
  }
  if (hr == S_DEVICECANCELED) {
    // The job ended at the printer while it streamed: what it ended as is read next.
    if (outcome.state.empty() || !IsFinalJobState(outcome.state)) AskJobState(provider, target, &outcome);
  } else if (FAILED(hr)) {
    fail("the printer did not accept the finished document", hr);
  }
  report();
  outcome.polled = polling.Seen();
  return outcome;
}

void FollowJob(Norvane::IPPProvider* provider, const Target& target, JobOutcome* outcome, double seconds,
               const std::atomic<bool>* stop) {
  if (outcome->jobId == 0) return;
  const auto start = Clock::now();
  while (!IsFinalJobState(outcome->state) && (seconds <= 0 || Since(start) < seconds)) {
    if (stop != nullptr && stop->load()) return;
    AskJobState(provider, target, outcome);
    if (IsFinalJobState(outcome->state)) break;
    for (int i = 0; i < 5 && (stop == nullptr || !stop->load()); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
  }
}

JobOutcome CancelJobById(Norvane::IPPProvider* provider, const Target& target, int32_t jobId, double seconds) {
  if (!kJobOperationsBuilt) NotAvailable("cancelling jobs (IPP job operations)");
  const std::string name = "job " + std::to_string(jobId);
  JobOutcome outcome;
  outcome.jobId = jobId;
  if (!AskJobState(provider, target, &outcome)) {
    throw Failure(kExitFailed, "no " + name + " at " + target.Uri() + " for user '" + JobUser() + "'");
  }
  if (IsFinalJobState(outcome.state)) throw Failure(kExitFailed, name + " has already ended (" + outcome.state + ")");
  // The job as the printer names it: cupsd's job URIs are not below the queue's.
  auto attributes = NewRequest(target);
  attributes->SetJobURI((outcome.jobUri.empty() ? target.Uri() + "/" + std::to_string(jobId) : outcome.jobUri).c_str());
  Owned<Norvane::IPPResponseBase> response(CreateIPPResponse());
  SetLastError(0);
  HRESULT hr = CancelIPPJobByURI(provider, attributes.get(), response.get());
  if (FAILED(hr)) {
    throw Failure(kExitFailed, "the printer did not cancel " + name + ": " + DescribeStatus(hr, GetLastError()));
  }
  FollowJob(provider, target, &outcome, seconds, nullptr);
  return outcome;
}

}  // namespace NorvaneCli
