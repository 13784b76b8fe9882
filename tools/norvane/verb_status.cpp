// status, jobs, cancel and strings: what an IPP printer says about itself and its
// jobs, and its localised strings.
#include "cli.h"
#include "job_ops.h"

namespace NorvaneCli {

namespace {

// What `status` reads, in the order shown.
constexpr const char* kStatusAttributes[] = {
    "printer-name",          "printer-make-and-model", "printer-state",    "printer-state-reasons",
    "printer-state-message", "printer-uuid",           "marker-names",     "marker-levels",
    "marker-colors",         "marker-types",           "queued-job-count", "media-ready",
};

struct StatusOptions {
  std::string uri;
  std::vector<int32_t> jobs;
  int32_t job = 0;
  std::string lang = "en";
};

Owned<Norvane::IPPProvider> QueryProvider(const Target& target, Norvane::QxNetAddress* address) {
  SetLastError(0);
  Owned<Norvane::IPPProvider> provider(CreateIPPProvider(address, target.resource.c_str()));
  if (!provider) throw Failure(kExitFailed, NoIppPrinter(address, target));
  CheckIppStatus(provider.get(), target.Uri());
  return provider;
}

void Status(const StatusOptions& o, const Common& common) {
  Target target = ParseTarget(o.uri);
  auto address = MakeAddress(target, common);
  auto provider = QueryProvider(target, address.get());
  nlohmann::json out = {{"printer", target.Uri()}};
  Table table({"ATTRIBUTE", "VALUE"});
  for (const char* name : kStatusAttributes) {
    Norvane::Variant value;
    if (provider->GetValue(name, value.Ptr()) != S_OK || value.Type() == VT_EMPTY) continue;
    std::string text = VariantText(value.Get());
    if (std::string(name) == "printer-state") text = PrinterStateName(text);
    out[name] = text;
    table.Add({name, text});
  }
  // An answer without printer attributes (a printer that answers every request
  // with its job list, say) would otherwise show as an empty table and succeed.
  if (out.size() == 1) {
    throw Failure(kExitFailed, "the printer at " + target.Uri() +
                                   " answered, but its answer holds none of the printer attributes " +
                                   "status shows (printer-state, printer-make-and-model, ...)");
  }
  if (common.json) {
    PrintJson(out);
  } else {
    table.Print(stdout);
  }
}

void Jobs(const StatusOptions& o, const Common& common) {
  Target target = ParseTarget(o.uri);
  auto address = MakeAddress(target, common);
  auto provider = MakePrintProvider(address.get(), target);
  nlohmann::json list = nlohmann::json::array();
  Table table({"JOB", "STATE", "REASONS", "NAME"});
  std::vector<std::string> unknown;
  for (int32_t id : o.jobs) {
    JobOutcome job;
    job.jobId = id;
    if (!AskJobState(provider.get(), target, &job)) {
      unknown.push_back(std::to_string(id));
      table.Add({std::to_string(id), "not found", "-", "-"});
      list.push_back({{"job-id", id}, {"error", "no such job"}});
      continue;
    }
    table.Add(
        {std::to_string(id), job.state, job.reasons.empty() ? "-" : job.reasons, job.name.empty() ? "-" : job.name});
    list.push_back(
        {{"job-id", id}, {"job-state", job.state}, {"job-state-reasons", job.reasons}, {"job-name", job.name}});
  }
  if (common.json) {
    PrintJson({{"printer", target.Uri()}, {"jobs", list}});
  } else {
    table.Print(stdout);
  }
  if (!unknown.empty()) {
    std::string ids;
    for (const auto& id : unknown) ids += (ids.empty() ? "" : ", ") + id;
    throw Failure(kExitFailed, "no job " + ids + " at " + target.Uri() + " for user '" + JobUser() + "'");
  }
}

void Cancel(const StatusOptions& o, const Common& common) {
  Target target = ParseTarget(o.uri);
  auto address = MakeAddress(target, common);
  auto provider = MakePrintProvider(address.get(), target);
  JobOutcome outcome = CancelJobById(provider.get(), target, o.job, common.timeoutMs / 1000.0);
  if (common.json) {
    PrintJson({{"printer", target.Uri()}, {"job-id", o.job}, {"job-state", outcome.state}});
  } else {
    std::printf("job %d: %s\n", o.job,
                outcome.state == "canceled" ? "canceled" : "canceling (stops at its next stop point)");
  }
  // A printer that stops a job at its next stop point has taken the cancel.
  const bool stopping = outcome.reasons.find("processing-to-stop-point") != std::string::npos;
  if (outcome.state != "canceled" && !stopping) {
    throw Failure(kExitFailed, "job " + std::to_string(o.job) + " is still " + outcome.state + " after the cancel");
  }
}

void Strings(const StatusOptions& o, const Common& common) {
  Target target = ParseTarget(o.uri);
  auto address = MakeAddress(target, common);
  if (!kLocaleStringsBuilt) NotAvailable("fetching device locale strings");
  std::u16string strings;
  SetLastError(0);
  HRESULT hr = GetDeviceLocaleStrings(address.get(), ToUtf16(o.lang), strings);
  if (hr != S_OK) {
    throw Failure(kExitFailed,
                  "no " + o.lang + " strings from " + target.host + ": " + DescribeStatus(hr, GetLastError()));
  }
  if (common.json) {
    PrintJson({{"printer", target.host}, {"language", o.lang}, {"strings", ToUtf8(strings)}});
  } else {
    std::printf("%s\n", ToUtf8(strings).c_str());
  }
}

}  // namespace

void AddStatusVerbs(CLI::App& app, Common& common) {
  auto o = std::make_shared<StatusOptions>();
  const char* uriHelp = "printer: ipp://HOST:PORT/PATH or HOST";

  auto* status = app.add_subcommand("status", "Printer state, reasons, markers and queued jobs");
  status->add_option("URI", o->uri, uriHelp)->required();
  status->callback([o, &common] { Status(*o, common); });

  auto* jobs = app.add_subcommand("jobs", "State of this user's jobs by id");
  jobs->add_option("URI", o->uri, uriHelp)->required();
  jobs->add_option("JOB-ID", o->jobs, "job ids")->required();
  jobs->callback([o, &common] { Jobs(*o, common); });

  auto* cancel = app.add_subcommand("cancel", "Cancel a job");
  cancel->add_option("URI", o->uri, uriHelp)->required();
  cancel->add_option("JOB-ID", o->job, "job id")->required();
  cancel->callback([o, &common] { Cancel(*o, common); });

  auto* strings = app.add_subcommand("strings", "The printer's localised strings for a language");
  strings->add_option("URI", o->uri, uriHelp)->required();
  strings->add_option("--lang", o->lang, "language tag such as en or de-DE (default en)");
  strings->callback([o, &common] { Strings(*o, common); });
}

}  // namespace NorvaneCli
