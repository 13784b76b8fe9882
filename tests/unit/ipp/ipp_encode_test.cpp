// Encoded requests compared byte for byte with hand-built expectations.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "ipp/ipp_operations.h"
#include "ipp_test_util.h"
#include "norvane/norvane.h"
#include "support/ref.h"
#include "testlib/capture_log.h"

namespace {

using namespace IppTest;
using Norvane::IPPAttributeStruct;
using Norvane::IPPOperations;
using Norvane::IPPRequestBase;
constexpr size_t kLimit = Norvane::kIppAttributeLimit;

QxUtils::Ref<IPPRequestBase> NewRequest() { return QxUtils::AdoptRef(CreateIPPRequest()); }

// The request; without `result`, one that must succeed.
std::string Encode(IPPOperations& ops, uint32_t operation, IPPRequestBase* attributes, HRESULT* result = nullptr) {
  std::vector<uint8_t> buffer(kLimit + 1, 0xEE);
  uint32_t length = 0;
  HRESULT hr = ops.FormIPPRequestBasedOnOperation(buffer.data(), operation, &length, attributes);
  EXPECT_EQ(result != nullptr ? S_OK : hr, S_OK) << "operation " << operation;
  if (result != nullptr) *result = hr;
  return std::string(buffer.begin(), buffer.begin() + length);
}

IPPAttributeStruct Structured(uint32_t group, uint32_t tag, const char* name, const char* text = "", int32_t n = 0) {
  IPPAttributeStruct a;
  std::memset(&a, 0, sizeof a);
  a.group = group;
  a.valueTag = tag;
  std::strncpy(a.name, name, sizeof a.name - 1);
  std::strncpy(a.value.text, text, sizeof a.value.text - 1);
  if (*text == 0) a.value.integer = n;
  return a;
}

void AddBlob(IPPRequestBase* r, uint32_t group, const std::string& blob) {
  r->AddIPPRequest(group, reinterpret_cast<const uint8_t*>(blob.data()), static_cast<int32_t>(blob.size()));
}

// Every job option set, so each operation shows which of them it sends.
void FillEverything(IPPRequestBase* r) {
  r->SetPrinterURI("ipp://printer.example/ipp/print");
  r->SetRequestingUserName("alice");
  r->SetDocumentUri("http://files.example/report.pdf");
  r->SetJobName("report");
  r->SetIPPAttributeFidelity(true);
  r->SetDocumentName("report.pdf");
  r->SetLastDocument(true);
  r->SetJobURI("ipp://printer.example/jobs/42");
  r->SetCopy(2);
  r->SetPrintingSides(1);
  r->SetMultipleDocHandling(2);
  r->SetOrientationRequested(4);
  r->SetPrintQuality(5);
  r->SetOutputMode(1);
  r->SetPrinterResolution(600, 600);
}

// Caller attributes of every value kind, in both groups, structured and encoded.
void FillCallerAttributes(IPPRequestBase* r) {
  r->SetCopy(0);
  AddBlob(r, 0, Attr(0x44, "compression", "none"));
  AddBlob(r, 1, Attr(0x44, "media", "iso_a4_210x297mm"));
  r->AddIPPRequest(Structured(1, 0x23, "finishings", "", 4));
  IPPAttributeStruct resolution = Structured(1, 0x32, "printer-resolution");
  resolution.value.resolution = {600, 300, 4};
  r->AddIPPRequest(resolution);
  IPPAttributeStruct range = Structured(1, 0x33, "page-ranges");
  range.value.range = {-1, 5};
  r->AddIPPRequest(range);
  r->AddIPPRequest(Structured(0, 0x22, "ipp-attribute-fidelity", "", 0));
  // An empty piece of a list is a value of its own.
  r->AddIPPRequest(Structured(1, 0x44, "output-bin", "top,,bottom"));
  r->AddIPPRequest(Structured(1, 0x30, "job-password", "a,b"));
  r->AddIPPRequest(Structured(1, 0x41, "job-message-to-operator", "hello"));
  // A tag outside the string tags goes as one value even with a comma.
  r->AddIPPRequest(Structured(0, 0x4B, "x-private", "p,q"));
}

// Structured copies and colour mode whose names differ from the built-in ones in case only.
void FillStructuredOverrides(IPPRequestBase* r) {
  r->SetCopy(5);
  r->SetOutputMode(1);
  r->AddIPPRequest(Structured(1, 0x21, "CoPiEs", "", 3));
  r->AddIPPRequest(Structured(1, 0x44, "Print-Color-Mode", "color"));
}

// Six long texts of which only three fit in a request.
void FillTooLong(IPPRequestBase* r) {
  for (char c = 'a'; c < 'g'; ++c) r->AddIPPRequest(Structured(1, 0x41, "x-long", std::string(500, c).c_str()));
}

// One request per row: what the operations object and the request object are
// given, and everything after the header (which only Cancel-Job sends without
// printer-uri). Only the job operations arm the job status check.
TEST(IppEncodeRequests, WholeRequestsByteForByte) {
  const std::string user = Attr(0x42, "requesting-user-name", "alice");
  const std::string printerUri = Attr(0x45, "printer-uri", "ipp://printer.example/ipp/print");
  const std::string documentUri = Attr(0x45, "document-uri", "http://files.example/report.pdf");
  const std::string job = Attr(0x42, "job-name", "report") + Attr(0x22, "ipp-attribute-fidelity", B({0x01}));
  const std::string documentName = Attr(0x42, "document-name", "report.pdf");
  const std::string handling = Attr(0x44, "multiple-document-handling", "separate_documents_collated_copies");
  const std::string copiesSides = IntAttr(0x21, "copies", 2) + Attr(0x44, "sides", "two-sided-long-edge");
  const std::string layout = IntAttr(0x21, "orientation-requested", 4) + IntAttr(0x21, "print-quality", 5);
  const std::string mono = Attr(0x44, "print-color-mode", "monochrome");
  const std::string printJob = printerUri + user + job + documentName + B({0x02}) + copiesSides + layout + mono;
  auto getJobs = [&](const std::string& users, const char* which) {
    return users + Attr(0x22, "my-jobs", B({0x01})) + Attr(0x44, "which-jobs", which) +
           Attr(0x44, "requested-attributes", "all");
  };
  using Fill = void (*)(IPPRequestBase*);
  const Fill empty = [](IPPRequestBase*) {};
  struct Case {
    uint32_t op;
    const char* attributeName;  // these three: of the operations object
    const char* user;
    const char* jobUri;
    Fill fill;  // null: no request object
    std::string body;
    HRESULT hr = S_OK;
    uint32_t lastError = 0;  // checked when not 0
  } cases[] = {
      {11, "printer-state,printer-state-reasons", nullptr, nullptr, nullptr,
       Attr(0x44, "requested-attributes", "printer-state") + Attr(0x44, "", "printer-state-reasons")},
      {11, nullptr, nullptr, nullptr, nullptr, "", E_FAIL, 87},  // the header, then the end tag
      {16, nullptr, nullptr, nullptr, nullptr, ""},              // an operation without attributes
      // Get-Job-Attributes sends the name list as one value.
      {9, "job-state,job-state-reasons", nullptr, "ipp://printer.example/jobs/7", nullptr,
       Attr(0x45, "job-uri", "ipp://printer.example/jobs/7") +
           Attr(0x44, "requested-attributes", "job-state,job-state-reasons")},
      // Get-Jobs asks for completed jobs only for exactly job-state, and splits the user at commas.
      {10, "job-state", "alice", nullptr, nullptr, getJobs(user, "completed")},
      {10, "Job-State", "alice", nullptr, nullptr, getJobs(user, "not-completed")},
      {10, "job-state,job-state-reasons", "alice", nullptr, nullptr, getJobs(user, "not-completed")},
      {10, "job-state-reasons", "alice,bob", nullptr, nullptr, getJobs(user + Attr(0x42, "", "bob"), "not-completed")},
      {10, "job-state", nullptr, nullptr, nullptr, "", E_FAIL},
      {8, nullptr, nullptr, nullptr, FillEverything, Attr(0x45, "job-uri", "ipp://printer.example/jobs/42") + user},
      {8, nullptr, nullptr, nullptr, empty, ""},
      // Print-URI: "printer-uri" twice, the header's and the caller's.
      {3, nullptr, nullptr, nullptr, FillEverything,
       printerUri + user + documentUri + job + documentName + B({0x02}) + copiesSides + layout + mono},
      // Create-Job: document handling, but no document and no colour mode.
      {5, nullptr, nullptr, nullptr, FillEverything, user + job + B({0x02}) + copiesSides + handling + layout},
      // Send-URI leads its job group with document handling and marks the last document.
      {7, nullptr, nullptr, nullptr, FillEverything,
       user + documentUri + job + documentName + Attr(0x22, "last-document", B({0x01})) + B({0x02}) + handling +
           copiesSides + layout},
      // Print-Job: printer URI and document name, no document URI; the credential check sends the same.
      {2, nullptr, nullptr, nullptr, FillEverything, printJob},
      {50, nullptr, nullptr, nullptr, FillEverything, printJob},
      // Caller attributes go to their group, structured first, then the encoded ones.
      {2, nullptr, nullptr, nullptr, FillCallerAttributes,
       Attr(0x22, "ipp-attribute-fidelity", B({0x00})) + Attr(0x4B, "x-private", "p,q") +
           Attr(0x44, "compression", "none") + B({0x02}) + IntAttr(0x23, "finishings", 4) +
           Attr(0x32, "printer-resolution", Be32(600) + Be32(300) + B({0x04})) +
           Attr(0x33, "page-ranges", Be32(-1) + Be32(5)) + Attr(0x44, "output-bin", "top") + Attr(0x44, "", "") +
           Attr(0x44, "", "bottom") + Attr(0x30, "job-password", "a") + Attr(0x30, "", "b") +
           Attr(0x41, "job-message-to-operator", "hello") + Attr(0x44, "media", "iso_a4_210x297mm")},
      // Structured copies and colour mode replace Print-Job's own whatever their case; not Create-Job's.
      {2, nullptr, nullptr, nullptr, FillStructuredOverrides,
       B({0x02}) + IntAttr(0x21, "CoPiEs", 3) + Attr(0x44, "Print-Color-Mode", "color")},
      {5, nullptr, nullptr, nullptr, FillStructuredOverrides, B({0x02}) + IntAttr(0x21, "copies", 5)},
      // A structured attribute that cannot fit fails the request, which keeps whole attributes only.
      {2, nullptr, nullptr, nullptr, FillTooLong,
       B({0x02}) + IntAttr(0x21, "copies", 1) + Attr(0x41, "x-long", std::string(500, 'a')) +
           Attr(0x41, "x-long", std::string(500, 'b')) + Attr(0x41, "x-long", std::string(500, 'c')),
       E_FAIL},
  };
  for (const Case& c : cases) {
    IPPOperations ops(nullptr);
    ops.SetResourceURI("/ipp/print");
    if (c.attributeName != nullptr) ops.SetAttributeName(c.attributeName);
    if (c.user != nullptr) ops.SetRequestedUserName(c.user);
    if (c.jobUri != nullptr) ops.SetJobURI(c.jobUri);
    auto attributes = NewRequest();
    if (c.fill != nullptr) c.fill(attributes.get());
    SetLastError(0);
    HRESULT hr = S_FALSE;
    std::string bytes = Encode(ops, c.op, c.fill != nullptr ? attributes.get() : nullptr, &hr);
    const std::string& row = "operation " + std::to_string(c.op) + " row " + std::to_string(&c - cases);
    EXPECT_TRUE(
        SameBytes(RequestStart(c.op == 50 ? 2 : static_cast<int>(c.op), "/ipp/print") + c.body + B({0x03}), bytes))
        << row;
    EXPECT_EQ(hr, c.hr) << row;
    EXPECT_EQ(c.lastError != 0 ? GetLastError() : 0, c.lastError) << row;
    EXPECT_EQ(ops.GetJobOperations(), c.op == 8 || c.op == 9 ? 1u : 0u) << row;
  }
}

// The job group of a fresh request object with only copies, sides or document
// handling changed (the values a whole request sends are above). Create-Job
// sends only positive copies, the others any non-zero count.
TEST(IppEncodeRequests, CopiesSidesAndDocumentHandling) {
  auto copies = [](int32_t n) { return IntAttr(0x21, "copies", n); };
  auto sides = [](const char* k) { return Attr(0x44, "sides", k); };
  auto handling = [](const char* k) { return Attr(0x44, "multiple-document-handling", k); };
  struct Case {
    uint32_t op;
    int32_t copies, sides, handling;  // a fresh object's: 1, 3 and -1
    std::string jobGroup;
  } cases[] = {
      {5, 0, 3, -1, ""},
      {5, -1, 3, -1, ""},
      {3, 0, 3, -1, ""},
      {3, -1, 3, -1, copies(-1)},
      {7, -1, 3, -1, copies(-1)},
      {2, 0, 3, -1, ""},
      {2, -3, 3, -1, copies(-3)},
      {5, 1, 0, -1, copies(1) + sides("one-sided")},
      {5, 1, 2, -1, copies(1) + sides("two-sided-short-edge")},
      {5, 1, -1, -1, copies(1)},
      {5, 1, 3, 0, copies(1)},
      {5, 1, 3, 1, copies(1) + handling("separate_documents_uncollated_copies")},
      {5, 1, 3, 3, copies(1) + handling("single_document_new_sheet")},
      {5, 1, 3, 4, copies(1) + handling("")},
  };
  for (const Case& c : cases) {
    IPPOperations ops(nullptr);
    auto attributes = NewRequest();
    attributes->SetCopy(c.copies);
    attributes->SetPrintingSides(c.sides);
    attributes->SetMultipleDocHandling(c.handling);
    EXPECT_TRUE(SameBytes(RequestStart(static_cast<int>(c.op)) + B({0x02}) + c.jobGroup + B({0x03}),
                          Encode(ops, c.op, attributes.get())))
        << "row " << &c - cases;
  }
}

TEST(IppEncodeLimits, AnEncodedAttributePastTheLimitIsLeftOutAndLogged) {
  IPPOperations probe(nullptr);
  auto attributes = NewRequest();
  attributes->SetCopy(0);
  const size_t before = Encode(probe, 2, attributes.get()).size() - 1;  // without the end tag
  // First blob ends exactly at the limit; the second cannot fit.
  std::string first = Attr(0x41, "x-filler", std::string(kLimit - before - 13, 'f'));
  ASSERT_EQ(before + first.size(), kLimit);
  AddBlob(attributes.get(), 1, first);
  AddBlob(attributes.get(), 1, Attr(0x41, "x-late", "z"));
  NorvaneTest::CaptureLog log;
  IPPOperations ops(nullptr);
  std::string bytes = Encode(ops, 2, attributes.get());
  EXPECT_TRUE(SameBytes(first + B({0x03}), bytes.substr(before)));
  EXPECT_TRUE(log.Contains("does not fit", QxLogging::kStandout));
}

// The limit is inclusive, and an attribute (a split list as a whole, the
// request header) that cannot fit writes nothing.
TEST(IppEncodeLimits, WritersStopAtTheLimit) {
  std::vector<uint8_t> buffer(kLimit + 1, 0xEE);
  int32_t offset = kLimit - 7;  // 5 bytes of tag and lengths + "n" + "v"
  EXPECT_EQ(IPPOperations::AddStringToIPPRequest(buffer.data(), 0x41, "n", "vv", &offset), 1);
  EXPECT_EQ(offset, kLimit - 7);
  EXPECT_EQ(buffer[static_cast<size_t>(offset)], 0xEE);
  EXPECT_EQ(IPPOperations::AddStringToIPPRequest(buffer.data(), 0x41, "n", "v", &offset), 0);
  EXPECT_EQ(offset, kLimit);
  EXPECT_EQ(buffer[kLimit], 0xEE);
  // "k" once, three values of one byte each: 1 + 3 * (5 + 1) = 19 bytes.
  offset = kLimit - 18;
  EXPECT_EQ(IPPOperations::AddStringsToIPPRequest(buffer.data(), 0x44, "k", "a,b,c", &offset), 1);
  EXPECT_EQ(offset, kLimit - 18);
  EXPECT_EQ(buffer[static_cast<size_t>(offset)], 0xEE);
  offset = kLimit - 19;
  EXPECT_EQ(IPPOperations::AddStringsToIPPRequest(buffer.data(), 0x44, "k", "a,b,c", &offset), 0);
  EXPECT_EQ(offset, kLimit);

  offset = 0;
  EXPECT_EQ(IPPOperations::AddStringToIPPRequest(buffer.data(), 0x41, nullptr, "v", &offset), -1);
  EXPECT_EQ(IPPOperations::AddIntegerToIPPRequest(buffer.data(), 0x21, "", 1, &offset), -1);
  EXPECT_EQ(offset, 0);
  // A request whose header cannot fit fails with no length given back.
  IPPOperations ops(nullptr);
  ops.SetResourceURI(std::string(2100, 'r').c_str());
  uint32_t length = 12345;
  EXPECT_EQ(ops.FormIPPRequestBasedOnOperation(buffer.data(), 11, &length, nullptr), E_FAIL);
  EXPECT_EQ(length, 12345u);
}

TEST(IppEncodeWriters, OnlyExactNamesFindTheirTableTag) {
  IPPOperations ops(nullptr);
  for (const char* unknown : {"Printer-State", "media-col-ready", "printer-state "}) {
    uint8_t tag = 0;
    EXPECT_EQ(ops.GetTypeOfAttribute(unknown, &tag), Norvane::kIppKindText);
    EXPECT_EQ(tag, 0x44) << unknown;
  }
  std::vector<uint8_t> buffer(kLimit + 1, 0);
  int32_t offset = 0;
  EXPECT_EQ(ops.AddAttributeBasedOnType("printer-state", buffer.data(), &offset), S_OK);
  EXPECT_TRUE(SameBytes(Attr(0x23, "requested-attributes", "printer-state"),
                        std::string(buffer.begin(), buffer.begin() + offset)));
}

}  // namespace
