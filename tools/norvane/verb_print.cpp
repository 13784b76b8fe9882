// print: a document streamed in chunks in the format its bytes say, then followed
// to its end at the printer; a progress line on a terminal, Ctrl-C or SIGTERM
// ending any wait.
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "doc_format.h"
#include "job_ops.h"

namespace NorvaneCli {

namespace {

std::atomic<bool> interrupted{false};

void OnInterrupt(int) { interrupted.store(true); }

struct PrintOptions {
  std::string uri;
  std::string file;
  std::string jobName;
  std::string format;
  size_t chunkKiB = 64;
  bool noWait = false;
};

std::string Bytes(double bytes) {
  const char* units[] = {"B", "KiB", "MiB", "GiB"};
  int unit = 0;
  while (bytes >= 1024 && unit < 3) {
    bytes /= 1024;
    ++unit;
  }
  char text[32];
  std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", bytes, units[unit]);
  return text;
}

void ProgressLine(const PrintProgress& p) {
  if (p.waiting) {
    std::fprintf(stderr, "\rwaiting %.0f s for the printer: %s   ", p.seconds, p.printer.c_str());
    std::fflush(stderr);
    return;
  }
  constexpr int kWidth = 30;
  int filled = p.total == 0 ? kWidth : static_cast<int>(kWidth * p.sent / p.total);
  std::string bar(static_cast<size_t>(filled), '#');
  bar.append(static_cast<size_t>(kWidth - filled), '.');
  double rate = p.seconds > 0 ? static_cast<double>(p.sent) / p.seconds : 0;
  std::fprintf(stderr, "\r[%s] %3d%%  %s of %s  %s/s  job %s  printer %s   ", bar.c_str(),
               static_cast<int>(p.total == 0 ? 100 : 100 * p.sent / p.total),
               Bytes(static_cast<double>(p.sent)).c_str(), Bytes(static_cast<double>(p.total)).c_str(),
               Bytes(rate).c_str(), p.state.empty() ? "-" : p.state.c_str(),
               p.printer.empty() ? "-" : p.printer.c_str());
  std::fflush(stderr);
}

// A document from a pipe ("-" is standard input) has no length, and a printer
// that refuses chunked uploads needs it again from its start: it is copied a
// block at a time to a temporary file, which goes with this object. A file
// given by name is its own spool.
class Spool {
 public:
  explicit Spool(const std::string& file) {
    std::error_code error;
    if (file != "-" && std::filesystem::is_regular_file(file, error)) return;
    std::ifstream in(file == "-" ? "/dev/stdin" : file, std::ios::binary);
    if (!in) throw Failure(kExitUsage, "document '" + file + "': cannot be read");
    const char* dir = std::getenv("TMPDIR");
    path_ = std::string(dir != nullptr && *dir != 0 ? dir : "/tmp") + "/norvane-print-XXXXXX";
    const int fd = mkstemp(path_.data());
    if (fd < 0) throw Failure(kExitFailed, "no temporary file for the document from '" + file + "' in " + path_);
    close(fd);
    std::ofstream out(path_, std::ios::binary | std::ios::trunc);
    std::vector<char> block(64 * 1024);
    while (in.read(block.data(), static_cast<std::streamsize>(block.size())) || in.gcount() > 0) {
      out.write(block.data(), in.gcount());
    }
    // A read that failed part-way must not print what came before it as the whole.
    // A constructor that throws runs no destructor: the file goes here.
    const bool readFailed = in.bad(), writeFailed = !out.flush();
    if (readFailed || writeFailed) std::remove(path_.c_str());
    if (readFailed) throw Failure(kExitFailed, "document '" + file + "': reading failed part-way");
    if (writeFailed) throw Failure(kExitFailed, "the document from '" + file + "' could not be spooled to " + path_);
  }
  ~Spool() {
    if (!path_.empty()) std::remove(path_.c_str());
  }
  Spool(const Spool&) = delete;
  Spool& operator=(const Spool&) = delete;
  // The file to print from.
  const std::string& Path(const std::string& file) const { return path_.empty() ? file : path_; }

 private:
  std::string path_;
};

// The printer's reasons in a stopped state's words: "stopped (paused)" gives "paused".
std::string ReasonsOf(const std::string& printer) {
  size_t open = printer.find('(');
  if (open == std::string::npos) return printer;
  return printer.substr(open + 1, printer.rfind(')') - open - 1);
}

// The format to send: the user's, or the one the bytes say when the printer
// takes it. A printer that cannot take it is not sent a byte.
std::string ChooseFormat(Norvane::IPPProvider* provider, const PrintOptions& o, const std::string& file) {
  if (!o.format.empty()) return o.format;
  std::string format = DetectDocumentFormat(file);
  Norvane::Variant supported;
  if (provider->GetValue("document-format-supported", supported.Ptr()) != S_OK || supported.Type() == VT_EMPTY) {
    return format;  // the printer does not say: let it judge
  }
  std::string list = VariantText(supported.Get());
  if (!FormatSupported(list, format)) {
    throw Failure(kExitFailed, "the printer does not take " + format + " ('" + o.file + "'); it takes " + list +
                                   " (--format names another)");
  }
  return format;
}

void Print(const PrintOptions& o, const Common& common) {
  Target target = ParseTarget(o.uri);
  auto address = MakeAddress(target, common);
  auto provider = MakePrintProvider(address.get(), target);
  PrintRequest request;
  const Spool spool(o.file);
  request.file = spool.Path(o.file);
  request.jobName = o.jobName.empty() ? o.file.substr(o.file.find_last_of('/') + 1) : o.jobName;
  request.format = ChooseFormat(provider.get(), o, request.file);
  request.chunkBytes = o.chunkKiB * 1024;
  request.cancel = &interrupted;
  const double limit = common.timeoutSet ? common.timeoutMs / 1000.0 : 0;
  request.waitLimit = limit;
  request.oneBody = o.noWait;
  request.address = address.get();
  const bool bar = !common.json && IsTerminal(stderr);
  if (bar) request.progress = ProgressLine;

  struct sigaction action {};
  action.sa_handler = OnInterrupt;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  JobOutcome outcome = PrintDocument(provider.get(), target, request);
  if (outcome.chunkedRefused != 0) {
    if (bar) std::fprintf(stderr, "\n");
    std::fprintf(stderr,
                 "norvane: the printer refused a chunked upload (HTTP %u); sending the document with its length\n",
                 outcome.chunkedRefused);
    // The library ends every later stream of a provider whose stream has
    // ended as cancelled: a new one takes the document, now with its length.
    provider = MakePrintProvider(address.get(), target);
    outcome = PrintDocument(provider.get(), target, request);
  }
  if (bar) std::fprintf(stderr, "\n");
  if (outcome.bytes == 0 && (outcome.canceled || outcome.timedOut)) {
    std::string printer = outcome.printerWaited.empty() ? "not ready" : outcome.printerWaited;
    if (outcome.canceled)
      throw Failure(kExitInterrupted, "canceled while the printer was stopped: " + ReasonsOf(printer));
    throw Failure(kExitFailed, "the printer was not ready within " +
                                   std::to_string(common.timeoutMs / 1000.0).substr(0, 4) + " s: " + printer);
  }
  bool stoppedWaiting = false;
  if (!outcome.canceled && !o.noWait && outcome.jobId != 0) {
    FollowJob(provider.get(), target, &outcome, limit, &interrupted);
    stoppedWaiting = interrupted.load() && !IsFinalJobState(outcome.state);
  }
  const bool refused = !outcome.status.empty() && outcome.status.rfind("successful", 0) != 0;
  const bool failed = refused || outcome.state == "aborted" || (outcome.state == "canceled" && !outcome.canceled);
  const std::string reasons = outcome.reasons.empty() || outcome.reasons == "none" ? "" : outcome.reasons;
  // Never "job 0": a printer that named no job is said to.
  const std::string job = outcome.jobId != 0 ? "job " + std::to_string(outcome.jobId) : "the job";

  if (common.json) {
    PrintJson({{"ok", !failed && !outcome.canceled && !stoppedWaiting},
               {"printer", target.Uri()},
               {"document-format", request.format},
               {"job-id", outcome.jobId == 0 ? nlohmann::json() : nlohmann::json(outcome.jobId)},
               {"job-uri", outcome.jobUri},
               {"status", outcome.status},
               {"job-state", outcome.state},
               {"job-state-reasons", outcome.reasons},
               {"bytes", outcome.bytes},
               {"body", outcome.body},
               {"seconds", outcome.seconds},
               {"states", outcome.states},
               {"polled", outcome.polled},
               {"canceled", outcome.canceled}});
  }
  if (refused) {
    throw Failure(kExitFailed,
                  "the printer refused " + job + ": " + outcome.status + (reasons.empty() ? "" : " (" + reasons + ")"));
  }
  if (outcome.canceled) {
    throw Failure(kExitInterrupted, job + " was canceled" + (reasons.empty() ? "" : " (" + reasons + ")"));
  }
  if (failed) {
    throw Failure(kExitFailed, job + " " + outcome.state + (reasons.empty() ? "" : ": " + reasons));
  }
  if (stoppedWaiting) {
    throw Failure(kExitInterrupted, "stopped waiting for " + job + " (" +
                                        (outcome.state.empty() ? "state unknown" : outcome.state) +
                                        "); the printer keeps it");
  }
  if (!common.json) {
    std::string state = outcome.state.empty() ? "state not reported" : outcome.state;
    if (outcome.jobId == 0) state += ", the printer named no job id";
    if (!IsFinalJobState(outcome.state) && !o.noWait && limit > 0)
      state += " after " + std::to_string(static_cast<int>(limit)) + " s";
    std::printf("%s: %s (%s, %s in %.2f s)\n", job.c_str(), state.c_str(), request.format.c_str(),
                Bytes(static_cast<double>(outcome.bytes)).c_str(), outcome.seconds);
  }
}

}  // namespace

void AddPrintVerbs(CLI::App& app, Common& common) {
  auto o = std::make_shared<PrintOptions>();
  auto* print = app.add_subcommand("print", "Print a file and wait for the job to end; Ctrl-C cancels");
  print->add_option("URI", o->uri, "printer: ipp://HOST:PORT/PATH or HOST")->required();
  print
      ->add_option("FILE", o->file,
                   "document (PDF, PNG, JPEG, PWG or Apple raster, PCL, ZPL, ...); - reads standard input")
      ->required();
  print->add_option("--job-name", o->jobName, "job name (default: the file's name)");
  print->add_option("--format", o->format, "document-format to send (default: told from the file's bytes)");
  print->add_option("--chunk", o->chunkKiB, "KiB per chunk (default 64)")->check(CLI::Range(1u, 16384u));
  print->add_flag("--no-wait", o->noWait,
                  "return once the printer has the document (up to 8 MiB sent in one request, without "
                  "waiting for a ready printer)");
  print->callback([o, &common] { Print(*o, common); });
}

}  // namespace NorvaneCli
