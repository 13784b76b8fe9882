// What the library makes of a printer that answers badly: the simulator's IPP
// endpoint (/ipp/printer on its web port) with a fault plan per row, reached
// through the reference host transport.
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "../bench_env.h"
#include "ipp/ipp_operations.h"
#include "ipp/ipp_provider_impl.h"
#include "ipp/ipp_request_attributes.h"
#include "ipp/ipp_response_attributes.h"
#include "norvane/api.h"
#include "norvane/host.h"
#include "support/ref.h"
#include "support/string_utils.h"
#include "unit/ipp/ipp_test_util.h"

namespace {

using IppTest::Text;
using Norvane::IPPOperations;
using Norvane::IPPProviderImpl;
using QxUtils::AdoptRef;
using QxUtils::Ref;
using Value = IppTest::OwnedVariant;

constexpr char kPath[] = "/ipp/printer";

class IppSimFaults : public ::testing::Test {
 protected:
  void SetUp() override {
    NORVANE_REQUIRE_BENCH();
    port_ = NorvaneBench::BenchValue("NORVANE_SIM_HTTP_PORT", "80");
    address_ = Address();
  }
  Ref<Norvane::QxNetAddress> Address() {
    auto address = AdoptRef<Norvane::QxNetAddress>(CreateNetAddress(u"127.0.0.1"));
    address->SetPortText(QxUtils::Utf8ToWide(port_).c_str());
    return address;
  }
  // A call on the simulator's control endpoint, made with the host transport
  // under test; whether it was answered 200.
  bool Control(const char16_t* method, const std::string& resource, const std::string& body = "x") {
    auto control = AdoptRef<Norvane::QxNetAddress>(CreateNetAddress(u"127.0.0.1"));
    Ref<Norvane::HTTPRequest> request;
    EXPECT_EQ(control->CreateRequest(request.Out(), 8080), S_OK);
    request->SetMethod(method);
    request->SetResource(QxUtils::Utf8ToWide("/__sim/" + resource).c_str());
    request->SetBody(reinterpret_cast<const uint8_t*>(body.data()), static_cast<uint32_t>(body.size()));
    Norvane::HTTPResponse* response = nullptr;
    EXPECT_EQ(request->Send(&response), S_OK);
    return response != nullptr && response->GetStatus() == 200;
  }
  // Replaces what Get-Printer-Attributes answers: the default fixture with
  // another printer-state and printer-state-reasons.
  void PrinterState(int state, const std::string& reasons) {
    std::ifstream in(NorvaneBench::BenchValue("NORVANE_SIM_FIXTURES", "") + "/http" + kPath);
    std::ostringstream fixture;
    for (std::string line; std::getline(in, line);) {
      if (line.find(" printer-state") == std::string::npos) fixture << line << "\n";
    }
    fixture << "enum printer-state " << state << "\nkeyword printer-state-reasons " << reasons << "\n";
    ASSERT_TRUE(Control(u"PUT", "resource?path=" + std::string(kPath), fixture.str()));
  }
  // The plan for the IPP path; "none" clears it.
  void Plan(const std::string& plan) {
    ASSERT_TRUE(Control(u"POST", "fault?path=" + std::string(kPath) + "&plan=" + plan)) << plan;
  }

  std::string port_;
  Ref<Norvane::QxNetAddress> address_;
};

// One request, one answer: HTTP failures carry their status as the last error,
// transport failures the host's error code, and an answer that is not IPP fails
// only its decode.
TEST_F(IppSimFaults, SendAndDecodeOutcomes) {
  struct Case {
    const char* plan;
    HRESULT send;
    uint32_t lastError;  // when the send fails
    HRESULT parse;       // when it succeeds
  } cases[] = {
      {"none", S_OK, 0, S_OK},          {"401@1", E_FAIL, 401, 0},         {"404@1", E_FAIL, 404, 0},
      {"500@1", E_FAIL, 500, 0},        {"status:200@1", S_OK, 0, E_FAIL},  // an HTML page with 200
      {"truncate:20@1", E_FAIL, 18, 0},                                     // cut short: the host's partial-body code
      {"delay:3000@1", E_FAIL, 28, 0},                                      // silent past the read time-out
  };
  ASSERT_EQ(NetAddressSetHttpTimeouts(address_.get(), 0, 700), S_OK);
  for (const Case& c : cases) {
    Plan(c.plan);
    IPPOperations ops(address_.get());
    ops.SetResourceURI(kPath);
    ops.SetAttributeName("printer-state");
    Norvane::HTTPResponse* response = nullptr;
    SetLastError(0);
    auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(ops.SendIPPRequest(Norvane::kIppGetPrinterAttributes, &response, nullptr, false), c.send) << c.plan;
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2500)) << c.plan;
    if (FAILED(c.send)) {
      EXPECT_EQ(GetLastError(), c.lastError) << c.plan;
      EXPECT_EQ(response, nullptr) << c.plan;
      continue;
    }
    Value state;
    EXPECT_EQ(ops.ParseIPPResponse(response, &state.v), c.parse) << c.plan;
    EXPECT_EQ(Text(state.v), c.parse == S_OK ? "3" : "<vt 0>") << c.plan;
  }
}

// Creation asks for "all" and fails on anything but a decoded answer; the
// HTTP statuses a non-IPP web server gives name the device as no IPP printer.
TEST_F(IppSimFaults, ProviderCreationOutcomes) {
  struct Case {
    const char* plan;
    bool created;
    uint32_t lastError;
  } cases[] = {
      {"none", true, 0},     {"400@1", false, 0x20000009}, {"404@1", false, 0x20000009}, {"405@1", false, 0x20000009},
      {"401@1", false, 401}, {"500@1", false, 500},        {"status:200@1", false, 0},  // not IPP: the decode fails
  };
  const std::u16string uri = QxUtils::Utf8ToWide("ipp://127.0.0.1:" + port_ + kPath);
  for (const Case& c : cases) {
    Plan(c.plan);
    auto address = Address();
    SetLastError(0);
    auto provider = AdoptRef(IPPProviderImpl::Create2(address.get(), uri.c_str(), Norvane::kIppDefaultSecurityFlags));
    ASSERT_EQ(provider.get() != nullptr, c.created) << c.plan;
    EXPECT_EQ(c.lastError != 0 ? GetLastError() : 0u, c.lastError) << c.plan;  // 0: not checked
  }
  // Arguments and URIs are refused before anything is sent.
  EXPECT_EQ(IPPProviderImpl::Create2(nullptr, uri.c_str(), 0), nullptr);
  EXPECT_EQ(GetLastError(), 87u);
  EXPECT_EQ(IPPProviderImpl::Create2(address_.get(), u"ipp://127.0.0.1/ab", 0), nullptr);
  EXPECT_EQ(GetLastError(), 0x20000003u);
  EXPECT_EQ(IPPProviderImpl::Create(address_.get(), nullptr, false, 0), nullptr);
}

// A created provider keeps the URI's port on its address and the URI without
// it. Values: the attributes kept at creation answer first; a refused device
// query moves on to the next alternative, and a fresh query reads the device again.
TEST_F(IppSimFaults, QueriesAfterCreation) {
  const std::u16string uri = QxUtils::Utf8ToWide("ipp://127.0.0.1:" + port_ + kPath);
  auto provider = AdoptRef(IPPProviderImpl::Create2(address_.get(), uri.c_str(), Norvane::kIppDefaultSecurityFlags));
  ASSERT_TRUE(provider);
  EXPECT_EQ(std::u16string(address_->GetPortText()), QxUtils::Utf8ToWide(port_));
  EXPECT_EQ(provider->GetPrinterURI(), u"ipp://127.0.0.1" + std::u16string(kPath, kPath + sizeof kPath - 1));
  EXPECT_FALSE(provider->IsSecure());
  EXPECT_EQ(provider->GetSecurityFlags(), 0u);  // plain IPP keeps no TLS flags
  Value kept, fallback, none, fresh, job;
  EXPECT_EQ(provider->GetValue("printer-make-and-model_OR_printer-info", &kept.v), S_OK);
  EXPECT_EQ(Text(kept.v), "Norvane NX-4100 Series");
  Plan("500@1");
  EXPECT_EQ(provider->GetValue("printer-info_OR_printer-state", &fallback.v), S_OK);
  EXPECT_EQ(Text(fallback.v), "3");
  Plan("500");
  EXPECT_EQ(provider->GetValue("a_OR_b", &none.v), E_FAIL);
  EXPECT_EQ(none.v.vt, VT_EMPTY);
  Plan("none");
  EXPECT_EQ(provider->GetIPPValue("printer-state", 0, &fresh.v, nullptr, kPath, 0, 0, " "), S_OK);
  EXPECT_EQ(Text(fresh.v), "3");
  // A job the device refuses (this one knows no job operation) fails the query.
  EXPECT_EQ(provider->GetIPPValue("job-state", 1, &job.v, "ipp://127.0.0.1/ipp/printer/42", kPath, 0, 0, " "), E_FAIL);

  // New URIs: the resource is kept even when the printer URI is refused.
  SetLastError(0);
  EXPECT_FALSE(provider->SetPrinterURIs(nullptr, u"ipps://h/x"));
  EXPECT_EQ(GetLastError(), 87u);
  EXPECT_FALSE(provider->SetPrinterURIs(u"", u"ipps://h/x"));
  EXPECT_EQ(GetLastError(), 0x20000004u);
  EXPECT_FALSE(provider->SetPrinterURIs(u"/other", nullptr));
  EXPECT_EQ(provider->GetResourceURI(), u"/other");
  EXPECT_TRUE(provider->SetPrinterURIs(u"/ipp/secure", u"ipps://h/ipp/secure"));
  EXPECT_TRUE(provider->IsSecure());
}

// A chunked Print-Job's final answer decides the stream's result.
TEST_F(IppSimFaults, PrintStreamFinalAnswer) {
  struct Case {
    const char* plan;
    HRESULT result;
  } cases[] = {
      {"none", S_OK},  // answered (the simulator refuses the operation in IPP, not HTTP)
      {"401@1", Norvane::kIppResultUnauthorized},
      {"500@1", E_FAIL},
  };
  auto attributes = AdoptRef<Norvane::IPPRequestBase>(Norvane::IPPRequestAttributes::Create());
  attributes->SetRequestingUserName("faults");
  attributes->AddExtraHTTPHeader(u"X-Norvane-Row", u"1");
  const std::string document = "RaS2-some-raster-bytes";
  for (const Case& c : cases) {
    Plan(c.plan);
    IPPOperations ops(address_.get());
    ops.SetResourceURI(kPath);
    ops.SetPrinterFileBufferContent(reinterpret_cast<const uint8_t*>(document.data()),
                                    static_cast<int32_t>(document.size()));
    Norvane::HTTPResponse* response = nullptr;
    ASSERT_EQ(ops.SendPrintJobRequest(&response, attributes.get(), true, 0, 0, false), S_OK) << c.plan;
    ASSERT_EQ(ops.SendPrintJobRequest(&response, attributes.get(), true, 4, 0, false), S_OK) << c.plan;
    EXPECT_EQ(ops.SendPrintJobRequest(&response, attributes.get(), true, 0, 0, false), c.result) << c.plan;
    // A chunk longer than the data is refused without touching the stream.
    EXPECT_EQ(ops.SendPrintJobRequest(&response, attributes.get(), true, 99, 0, false), E_FAIL) << c.plan;
  }
  // Nobody listening: the stream does not open.
  address_->SetPortText(u"9");
  IPPOperations refused(address_.get());
  refused.SetPrinterFileBufferContent(reinterpret_cast<const uint8_t*>(document.data()), 4);
  Norvane::HTTPResponse* response = nullptr;
  EXPECT_EQ(refused.SendPrintJobRequest(&response, attributes.get(), true, 0, 0, false), E_FAIL);
}

// A printer stopped with its spool full: the host's chunk writer holds the
// next block back until the printer drains, and a cancel from another thread
// ends that wait at once.
TEST_F(IppSimFaults, StreamWaitsWhileTheSpoolIsFull) {
  const std::u16string uri = QxUtils::Utf8ToWide("ipp://127.0.0.1:" + port_ + kPath);
  auto provider = AdoptRef(IPPProviderImpl::Create2(address_.get(), uri.c_str(), Norvane::kIppDefaultSecurityFlags));
  ASSERT_TRUE(provider);
  provider->SetPrintTimings({10, 1000, 10, 1, 3});
  auto attributes = AdoptRef<Norvane::IPPRequestBase>(Norvane::IPPRequestAttributes::Create());
  attributes->SetRequestingUserName("spool");
  auto response = AdoptRef<Norvane::IPPResponseBase>(Norvane::IPPResponseAttributes::Create());
  const std::string block(4096, 'R');
  const auto* bytes = reinterpret_cast<const uint8_t*>(block.data());
  // This printer lists no jobs: the stream goes on watched by the printer thread alone.
  ASSERT_EQ(provider->PrintJob(attributes.get(), response.get(), bytes, 4096, true), S_FALSE);
  ASSERT_EQ(provider->PrintJobWrite(attributes.get(), response.get(), bytes, 4096), S_OK);
  const uint64_t context = provider->GetPrintReadyStatusEventHandle()->Context();
  auto full = [&] {
    PrinterState(5, "media-empty,spool-area-full");
    for (int i = 0; i < 500 && WaitForPrintReady(context, 0) == S_OK; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ASSERT_EQ(WaitForPrintReady(context, 0), S_FALSE);
  };
  full();
  std::thread drain([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    PrinterState(3, "none");
  });
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(provider->PrintJobWrite(attributes.get(), response.get(), bytes, 4096), S_OK);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(250)) << "the block did not wait";
  drain.join();

  full();
  std::thread cancel([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    auto own = AdoptRef<Norvane::IPPRequestBase>(Norvane::IPPRequestAttributes::Create());
    own->SetRequestingUserName("spool");
    auto answer = AdoptRef<Norvane::IPPResponseBase>(Norvane::IPPResponseAttributes::Create());
    provider->CancelJob(own.get(), answer.get());
  });
  // The job cannot be found on this printer: the failed block answers 1.
  EXPECT_EQ(provider->PrintJobWrite(attributes.get(), response.get(), bytes, 4096), S_FALSE);
  cancel.join();
  EXPECT_FALSE(provider->IsPolling());
  PrinterState(3, "none");
}

}  // namespace
