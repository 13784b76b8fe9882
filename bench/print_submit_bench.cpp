// How long a host waits in PrintJob for a small chunked job: from the call to
// its return with the job found by Get-Jobs, a 137 KiB PDF to an idle printer,
// median of 10 jobs; next to ipptool printing the same file whole to the same
// printer in the same run (each job of either side starts on an idle printer).
//
// Runs inside the integration bench, which provides the printer:
//   tests/integration/bench.sh -- build/bench/print_submit_bench
// The last line gives both medians and their ratio (below 1 means the library
// returns sooner than ipptool prints).
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "norvane/host.h"
#include "norvane/norvane.h"
#include "run_tool.h"

namespace {

constexpr size_t kDocumentSize = 137 * 1024;
constexpr size_t kBlock = 64 * 1024;
// PRINT_SUBMIT_JOBS sets the number of jobs of each side (default 10).
const int kJobs = std::atoi(std::getenv("PRINT_SUBMIT_JOBS") != nullptr ? std::getenv("PRINT_SUBMIT_JOBS") : "10");
using Clock = std::chrono::steady_clock;

std::string Env(const char* name, const char* fallback) {
  const char* value = std::getenv(name);
  return value != nullptr && *value != 0 ? value : fallback;
}

std::u16string Wide(const std::string& ascii) { return std::u16string(ascii.begin(), ascii.end()); }

// A one-page PDF padded with a comment to the document size.
std::string MakeDocument() {
  std::string pdf =
      "%PDF-1.4\n1 0 obj<</Type/Catalog/Pages 2 0 R>>endobj\n2 0 obj<</Type/Pages/Kids[3 0 R]/Count 1>>endobj\n"
      "3 0 obj<</Type/Page/Parent 2 0 R/MediaBox[0 0 612 792]>>endobj\n";
  const std::string tail = "trailer<</Root 1 0 R>>\n%%EOF\n";
  uint32_t state = 7;
  while (pdf.size() + tail.size() < kDocumentSize) {
    pdf += '%';
    for (int i = 0; i < 78; ++i) pdf += static_cast<char>('A' + ((state = state * 1664525u + 1013904223u) >> 27));
    pdf += '\n';
  }
  pdf.resize(kDocumentSize - tail.size(), '\n');
  return pdf + tail;
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values.empty() ? -1 : values[values.size() / 2];
}

double MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// The printer takes one job at a time: every measured job starts on an idle one.
bool WaitForIdlePrinter(Norvane::IPPProvider* provider) {
  for (int attempt = 0; attempt < 3000; ++attempt, usleep(20 * 1000)) {
    VARIANT state;
    VariantInit(&state);
    HRESULT hr = provider->GetIPPValue("printer-state", 0, &state, nullptr, "/ipp/print", 0, 0, " ");
    bool idle = hr == S_OK && ((state.vt == VT_BSTR && std::u16string(state.bstrVal) == u"3") ||
                               (state.vt == VT_I4 && state.lVal == 3));
    VariantClear(&state);
    if (idle) return true;
  }
  return false;
}

// The time PrintJob takes for the first block, the rest streamed afterwards.
double LibrarySubmit(const std::u16string& uri, const std::string& document, int job, std::string* failure) {
  Norvane::QxNetAddress* address = CreateNetAddress(Wide(Env("NORVANE_PRINTER_HOST", "127.0.0.1")).c_str());
  Norvane::IPPProvider* provider = CreateIPPPrintProvider(address, uri.c_str());
  Norvane::IPPRequestBase* attributes = CreateIPPRequest();
  Norvane::IPPResponseBase* response = CreateIPPResponse();
  double elapsed = -1;
  if (provider == nullptr) {
    *failure = "no provider, last error " + std::to_string(GetLastError());
  } else if (!WaitForIdlePrinter(provider)) {
    *failure = "the printer stayed busy";
  } else {
    attributes->SetRequestingUserName(("submit-" + std::to_string(job)).c_str());
    attributes->SetJobName("print-submit-bench");
    Norvane::IPPAttributeStruct format{};
    format.valueTag = 0x49;
    std::strcpy(format.name, "document-format");
    std::strcpy(format.value.text, "application/pdf");
    attributes->AddIPPRequest(format);
    const auto* bytes = reinterpret_cast<const uint8_t*>(document.data());
    auto start = Clock::now();
    HRESULT hr = provider->PrintJob(attributes, response, bytes, static_cast<int32_t>(kBlock), true);
    elapsed = MillisecondsSince(start);
    std::fprintf(stderr, "job %d: PrintJob %.1f ms\n", job, elapsed);
    if (hr != S_OK || response->GetJobID() <= 0)
      *failure = "PrintJob answered " + std::to_string(hr) + " without a job";
    for (size_t at = kBlock; hr == S_OK && at < document.size(); at += kBlock) {
      hr = provider->PrintJobWrite(attributes, response, bytes + at,
                                   static_cast<int32_t>(std::min(kBlock, document.size() - at)));
    }
    if (hr == S_OK) hr = provider->PrintJobWrite(attributes, response, nullptr, 0);
    if (hr != S_OK && failure->empty()) *failure = "the stream failed: " + std::to_string(hr);
  }
  response->Dispose();
  attributes->Dispose();
  if (provider != nullptr) provider->Dispose();
  address->Dispose();
  return elapsed;
}

double IpptoolPrint(const std::string& uri, const std::string& path, std::string* failure) {
  auto start = Clock::now();
  int status = NorvaneBench::RunTool({"ipptool", "-f", path, uri, "print-job.test"});
  double elapsed = MillisecondsSince(start);
  if (status != 0) *failure = "ipptool failed, status " + std::to_string(status);
  return elapsed;
}

double libraryMedian = -1, ipptoolMedian = -1;

void BM_SmallJobSubmit(benchmark::State& state) {
  if (Env("NORVANE_BENCH", "") != "1") {
    state.SkipWithError("run inside tests/integration/bench.sh");
    return;
  }
  const std::string uri = Env("NORVANE_IPP_URI", "ipp://127.0.0.1:631/ipp/print");
  const std::string document = MakeDocument();
  const std::string path =
      (std::filesystem::temp_directory_path() / ("print-submit-" + std::to_string(getpid()) + ".pdf")).string();
  std::FILE* out = std::fopen(path.c_str(), "wb");
  std::fwrite(document.data(), 1, document.size(), out);
  std::fclose(out);
  Norvane::QxNetAddress* address = CreateNetAddress(Wide(Env("NORVANE_PRINTER_HOST", "127.0.0.1")).c_str());
  Norvane::IPPProvider* watcher = CreateIPPPrintProvider(address, Wide(uri).c_str());
  for (auto _ : state) {
    std::vector<double> library, ipptool;
    std::string failure = watcher == nullptr ? "no provider" : "";
    // Alternating, so that each library job follows another client's job.
    for (int job = 0; job < kJobs && failure.empty(); ++job) {
      library.push_back(LibrarySubmit(Wide(uri), document, job, &failure));
      if (failure.empty() && !WaitForIdlePrinter(watcher)) failure = "the printer stayed busy";
      if (failure.empty()) ipptool.push_back(IpptoolPrint(uri, path, &failure));
    }
    if (!failure.empty()) {
      state.SkipWithError(failure.c_str());
      break;
    }
    libraryMedian = Median(library);
    ipptoolMedian = Median(ipptool);
    state.counters["library_ms"] = libraryMedian;
    state.counters["library_max_ms"] = *std::max_element(library.begin(), library.end());
    state.counters["ipptool_ms"] = ipptoolMedian;
  }
  if (watcher != nullptr) watcher->Dispose();
  address->Dispose();
  std::remove(path.c_str());
}
BENCHMARK(BM_SmallJobSubmit)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  if (libraryMedian >= 0 && ipptoolMedian > 0) {
    std::printf(
        "137 KiB PDF, median of %d: PrintJob returns with the job found in %.1f ms; ipptool prints it in "
        "%.1f ms; ratio %.2f\n",
        kJobs, libraryMedian, ipptoolMedian, libraryMedian / ipptoolMedian);
  }
  return 0;
}
