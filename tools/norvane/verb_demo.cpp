// demo: real peers in a private network namespace (the integration bench), a
// collection over each sample data map, a printed document with its job states,
// the printer's status and its locale strings; then every peer is stopped.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "collect.h"
#include "job_ops.h"

namespace NorvaneCli {

namespace {

namespace fs = std::filesystem;

constexpr int kBenchSkipped = 77;  // the bench's "cannot make the namespace here"

std::string ProgramOnPath(const char* name) {
  const char* path = std::getenv("PATH");
  std::string list = path != nullptr ? path : "/usr/bin:/bin";
  for (size_t at = 0; at <= list.size();) {
    size_t end = list.find(':', at);
    if (end == std::string::npos) end = list.size();
    fs::path candidate = fs::path(list.substr(at, end - at)) / name;
    if (access(candidate.c_str(), X_OK) == 0) return candidate.string();
    at = end + 1;
  }
  // The system directories, for a PATH without sbin.
  for (const char* dir : {"/usr/sbin", "/sbin"}) {
    fs::path candidate = fs::path(dir) / name;
    if (access(candidate.c_str(), X_OK) == 0) return candidate.string();
  }
  return {};
}

std::string Simulator() {
  if (const char* given = std::getenv("NORVANE_PRINTER_SIM"); given != nullptr && *given != 0) return given;
  std::error_code error;
  fs::path next = fs::read_symlink("/proc/self/exe", error).parent_path() / "norvane-printer-sim";
  if (!error && access(next.c_str(), X_OK) == 0) return next.string();
#ifdef NORVANE_BUILD_PRINTER_SIM
  if (access(NORVANE_BUILD_PRINTER_SIM, X_OK) == 0) return NORVANE_BUILD_PRINTER_SIM;
#endif
  return {};
}

int RunChild(const std::vector<std::string>& argv, bool quiet) {
  pid_t child = fork();
  if (child < 0) throw Failure(kExitFailed, std::string("cannot start the bench: ") + std::strerror(errno));
  if (child == 0) {
    if (quiet) {
      int null = open("/dev/null", O_WRONLY);
      if (null >= 0) {
        dup2(null, 1);
        dup2(null, 2);
      }
    }
    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    execv(args[0], args.data());
    _exit(127);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  return 128 + (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
}

// Outside: check what the bench needs, then run this program again inside it.
int StartBench(const Common& common) {
  std::string share = ShareDirectory();
  fs::path bench = fs::path(share) / "bench" / "bench.sh";
  if (share.empty() || !fs::exists(bench)) {
    throw Failure(kExitUnavailable, "the demo's bench is not installed (looked for " + bench.string() + ")");
  }
  std::string sim = Simulator();
  if (sim.empty()) throw Failure(kExitUnavailable, "norvane-printer-sim is not installed next to norvane");
  std::string missing;
  for (const char* program : {"unshare", "ip", "dbus-daemon", "ippeveprinter", "ipptool", "snmpd", "snmpget", "curl"}) {
    if (ProgramOnPath(program).empty()) missing += std::string(missing.empty() ? "" : ", ") + program;
  }
  if (!missing.empty()) {
    throw Failure(kExitUnavailable,
                  "the demo needs " + missing + " (Debian: cups-ipp-utils snmpd snmp dbus iproute2 curl)");
  }
  std::string unshare = ProgramOnPath("unshare");
  if (RunChild({unshare, "-rn", "true"}, true) != 0 &&
      !(geteuid() == 0 && RunChild({unshare, "-n", "true"}, true) == 0)) {
    throw Failure(kExitUnavailable,
                  "the demo needs a private network namespace, and this machine does not permit user namespaces");
  }
  std::error_code error;
  std::string self = fs::read_symlink("/proc/self/exe", error).string();
  std::vector<std::string> argv = {ProgramOnPath("bash"),
                                   bench.string(),
                                   "--sim",
                                   sim,
                                   "--fixtures",
                                   (fs::path(share) / "printer-sim").string(),
                                   "--",
                                   self};
  if (common.json) argv.push_back("--json");
  argv.push_back("demo");
  argv.push_back("--inside-bench");
  if (!common.json) std::printf("Starting the peers in a private network namespace...\n");
  std::fflush(stdout);
  int status = RunChild(argv, false);
  if (status == kBenchSkipped) {
    throw Failure(kExitUnavailable, "the demo could not make its private network namespace here");
  }
  if (status == 125) throw Failure(kExitFailed, "a peer of the demo did not start (its log is above)");
  return status;
}

// A small, valid PDF padded to about `bytes` with a comment stream, so the
// progress of a chunked print is visible.
std::string WriteTestDocument(const fs::path& dir, size_t bytes) {
  std::string page = "BT /F1 24 Tf 72 720 Td (Hello from norvane demo) Tj ET";
  std::string padding(bytes, ' ');
  for (size_t i = 0; i + 64 < padding.size(); i += 64) padding.replace(i, 24, "% norvane demo padding  ");
  std::string body = "%PDF-1.4\n";
  std::vector<size_t> offsets;
  auto object = [&](const std::string& text) {
    offsets.push_back(body.size());
    body += std::to_string(offsets.size()) + " 0 obj\n" + text + "\nendobj\n";
  };
  object("<< /Type /Catalog /Pages 2 0 R >>");
  object("<< /Type /Pages /Kids [3 0 R] /Count 1 >>");
  object(
      "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Contents 4 0 R "
      "/Resources << /Font << /F1 5 0 R >> >> >>");
  std::string content = page + "\n" + padding;
  object("<< /Length " + std::to_string(content.size()) + " >>\nstream\n" + content + "\nendstream");
  object("<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>");
  size_t xref = body.size();
  body += "xref\n0 " + std::to_string(offsets.size() + 1) + "\n0000000000 65535 f \n";
  for (size_t offset : offsets) {
    char line[32];
    std::snprintf(line, sizeof line, "%010zu 00000 n \n", offset);
    body += line;
  }
  body += "trailer\n<< /Size " + std::to_string(offsets.size() + 1) + " /Root 1 0 R >>\nstartxref\n" +
          std::to_string(xref) + "\n%%EOF\n";
  fs::path file = dir / "norvane-demo.pdf";
  std::ofstream(file, std::ios::binary) << body;
  return file.string();
}

std::string Env(const char* name, const char* fallback) {
  const char* value = std::getenv(name);
  return value != nullptr && *value != 0 ? value : fallback;
}

void Heading(const Common& common, const std::string& text) {
  if (!common.json) std::printf("\n== %s ==\n\n", text.c_str());
}

// Inside the bench: the tour.
int Tour(const Common& common) {
  nlohmann::json report;
  bool ok = true;
  const std::string host = Env("NORVANE_PRINTER_HOST", "127.0.0.1");
  const std::string uri = Env("NORVANE_IPP_URI", "ipp://127.0.0.1:631/ipp/print");
  Target target = ParseTarget(uri);
  auto address = MakeAddress(ParseTarget(host), common);

  Heading(common, "Peers");
  report["peers"] = {
      {"ipp", uri},
      {"snmp", host + ":" + Env("NORVANE_SNMP_PORT", "161")},
      {"printer-sim", host + ":" + Env("NORVANE_SIM_HTTP_PORT", "80") + ", " + Env("NORVANE_SIM_ALT_PORT", "8080") +
                          ", " + Env("NORVANE_SIM_SOAP_PORT", "3910")}};
  if (!common.json) {
    std::printf("  ippeveprinter        %s\n  snmpd                udp %s\n  norvane-printer-sim  http %s\n",
                report["peers"]["ipp"].get<std::string>().c_str(), report["peers"]["snmp"].get<std::string>().c_str(),
                report["peers"]["printer-sim"].get<std::string>().c_str());
  }

  Heading(common, "Data collections over the sample data maps");
  report["collections"] = nlohmann::json::array();
  for (const auto& file : SampleDataMaps()) {
    Collection collection = CollectOnce(address.get(), file, ReadDataMapKeys(file), {}, u"");
    ok = ok && collection.answered != 0;
    report["collections"].push_back(CollectionJson(collection));
    if (!common.json) PrintCollection(collection, host);
  }

  Heading(common, "Printing a test document in chunks");
  nlohmann::json job;
  try {
    auto provider = MakePrintProvider(address.get(), target);
    fs::path dir = Env("NORVANE_BENCH_DIR", "/tmp");
    PrintRequest request;
    request.file = WriteTestDocument(dir, 768 * 1024);
    request.jobName = "norvane demo page";
    request.chunkBytes = 32 * 1024;
    request.format = "application/octet-stream";  // the test page is no known format
    if (!common.json) {
      request.progress = [](const PrintProgress& p) {
        std::printf("\r  %7.1f KiB of %.1f KiB sent, job %-16s printer %-12s", p.sent / 1024.0, p.total / 1024.0,
                    p.state.empty() ? "-" : p.state.c_str(), p.printer.empty() ? "-" : p.printer.c_str());
        std::fflush(stdout);
      };
    }
    JobOutcome outcome = PrintDocument(provider.get(), target, request);
    FollowJob(provider.get(), target, &outcome, 10, nullptr);
    job = {{"job-id", outcome.jobId},  {"bytes", outcome.bytes},   {"seconds", outcome.seconds},
           {"states", outcome.states}, {"polled", outcome.polled}, {"job-state", outcome.state}};
    if (!common.json) {
      auto join = [](const std::vector<std::string>& list) {
        std::string text;
        for (const auto& s : list) text += (text.empty() ? "" : " -> ") + s;
        return text.empty() ? std::string("(none)") : text;
      };
      std::printf("\n  job %d: %.1f KiB in %.2f s\n  the polling threads saw: %s\n  job states: %s\n", outcome.jobId,
                  outcome.bytes / 1024.0, outcome.seconds, join(outcome.polled).c_str(), join(outcome.states).c_str());
    }
  } catch (const Failure& failure) {
    job = {{"error", failure.what()}};
    if (failure.Exit() != kExitUnavailable) ok = false;
    if (!common.json) std::printf("  %s\n", failure.what());
  }
  report["print"] = job;

  Heading(common, "Locale strings (de), from the simulated device");
  try {
    std::u16string strings;
    if (!kLocaleStringsBuilt) NotAvailable("fetching device locale strings");
    // The bench's IPP printer advertises no strings resource; the simulated
    // device answers IPP on its web port and serves its strings on 8080.
    auto device = MakeAddress(ParseTarget(host + ":" + Env("NORVANE_SIM_HTTP_PORT", "80")), common);
    SetLastError(0);
    HRESULT hr = GetDeviceLocaleStrings(device.get(), u"de", strings);
    if (hr != S_OK) throw Failure(kExitUnavailable, "no strings: " + DescribeStatus(hr, GetLastError()));
    ok = ok && !strings.empty();
    std::string text = ToUtf8(strings);
    report["strings"] = {{"language", "de"}, {"bytes", text.size()}, {"text", text}};
    if (!common.json) {
      std::printf("  %zu bytes; the first lines:\n", text.size());
      size_t at = 0;
      for (int line = 0; line < 5 && at < text.size(); ++line) {
        size_t end = text.find('\n', at);
        std::printf("    %s\n", text.substr(at, end - at).c_str());
        at = end == std::string::npos ? text.size() : end + 1;
      }
    }
  } catch (const Failure& failure) {
    ok = false;
    report["strings"] = {{"error", failure.what()}};
    if (!common.json) std::printf("  %s\n", failure.what());
  }

  if (common.json) {
    report["ok"] = ok;
    PrintJson(report);
  } else {
    std::printf("\n%s\n",
                ok ? "Every peer answered. Stopping them." : "Some steps failed (see above). Stopping the peers.");
  }
  return ok ? 0 : kExitFailed;
}

}  // namespace

void AddDemoVerb(CLI::App& app, Common& common) {
  auto inside = std::make_shared<bool>(false);
  auto* demo =
      app.add_subcommand("demo", "Start real peers in a private network namespace and show every feature against them");
  demo->add_flag("--inside-bench", *inside, "run the tour in an already started bench")->group("");
  demo->callback([inside, &common] {
    if (*inside || std::getenv("NORVANE_BENCH") != nullptr) {
      if (Tour(common) != 0) throw Failure(kExitFailed, "some steps of the demo failed");
      return;
    }
    // The tour inside the bench has said what went wrong already.
    int status = StartBench(common);
    if (status != 0) throw Failure(status, "");
  });
}

}  // namespace NorvaneCli
