// Printing through the IPP provider to ippeveprinter over the reference host
// transport: one-body and chunked Print-Job landing byte for byte in the
// printer's spool, the job operations, cancels, a printer that dies mid-stream
// and one that refuses credentials.
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "../bench_env.h"
#include "ipp/ipp_provider_impl.h"
#include "ipp/ipp_request_attributes.h"
#include "ipp/ipp_response_attributes.h"
#include "norvane/host.h"
#include "support/ref.h"
#include "support/string_utils.h"

extern char** environ;

namespace {

using Norvane::IPPProviderImpl;
using QxUtils::AdoptRef;
using QxUtils::Ref;
namespace fs = std::filesystem;

constexpr int32_t kChunk = 64 * 1024;

// Deterministic document bytes: a PWG raster sync word, then xorshift noise.
struct Document {
  uint64_t state = 0x9E3779B97F4A7C15ull;
  bool first = true;
  void Next(std::vector<uint8_t>* block) {
    for (size_t i = 0; i < block->size(); i += 8) {
      state ^= state << 13, state ^= state >> 7, state ^= state << 17;
      std::memcpy(block->data() + i, &state, std::min<size_t>(8, block->size() - i));
    }
    if (std::exchange(first, false)) std::memcpy(block->data(), "RaS2", 4);
  }
};

// Whether the file holds the first `chunks` blocks of a Document and nothing more.
bool HoldsDocument(const fs::path& path, int chunks) {
  std::ifstream in(path, std::ios::binary);
  Document replay;
  std::vector<uint8_t> expected(kChunk), actual(kChunk);
  for (int i = 0; i < chunks; ++i) {
    replay.Next(&expected);
    if (!in.read(reinterpret_cast<char*>(actual.data()), kChunk) || actual != expected) return false;
  }
  return in.peek() == std::ifstream::traits_type::eof();
}

// The spool file ippeveprinter keeps for a job: "<job-id>-<name>.<ext>".
fs::path SpoolFile(int jobId) {
  for (const auto& entry : fs::directory_iterator(NorvaneBench::BenchValue("NORVANE_SPOOL_DIR", "/nonexistent"))) {
    if (entry.path().filename().string().rfind(std::to_string(jobId) + "-", 0) == 0) return entry.path();
  }
  return {};
}

long StatusField(const char* field) {  // kB from /proc/self/status
  std::ifstream in("/proc/self/status");
  for (std::string line; std::getline(in, line);) {
    if (line.rfind(field, 0) == 0) return std::atol(line.c_str() + std::strlen(field));
  }
  return -1;
}

// A child process; with `wait`, its exit status once it has ended.
pid_t Spawn(std::vector<std::string> args, bool wait = false) {
  std::vector<char*> argv;
  for (std::string& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  pid_t pid = -1;
  int status = -1;
  if (posix_spawnp(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) return -1;
  return wait && waitpid(pid, &status, 0) == pid ? status : pid;
}

class IppPrint : public ::testing::Test {
 protected:
  void SetUp() override {
    NORVANE_REQUIRE_BENCH();
    address = AdoptRef<Norvane::QxNetAddress>(CreateNetAddress(u"127.0.0.1"));
    // The printer takes one job at a time: an earlier test's job may still print.
    auto provider = Provider();
    ASSERT_TRUE(provider);
    for (int i = 0; i < 600 && provider->CheckForPrinterReadyState() != Norvane::kPrinterReady; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
  }
  void TearDown() override {
    for (pid_t pid : printers) kill(pid, SIGTERM), waitpid(pid, nullptr, 0);
  }
  // A second printer of the test's own on `port`, answering once it is up.
  Ref<IPPProviderImpl> OwnPrinter(const std::string& scheme, int port, std::vector<std::string> options) {
    std::string dir = NorvaneBench::BenchValue("NORVANE_BENCH_DIR", "/tmp") + "/printer-" + std::to_string(port);
    fs::create_directories(dir + "/keys");
    std::vector<std::string> args = {"ippeveprinter",
                                     "-r",
                                     "off",
                                     "-p",
                                     std::to_string(port),
                                     "-d",
                                     dir,
                                     "-K",
                                     dir + "/keys",
                                     "-f",
                                     "application/pdf,image/pwg-raster"};
    args.insert(args.end(), options.begin(), options.end());
    args.push_back("Printer " + std::to_string(port));
    printers.push_back(Spawn(args));
    std::u16string uri = QxUtils::Utf8ToWide(scheme + "://127.0.0.1:" + std::to_string(port) + "/ipp/print");
    for (int i = 0; i < 200; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(100))) {
      auto own = AdoptRef<Norvane::QxNetAddress>(CreateNetAddress(u"127.0.0.1"));
      if (auto* p = IPPProviderImpl::Create2(own.get(), uri.c_str(), Norvane::kIppDefaultSecurityFlags))
        return AdoptRef(p);
    }
    return nullptr;
  }
  Ref<IPPProviderImpl> Provider() {
    std::u16string uri =
        QxUtils::Utf8ToWide(NorvaneBench::BenchValue("NORVANE_IPP_URI", "ipp://127.0.0.1:631/ipp/print"));
    return AdoptRef(IPPProviderImpl::Create2(address.get(), uri.c_str(), Norvane::kIppDefaultSecurityFlags));
  }
  // Job attributes of a user of the test's own, so that Get-Jobs sees only its jobs.
  Ref<Norvane::IPPRequestBase> Attributes(const char* user, const char* format) {
    auto attributes = AdoptRef<Norvane::IPPRequestBase>(Norvane::IPPRequestAttributes::Create());
    attributes->SetRequestingUserName(user);
    attributes->SetJobName(user);
    Norvane::IPPAttributeStruct attribute{};
    attribute.valueTag = 0x49;
    std::strcpy(attribute.name, "document-format");
    std::strcpy(attribute.value.text, format);
    attributes->AddIPPRequest(attribute);
    return attributes;
  }
  // Opens a chunked stream and writes `chunks` more blocks of `document`.
  HRESULT Stream(IPPProviderImpl* provider, Norvane::IPPRequestBase* attributes, Document* document, int chunks) {
    std::vector<uint8_t> block(kChunk);
    document->Next(&block);
    HRESULT hr = provider->PrintJob(attributes, response.get(), block.data(), kChunk, true);
    for (int i = 0; i < chunks && hr == S_OK; ++i) {
      document->Next(&block);
      hr = provider->PrintJobWrite(attributes, response.get(), block.data(), kChunk);
    }
    return hr;
  }
  // The job's state once the printer has finished with it.
  std::string FinalState(IPPProviderImpl* provider, Norvane::IPPRequestBase* attributes) {
    for (int i = 0; i < 600; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(100))) {
      if (provider->GetJobs(attributes, response.get(), true) == S_OK) return response->GetJobState();
    }
    return "never finished";
  }

  Ref<Norvane::QxNetAddress> address;
  Ref<Norvane::IPPResponseBase> response = AdoptRef<Norvane::IPPResponseBase>(Norvane::IPPResponseAttributes::Create());
  std::vector<pid_t> printers;
};

TEST_F(IppPrint, DocumentsReachTheSpoolByteForByte) {
  const std::string pdf =
      "%PDF-1.4\n1 0 obj<</Type/Catalog/Pages 2 0 R>>endobj\n2 0 obj<</Type/Pages/Kids[3 0 R]/Count 1>>"
      "endobj\n3 0 obj<</Type/Page/Parent 2 0 R/MediaBox[0 0 612 792]>>endobj\ntrailer<</Root 1 0 R>>\n%%EOF\n";
  auto provider = Provider();
  auto attributes = Attributes("one-body", "application/pdf");
  ASSERT_EQ(provider->PrintJob(attributes.get(), response.get(), reinterpret_cast<const uint8_t*>(pdf.data()),
                               static_cast<int32_t>(pdf.size()), false),
            S_OK);
  ASSERT_GT(response->GetJobID(), 0);
  std::ifstream spooled(SpoolFile(response->GetJobID()), std::ios::binary);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(spooled), {}), pdf);
  // The printer takes one job at a time.
  EXPECT_EQ(FinalState(provider.get(), attributes.get()), "Completed");

  // 512 MiB in 64 KiB chunks, on a provider of its own: a provider's streams
  // end for good once one has.
  provider = Provider();
  attributes = Attributes("stream", "image/pwg-raster");
  Document document;
  constexpr int kChunks = 512 * 16;
  // What the printer-status thread sees reaches the host's observer.
  struct Seen {
    std::mutex mutex;
    std::vector<std::string> printerStates;
  } seen;
  auto observe = [](void* context, int kind, const char* state, const char*) {
    auto* into = static_cast<Seen*>(context);
    std::lock_guard<std::mutex> lock(into->mutex);
    if (kind == 0) into->printerStates.push_back(state);
  };
  ASSERT_EQ(SetIPPPollObserver(provider.get(), observe, &seen), S_OK);
  ASSERT_EQ(Stream(provider.get(), attributes.get(), &document, kChunks - 1), S_OK);
  int jobId = response->GetJobID();
  ASSERT_EQ(provider->PrintJobWrite(attributes.get(), response.get(), nullptr, 0), S_OK);
  SetIPPPollObserver(provider.get(), nullptr, nullptr);
  ASSERT_FALSE(seen.printerStates.empty());
  EXPECT_TRUE(seen.printerStates[0] == "3" || seen.printerStates[0] == "4") << seen.printerStates[0];
  EXPECT_TRUE(HoldsDocument(SpoolFile(jobId), kChunks));
  EXPECT_LT(StatusField("VmHWM:"), 64 * 1024) << "kB of peak resident memory";
}

TEST_F(IppPrint, JobOperationsFindTheCallersJobs) {
  auto provider = Provider();
  auto attributes = Attributes("jobs", "application/pdf");
  EXPECT_EQ(provider->PrintJob(attributes.get(), response.get(), nullptr, 0, true), E_FAIL);
  EXPECT_EQ(GetLastError(), Norvane::kErrorNoData);
  // A document the printer fetches from the simulator's web server.
  const std::string pdf = "%PDF-1.4\ntrailer<<>>\n%%EOF\n";
  std::ofstream(NorvaneBench::BenchValue("NORVANE_BENCH_DIR", "/tmp") + "/fetched.pdf") << pdf;
  ASSERT_EQ(Spawn({"curl", "-sf", "-o", "/dev/null", "-X", "PUT", "-H", "Content-Type: application/pdf",
                   "--data-binary", "@" + NorvaneBench::BenchValue("NORVANE_BENCH_DIR", "/tmp") + "/fetched.pdf",
                   NorvaneBench::BenchValue("NORVANE_SIM_CONTROL_URL", "") + "/resource?path=/docs/fetched.pdf"},
                  true),
            0);
  attributes->SetDocumentUri("http://127.0.0.1/docs/fetched.pdf");
  ASSERT_EQ(provider->PrintUri(attributes.get(), response.get()), S_OK);
  EXPECT_STREQ(response->GetSuccessStatus(), "0");
  EXPECT_GT(response->GetJobID(), 0);
  // The printer takes one job at a time: the next waits for this one.
  EXPECT_EQ(FinalState(provider.get(), attributes.get()), "Completed");
  ASSERT_EQ(provider->CreateJob(attributes.get(), response.get()), S_OK);
  EXPECT_STREQ(response->GetSuccessStatus(), "0");
  EXPECT_GT(response->GetJobID(), 1);
  // A job without documents would hold the printer for the next test; the
  // cancel is the caller's own (a provider's cancel is for good).
  EXPECT_EQ(Provider()->CancelJob(attributes.get(), response.get()), S_OK);
  // Send-URI names no job, which the printer tells in its answer.
  ASSERT_EQ(provider->SendURI(attributes.get(), response.get()), S_OK);
  EXPECT_STRNE(response->GetSuccessStatus(), "NOT_SET_ERROR");

  auto other = Attributes("nobody-printed", "application/pdf");
  EXPECT_EQ(provider->GetJobs(other.get(), response.get(), false), S_FALSE);

  // Credentials go only to a secure printer; a secure one that refuses them answers 401.
  EXPECT_EQ(provider->ValidateCredentials(attributes.get(), response.get()), E_FAIL);
  EXPECT_EQ(GetLastError(), Norvane::kErrorNotSecure);
  auto guarded = OwnPrinter("ipps", 8631, {"-A"});
  ASSERT_TRUE(guarded);
  attributes->SetUsername(u"bob");
  attributes->SetPassword(u"not-his-password");
  EXPECT_EQ(guarded->ValidateCredentials(attributes.get(), response.get()), E_FAIL);
  EXPECT_EQ(GetLastError(), Norvane::kErrorCredentialsRefused);
}

TEST_F(IppPrint, CancelledJobsEndCancelled) {
  // The caller's own cancel: the next block finds the stream over.
  auto provider = Provider();
  auto attributes = Attributes("cancel-own", "image/pwg-raster");
  Document document;
  ASSERT_EQ(Stream(provider.get(), attributes.get(), &document, 4), S_OK);
  ASSERT_EQ(provider->CancelJob(attributes.get(), response.get()), S_OK);
  std::vector<uint8_t> block(kChunk);
  document.Next(&block);
  EXPECT_EQ(provider->PrintJobWrite(attributes.get(), response.get(), block.data(), kChunk), S_DEVICECANCELED);
  EXPECT_FALSE(provider->IsPolling());
  EXPECT_EQ(FinalState(provider.get(), attributes.get()), "Canceled");

  // A cancel from another client: this printer holds the job as incoming
  // until the document is complete, so the cancel shows once it is.
  provider = Provider();
  attributes = Attributes("cancel-other", "image/pwg-raster");
  ASSERT_EQ(Stream(provider.get(), attributes.get(), &document, 4), S_OK);
  std::string test = NorvaneBench::BenchValue("NORVANE_BENCH_DIR", "/tmp") + "/cancel.test";
  std::ofstream(test) << "{ OPERATION Cancel-Job GROUP operation-attributes-tag ATTR charset attributes-charset utf-8 "
                         "ATTR naturalLanguage attributes-natural-language en ATTR uri printer-uri $uri "
                         "ATTR integer job-id "
                      << response->GetJobID()
                      << " ATTR name requesting-user-name cancel-other STATUS successful-ok }\n";
  ASSERT_EQ(Spawn({"ipptool", "-q", NorvaneBench::BenchValue("NORVANE_IPP_URI", "ipp://127.0.0.1:631/ipp/print"), test},
                  true),
            0);
  std::vector<uint8_t> more(kChunk);
  for (int i = 0; i < 4; ++i) {
    document.Next(&more);
    ASSERT_EQ(provider->PrintJobWrite(attributes.get(), response.get(), more.data(), kChunk), S_OK);
  }
  HRESULT end = provider->PrintJobWrite(attributes.get(), response.get(), nullptr, 0);
  EXPECT_TRUE(end == S_OK || end == S_DEVICECANCELED) << std::hex << end;
  EXPECT_EQ(FinalState(provider.get(), attributes.get()), "Canceled");
}

TEST_F(IppPrint, PrinterDyingMidStreamEndsTheCall) {
  auto doomed = OwnPrinter("ipp", 8632, {});
  ASSERT_TRUE(doomed);
  auto attributes = Attributes("doomed", "image/pwg-raster");
  Document document;
  ASSERT_EQ(Stream(doomed.get(), attributes.get(), &document, 4), S_OK);
  kill(printers.back(), SIGKILL);
  waitpid(printers.back(), nullptr, 0);
  printers.pop_back();
  auto start = std::chrono::steady_clock::now();
  std::vector<uint8_t> block(kChunk);
  HRESULT hr = S_OK;
  for (int i = 0; i < 100000 && hr == S_OK; ++i) {
    document.Next(&block);
    hr = doomed->PrintJobWrite(attributes.get(), response.get(), block.data(), kChunk);
  }
  EXPECT_EQ(hr, E_FAIL);  // the job can no longer be found
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30)) << "the host's read time-out";
  EXPECT_FALSE(doomed->IsPolling());
  EXPECT_EQ(StatusField("Threads:"), 1);
}

}  // namespace
