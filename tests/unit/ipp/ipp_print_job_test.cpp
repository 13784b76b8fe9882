// Job outcomes a test printer cannot be made to produce on demand: IPP and
// HTTP statuses of a one-body Print-Job, job states seen by the polling, and
// stopping the threads.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "ipp/ipp_provider_impl.h"
#include "ipp/ipp_request_attributes.h"
#include "ipp/ipp_response_attributes.h"
#include "ipp_test_util.h"
#include "support/ref.h"

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
  uint32_t printHttpStatus = 200, getJobsHttpStatus = 200;
  HRESULT printSend = S_OK;        // what the host's read of the Print-Job answer reports
  std::string activeJob = "none";  // job-state-reasons of the job in progress, "" for none
  std::string completedState;      // job-state of the finished job, "" for none
  size_t prints = 0;

  FakeReply Answer(const FakeExchange& e) {
    const std::string job = B({0x02}) + Attr(0x45, "job-uri", "ipp://p/ipp/print/7");
    switch (Operation(e)) {
      case 2: {
        int status = printStatuses[std::min(prints++, printStatuses.size() - 1)];
        return {printHttpStatus, printHttpStatus == 200 ? ResponseStart(status) + B({0x03}) : "", {}, printSend};
      }
      case 10: {
        std::string jobs;
        if (e.body.find("not-completed") == std::string::npos) {
          if (!completedState.empty()) jobs = job + IntAttr(0x23, "job-state", std::stoi(completedState));
        } else if (!activeJob.empty()) {
          jobs = job + IntAttr(0x23, "job-state", 5) + Attr(0x44, "job-state-reasons", activeJob);
        }
        return {getJobsHttpStatus, ResponseStart() + jobs + B({0x03}), {}, S_OK};
      }
      case 8:
        return {200, ResponseStart() + B({0x03}), {}, S_OK};
      default:
        bool all = e.body.find(Attr(0x44, "requested-attributes", "all")) != std::string::npos;
        return {200, all ? kAllAttributes : ResponseStart() + IntAttr(0x23, "printer-state", 3) +
                                                Attr(0x44, "printer-state-reasons", "none") + B({0x03}), {}, S_OK};
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

  const uint8_t data[4] = {'R', 'a', 'S', '2'};
  Printer printer;
  QxUtils::Ref<FakeAddress> address;
  QxUtils::Ref<IPPProviderImpl> provider;
  QxUtils::Ref<Norvane::IPPRequestBase> attributes = QxUtils::AdoptRef(Norvane::IPPRequestAttributes::Create());
  QxUtils::Ref<Norvane::IPPResponseBase> response = QxUtils::AdoptRef(Norvane::IPPResponseAttributes::Create());
};

TEST_F(PrintJob, OneBodyOutcomeFollowsThePrinterStatus) {
  struct Case {
    std::vector<int> statuses;
    uint32_t http;
    HRESULT send, result;
    int requests;
  } cases[] = {
      {{0}, 200, S_OK, S_OK, 1},
      {{0x0508}, 200, S_OK, S_DEVICECANCELED, 1},  // server-error-job-canceled
      {{1}, 200, S_OK, E_FAIL, 1},                 // ok-ignored-or-substituted counts as a failure
      {{0x0507, 0}, 200, S_OK, S_OK, 2},           // busy, then taken on the restart
      {{0x0507}, 200, S_OK, E_FAIL, 3},            // busy for good: bounded restarts
      {{0}, 401, S_OK, Norvane::kIppResultUnauthorized, 1},
      {{0}, 200, Norvane::kHostResponseReadBenign, S_OK, 1},  // unread answer: Get-Jobs finds the job
  };
  for (const Case& c : cases) {
    SetUp();
    printer.printStatuses = c.statuses;
    printer.printHttpStatus = c.http;
    printer.printSend = c.send;
    EXPECT_EQ(Print(false), c.result) << c.statuses[0] << " " << c.http;
    EXPECT_EQ(Sent(2), c.requests) << c.statuses[0] << " " << c.http;
  }
}

TEST_F(PrintJob, StreamEndsCancelledOnceThePollSeesTheJobEnd) {
  ASSERT_EQ(Print(true), S_OK);
  EXPECT_EQ(provider->PrintJobWrite(attributes.get(), response.get(), data, 4), S_OK);
  {
    std::lock_guard<std::recursive_mutex> lock(address->mutex);
    printer.activeJob.clear();
    printer.completedState = "7";
  }
  for (int i = 0; i < 2000 && provider->GetPrintStatus() == 0; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  EXPECT_EQ(provider->PrintJobWrite(attributes.get(), response.get(), data, 4), S_DEVICECANCELED);
  EXPECT_FALSE(provider->IsPolling());
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
      {"", "", true, S_FALSE},                    // the job left both lists
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
  ASSERT_EQ(Print(true), S_OK);
  ASSERT_TRUE(provider->IsPolling());
  auto start = std::chrono::steady_clock::now();
  provider->StopAllThreadsRunning();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
  EXPECT_FALSE(provider->IsPolling());
  EXPECT_EQ(provider->GetPrintStatusEventHandle(), nullptr);
}

}  // namespace
