// Printing a document in chunks, following a job to its end and cancelling a
// job, shared by `print`, `jobs`, `cancel` and the demo.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "cli.h"

namespace NorvaneCli {

struct JobOutcome {
  int32_t jobId = 0;  // 0: the printer named no job
  std::string jobUri;
  std::string state;                // IPP keyword (pending, processing, completed, ...), last seen
  std::string reasons;              // job-state-reasons, last seen
  std::string name;                 // job-name, when the printer said it
  std::vector<std::string> states;  // every state seen, in order, without repeats
  // What the library's polling threads reported while the document streamed,
  // in order, without repeats: "printer idle", "job job-incoming", ...
  std::vector<std::string> polled;
  std::string status;  // IPP status keyword of the Print-Job response, when read
  uint64_t bytes = 0;
  double seconds = 0;
  bool canceled = false;      // ended by the user (Ctrl-C, SIGTERM)
  bool timedOut = false;      // ended by --timeout while waiting for the printer
  std::string printerWaited;  // the printer's state while it kept the job waiting
  // The HTTP status with which the printer refused the chunked stream: no job
  // was made, and the document must go again with a Content-Length.
  uint32_t chunkedRefused = 0;
  // How the document went: "chunked", "content-length" (a stream whose length
  // was declared) or "one" (one Print-Job request).
  std::string body = "chunked";
};

struct PrintProgress {
  uint64_t sent = 0;
  uint64_t total = 0;
  double seconds = 0;
  std::string state;     // the job as the library's polling thread last saw it
  std::string printer;   // the printer as last seen
  bool waiting = false;  // no byte sent yet: the printer is not ready
};

constexpr uint64_t kOneBodyLimit = 8 * 1024 * 1024;

struct PrintRequest {
  std::string file;
  std::string jobName;
  std::string format;  // document-format to send
  size_t chunkBytes = 64 * 1024;
  double waitLimit = 0;  // seconds the printer may keep the job waiting; 0: no limit
  // Send a document up to kOneBodyLimit as one Print-Job body: no wait for a
  // ready printer (a queue takes it stopped or not) and no job lookup while it
  // streams, for a caller that only wants the printer to have it.
  bool oneBody = false;
  // The printer's address: a refusal of chunked bodies is read from it, and a
  // stream with a Content-Length is declared on it. A printer known to refuse
  // chunked bodies gets the document with its length from the start.
  Norvane::QxNetAddress* address = nullptr;
  std::function<void(const PrintProgress&)> progress;  // after every chunk, and while waiting
  const std::atomic<bool>* cancel = nullptr;           // set to cancel the job
};

// An IPP job-state as its keyword, from the enum (3..9) or the words of the
// library's responses (Pending_held, ...).
std::string JobStateName(const std::string& raw);
// An IPP printer-state enum (3..5) in words: idle, processing, stopped.
std::string PrinterStateName(const std::string& raw);
// An IPP status code (decimal text, as responses carry it) as its keyword.
std::string IppStatusName(const std::string& decimal);
bool IsFinalJobState(const std::string& keyword);

// Streams the file as one chunked Print-Job. Throws Failure when the printer
// refuses the job or stops taking data; a cancel request or the wait limit ends
// it with outcome.canceled or outcome.timedOut. A printer that refuses the
// chunked body ends it with outcome.chunkedRefused: print again on a new
// provider, and the stream goes with a Content-Length.
JobOutcome PrintDocument(Norvane::IPPProvider* provider, const Target& target, const PrintRequest& request);

// Fills outcome->state, reasons and name for outcome->jobId: Get-Job-Attributes
// first, then the user's job lists (Get-Jobs) when the printer refuses the first.
// False when neither knows the job.
bool AskJobState(Norvane::IPPProvider* provider, const Target& target, JobOutcome* outcome);

// Asks for the job's state until it is final, `seconds` pass (0: no limit) or
// `stop` is set.
void FollowJob(Norvane::IPPProvider* provider, const Target& target, JobOutcome* outcome, double seconds,
               const std::atomic<bool>* stop);

JobOutcome CancelJobById(Norvane::IPPProvider* provider, const Target& target, int32_t jobId, double seconds);

// The requesting user name jobs are sent and looked up with.
std::string JobUser();

}  // namespace NorvaneCli
