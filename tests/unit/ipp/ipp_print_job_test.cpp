// Job outcomes a test printer cannot be made to produce on demand: IPP and
// HTTP statuses of a one-body Print-Job, job states seen by the polling, and
// stopping the threads.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ipp/ipp_provider_impl.h"
#include "ipp/ipp_request_attributes.h"
#include "ipp/ipp_response_attributes.h"
#include "ipp_test_util.h"
#include "norvane/api.h"
#include "support/ref.h"
#include "testlib/capture_log.h"

namespace {

using namespace IppTest;
using Norvane::IPPProviderImpl;
using NorvaneTest::FakeAddress;
using NorvaneTest::FakeExchange;
using NorvaneTest::FakeReply;

// A printer whose answers the test sets: the IPP status of Print-Job (one per
// job in turn, the last repeated) and the job Get-Jobs lists.
struct Printer {
  std::vector<int> printStatuses = {0};
  uint32_t printHttpStatus = 200, getJobsHttpStatus = 200, printerHttpStatus = 200;
  HRESULT printSend = S_OK;                               // what the host's read of the Print-Job answer reports
  std::map<std::u16string, std::u16string> printHeaders;  // of the Print-Job answer
  std::string activeJob = "none";                         // job-state-reasons of the job in progress, "" for none
  std::string completedState;                             // job-state of the finished job, "" for none
  int printerState = 3;
  std::string printerReasons = "none";
  size_t prints = 0;

  FakeReply Answer(const FakeExchange& e) {
    const std::string job = B({0x02}) + Attr(0x45, "job-uri", "ipp://p/ipp/print/7");
    switch (Operation(e)) {
      case 2: {
        int status = printStatuses[std::min(prints++, printStatuses.size() - 1)];
        return {printHttpStatus, printHttpStatus == 200 ? ResponseStart(status) + B({0x03}) : "", printHeaders,
                printSend};
      }
      case 10: {
        std::string jobs;
        if (e.body.find("not-completed") == std::string::npos) {
          // One job per state in the list.
          for (size_t at = 0; at < completedState.size(); at = completedState.find(',', at) + 1) {
            jobs += job + IntAttr(0x23, "job-state", std::stoi(completedState.substr(at)));
            if (completedState.find(',', at) == std::string::npos) break;
          }
        } else if (!activeJob.empty()) {
          jobs = job + IntAttr(0x23, "job-state", 5) + Attr(0x44, "job-state-reasons", activeJob);
        }
        return {getJobsHttpStatus, ResponseStart() + jobs + B({0x03}), {}, S_OK};
      }
      case 8:
        return {200, ResponseStart() + B({0x03}), {}, S_OK};
      default:
        bool all = e.body.find(Attr(0x44, "requested-attributes", "all")) != std::string::npos;
        if (all) return {200, kAllAttributes, {}, S_OK};
        std::string reasons;
        for (size_t at = 0, comma; at <= printerReasons.size(); at = comma + 1) {
          comma = std::min(printerReasons.find(',', at), printerReasons.size());
          reasons += Attr(0x44, at == 0 ? "printer-state-reasons" : "", printerReasons.substr(at, comma - at));
        }
        return {printerHttpStatus,
                ResponseStart() + IntAttr(0x23, "printer-state", printerState) + reasons + B({0x03}),
                {},
                S_OK};
    }
  }
};

class PrintJob : public ::testing::Test {
 protected:
  void SetUp() override {
    provider = nullptr;  // its threads stop before the printer changes
    printer = Printer{};
    address = QxUtils::AdoptRef(FakeAddress::Create(u"USB001"));
    address->responder = [this](const FakeExchange& e) { return printer.Answer(e); };
    provider = QxUtils::AdoptRef(IPPProviderImpl::Create2(address.get(), u"ipp://USB001/ipp/print", 0));
    ASSERT_TRUE(provider);
    provider->SetPrintTimings({5000, 5, 1, 1, 3});
    attributes->SetRequestingUserName("alice");
  }
  int Sent(int operation) {
    std::lock_guard<std::recursive_mutex> lock(address->mutex);
    return static_cast<int>(std::count_if(address->exchanges.begin(), address->exchanges.end(),
                                          [&](const FakeExchange& e) { return Operation(e) == operation; }));
  }
  HRESULT Print(bool chunked) { return provider->PrintJob(attributes.get(), response.get(), data, 4, chunked); }
  HRESULT Write(int32_t length = 4) {
    return provider->PrintJobWrite(attributes.get(), response.get(), length != 0 ? data : nullptr, length);
  }
  // Request attributes of another caller (none: no user name).
  static QxUtils::Ref<Norvane::IPPRequestBase> Caller(const std::string& user = "") {
    auto caller = QxUtils::AdoptRef<Norvane::IPPRequestBase>(Norvane::IPPRequestAttributes::Create());
    if (!user.empty()) caller->SetRequestingUserName(user.c_str());
    return caller;
  }
  // Changes the printer while the provider's threads may be asking it.
  template <class Edit>
  void Change(Edit change) {
    std::lock_guard<std::recursive_mutex> lock(address->mutex);
    change(printer);
  }
  // The last print stream that ended with its last chunk.
  FakeExchange LastStream() {
    std::lock_guard<std::recursive_mutex> lock(address->mutex);
    for (auto e = address->exchanges.rbegin(); e != address->exchanges.rend(); ++e) {
      if (e->body.ends_with("\r\n0\r\n\r\n")) return *e;
    }
    return {};
  }

  const uint8_t data[4] = {'R', 'a', 'S', '2'};
  Printer printer;
  QxUtils::Ref<FakeAddress> address;
  QxUtils::Ref<IPPProviderImpl> provider;
  QxUtils::Ref<Norvane::IPPRequestBase> attributes = QxUtils::AdoptRef(Norvane::IPPRequestAttributes::Create());
  QxUtils::Ref<Norvane::IPPResponseBase> response = QxUtils::AdoptRef(Norvane::IPPResponseAttributes::Create());
};

// Waits up to 10 s for `done`.
bool Eventually(const std::function<bool()>& done) {
  for (int i = 0; i < 10000; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(1))) {
    if (done()) return true;
  }
  return done();
}

TEST_F(PrintJob, OneBodyOutcomeFollowsThePrinterStatus) {
  struct Case {
    std::vector<int> statuses;
    uint32_t http;
    HRESULT send, result;
    int requests;
    bool cancelledBefore;  // CancelJob was called on the provider earlier
  } cases[] = {
      {{0}, 200, S_OK, S_OK, 1, false},
      {{0x0508}, 200, S_OK, S_DEVICECANCELED, 1, false},  // server-error-job-canceled
      {{1}, 200, S_OK, E_FAIL, 1, false},                 // ok-ignored-or-substituted counts as a failure
      {{0x0507, 0}, 200, S_OK, S_OK, 2, false},           // busy, then taken on the restart
      {{0x0507, 0}, 200, S_OK, S_OK, 2, true},            // the cancel flag is only for a stream's wait
      {{0x0507}, 200, S_OK, E_FAIL, 3, false},            // busy for good: bounded restarts
      {{0}, 401, S_OK, Norvane::kIppResultUnauthorized, 1, false},
      {{0}, 200, Norvane::kHostResponseReadBenign, S_OK, 1, false},  // unread answer: Get-Jobs finds the job
  };
  for (const Case& c : cases) {
    SetUp();
    // A restart goes at once, not after the pause of a stream's wait for a ready printer.
    provider->SetPrintTimings({5000, 5, 5000, 1, 3});
    const auto start = std::chrono::steady_clock::now();
    if (c.cancelledBefore) {
      ASSERT_EQ(provider->CancelJob(attributes.get(), response.get()), S_OK);
    }
    printer.printStatuses = c.statuses;
    printer.printHttpStatus = c.http;
    printer.printSend = c.send;
    EXPECT_EQ(Print(false), c.result) << c.statuses[0] << " " << c.http << " " << c.cancelledBefore;
    EXPECT_EQ(Sent(2), c.requests) << c.statuses[0] << " " << c.http << " " << c.cancelledBefore;
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
  }
}

// How a stream's next block ends: with the printer's answer, cancelled once
// the job ended at the device or the caller cancelled (even without a user
// name), or after a failed chunk with what Get-Jobs finds.
TEST_F(PrintJob, StreamOutcomes) {
  auto anonymous = Caller();
  const auto failChunks = [this](const char* active, const char* completed) {
    Change([&](Printer& p) { p.activeJob = active, p.completedState = completed; });
    Change([this](Printer&) { address->writeChunkResult = E_FAIL; });
  };
  struct Case {
    const char* what;
    std::function<void()> before;
    int32_t length;
    HRESULT result;
  } cases[] = {
      {"last block", [] {}, 0, S_OK},
      {"ended at the device",
       [&] {
         Change([](Printer& p) { p.activeJob.clear(), p.completedState = "7"; });
         ASSERT_TRUE(Eventually([&] { return provider->GetPrintStatus() != 0; }));
       },
       4, S_DEVICECANCELED},
      {"cancel without a user name",
       [&] {
         EXPECT_EQ(provider->CancelJob(anonymous.get(), response.get()), E_FAIL);
         EXPECT_FALSE(provider->IsPolling());
         EXPECT_EQ(Sent(8), 0);
       },
       4, S_DEVICECANCELED},
      {"failed chunk, job listed", [&] { failChunks("job-printing", ""); }, 4, S_DEVICECANCELED},
      {"failed chunk, job completed", [&] { failChunks("", "9"); }, 4, S_DEVICECANCELED},
      {"failed chunk, job gone", [&] { failChunks("", ""); }, 4, S_FALSE},
  };
  for (const Case& c : cases) {
    SetUp();
    ASSERT_EQ(Print(true), S_OK);
    ASSERT_EQ(Write(), S_OK);
    c.before();
    EXPECT_EQ(Write(c.length), c.result) << c.what;
    EXPECT_FALSE(provider->IsPolling()) << c.what;
  }
}

TEST_F(PrintJob, JobPollReadsStatesAndReasons) {
  struct Case {
    std::string active, completedState;
    bool completed;
    HRESULT result;
  } cases[] = {
      {"job-printing", "", false, S_FALSE},
      {"job-canceled-by-user", "", false, S_OK},  // state 5 but cancelled
      {"", "9", true, S_OK},
      {"", "8", true, S_OK},       // aborted ends it too
      {"", "8,9", true, S_FALSE},  // several jobs of the user: not this one's end
      {"", "", true, S_FALSE},     // the job left both lists
  };
  for (const Case& c : cases) {
    SetUp();
    printer.printSend = Norvane::kHostResponseReadBenign;  // the unread answer stores the user for the poll
    ASSERT_EQ(Print(false), S_OK);
    printer.activeJob = c.active;
    printer.completedState = c.completedState;
    EXPECT_EQ(provider->GetJobs(c.completed), c.result) << c.active << c.completedState;
    EXPECT_EQ(provider->GetPrintStatus(), c.result == S_OK ? 1u : 0u) << c.active << c.completedState;
  }
  printer.getJobsHttpStatus = 500;
  EXPECT_EQ(provider->GetJobs(false), E_FAIL);
}

TEST_F(PrintJob, StoppingWakesBothThreadsAtOnce) {
  provider->SetPrintTimings({});
  std::atomic<int> printerPolls{0};
  provider->SetPollObserver(
      [](void* polls, int kind, const char*, const char*) {
        if (kind == 0) ++*static_cast<std::atomic<int>*>(polls);
      },
      &printerPolls);
  ASSERT_EQ(Print(true), S_OK);
  ASSERT_TRUE(provider->IsPolling());
  // Both threads are in their waits: the printer's after its first answer.
  ASSERT_TRUE(Eventually([&] { return printerPolls > 0; }));
  auto start = std::chrono::steady_clock::now();
  provider->StopAllThreadsRunning();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
  EXPECT_FALSE(provider->IsPolling());
  EXPECT_EQ(provider->GetPrintStatusEventHandle(), nullptr);
}

// A first attempt whose job Get-Jobs never lists leaves the printer thread
// running; the retry's blocks must still go out.
TEST_F(PrintJob, RetriedStreamSendsItsBlocks) {
  printer.activeJob.clear();
  ASSERT_EQ(Print(true), S_FALSE);
  EXPECT_EQ(GetLastError(), Norvane::kErrorJobNotFound);
  EXPECT_TRUE(provider->IsPolling());
  std::this_thread::sleep_for(std::chrono::milliseconds(50));  // ten job polls, were there a job thread
  EXPECT_EQ(Sent(10), 3);

  Change([](Printer& p) { p.activeJob = "job-printing"; });
  ASSERT_EQ(Print(true), S_OK);
  EXPECT_EQ(Write(), S_OK);
  EXPECT_EQ(Write(0), S_OK);
  EXPECT_TRUE(LastStream().body.ends_with("RaS2\r\n4\r\nRaS2\r\n0\r\n\r\n"));
}

// CancelJob from another thread while PrintJob looks its job up: no thread
// may start after the cancel stopped them.
TEST_F(PrintJob, CancelDuringTheJobLookupLeavesNoThread) {
  auto other = Caller("alice");
  auto otherResponse = QxUtils::AdoptRef(Norvane::IPPResponseAttributes::Create());
  std::thread canceller;
  bool cancelling = false;
  address->responder = [&](const FakeExchange& e) {
    if (Operation(e) == 10 && !std::exchange(cancelling, true)) {
      canceller = std::thread([&] { provider->CancelJob(other.get(), otherResponse.get()); });
      // The cancel has stopped the (not yet started) threads; its own
      // Get-Jobs waits for this answer.
      while (provider->GetPrintStatus() == 0) std::this_thread::yield();
    }
    return printer.Answer(e);
  };
  EXPECT_EQ(Print(true), S_OK);
  canceller.join();
  EXPECT_FALSE(provider->IsPolling());
  int polls = Sent(10);
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  EXPECT_EQ(Sent(10), polls);
  EXPECT_EQ(Write(), S_DEVICECANCELED);
}

// A one-body print stores its user for the job thread of a stream that is
// still open on the provider (a race the thread sanitizer sees).
TEST_F(PrintJob, OneBodyPrintBesideAStreamsJobThread) {
  provider->SetPrintTimings({5000, 1, 1, 1, 3});
  ASSERT_EQ(Print(true), S_OK);
  Change([](Printer& p) { p.printSend = Norvane::kHostResponseReadBenign; });  // the one-body print stores its user
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(provider->PrintJob(Caller("user-" + std::to_string(i)).get(), response.get(), data, 4, false), S_OK);
  }
  EXPECT_TRUE(provider->IsPolling());
  provider = nullptr;
}

TEST_F(PrintJob, ObserverMayClearItselfFromItsCall) {
  provider->SetPrintTimings({1, 1, 1, 1, 3});
  struct Seen {
    IPPProviderImpl* provider;
    std::atomic<int> calls{0};
  } seen{provider.get()};
  provider->SetPollObserver(
      [](void* context, int, const char*, const char*) {
        auto* into = static_cast<Seen*>(context);
        ++into->calls;
        into->provider->SetPollObserver(nullptr, nullptr);
      },
      &seen);
  ASSERT_EQ(Print(true), S_OK);
  ASSERT_TRUE(Eventually([&] { return seen.calls > 0; }));
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(Write(0), S_OK);
  EXPECT_LE(seen.calls, 2);  // at most one call per thread was under way when it cleared itself
}

// The print-ready event a host's chunk writer waits on: reset only while the
// printer is stopped with a full spool; a waiter wakes when nobody can read the
// printer's state any more (draining and cancels: the simulator's test).
TEST_F(PrintJob, PrintReadyFollowsAStoppedPrinterWithAFullSpool) {
  std::atomic<int> polls{0};
  provider->SetPollObserver(
      [](void* count, int kind, const char*, const char*) {
        if (kind == 0) ++*static_cast<std::atomic<int>*>(count);
      },
      &polls);
  const auto printerIs = [&](int state, const char* reasons) {  // and polled since
    Change([&](Printer& p) { p.printerState = state, p.printerReasons = reasons; });
    const int seen = polls;
    ASSERT_TRUE(Eventually([&] { return polls > seen + 1; }));
  };
  provider->SetPrintTimings({1, 1000, 1, 1, 3});
  ASSERT_EQ(Print(true), S_OK);
  auto ready = provider->GetPrintReadyStatusEventHandle();
  const uint64_t context = ready->Context();
  const struct {
    int state;
    const char* reasons;
    HRESULT ready;
  } cases[] = {{5, "media-empty,spool-area-full", S_FALSE}, {5, "media-empty", S_OK}, {4, "spool-area-full", S_OK}};
  for (const auto& c : cases) {
    printerIs(c.state, c.reasons);
    EXPECT_EQ(WaitForPrintReady(context, 0), c.ready) << c.state << " " << c.reasons;
  }
  printerIs(5, "spool-area-full");
  Change([](Printer& p) { p.printerHttpStatus = 500; });
  EXPECT_EQ(WaitForPrintReady(context, Norvane::kInfinite), E_ABORT);
  ASSERT_EQ(provider->CancelJob(attributes.get(), response.get()), S_OK);
  ready.reset();
  EXPECT_EQ(WaitForPrintReady(context, 0), E_ABORT);  // the stream's event is gone
  EXPECT_EQ(WaitForPrintReady(0, 0), S_OK);           // no event: nothing to wait for
}

// A secure printer: every request but Cancel-Job carries the provider's
// security flags (the requests of one job go to one printer, whose certificate
// the host accepted once), and the Authorization a credential check answered
// goes with later streams.
TEST_F(PrintJob, SecurePrinterRequests) {
  constexpr uint32_t kFlags = Norvane::kIppDefaultSecurityFlags;
  provider = nullptr;
  address->exchanges.clear();
  provider = QxUtils::AdoptRef(IPPProviderImpl::Create2(address.get(), u"ipps://USB001/ipp/print", kFlags));
  ASSERT_TRUE(provider);
  provider->SetPrintTimings({1, 1, 1, 1, 3});
  attributes->SetDocumentUri("http://docs/a.pdf");
  attributes->SetJobName("flags");
  printer.printHeaders = {{u"Authorization", u"Digest opaque=1"}};
  ASSERT_EQ(provider->ValidateCredentials(attributes.get(), response.get()), S_OK);
  EXPECT_EQ(attributes->GetAuthorization(), u"Digest opaque=1");
  ASSERT_EQ(provider->PrintUri(attributes.get(), response.get()), S_OK);
  ASSERT_EQ(provider->SendURI(attributes.get(), response.get()), S_OK);
  ASSERT_EQ(provider->CreateJob(attributes.get(), response.get()), S_OK);
  ASSERT_EQ(Print(true), S_OK);
  ASSERT_TRUE(Eventually([&] { return Sent(10) > 1 && Sent(11) > 1; }));  // both threads asked
  ASSERT_EQ(provider->CancelJob(attributes.get(), response.get()), S_OK);
  ASSERT_EQ(Write(0), S_DEVICECANCELED);
  EXPECT_EQ(LastStream().headers[u"Authorization"], u"Digest opaque=1");
  std::lock_guard<std::recursive_mutex> lock(address->mutex);
  for (const FakeExchange& e : address->exchanges) {
    EXPECT_EQ(e.securityFlags, Operation(e) == 8 ? 0u : kFlags) << "operation " << Operation(e);
  }
}

TEST_F(PrintJob, LogLinesOfTheStream) {
  NorvaneTest::CaptureLog log;
  ASSERT_EQ(Print(true), S_OK);
  ASSERT_EQ(Write(), S_OK);
  EXPECT_TRUE(log.Contains("PrintJobWrite exits with result 0x00000000"));
  ASSERT_EQ(Write(0), S_OK);
  auto anonymous = Caller();
  SetUp();
  NorvaneTest::CaptureLog quiet;
  EXPECT_EQ(provider->GetJobs(anonymous.get(), response.get(), false), E_FAIL);
  EXPECT_EQ(provider->PrintJob(anonymous.get(), response.get(), data, 4, true), S_OK);  // nobody to look up
  EXPECT_FALSE(quiet.Contains("RequestingUserName is not present"));
  EXPECT_FALSE(quiet.Contains("PrintJob exits"));
}

// CancelJob from a second thread at any moment of a stream: every call
// returns, and no thread is left polling.
TEST_F(PrintJob, CancelFromAnotherThreadAtAnyMoment) {
  std::mt19937 random(20);
  auto other = Caller("alice");
  auto otherResponse = QxUtils::AdoptRef(Norvane::IPPResponseAttributes::Create());
  for (int round = 0; round < 200; ++round) {
    SetUp();
    provider->SetPrintTimings({1, 1, 1, 1, 3});
    const int delay = std::uniform_int_distribution<int>(0, 1500)(random);
    std::thread canceller([&] {
      std::this_thread::sleep_for(std::chrono::microseconds(delay));
      provider->CancelJob(other.get(), otherResponse.get());
    });
    HRESULT hr = Print(true);
    for (int i = 0; i < 30 && hr == S_OK; ++i) hr = Write();
    if (hr == S_OK) hr = Write(0);
    canceller.join();
    EXPECT_TRUE(hr == S_OK || hr == S_DEVICECANCELED || hr == S_FALSE) << std::hex << hr << std::dec << " " << delay;
    EXPECT_FALSE(provider->IsPolling()) << delay;
  }
}

}  // namespace
