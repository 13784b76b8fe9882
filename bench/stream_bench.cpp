// Chunked print streaming, each next to a reference doing the same work in the
// same run:
//  - the library's PrintJob + PrintJobWrite in 64 KiB blocks to the printer vs
//    ipptool printing the same file to the same printer;
//  - the same library stream to a sink that only drains HTTP bodies vs curl
//    posting the file chunked to that sink;
//  - the bare host transport stream to the printer (no IPP client around it).
//
// Runs inside the integration bench, which provides the printer:
//   tests/integration/bench.sh --sim build/tools/printer-sim/norvane-printer-sim
//       -- build/bench/stream_bench
// STREAM_BENCH_MIB sets the document size (default 64 MiB). The last lines give the
// throughputs, their ratios (above 1 means the library is faster) and the peak
// resident memory of each side (the process for the library, the child for the tools).
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "norvane/host.h"
#include "norvane/norvane.h"
#include "run_tool.h"

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
    std::string file =
        (std::filesystem::temp_directory_path() / ("norvane-stream-bench-" + std::to_string(getpid()) + ".pwg"))
            .string();
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

// One IPP attribute in wire form: tag, name length, name, value length, value.
void AddAttribute(std::string& bytes, char tag, const std::string& name, const std::string& value) {
  bytes += tag;
  bytes += static_cast<char>(name.size() >> 8), bytes += static_cast<char>(name.size());
  bytes += name;
  bytes += static_cast<char>(value.size() >> 8), bytes += static_cast<char>(value.size());
  bytes += value;
}

std::string IppOperation(uint16_t operation, const std::string& printerUri, bool job = true) {
  std::string bytes = {0x02, 0x00, static_cast<char>(operation >> 8), static_cast<char>(operation), 0, 0, 0, 100, 0x01};
  const auto add = [&](char tag, const std::string& name, const std::string& value) {
    AddAttribute(bytes, tag, name, value);
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

// Peak resident memory in MiB: of this process since the last reset, or of the
// largest child waited for.
void ResetPeakMemory() { std::ofstream("/proc/self/clear_refs") << "5"; }
double PeakMemoryMiB() {
  std::ifstream in("/proc/self/status");
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("VmHWM:", 0) == 0) return std::atof(line.c_str() + 6) / 1024;
  }
  return 0;
}

// An HTTP peer that drains request bodies (whole or chunked) and answers every
// request with one IPP answer that reads as an idle printer holding the job.
class Sink {
 public:
  Sink() {
    listener_ = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof at;
    bind(listener_, reinterpret_cast<sockaddr*>(&at), size);
    listen(listener_, 16);
    getsockname(listener_, reinterpret_cast<sockaddr*>(&at), &size);
    port_ = ntohs(at.sin_port);
    std::thread([this] {
      for (int client; (client = accept(listener_, nullptr, nullptr)) >= 0;) std::thread(Serve, client).detach();
    }).detach();
  }
  int Port() const { return port_; }

 private:
  static std::string Answer() {
    std::string body = {0x02, 0x00, 0x00, 0x00, 0, 0, 0, 100, 0x01};
    const auto add = [&](char tag, const std::string& name, const std::string& value) {
      AddAttribute(body, tag, name, value);
    };
    add(0x47, "attributes-charset", "utf-8");
    add(0x48, "attributes-natural-language", "en");
    body += '\x04';
    add(0x23, "printer-state", std::string("\0\0\0\3", 4));
    add(0x44, "printer-state-reasons", "none");
    body += '\x02';
    add(0x45, "job-uri", "ipp://127.0.0.1/ipp/print/1");
    add(0x21, "job-id", std::string("\0\0\0\1", 4));
    add(0x23, "job-state", std::string("\0\0\0\5", 4));
    add(0x44, "job-state-reasons", "none");
    body += '\x03';
    return "HTTP/1.1 200 OK\r\nContent-Type: application/ipp\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body;
  }
  // Reads one request after another off a kept-alive connection.
  static void Serve(int client) {
    static const std::string answer = Answer();
    std::string buffer;
    std::vector<char> block(256 * 1024);
    size_t at = 0;  // parse position in `buffer`
    auto fill = [&]() {
      if (at > 0) buffer.erase(0, at), at = 0;
      ssize_t got = read(client, block.data(), block.size());
      if (got <= 0) return false;
      buffer.append(block.data(), static_cast<size_t>(got));
      return true;
    };
    auto line = [&](std::string* text) {
      size_t end;
      while ((end = buffer.find("\r\n", at)) == std::string::npos) {
        if (!fill()) return false;
      }
      *text = buffer.substr(at, end - at);
      at = end + 2;
      return true;
    };
    auto skip = [&](size_t count) {
      while (buffer.size() - at < count) {
        count -= buffer.size() - at;
        at = buffer.size();
        if (!fill()) return false;
      }
      at += count;
      return true;
    };
    for (std::string text;;) {
      size_t length = 0;
      bool chunked = false;
      if (!line(&text)) break;
      while (line(&text) && !text.empty()) {
        for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        if (text.rfind("content-length:", 0) == 0) length = std::stoul(text.substr(15));
        if (text.rfind("transfer-encoding:", 0) == 0 && text.find("chunked") != std::string::npos) chunked = true;
      }
      bool ok = true;
      if (chunked) {
        for (size_t size = 1; ok && size != 0;) {
          ok = line(&text);
          size = ok ? std::stoul(text, nullptr, 16) : 0;
          ok = ok && skip(size + 2);
        }
      } else {
        ok = skip(length);
      }
      if (!ok || write(client, answer.data(), answer.size()) < 0) break;
    }
    close(client);
  }
  int listener_ = -1;
  int port_ = 0;
};

Sink& TheSink() {
  static Sink sink;
  return sink;
}

// PrintJob with the first block, PrintJobWrite with every further one and an
// empty one at the end; false with the reason when the library refuses.
bool LibraryPrint(const std::u16string& printerUri, const std::string& user, std::string* failure) {
  Norvane::QxNetAddress* address = CreateNetAddress(Wide(Env("NORVANE_PRINTER_HOST", "127.0.0.1")).c_str());
  Norvane::IPPProvider* provider = CreateIPPPrintProvider(address, printerUri.c_str());
  Norvane::IPPRequestBase* attributes = CreateIPPRequest();
  Norvane::IPPResponseBase* response = CreateIPPResponse();
  if (provider == nullptr) {
    *failure = "no provider, last error " + std::to_string(GetLastError());
  } else {
    attributes->SetRequestingUserName(user.c_str());
    attributes->SetJobName("stream-bench");
    Norvane::IPPAttributeStruct format{};
    format.valueTag = 0x49;
    std::strcpy(format.name, "document-format");
    std::strcpy(format.value.text, "image/pwg-raster");
    attributes->AddIPPRequest(format);
    std::FILE* in = std::fopen(DocumentPath().c_str(), "rb");
    std::vector<uint8_t> block(kChunk);
    size_t got = std::fread(block.data(), 1, block.size(), in);
    HRESULT hr = provider->PrintJob(attributes, response, block.data(), static_cast<int32_t>(got), true);
    while (hr == S_OK && (got = std::fread(block.data(), 1, block.size(), in)) > 0) {
      hr = provider->PrintJobWrite(attributes, response, block.data(), static_cast<int32_t>(got));
    }
    if (hr == S_OK) hr = provider->PrintJobWrite(attributes, response, nullptr, 0);
    std::fclose(in);
    if (hr != S_OK) *failure = "print failed: " + std::to_string(hr) + ", last error " + std::to_string(GetLastError());
  }
  response->Dispose();
  attributes->Dispose();
  if (provider != nullptr) provider->Dispose();
  address->Dispose();
  return failure->empty();
}

void BM_LibraryPrintJob(benchmark::State& state) {
  if (Env("NORVANE_BENCH", "") != "1") {
    state.SkipWithError("run inside tests/integration/bench.sh");
    return;
  }
  const std::string printerUri = Env("NORVANE_IPP_URI", "ipp://127.0.0.1:631/ipp/print");
  Norvane::QxNetAddress* address = CreateNetAddress(Wide(Env("NORVANE_PRINTER_HOST", "127.0.0.1")).c_str());
  ResetPeakMemory();
  int job = 0;
  for (auto _ : state) {
    state.PauseTiming();
    DocumentPath();  // made once, outside the measurement
    // The printer starts on the last job a moment after it is received.
    usleep(1000 * 1000);
    bool idle = WaitForIdlePrinter(address, printerUri);
    state.ResumeTiming();
    std::string failure = idle ? "" : "the printer stayed busy";
    if (idle) LibraryPrint(Wide(printerUri), "bench-" + std::to_string(++job), &failure);
    if (!failure.empty()) {
      state.SkipWithError(failure.c_str());
      break;
    }
  }
  address->Dispose();
  state.counters["peak_MiB"] = PeakMemoryMiB();
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * std::filesystem::file_size(DocumentPath())));
}

void BM_LibraryPrintJobToSink(benchmark::State& state) {
  if (Env("NORVANE_BENCH", "") != "1") {
    state.SkipWithError("run inside tests/integration/bench.sh (the provider probes the printer port)");
    return;
  }
  const std::string uri = "ipp://127.0.0.1:" + std::to_string(TheSink().Port()) + "/ipp/print";
  DocumentPath();
  ResetPeakMemory();
  for (auto _ : state) {
    std::string failure;
    if (!LibraryPrint(Wide(uri), "bench", &failure)) {
      state.SkipWithError(failure.c_str());
      break;
    }
  }
  state.counters["peak_MiB"] = PeakMemoryMiB();
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * std::filesystem::file_size(DocumentPath())));
}

void BM_CurlChunkedToSink(benchmark::State& state) {
  const std::string url = "http://127.0.0.1:" + std::to_string(TheSink().Port()) + "/ipp/print";
  double peak = 0;
  for (auto _ : state) {
    int status = NorvaneBench::RunTool(
        {"curl", "-sf", "-o", "/dev/null", "--data-binary", "@" + DocumentPath(), "-H", "Transfer-Encoding: chunked",
         "-H", "Content-Type: application/ipp", "-H", "Expect:", url},
        &peak);
    if (status != 0) {
      state.SkipWithError(("curl failed, status " + std::to_string(status)).c_str());
      break;
    }
  }
  state.counters["peak_MiB"] = peak;
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * std::filesystem::file_size(DocumentPath())));
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

  ResetPeakMemory();
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
      ok = stream->WriteChunk(reinterpret_cast<const uint8_t*>(framed.data()), static_cast<uint32_t>(framed.size()),
                              1) == S_OK;
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
                (response->GetBodyLength() >= 8
                     ? ", IPP status " + std::to_string(response->GetBody()[2] * 256 + response->GetBody()[3])
                     : "");
    }
    request->Dispose();
    if (!failure.empty()) {
      state.SkipWithError(failure.c_str());
      break;
    }
  }
  address->Dispose();
  state.counters["peak_MiB"] = PeakMemoryMiB();
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
  double peak = 0;
  for (auto _ : state) {
    state.PauseTiming();
    bool idle = WaitForIdlePrinter(address, uri);
    state.ResumeTiming();
    if (!idle) {
      state.SkipWithError("the printer stayed busy");
      break;
    }
    int status = NorvaneBench::RunTool({"ipptool", "-t", "-f", path, uri, "print-job.test"}, &peak);
    if (status != 0) {
      state.SkipWithError(("ipptool print-job failed, status " + std::to_string(status)).c_str());
      break;
    }
  }
  address->Dispose();
  state.counters["peak_MiB"] = peak;
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}

// STREAM_BENCH_ITERATIONS runs each benchmark that many times (default 1: one
// 512 MiB document per side is already a long run).
const int kIterations = std::atoi(Env("STREAM_BENCH_ITERATIONS", "1").c_str());
BENCHMARK(BM_LibraryPrintJob)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(kIterations);
BENCHMARK(BM_IpptoolPrintJob)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(kIterations);
BENCHMARK(BM_LibraryPrintJobToSink)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(kIterations);
BENCHMARK(BM_CurlChunkedToSink)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(kIterations);
BENCHMARK(BM_HostChunkedStream)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(kIterations);

// Keeps the throughput of each benchmark to print the comparison at the end.
class ComparingReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.error_occurred || run.run_type != Run::RT_Iteration) continue;
      std::string name = run.benchmark_name().substr(0, run.benchmark_name().find('/'));
      auto it = run.counters.find("bytes_per_second");
      if (it != run.counters.end()) rates_[name] = it->second;
      auto peak = run.counters.find("peak_MiB");
      if (peak != run.counters.end()) peaks_[name] = peak->second;
    }
  }
  std::map<std::string, double> rates_;
  std::map<std::string, double> peaks_;

  // "library: R MiB/s (peak P MiB) vs reference: ... ratio X".
  void Compare(const char* label, const std::string& ours, const std::string& theirs) {
    auto a = rates_.find(ours), b = rates_.find(theirs);
    if (a == rates_.end() || b == rates_.end() || b->second <= 0) return;
    std::printf("%s: %.1f MiB/s (peak %.0f MiB) vs %.1f MiB/s (peak %.0f MiB), ratio %.2f\n", label,
                a->second / (1 << 20), peaks_[ours], b->second / (1 << 20), peaks_[theirs], a->second / b->second);
  }
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  ComparingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  reporter.Compare("library print-job vs ipptool, same printer", "BM_LibraryPrintJob", "BM_IpptoolPrintJob");
  reporter.Compare("library print-job vs curl, same sink", "BM_LibraryPrintJobToSink", "BM_CurlChunkedToSink");
  reporter.Compare("bare host stream vs ipptool, same printer", "BM_HostChunkedStream", "BM_IpptoolPrintJob");
  return 0;
}
