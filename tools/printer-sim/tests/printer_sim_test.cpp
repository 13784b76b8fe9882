// Unit tests of the simulator's fault plans and of its answers: the SOAP request
// check and IPP. The fixture store, the command line, the filled-in SOAP answers
// and what happens on the wire are exercised by every integration test through
// the bench.

#include <gtest/gtest.h>

#include <regex>

#include "fault_plan.h"
#include "ipp_answer.h"
#include "soap_exchange.h"

namespace PrinterSim {
namespace {

std::optional<FaultPlan> Parse(const std::string& text) {
  std::string error;
  auto plan = ParseFaultPlan(text, error);
  EXPECT_EQ(plan.has_value(), error.empty()) << "no reason given for rejecting '" << text << "'";
  return plan;
}

TEST(FaultPlan, ParsesEveryTermBackToTheSamePlanAndRejectsTypos) {
  for (const char* text :
       {"status:503,delay:250,slow:1500,truncate:40,chunked@3", "500", "delay:10", "slow:800,truncate",
        "truncate:40,stall:20000", "503,truncate:0@1", "chunked", "401,early", "basic:admin:s3:cret@2", "rotate"}) {
    auto plan = Parse(text);
    ASSERT_TRUE(plan) << text;
    EXPECT_EQ(plan->Describe(), std::regex_replace(text, std::regex("status:"), "")) << text;
  }
  EXPECT_FALSE(Parse("truncate")->truncateAt) << "plain truncate means half the body, decided per answer";
  // A typo must not silently turn into a healthy answer.
  for (const char* text : {"",          "99",           "600",       "5000",      "status:",     "status:abc",  "delay",
                           "delay:",    "delay:-5",     "delay:1.5", "slow:fast", "truncate:x",  "truncate:-1", "500,",
                           ",500",      "500,,delay:1", "500@0",     "500@",      "500@x",       "@2",          "bogus",
                           "chunked:1", "404 ",         "early:1",   "basic",     "basic:admin", "rotate:1"}) {
    EXPECT_FALSE(Parse(text)) << "accepted '" << text << "'";
  }
}

TEST(FaultTable, CountedPlansRunOutUnlimitedOnesStay) {
  FaultTable table;
  table.Set("/once", *Parse("503@2"));
  table.Set("/always", *Parse("500"));
  EXPECT_EQ(table.Take("/once")->status, 503);
  EXPECT_EQ(table.Take("/once")->status, 503);
  EXPECT_FALSE(table.Take("/once")) << "a plan limited to two requests served a third";
  for (int i = 0; i < 3; ++i) EXPECT_EQ(table.Take("/always")->status, 500);
  EXPECT_FALSE(table.Take("/other"));
  // Before its body, a request takes only an early plan, and leaves any other.
  EXPECT_FALSE(table.Take("/always", /*earlyOnly=*/true));
  table.Set("/early", *Parse("early@1"));
  EXPECT_TRUE(table.Take("/early", /*earlyOnly=*/true));
  EXPECT_FALSE(table.Take("/early"));
  EXPECT_EQ(table.List(), "/always=500\n");
}

// A request shaped like the library's: one line, elements separated by spaces.
std::string Envelope(const std::string& action = "GetPrinterElements",
                     const std::string& messageId = "urn:uuid:6f1c0b52-3d8e-4a71-9c2f-0e5b7d4a1c93",
                     const std::string& soapNamespace = "http://www.w3.org/2003/05/soap-envelope") {
  return "<?xml version=\"1.0\" encoding=\"utf-8\"?> <soap:Envelope xmlns:soap=\"" + soapNamespace +
         "\" xmlns:wsa=\"http://schemas.xmlsoap.org/ws/2004/08/addressing\""
         " xmlns:pri=\"http://schemas.microsoft.com/windows/2006/08/wdp/print\">"
         " <soap:Header> <wsa:To>192.0.2.10:3910</wsa:To>"
         " <wsa:Action>http://schemas.microsoft.com/windows/2006/08/wdp/print/" +
         action + "</wsa:Action>" + (messageId.empty() ? "" : " <wsa:MessageID>" + messageId + "</wsa:MessageID>") +
         " </soap:Header> <soap:Body> <pri:GetPrinterElementsRequest> <pri:RequestedElements>"
         " <pri:Name>pri:PrinterDescription</pri:Name> </pri:RequestedElements>"
         " </pri:GetPrinterElementsRequest> </soap:Body> </soap:Envelope>";
}

TEST(SoapRequestCheck, AcceptsTheRequestAndRejectsAsADeviceWould) {
  // Prefixes are the client's choice, and headers may carry attributes.
  const std::string prefixed = std::regex_replace(std::regex_replace(Envelope(), std::regex("wsa:"), "a:"),
                                                  std::regex("<a:Action>"), "<a:Action soap:mustUnderstand=\"true\">");
  const struct {
    const char* contentType;
    std::string body;
    int status;  // 0: accepted
    const char* inFault;
  } cases[] = {
      {"Application/SOAP+XML;action=\"x\"", prefixed, 0, ""},
      {"text/xml", Envelope(), 415, ""},
      {"application/soap+xml",
       Envelope("GetPrinterElements", "urn:uuid:1", "http://schemas.xmlsoap.org/soap/envelope/"), 500,
       "soap:VersionMismatch"},
      {"application/soap+xml", "<hello/>", 400, "soap:Sender"},
      {"application/soap+xml", Envelope("GetJobElements"), 400, "wsa:ActionNotSupported"},
      {"application/soap+xml", Envelope("GetPrinterElementsX"), 400, "wsa:ActionNotSupported"},
      {"application/soap+xml", Envelope("GetPrinterElements", ""), 400, "wsa:MessageAddressingHeaderRequired"},
      {"application/soap+xml", std::regex_replace(Envelope(), std::regex("GetPrinterElementsRequest"), "Other"), 400,
       "soap:Sender"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.body.substr(0, 120));
    SoapAnswer fault;
    auto facts = CheckGetPrinterElementsRequest(c.contentType, c.body, fault);
    ASSERT_EQ(c.status == 0, facts.has_value()) << fault.status << " " << fault.body;
    if (facts) {
      EXPECT_EQ(facts->messageId, "urn:uuid:6f1c0b52-3d8e-4a71-9c2f-0e5b7d4a1c93");
      continue;
    }
    EXPECT_EQ(fault.status, c.status);
    EXPECT_NE(fault.body.find(c.inFault), std::string::npos) << fault.body;
  }
}

TEST(IppAnswer, RefusesWhatAPrinterWouldAndEchoesTheRequestId) {
  // version 2.0, operation, request id 0x01020304, end of attributes.
  auto request = [](char operation) { return std::string("\x02\x00\x00", 3) + operation + "\x01\x02\x03\x04\x03"; };
  struct Case {
    std::string request, fixture;
    int http;
    std::string head;  // version, status, request id
  } cases[] = {
      {request('\x02'), "enum printer-state 3\n", 200, std::string("\x02\x00\x05\x01\x01\x02\x03\x04", 8)},
      {request('\x0B'), "enum printer-state idle\n", 200, std::string("\x02\x00\x05\x00\x01\x02\x03\x04", 8)},
      {request('\x0B'), "colour printer-state 3\n", 200, std::string("\x02\x00\x05\x00\x01\x02\x03\x04", 8)},
      {std::string("\x02\x00\x00\x0B", 4), "", 400, ""},
  };
  for (const auto& c : cases) {
    const IppAnswer answer = AnswerIppRequest(c.request, c.fixture);
    EXPECT_EQ(answer.httpStatus, c.http) << c.fixture;
    EXPECT_EQ(answer.body.substr(0, 8), c.head) << c.fixture;
    EXPECT_TRUE(c.http != 200 || answer.body.back() == '\x03') << c.fixture;
  }
}

}  // namespace
}  // namespace PrinterSim
