// Chunked print streaming through the reference host transport, next to ipptool
// printing the same file to the same printer in the same run.
//
// Runs inside the integration bench, which provides the printer:
//   tests/integration/bench.sh --sim build/tools/printer-sim/norvane-printer-sim
//       -- build/bench/stream_bench [--benchmark_repetitions=N]
// STREAM_BENCH_MIB sets the document size (default 64 MiB). The last lines give both
// throughputs and their ratio (host stream / ipptool; above 1 means faster).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "norvane/host.h"

extern char** environ;

namespace {

constexpr size_t kChunk = 64 * 1024;

std::string Env(const char* name, const char* fallback) {
  const char* value = std::getenv(name);
  return value != nullptr && *value != 0 ? value : fallback;
}

std::u16string Wide(const std::string& ascii) { return std::u16string(ascii.begin(), ascii.end()); }

// The document: a PWG raster sync word and made-up page bytes, in a file both
// clients read. ipptool names its format from the ".pwg" extension.
const std::string& DocumentPath() {
  static const std::string path = [] {
    size_t size = std::stoul(Env("STREAM_BENCH_MIB", "64")) << 20;
    std::string file = (std::filesystem::temp_directory_path() / ("norvane-stream-bench-" + std::to_string(getpid()) + ".pwg")).string();
    std::FILE* out = std::fopen(file.c_str(), "wb");
    std::vector<char> block(kChunk);
    uint32_t state = 12345;
    for (size_t written = 0; written < size; written += block.size()) {
      for (char& c : block) c = static_cast<char>((state = state * 1664525u + 1013904223u) >> 24);
      if (written == 0) std::memcpy(block.data(), "RaS2", 4);
      std::fwrite(block.data(), 1, block.size(), out);
    }
    std::fclose(out);
    std::atexit([] { std::remove(DocumentPath().c_str()); });
    return file;
  }();
  return path;
}

std::string IppOperation(uint16_t operation, const std::string& printerUri, bool job = true) {
  std::string bytes = {0x02, 0x00, static_cast<char>(operation >> 8), static_cast<char>(operation), 0, 0, 0, 100, 0x01};
  const auto add = [&](char tag, const std::string& name, const std::string& value) {
    bytes += tag;
    bytes += static_cast<char>(name.size() >> 8), bytes += static_cast<char>(name.size());
    bytes += name;
    bytes += static_cast<char>(value.size() >> 8), bytes += static_cast<char>(value.size());
    bytes += value;
  };
  add(0x47, "attributes-charset", "utf-8");
  add(0x48, "attributes-natural-language", "en");
  add(0x45, "printer-uri", printerUri);
  if (job) {
    add(0x42, "requesting-user-name", "bench");
    add(0x42, "job-name", "stream-bench");
    add(0x49, "document-format", "image/pwg-raster");
  } else {
    add(0x44, "requested-attributes", "printer-state");
  }
  bytes += '\x03';
  return bytes;
}

// The test printer takes one job at a time and stays busy while it "prints":
// every measured job starts on an idle printer. Answers false after a minute.
bool WaitForIdlePrinter(Norvane::QxNetAddress* address, const std::string& printerUri) {
  const std::string query = IppOperation(0x000B, printerUri, false);
  const std::string name = "printer-state";
  for (int attempt = 0; attempt < 600; ++attempt) {
    Norvane::HTTPRequest* request = nullptr;
    if (address->CreateRequestEx(&request, 631) != S_OK) return false;
    request->SetMethod(u"POST");
    request->SetResource(u"/ipp/print");
    request->SetContentType(u"application/ipp");
    request->SetBody(reinterpret_cast<const uint8_t*>(query.data()), static_cast<uint32_t>(query.size()));
    Norvane::HTTPResponse* response = nullptr;
    int printerState = 0;
    if (request->Send(&response) == S_OK && response->GetBody() != nullptr) {
      std::string body(reinterpret_cast<const char*>(response->GetBody()), response->GetBodyLength());
      // enum value: tag 0x23, name, then a 4-byte length of 4 and the value.
      size_t at = body.find(name);
      if (at != std::string::npos && at + name.size() + 6 <= body.size()) {
        printerState = static_cast<unsigned char>(body[at + name.size() + 5]);
      }
    }
    request->Dispose();
    if (printerState == 3) return true;  // idle
    usleep(100 * 1000);
  }
  return false;
}

// Frames one piece as the library does: "%X\r\n", the bytes, "\r\n".
void AppendFrame(std::string& out, const char* data, size_t length) {
  char head[24];
  int n = std::snprintf(head, sizeof head, "%zX\r\n", length);
  out.append(head, static_cast<size_t>(n));
  out.append(data, length);
  out.append("\r\n");
}

void BM_HostChunkedStream(benchmark::State& state) {
  if (Env("NORVANE_BENCH", "") != "1") {
    state.SkipWithError("run inside tests/integration/bench.sh");
    return;
  }
  const std::string printerUri = Env("NORVANE_IPP_URI", "ipp://127.0.0.1:631/ipp/print");
  Norvane::QxNetAddress* address = CreateNetAddress(Wide(Env("NORVANE_PRINTER_HOST", "127.0.0.1")).c_str());
  address->SetPortText(Wide(Env("NORVANE_IPP_PORT", "631")).c_str());
  const std::string& path = DocumentPath();
  size_t size = std::filesystem::file_size(path);
  std::vector<char> buffer(kChunk);
  std::string framed;
  framed.reserve(kChunk + 64 + 4096);

  for (auto _ : state) {
    state.PauseTiming();
    bool idle = WaitForIdlePrinter(address, printerUri);
    state.ResumeTiming();
    if (!idle) {
      state.SkipWithError("the printer stayed busy");
      break;
    }
    Norvane::HTTPRequest* request = nullptr;
    address->CreateRequestEx(&request, 631);
    auto* stream = dynamic_cast<Norvane::QxHTTPRequestEx*>(request);
    stream->SetMethod(u"POST");
    stream->SetResource(u"/ipp/print");
    stream->SetContentType(u"application/ipp");
    stream->AddHeader(u"Transfer-Encoding", u"chunked");
    stream->AddHeader(u"Content-Type", u"application/ipp");
    bool ok = stream->Open(1) == S_OK;
    std::FILE* in = std::fopen(path.c_str(), "rb");
    bool first = true;
    size_t got;
    while (ok && (got = std::fread(buffer.data(), 1, buffer.size(), in)) > 0) {
      framed.clear();
      if (first) {
        // The request travels in the first chunk with the first piece.
        std::string piece = IppOperation(0x0002, printerUri);
        piece.append(buffer.data(), got);
        AppendFrame(framed, piece.data(), piece.size());
        first = false;
      } else {
        AppendFrame(framed, buffer.data(), got);
      }
      ok = stream->WriteChunk(reinterpret_cast<const uint8_t*>(framed.data()), static_cast<uint32_t>(framed.size()), 1) == S_OK;
    }
    std::fclose(in);
    ok = ok && stream->WriteChunk(reinterpret_cast<const uint8_t*>("0\r\n\r\n"), 5, 1) == S_OK;
    Norvane::HTTPResponse* response = nullptr;
    ok = ok && stream->Send(&response) == S_OK;
    std::string failure;
    if (!ok) {
      failure = std::string("transport failure: ") + NetAddressErrorText(stream->GetErrorCode());
    } else if (response->GetStatus() != 200 || response->GetBodyLength() < 8 || response->GetBody()[2] != 0) {
      failure = "refused: HTTP " + std::to_string(response->GetStatus()) +
                (response->GetBodyLength() >= 8 ? ", IPP status " + std::to_string(response->GetBody()[2] * 256 + response->GetBody()[3]) : "");
    }
    request->Dispose();
    if (!failure.empty()) {
      state.SkipWithError(failure.c_str());
      break;
    }
  }
  address->Dispose();
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}

void BM_IpptoolPrintJob(benchmark::State& state) {
  if (Env("NORVANE_BENCH", "") != "1") {
    state.SkipWithError("run inside tests/integration/bench.sh");
    return;
  }
  const std::string& path = DocumentPath();
  size_t size = std::filesystem::file_size(path);
  std::string uri = Env("NORVANE_IPP_URI", "ipp://127.0.0.1:631/ipp/print");
  Norvane::QxNetAddress* address = CreateNetAddress(Wide(Env("NORVANE_PRINTER_HOST", "127.0.0.1")).c_str());
  address->SetPortText(Wide(Env("NORVANE_IPP_PORT", "631")).c_str());
  for (auto _ : state) {
    state.PauseTiming();
    bool idle = WaitForIdlePrinter(address, uri);
    state.ResumeTiming();
    if (!idle) {
      state.SkipWithError("the printer stayed busy");
      break;
    }
    std::vector<std::string> args = {"ipptool", "-t", "-f", path, uri, "print-job.test"};
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    int status = -1;
    if (posix_spawnp(&pid, "ipptool", &actions, nullptr, argv.data(), environ) == 0) waitpid(pid, &status, 0);
    posix_spawn_file_actions_destroy(&actions);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      state.SkipWithError(("ipptool print-job failed, status " + std::to_string(status)).c_str());
      break;
    }
  }
  address->Dispose();
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}

BENCHMARK(BM_HostChunkedStream)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_IpptoolPrintJob)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

// Keeps the throughput of each benchmark to print the comparison at the end.
class ComparingReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.error_occurred || run.run_type != Run::RT_Iteration) continue;
      auto it = run.counters.find("bytes_per_second");
      if (it != run.counters.end()) rates_[run.benchmark_name().substr(0, run.benchmark_name().find('/'))] = it->second;
    }
  }
  std::map<std::string, double> rates_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  ComparingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  auto host = reporter.rates_.find("BM_HostChunkedStream");
  auto tool = reporter.rates_.find("BM_IpptoolPrintJob");
  if (host != reporter.rates_.end() && tool != reporter.rates_.end() && tool->second > 0) {
    std::printf("host chunked stream: %.1f MiB/s\nipptool print-job:   %.1f MiB/s\nratio (host/ipptool): %.2f\n",
                host->second / (1 << 20), tool->second / (1 << 20), host->second / tool->second);
  }
  return 0;
}
