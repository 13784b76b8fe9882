// IPP message speed next to libcups, in one run: decoding the real printer
// responses of the test data, and encoding the requests the library sends.
// libcups decodes with ippNew + ippReadIO from memory; our decoder with a fresh
// IPPOperations per response, as the provider uses it. The table at the end
// gives our time over libcups' time for each pair (below 1.0: we are faster).
#include <benchmark/benchmark.h>
#include <cups/cups.h>
#include <cups/ipp.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "ipp/ipp_operations.h"
#include "ipp/ipp_request_attributes.h"

namespace {

struct Source {
  const std::string* bytes;
  size_t position;
};

ssize_t ReadFromMemory(void* context, ipp_uchar_t* buffer, size_t count) {
  auto* source = static_cast<Source*>(context);
  size_t n = std::min(count, source->bytes->size() - source->position);
  std::memcpy(buffer, source->bytes->data() + source->position, n);
  source->position += n;
  return static_cast<ssize_t>(n);
}

ssize_t WriteToMemory(void* context, ipp_uchar_t* buffer, size_t count) {
  static_cast<std::string*>(context)->append(reinterpret_cast<const char*>(buffer), count);
  return static_cast<ssize_t>(count);
}

ipp_t* CupsDecode(const std::string& bytes) {
  ipp_t* ipp = ippNew();
  Source source{&bytes, 0};
  if (ippReadIO(&source, ReadFromMemory, 1, nullptr, ipp) != IPP_STATE_DATA) {
    ippDelete(ipp);
    return nullptr;
  }
  return ipp;
}

bool OursDecode(const std::string& bytes) {
  Norvane::IPPOperations ops(nullptr);
  ops.SetAttributeName("printer-state");
  return ops.ParseIPPContent(reinterpret_cast<const uint8_t*>(bytes.data()), static_cast<uint32_t>(bytes.size()),
                             nullptr) == S_OK;
}

// The library reads IPP/2 only; the IPP/1.1 captures are relabelled so that
// both decoders read the same bytes.
std::string AsIpp2(std::string bytes) {
  if (bytes.size() >= 2) {
    bytes[0] = 2;
    bytes[1] = 0;
  }
  return bytes;
}

std::map<std::string, std::string> LoadCaptures() {
  std::map<std::string, std::string> captures;
  for (const auto& entry : std::filesystem::directory_iterator(NORVANE_IPP_CAPTURES_DIR)) {
    if (entry.path().extension() == ".md") continue;  // provenance and licence texts
    std::ifstream in(entry.path(), std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    std::string bytes = AsIpp2(s.str());
    // Only what both decoders accept is a fair comparison.
    ipp_t* ipp = CupsDecode(bytes);
    if (ipp == nullptr || !OursDecode(bytes)) {
      std::fprintf(stderr, "skipped %s: not decodable by both\n", entry.path().filename().c_str());
      if (ipp != nullptr) ippDelete(ipp);
      continue;
    }
    ippDelete(ipp);
    captures[entry.path().filename().string()] = bytes;
  }
  const char* fixtures = NORVANE_SOURCE_DIR "/tests/fixtures/ipp";
  if (std::filesystem::is_directory(fixtures)) {
    for (const auto& entry : std::filesystem::directory_iterator(fixtures)) {
      if (entry.path().extension() != ".bin") continue;
      std::ifstream in(entry.path(), std::ios::binary);
      std::ostringstream s;
      s << in.rdbuf();
      captures["fixture:" + entry.path().filename().string()] = s.str();
    }
  }
  return captures;
}

// Requests both sides encode: the library's Get-Printer-Attributes of the
// provider's status query, and a Print-Job with every job option set.
Norvane::IPPRequestBase* PrintJobAttributes() {
  Norvane::IPPRequestBase* r = Norvane::IPPRequestAttributes::Create();
  r->SetPrinterURI("ipp://printer.example/ipp/print");
  r->SetRequestingUserName("alice");
  r->SetJobName("quarterly report");
  r->SetDocumentName("report.pdf");
  r->SetCopy(2);
  r->SetPrintingSides(1);
  r->SetOrientationRequested(4);
  r->SetPrintQuality(5);
  r->SetOutputMode(1);
  return r;
}

std::string CupsWrite(ipp_t* ipp) {
  std::string out;
  out.reserve(1024);
  ippSetState(ipp, IPP_STATE_IDLE);
  ippWriteIO(&out, WriteToMemory, 1, nullptr, ipp);
  return out;
}

void CupsEncodeGetPrinterAttributes(benchmark::State& state) {
  static const char* const kNames[] = {"printer-state", "printer-state-reasons"};
  for (auto _ : state) {
    ipp_t* ipp = ippNewRequest(IPP_OP_GET_PRINTER_ATTRIBUTES);
    ippAddString(ipp, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr, "/ipp/print");
    ippAddStrings(ipp, IPP_TAG_OPERATION, IPP_TAG_KEYWORD, "requested-attributes", 2, nullptr, kNames);
    std::string bytes = CupsWrite(ipp);
    benchmark::DoNotOptimize(bytes.data());
    ippDelete(ipp);
  }
}

void OursEncodeGetPrinterAttributes(benchmark::State& state) {
  for (auto _ : state) {
    Norvane::IPPOperations ops(nullptr);
    ops.SetResourceURI("/ipp/print");
    ops.SetAttributeName("printer-state,printer-state-reasons");
    std::vector<uint8_t> buffer(Norvane::kIppAttributeLimit + 1);
    uint32_t length = 0;
    ops.FormIPPRequestBasedOnOperation(buffer.data(), Norvane::kIppGetPrinterAttributes, &length, nullptr);
    benchmark::DoNotOptimize(buffer.data());
  }
}

void CupsEncodePrintJob(benchmark::State& state) {
  for (auto _ : state) {
    ipp_t* ipp = ippNewRequest(IPP_OP_PRINT_JOB);
    ippAddString(ipp, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr, "/ipp/print");
    ippAddString(ipp, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr, "ipp://printer.example/ipp/print");
    ippAddString(ipp, IPP_TAG_OPERATION, IPP_TAG_NAME, "requesting-user-name", nullptr, "alice");
    ippAddString(ipp, IPP_TAG_OPERATION, IPP_TAG_NAME, "job-name", nullptr, "quarterly report");
    ippAddString(ipp, IPP_TAG_OPERATION, IPP_TAG_NAME, "document-name", nullptr, "report.pdf");
    ippAddInteger(ipp, IPP_TAG_JOB, IPP_TAG_INTEGER, "copies", 2);
    ippAddString(ipp, IPP_TAG_JOB, IPP_TAG_KEYWORD, "sides", nullptr, "two-sided-long-edge");
    ippAddInteger(ipp, IPP_TAG_JOB, IPP_TAG_INTEGER, "orientation-requested", 4);
    ippAddInteger(ipp, IPP_TAG_JOB, IPP_TAG_INTEGER, "print-quality", 5);
    ippAddString(ipp, IPP_TAG_JOB, IPP_TAG_KEYWORD, "print-color-mode", nullptr, "monochrome");
    std::string bytes = CupsWrite(ipp);
    benchmark::DoNotOptimize(bytes.data());
    ippDelete(ipp);
  }
}

void OursEncodePrintJob(benchmark::State& state) {
  Norvane::IPPRequestBase* attributes = PrintJobAttributes();
  for (auto _ : state) {
    Norvane::IPPOperations ops(nullptr);
    ops.SetResourceURI("/ipp/print");
    std::vector<uint8_t> buffer(Norvane::kIppAttributeLimit + 1);
    uint32_t length = 0;
    ops.FormIPPRequestBasedOnOperation(buffer.data(), Norvane::kIppPrintJob, &length, attributes);
    benchmark::DoNotOptimize(buffer.data());
  }
  attributes->Dispose();
}

// Remembers each benchmark's CPU time per iteration for the ratio table (CPU
// time, because the build machines run other work beside the benchmark).
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration && run.iterations > 0) {
        times[run.benchmark_name()] = run.GetAdjustedCPUTime();
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> times;
};

}  // namespace

int main(int argc, char** argv) {
  std::map<std::string, std::string> captures = LoadCaptures();
  std::vector<std::string> pairs;
  for (const auto& [name, bytes] : captures) {
    const std::string* data = &bytes;
    benchmark::RegisterBenchmark(("decode/ours/" + name).c_str(), [data](benchmark::State& state) {
      for (auto _ : state) benchmark::DoNotOptimize(OursDecode(*data));
      state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data->size()));
    });
    benchmark::RegisterBenchmark(("decode/cups/" + name).c_str(), [data](benchmark::State& state) {
      for (auto _ : state) {
        ipp_t* ipp = CupsDecode(*data);
        benchmark::DoNotOptimize(ipp);
        ippDelete(ipp);
      }
      state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data->size()));
    });
    // libcups writing the decoded response back, for scale: the library has no
    // response encoder to set beside it.
    benchmark::RegisterBenchmark(("write-response/cups/" + name).c_str(), [data](benchmark::State& state) {
      ipp_t* ipp = CupsDecode(*data);
      for (auto _ : state) benchmark::DoNotOptimize(CupsWrite(ipp));
      ippDelete(ipp);
    });
    pairs.push_back("decode/%s/" + name);
  }
  benchmark::RegisterBenchmark("encode/ours/get-printer-attributes", OursEncodeGetPrinterAttributes);
  benchmark::RegisterBenchmark("encode/cups/get-printer-attributes", CupsEncodeGetPrinterAttributes);
  benchmark::RegisterBenchmark("encode/ours/print-job", OursEncodePrintJob);
  benchmark::RegisterBenchmark("encode/cups/print-job", CupsEncodePrintJob);
  pairs.push_back("encode/%s/get-printer-attributes");
  pairs.push_back("encode/%s/print-job");

  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf("\n%-80s %14s %12s %8s\n", "ours / libcups", "ours (ns CPU)", "libcups", "ratio");
  for (const std::string& pair : pairs) {
    std::string ours = pair, cups = pair;
    ours.replace(ours.find("%s"), 2, "ours");
    cups.replace(cups.find("%s"), 2, "cups");
    auto a = reporter.times.find(ours), b = reporter.times.find(cups);
    if (a == reporter.times.end() || b == reporter.times.end() || b->second <= 0) continue;
    std::string label = pair;
    label.replace(label.find("%s/"), 3, "");
    std::printf("%-80s %14.0f %12.0f %8.2f\n", label.c_str(), a->second, b->second, a->second / b->second);
  }
  benchmark::Shutdown();
  return 0;
}
