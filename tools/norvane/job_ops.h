// Printing a document in chunks and cancelling a job, shared by `print`,
// `cancel` and the demo.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "cli.h"

namespace NorvaneCli {

struct JobOutcome {
  int32_t jobId = 0;
  std::string jobUri;
  std::string state;    // last state seen
  std::string reasons;  // last reasons seen
  std::vector<std::string> states;  // every state seen, in order, without repeats
  // What the library's polling threads reported while the document streamed,
  // in order, without repeats: "printer idle", "job job-incoming", ...
  std::vector<std::string> polled;
  uint64_t bytes = 0;
  double seconds = 0;
  bool canceled = false;
};

struct PrintProgress {
  uint64_t sent = 0;
  uint64_t total = 0;
  double seconds = 0;
  std::string state;    // the job as the library's polling thread last saw it
  std::string printer;  // the printer as the other polling thread last saw it
};

struct PrintRequest {
  std::string file;
  std::string jobName;
  std::string format;  // document-format to send, empty to let the printer sniff
  size_t chunkBytes = 64 * 1024;
  std::function<void(const PrintProgress&)> progress;  // after every chunk
  const std::atomic<bool>* cancel = nullptr;             // set to cancel the job
};

// An IPP job-state enum (3..9) in the words the library's responses use.
std::string JobStateName(const std::string& raw);
// An IPP printer-state enum (3..5) in words: idle, processing, stopped.
std::string PrinterStateName(const std::string& raw);

// Streams the file as one chunked Print-Job; throws Failure when the printer
// refuses or stops answering. A cancel request ends with outcome.canceled.
JobOutcome PrintDocument(Norvane::IPPProvider* provider, const Target& target, const PrintRequest& request);
JobOutcome CancelJobById(Norvane::IPPProvider* provider, const Target& target, int32_t jobId);
// Asks the printer for the job's state once, adding a new state to outcome.states.
void AskJobState(Norvane::IPPProvider* provider, const Target& target, JobOutcome* outcome);
// Asks for the job's state until it is final or `seconds` pass, adding each new
// state to outcome.states.
void FollowJob(Norvane::IPPProvider* provider, const Target& target, JobOutcome* outcome, double seconds);

}  // namespace NorvaneCli
