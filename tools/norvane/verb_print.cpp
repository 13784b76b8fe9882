// print: a document streamed in chunks, with a progress line on a terminal and
// Ctrl-C cancelling the job at the printer.
#include <csignal>

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
  constexpr int kWidth = 30;
  int filled = p.total == 0 ? kWidth : static_cast<int>(kWidth * p.sent / p.total);
  std::string bar(static_cast<size_t>(filled), '#');
  bar.append(static_cast<size_t>(kWidth - filled), '.');
  double rate = p.seconds > 0 ? static_cast<double>(p.sent) / p.seconds : 0;
  std::fprintf(stderr, "\r[%s] %3d%%  %s of %s  %s/s  job %s  printer %s   ", bar.c_str(),
               static_cast<int>(p.total == 0 ? 100 : 100 * p.sent / p.total), Bytes(static_cast<double>(p.sent)).c_str(),
               Bytes(static_cast<double>(p.total)).c_str(), Bytes(rate).c_str(), p.state.empty() ? "-" : p.state.c_str(),
               p.printer.empty() ? "-" : p.printer.c_str());
  std::fflush(stderr);
}

void Print(const PrintOptions& o, const Common& common) {
  Target target = ParseTarget(o.uri);
  auto address = MakeAddress(target, common);
  auto provider = MakePrintProvider(address.get(), target);
  PrintRequest request;
  request.file = o.file;
  request.jobName = o.jobName.empty() ? o.file.substr(o.file.find_last_of('/') + 1) : o.jobName;
  request.format = o.format;
  request.chunkBytes = o.chunkKiB * 1024;
  request.cancel = &interrupted;
  const bool bar = !common.json && IsTerminal(stderr);
  if (bar) request.progress = ProgressLine;

  struct sigaction action {};
  action.sa_handler = OnInterrupt;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  JobOutcome outcome = PrintDocument(provider.get(), target, request);
  if (bar) std::fprintf(stderr, "\n");
  if (!outcome.canceled) FollowJob(provider.get(), target, &outcome, common.timeoutMs / 1000.0 * 2);

  if (common.json) {
    PrintJson({{"printer", target.Uri()}, {"job-id", outcome.jobId}, {"job-uri", outcome.jobUri},
               {"bytes", outcome.bytes}, {"seconds", outcome.seconds}, {"states", outcome.states},
               {"polled", outcome.polled}, {"job-state", outcome.state}, {"canceled", outcome.canceled}});
  } else {
    std::string states;
    for (const auto& s : outcome.states) states += (states.empty() ? "" : " -> ") + s;
    std::printf("job %d: %s in %.2f s; states %s\n", outcome.jobId, Bytes(static_cast<double>(outcome.bytes)).c_str(),
                outcome.seconds, states.empty() ? "(none seen)" : states.c_str());
  }
  if (outcome.canceled) {
    throw Failure(interrupted ? kExitInterrupted : kExitFailed,
                  "job " + std::to_string(outcome.jobId) + " was canceled" + (interrupted ? "" : " at the printer"));
  }
}

}  // namespace

void AddPrintVerbs(CLI::App& app, Common& common) {
  auto o = std::make_shared<PrintOptions>();
  auto* print = app.add_subcommand("print", "Print a file in chunks with progress; Ctrl-C cancels the job");
  print->add_option("URI", o->uri, "printer: ipp://HOST:PORT/PATH or HOST")->required();
  print->add_option("FILE", o->file, "document (PDF, PWG raster, ...)")->required();
  print->add_option("--job-name", o->jobName, "job name (default: the file's name)");
  print->add_option("--format", o->format, "document-format to send (default: the printer sniffs the data)");
  print->add_option("--chunk", o->chunkKiB, "KiB per chunk (default 64)")->check(CLI::Range(1u, 16384u));
  print->callback([o, &common] { Print(*o, common); });
}

}  // namespace NorvaneCli
