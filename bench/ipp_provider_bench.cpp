// IPP provider creation (the connect probe, Get-Printer-Attributes "all" and
// the decode of the answer) next to libcups' cupsDoRequest of the same
// request to the same printer, and next to libcurl posting the same request
// bytes and reading the answer (no decode): the bare exchange. Each side opens
// its own connection every iteration, as a provider's creation does.
//
// Runs inside the integration bench, which provides ippeveprinter:
//   tests/integration/bench.sh --sim build/tools/printer-sim/norvane-printer-sim
//       -- build/bench/ipp_provider_bench
// The last lines give each figure next to libcups' and the ratio, first in wall
// time (what a user waits for; the goal), then in CPU time of this process
// (below 1.0 the side costs less than libcups), with the pieces of a creation:
// the connect probe alone and the decode of the printer's answer alone; the
// rest is the exchange through the host.
#include <benchmark/benchmark.h>
#include <cups/cups.h>
#include <curl/curl.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "cpu_time_reporter.h"
#include "ipp/ipp_operations.h"
#include "ipp/ipp_provider_impl.h"
#include "norvane/host.h"
#include "norvane/norvane.h"

namespace {

std::string Env(const char* name, const char* fallback) {
  const char* value = std::getenv(name);
  return value != nullptr && *value != 0 ? value : fallback;
}

const std::string& Host() {
  static const std::string host = Env("NORVANE_PRINTER_HOST", "127.0.0.1");
  return host;
}

std::string Uri() { return "ipp://" + Host() + ":631/ipp/print"; }

ipp_t* GetPrinterAttributesAll() {
  ipp_t* request = ippNewRequest(IPP_OP_GET_PRINTER_ATTRIBUTES);
  ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr, Uri().c_str());
  ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_KEYWORD, "requested-attributes", nullptr, "all");
  return request;
}

void Library(benchmark::State& state) {
  std::u16string host(Host().begin(), Host().end());
  std::string uri = Uri();
  std::u16string wideUri(uri.begin(), uri.end());
  for (auto _ : state) {
    Norvane::QxNetAddress* address = CreateNetAddress(host.c_str());
    Norvane::IPPProvider* provider = CreateIPPPrintProvider(address, wideUri.c_str());
    if (provider == nullptr) {
      state.SkipWithError("no provider: is ippeveprinter listening?");
      address->Dispose();
      break;
    }
    provider->Dispose();
    address->Dispose();
  }
}

void Cups(benchmark::State& state) {
  for (auto _ : state) {
    http_t* http =
        httpConnect2(Host().c_str(), 631, nullptr, AF_UNSPEC, HTTP_ENCRYPTION_IF_REQUESTED, 1, 30000, nullptr);
    if (http == nullptr) {
      state.SkipWithError("httpConnect2 failed");
      break;
    }
    ipp_t* response = cupsDoRequest(http, GetPrinterAttributesAll(), "/ipp/print");
    if (response == nullptr || ippGetStatusCode(response) > IPP_STATUS_OK_CONFLICTING) {
      state.SkipWithError("cupsDoRequest failed");
    }
    ippDelete(response);
    httpClose(http);
  }
}

size_t Keep(char* data, size_t size, size_t count, void* sink) {
  static_cast<std::string*>(sink)->append(data, size * count);
  return size * count;
}

// The request bytes as libcups writes them.
std::string RequestBytes() {
  std::string body;
  ipp_t* request = GetPrinterAttributesAll();
  ippSetState(request, IPP_STATE_IDLE);
  ippWriteIO(
      &body,
      [](void* out, ipp_uchar_t* data, size_t length) -> ssize_t {
        static_cast<std::string*>(out)->append(reinterpret_cast<const char*>(data), length);
        return static_cast<ssize_t>(length);
      },
      1, nullptr, request);
  ippDelete(request);
  return body;
}

// One bare exchange on a fresh handle and connection: the printer's answer,
// empty when it failed.
std::string Exchange(const std::string& body) {
  static const std::string url = "http://" + Host() + ":631/ipp/print";
  std::string answer;
  CURL* curl = curl_easy_init();
  curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/ipp");
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
  curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &Keep);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &answer);
  if (curl_easy_perform(curl) != CURLE_OK) answer.clear();
  curl_slist_free_all(headers);
  curl_easy_cleanup(curl);
  return answer;
}

void Curl(benchmark::State& state) {
  std::string body = RequestBytes();
  for (auto _ : state) {
    if (Exchange(body).empty()) state.SkipWithError("curl exchange failed");
  }
}

void Probe(benchmark::State& state) {
  std::u16string host(Host().begin(), Host().end());
  for (auto _ : state) {
    if (!Norvane::IPPProviderImpl::DeviceExists(host.c_str(), u"631")) state.SkipWithError("probe failed");
  }
}

void Decode(benchmark::State& state) {
  // The printer's answer, fetched once through the bare exchange.
  std::string answer = Exchange(RequestBytes());
  if (answer.size() < 8) {
    state.SkipWithError("no answer to decode");
    return;
  }
  for (auto _ : state) {
    Norvane::IPPOperations ops(nullptr);
    ops.SetAttributeName("all");
    benchmark::DoNotOptimize(ops.ParseIPPContent(reinterpret_cast<const uint8_t*>(answer.data()),
                                                 static_cast<uint32_t>(answer.size()), nullptr));
  }
}

}  // namespace

int main(int argc, char** argv) {
  // Fixed counts: a few thousand connections a second in a row are more
  // than ippeveprinter reliably takes.
  benchmark::RegisterBenchmark("provider-creation/library", Library)->Unit(benchmark::kMicrosecond)->Iterations(1000);
  benchmark::RegisterBenchmark("provider-creation/curl-bare-exchange", Curl)
      ->Unit(benchmark::kMicrosecond)
      ->Iterations(1000);
  benchmark::RegisterBenchmark("provider-creation/cupsDoRequest", Cups)->Unit(benchmark::kMicrosecond)->Iterations(300);
  benchmark::RegisterBenchmark("piece/connect-probe", Probe)->Unit(benchmark::kMicrosecond)->Iterations(1000);
  benchmark::RegisterBenchmark("piece/decode", Decode)->Unit(benchmark::kMicrosecond);
  benchmark::Initialize(&argc, argv);
  NorvaneBench::CpuTimeReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  const char* kCups = "provider-creation/cupsDoRequest/iterations:300";
  reporter.PrintHeading("Get-Printer-Attributes \"all\" (goal <= 0.5x libcups)", "us wall", "libcups");
  reporter.PrintWallPair("library provider creation", "provider-creation/library/iterations:1000", kCups);
  reporter.PrintWallPair("libcurl bare exchange", "provider-creation/curl-bare-exchange/iterations:1000", kCups);
  reporter.PrintHeading("the same in CPU time", "us CPU", "libcups");
  reporter.PrintPair("library provider creation", "provider-creation/library/iterations:1000", kCups);
  reporter.PrintPair("libcurl bare exchange", "provider-creation/curl-bare-exchange/iterations:1000", kCups);
  reporter.PrintPair("  piece: the connect probe", "piece/connect-probe/iterations:1000", kCups);
  reporter.PrintPair("  piece: the decode of the answer", "piece/decode", kCups);
  benchmark::Shutdown();
  // The library is here twice: the static core the pieces call into and the
  // shared one the host loads, each with its own log modules; ending without
  // static destructors keeps them from tearing down each other's.
  std::fflush(stdout);
  std::_Exit(0);
}
