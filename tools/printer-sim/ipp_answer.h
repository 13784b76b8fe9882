// The printer's side of an IPP exchange, enough for a client that asks what the
// device is and prints to it: Get-Printer-Attributes answered from a text
// fixture, Print-Job and the job queries answered by the job book, every other
// operation refused as a printer refuses what it does not implement.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace PrinterSim {

struct IppAnswer {
  int httpStatus = 200;  // 400 when the body is not an IPP request at all
  std::string body;      // application/ipp
};

// `fixture` lists the printer attributes, one per line: "TAG NAME VALUE[,VALUE...]"
// with TAG one of integer, enum, text, name, keyword, uri, charset, language, mime;
// blank lines and lines starting with '#' are skipped. A line that cannot be used
// fails the request with server-error-internal-error, so a broken fixture shows.
IppAnswer AnswerIppRequest(const std::string& request, const std::string& fixture);

// A recorded answer, as it was captured but with the request's request-id.
IppAnswer AnswerFromCapture(const std::string& request, const std::string& capture);

// The printer's jobs. Print-Job keeps the document as received, so that a test
// can compare it with what was sent, and the job completes at once;
// Get-Job-Attributes and Get-Jobs report the jobs.
class JobBook {
 public:
  // The answer to a job operation; nullopt for any other operation.
  std::optional<IppAnswer> Answer(const std::string& request);
  // The document of job `id` as received; nullopt when there is no such job.
  std::optional<std::string> Document(int id) const;
  void Clear();

 private:
  struct Job {
    int id = 0;
    std::string uri;
    std::string name;
    std::string user;
    std::string document;
  };

  mutable std::mutex mutex_;
  std::vector<Job> jobs_;
  int lastId_ = 0;
};

// server-error-version-not-supported, as an IPP/1.1 printer answers a request of
// a version it does not speak; nullopt when it speaks the request's version.
std::optional<IppAnswer> RefuseIpp2(const std::string& request);

}  // namespace PrinterSim
