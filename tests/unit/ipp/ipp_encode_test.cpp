// Encoded requests compared byte for byte with hand-built expectations.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "ipp/ipp_operations.h"
#include "ipp_test_util.h"
#include "norvane/norvane.h"
#include "testlib/capture_log.h"
#include "support/ref.h"

namespace {

using namespace IppTest;
using Norvane::IPPAttributeStruct;
using Norvane::IPPOperations;
using Norvane::IPPRequestBase;

QxUtils::Ref<IPPRequestBase> NewRequest() { return QxUtils::AdoptRef(CreateIPPRequest()); }

std::string Encode(IPPOperations& ops, uint32_t operation, IPPRequestBase* attributes, HRESULT* result = nullptr) {
  std::vector<uint8_t> buffer(Norvane::kIppAttributeLimit + 1, 0xEE);
  uint32_t length = 0;
  HRESULT hr = ops.FormIPPRequestBasedOnOperation(buffer.data(), operation, &length, attributes);
  if (result != nullptr) {
    *result = hr;
  } else {
    EXPECT_EQ(hr, S_OK) << "operation " << operation;
  }
  return std::string(buffer.begin(), buffer.begin() + length);
}

IPPAttributeStruct Structured(uint32_t group, uint32_t tag, const char* name) {
  IPPAttributeStruct a;
  std::memset(&a, 0, sizeof a);
  a.group = group;
  a.valueTag = tag;
  std::strncpy(a.name, name, sizeof a.name - 1);
  return a;
}

IPPAttributeStruct TextAttribute(uint32_t group, uint32_t tag, const char* name, const char* text) {
  IPPAttributeStruct a = Structured(group, tag, name);
  std::strncpy(a.value.text, text, sizeof a.value.text - 1);
  return a;
}

IPPAttributeStruct IntegerAttribute(uint32_t group, uint32_t tag, const char* name, int32_t value) {
  IPPAttributeStruct a = Structured(group, tag, name);
  a.value.integer = value;
  return a;
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

TEST(IppEncodeGetPrinterAttributes, ListOfNamesBecomesOneValuePerName) {
  IPPOperations ops(nullptr);
  ops.SetResourceURI("/ipp/print");
  ops.SetAttributeName("printer-state,printer-state-reasons");
  const std::string expected =
      B({0x02, 0x00,              // version 2.0
         0x00, 0x0B,              // Get-Printer-Attributes
         0x00, 0x00, 0x00, 0x64,  // request-id 100
         0x01}) +                 // operation-attributes-tag
      B({0x47, 0x00, 0x12}) + "attributes-charset" + B({0x00, 0x05}) + "utf-8" +
      B({0x48, 0x00, 0x1B}) + "attributes-natural-language" + B({0x00, 0x02}) + "en" +
      B({0x45, 0x00, 0x0B}) + "printer-uri" + B({0x00, 0x0A}) + "/ipp/print" +
      B({0x44, 0x00, 0x14}) + "requested-attributes" + B({0x00, 0x0D}) + "printer-state" +
      B({0x44, 0x00, 0x00, 0x00, 0x15}) + "printer-state-reasons" +  // second value: no name
      B({0x03});                                                      // end-of-attributes-tag
  EXPECT_TRUE(SameBytes(expected, Encode(ops, 11, nullptr)));
  // The builder the other expectations use says the same.
  EXPECT_TRUE(SameBytes(expected, RequestStart(11, "/ipp/print") +
                                      Attr(0x44, "requested-attributes", "printer-state") +
                                      Attr(0x44, "", "printer-state-reasons") + B({0x03})));
}

TEST(IppEncodeGetPrinterAttributes, WithoutAnAttributeNameFailsAfterTheHeader) {
  IPPOperations ops(nullptr);
  ops.SetResourceURI("/ipp/print");
  SetLastError(0);
  HRESULT hr = S_OK;
  std::string bytes = Encode(ops, 11, nullptr, &hr);
  EXPECT_EQ(hr, E_FAIL);
  EXPECT_EQ(GetLastError(), 87u);
  EXPECT_TRUE(SameBytes(RequestStart(11, "/ipp/print") + B({0x03}), bytes));
}

TEST(IppEncodeHeader, EveryOperationIsIpp2WithRequestId100AndOnlyCancelJobLacksPrinterUri) {
  auto attributes = NewRequest();
  FillEverything(attributes.get());
  for (uint32_t op : {2u, 3u, 5u, 7u, 8u, 9u, 10u, 11u, 50u, 16u}) {
    IPPOperations ops(nullptr);
    ops.SetResourceURI("/ipp/print");
    ops.SetAttributeName("all");
    ops.SetRequestedUserName("alice");
    ops.SetJobURI("ipp://printer.example/jobs/42");
    std::string bytes = Encode(ops, op, attributes.get());
    uint32_t wireOp = op == 50 ? 2 : op;  // the credential check is a Print-Job
    std::string start = RequestStart(static_cast<int>(op == 8 ? 8 : wireOp), "/ipp/print");
    EXPECT_TRUE(SameBytes(start, bytes.substr(0, start.size()))) << "operation " << op;
    EXPECT_EQ(bytes.back(), 0x03) << "operation " << op;
    if (op == 8) {
      EXPECT_EQ(bytes.find("printer-uri"), std::string::npos);
    }
  }
  // An operation without an attribute set gets the header and the end tag.
  IPPOperations ops(nullptr);
  ops.SetResourceURI("/r");
  EXPECT_TRUE(SameBytes(RequestStart(16, "/r") + B({0x03}), Encode(ops, 16, nullptr)));
}

TEST(IppEncodeHeader, AResourceThatCannotFitFailsWithNothingMoreWritten) {
  IPPOperations ops(nullptr);
  ops.SetResourceURI(std::string(2100, 'r').c_str());
  ops.SetAttributeName("printer-state");
  std::vector<uint8_t> buffer(Norvane::kIppAttributeLimit + 1, 0xEE);
  uint32_t length = 12345;
  EXPECT_EQ(ops.FormIPPRequestBasedOnOperation(buffer.data(), 11, &length, nullptr), E_FAIL);
  EXPECT_EQ(length, 12345u);
}

TEST(IppEncodeJobQueries, GetJobAttributesSendsTheNameListAsOneValueAndArmsTheStatusCheck) {
  IPPOperations ops(nullptr);
  ops.SetResourceURI("/ipp/print");
  ops.SetJobURI("ipp://printer.example/jobs/7");
  ops.SetAttributeName("job-state,job-state-reasons");
  EXPECT_EQ(ops.GetJobOperations(), 0u);
  EXPECT_TRUE(SameBytes(RequestStart(9, "/ipp/print") + Attr(0x45, "job-uri", "ipp://printer.example/jobs/7") +
                            Attr(0x44, "requested-attributes", "job-state,job-state-reasons") + B({0x03}),
                        Encode(ops, 9, nullptr)));
  EXPECT_EQ(ops.GetJobOperations(), 1u);
}

TEST(IppEncodeJobQueries, GetJobsAsksForCompletedJobsOnlyForExactlyJobState) {
  struct Case {
    const char* attribute;
    const char* which;
  } cases[] = {{"job-state", "completed"},
               {"job-state-reasons", "not-completed"},
               {"Job-State", "not-completed"},
               {"job-state,job-state-reasons", "not-completed"}};
  for (const Case& c : cases) {
    IPPOperations ops(nullptr);
    ops.SetResourceURI("/ipp/print");
    ops.SetRequestedUserName("alice");
    ops.SetAttributeName(c.attribute);
    EXPECT_TRUE(SameBytes(RequestStart(10, "/ipp/print") + Attr(0x42, "requesting-user-name", "alice") +
                              Attr(0x22, "my-jobs", B({0x01})) + Attr(0x44, "which-jobs", c.which) +
                              Attr(0x44, "requested-attributes", "all") + B({0x03}),
                          Encode(ops, 10, nullptr)))
        << c.attribute;
  }
}

TEST(IppEncodeJobQueries, GetJobsNeedsAUserNameAndSplitsOneWithCommas) {
  IPPOperations ops(nullptr);
  ops.SetResourceURI("/ipp/print");
  HRESULT hr = S_OK;
  EXPECT_TRUE(SameBytes(RequestStart(10, "/ipp/print") + B({0x03}), Encode(ops, 10, nullptr, &hr)));
  EXPECT_EQ(hr, E_FAIL);

  ops.SetRequestedUserName("alice,bob");
  std::string bytes = Encode(ops, 10, nullptr);
  std::string users = Attr(0x42, "requesting-user-name", "alice") + Attr(0x42, "", "bob");
  EXPECT_NE(bytes.find(users), std::string::npos) << HexDump(bytes);
}

TEST(IppEncodeJobQueries, CancelJobNamesTheJobAndTheUserWithoutPrinterUri) {
  IPPOperations ops(nullptr);
  ops.SetResourceURI("/ipp/print");
  auto attributes = NewRequest();
  attributes->SetJobURI("ipp://printer.example/jobs/42");
  attributes->SetRequestingUserName("alice");
  EXPECT_TRUE(SameBytes(RequestStart(8) + Attr(0x45, "job-uri", "ipp://printer.example/jobs/42") +
                            Attr(0x42, "requesting-user-name", "alice") + B({0x03}),
                        Encode(ops, 8, attributes.get())));
  EXPECT_EQ(ops.GetJobOperations(), 1u);

  auto bare = NewRequest();
  IPPOperations other(nullptr);
  EXPECT_TRUE(SameBytes(RequestStart(8) + B({0x03}), Encode(other, 8, bare.get())));
}

TEST(IppEncodeJobCreation, EachOperationSendsItsOwnAttributesInOrder) {
  const std::string printerUri = Attr(0x45, "printer-uri", "ipp://printer.example/ipp/print");
  const std::string user = Attr(0x42, "requesting-user-name", "alice");
  const std::string documentUri = Attr(0x45, "document-uri", "http://files.example/report.pdf");
  const std::string job = Attr(0x42, "job-name", "report") + Attr(0x22, "ipp-attribute-fidelity", B({0x01}));
  const std::string documentName = Attr(0x42, "document-name", "report.pdf");
  const std::string handling = Attr(0x44, "multiple-document-handling", "separate_documents_collated_copies");
  const std::string copiesSides = IntAttr(0x21, "copies", 2) + Attr(0x44, "sides", "two-sided-long-edge");
  const std::string layout = IntAttr(0x21, "orientation-requested", 4) + IntAttr(0x21, "print-quality", 5);
  const std::string mono = Attr(0x44, "print-color-mode", "monochrome");
  struct Case {
    uint32_t op;
    std::string operationGroup, jobGroup;
  } cases[] = {
      // Print-URI: "printer-uri" twice, the header's and the caller's.
      {3, printerUri + user + documentUri + job + documentName, copiesSides + layout + mono},
      // Create-Job: document handling, but no document and no colour mode.
      {5, user + job, copiesSides + handling + layout},
      // Send-URI leads its job group with document handling and marks the last document.
      {7, user + documentUri + job + documentName + Attr(0x22, "last-document", B({0x01})),
       handling + copiesSides + layout},
      // Print-Job: printer URI and document name, no document URI.
      {2, printerUri + user + job + documentName, copiesSides + layout + mono},
  };
  for (const Case& c : cases) {
    IPPOperations ops(nullptr);
    ops.SetResourceURI("/ipp/print");
    auto attributes = NewRequest();
    FillEverything(attributes.get());
    EXPECT_TRUE(SameBytes(RequestStart(static_cast<int>(c.op), "/ipp/print") + c.operationGroup + B({0x02}) +
                              c.jobGroup + B({0x03}),
                          Encode(ops, c.op, attributes.get())))
        << "operation " << c.op;
  }
}

TEST(IppEncodeJobCreation, ANewRequestObjectSendsOnlyOneCopy) {
  for (uint32_t op : {2u, 3u, 5u, 7u}) {
    IPPOperations ops(nullptr);
    ops.SetResourceURI("/ipp/print");
    auto attributes = NewRequest();
    EXPECT_TRUE(SameBytes(RequestStart(static_cast<int>(op), "/ipp/print") + B({0x02}) +
                              IntAttr(0x21, "copies", 1) + B({0x03}),
                          Encode(ops, op, attributes.get())))
        << "operation " << op;
  }
}

TEST(IppEncodeJobCreation, CopiesRulesDifferPerOperation) {
  // Create-Job sends only positive counts, the others any non-zero one.
  struct Case {
    uint32_t op;
    int32_t copies;
    bool sent;
  } cases[] = {{5, 0, false}, {5, -1, false}, {3, 0, false}, {3, -1, true}, {7, -1, true}, {2, 0, false}, {2, -3, true}};
  for (const Case& c : cases) {
    IPPOperations ops(nullptr);
    auto attributes = NewRequest();
    attributes->SetCopy(c.copies);
    std::string bytes = Encode(ops, c.op, attributes.get());
    EXPECT_EQ(bytes.find(IntAttr(0x21, "copies", c.copies)) != std::string::npos, c.sent)
        << "operation " << c.op << " copies " << c.copies;
  }
}

TEST(IppEncodeJobCreation, SidesAndDocumentHandlingKeywords) {
  struct Case {
    bool sides;  // else multiple-document-handling
    int32_t value;
    const char* keyword;  // null: not written; "" written with an empty value
  } cases[] = {{true, 0, "one-sided"},
               {true, 1, "two-sided-long-edge"},
               {true, 2, "two-sided-short-edge"},
               {true, 3, nullptr},
               {true, -1, nullptr},
               {false, -1, nullptr},
               {false, 0, nullptr},
               {false, 1, "separate_documents_uncollated_copies"},
               {false, 2, "separate_documents_collated_copies"},
               {false, 3, "single_document_new_sheet"},
               {false, 4, ""},
               {false, 7, ""}};
  for (const Case& c : cases) {
    IPPOperations ops(nullptr);
    auto attributes = NewRequest();
    c.sides ? attributes->SetPrintingSides(c.value) : attributes->SetMultipleDocHandling(c.value);
    const char* name = c.sides ? "sides" : "multiple-document-handling";
    std::string expected = B({0x02}) + IntAttr(0x21, "copies", 1) +
                           (c.keyword != nullptr ? Attr(0x44, name, c.keyword) : std::string()) + B({0x03});
    std::string bytes = Encode(ops, 5, attributes.get());
    EXPECT_TRUE(SameBytes(expected, bytes.substr(bytes.size() - std::min(bytes.size(), expected.size()))))
        << name << " " << c.value;
  }
}

TEST(IppEncodePrintJob, StructuredCopiesAndColourModeReplaceTheBuiltInOnesWhateverTheirCase) {
  IPPOperations ops(nullptr);
  auto attributes = NewRequest();
  attributes->SetCopy(5);
  attributes->SetOutputMode(1);
  attributes->AddIPPRequest(IntegerAttribute(1, 0x21, "CoPiEs", 3));
  attributes->AddIPPRequest(TextAttribute(1, 0x44, "Print-Color-Mode", "color"));
  EXPECT_TRUE(SameBytes(RequestStart(2) + B({0x02}) + IntAttr(0x21, "CoPiEs", 3) +
                            Attr(0x44, "Print-Color-Mode", "color") + B({0x03}),
                        Encode(ops, 2, attributes.get())));

  // Other operations keep their own copies.
  IPPOperations other(nullptr);
  std::string createJob = Encode(other, 5, attributes.get());
  EXPECT_NE(createJob.find(IntAttr(0x21, "copies", 5)), std::string::npos);
  EXPECT_EQ(createJob.find("CoPiEs"), std::string::npos);
}

TEST(IppEncodePrintJob, CallerAttributesGoToTheirGroupStructuredFirstThenEncoded) {
  IPPOperations ops(nullptr);
  auto attributes = NewRequest();
  attributes->SetCopy(0);
  IPPAttributeStruct resolution = Structured(1, 0x32, "printer-resolution");
  resolution.value.resolution = {600, 300, 3};
  IPPAttributeStruct range = Structured(1, 0x33, "page-ranges");
  range.value.range = {-1, 5};
  IPPAttributeStruct boolean = Structured(0, 0x22, "ipp-attribute-fidelity");
  boolean.value.boolean = 1;
  const std::string blob0 = Attr(0x44, "compression", "none");
  const std::string blob1 = Attr(0x44, "media", "iso_a4_210x297mm");
  attributes->AddIPPRequest(0, reinterpret_cast<const uint8_t*>(blob0.data()), static_cast<int32_t>(blob0.size()));
  attributes->AddIPPRequest(1, reinterpret_cast<const uint8_t*>(blob1.data()), static_cast<int32_t>(blob1.size()));
  attributes->AddIPPRequest(IntegerAttribute(1, 0x23, "finishings", 4));
  attributes->AddIPPRequest(resolution);
  attributes->AddIPPRequest(range);
  attributes->AddIPPRequest(boolean);
  attributes->AddIPPRequest(TextAttribute(1, 0x44, "output-bin", "top,bottom"));
  attributes->AddIPPRequest(TextAttribute(1, 0x30, "job-password", "a,b"));
  attributes->AddIPPRequest(TextAttribute(1, 0x41, "job-message-to-operator", "hello"));
  // A tag outside the string tags goes as one value even with a comma.
  attributes->AddIPPRequest(TextAttribute(0, 0x4B, "x-private", "p,q"));
  EXPECT_TRUE(SameBytes(RequestStart(2) + Attr(0x22, "ipp-attribute-fidelity", B({0x01})) +
                            Attr(0x4B, "x-private", "p,q") + blob0 + B({0x02}) + IntAttr(0x23, "finishings", 4) +
                            Attr(0x32, "printer-resolution", Be32(600) + Be32(300) + B({0x03})) +
                            Attr(0x33, "page-ranges", Be32(-1) + Be32(5)) + Attr(0x44, "output-bin", "top") +
                            Attr(0x44, "", "bottom") + Attr(0x30, "job-password", "a") + Attr(0x30, "", "b") +
                            Attr(0x41, "job-message-to-operator", "hello") + blob1 + B({0x03}),
                        Encode(ops, 2, attributes.get())));
}

TEST(IppEncodePrintJob, AnEncodedAttributePastTheLimitIsLeftOutAndLogged) {
  IPPOperations probe(nullptr);
  auto attributes = NewRequest();
  attributes->SetCopy(0);
  const size_t before = Encode(probe, 2, attributes.get()).size() - 1;  // without the end tag
  // First blob ends exactly at the limit; the second cannot fit.
  std::string first = Attr(0x41, "x-filler", std::string(Norvane::kIppAttributeLimit - before - 13, 'f'));
  ASSERT_EQ(before + first.size(), static_cast<size_t>(Norvane::kIppAttributeLimit));
  std::string second = Attr(0x41, "x-late", "z");
  attributes->AddIPPRequest(1, reinterpret_cast<const uint8_t*>(first.data()), static_cast<int32_t>(first.size()));
  attributes->AddIPPRequest(1, reinterpret_cast<const uint8_t*>(second.data()), static_cast<int32_t>(second.size()));
  NorvaneTest::CaptureLog log;
  IPPOperations ops(nullptr);
  std::string bytes = Encode(ops, 2, attributes.get());
  EXPECT_EQ(bytes.size(), static_cast<size_t>(Norvane::kIppAttributeLimit) + 1);
  EXPECT_TRUE(SameBytes(first + B({0x03}), bytes.substr(before)));
  EXPECT_TRUE(log.Contains("does not fit", QxLogging::kStandout));
}

TEST(IppEncodePrintJob, AStructuredAttributeThatCannotFitFailsTheRequest) {
  IPPOperations ops(nullptr);
  auto attributes = NewRequest();
  for (int i = 0; i < 6; ++i) attributes->AddIPPRequest(TextAttribute(1, 0x41, "x-long", std::string(500, 'a' + i).c_str()));
  HRESULT hr = S_OK;
  std::string bytes = Encode(ops, 2, attributes.get(), &hr);
  EXPECT_EQ(hr, E_FAIL);
  EXPECT_LE(bytes.size(), static_cast<size_t>(Norvane::kIppAttributeLimit) + 1);
  EXPECT_EQ(bytes.back(), 0x03);
  // Whole attributes only: three of the six, then the end tag.
  EXPECT_NE(bytes.find(std::string(500, 'c')), std::string::npos);
  EXPECT_EQ(bytes.find(std::string(500, 'd')), std::string::npos);
}

TEST(IppEncodeWriters, TheLimitIsInclusiveAndARefusedAttributeWritesNothing) {
  std::vector<uint8_t> buffer(Norvane::kIppAttributeLimit + 1, 0xEE);
  int32_t offset = Norvane::kIppAttributeLimit - 7;  // 5 bytes of tag and lengths + "n" + "v"
  EXPECT_EQ(IPPOperations::AddStringToIPPRequest(buffer.data(), 0x41, "n", "vv", &offset), 1);
  EXPECT_EQ(offset, Norvane::kIppAttributeLimit - 7);
  EXPECT_EQ(buffer[static_cast<size_t>(offset)], 0xEE);
  EXPECT_EQ(IPPOperations::AddStringToIPPRequest(buffer.data(), 0x41, "n", "v", &offset), 0);
  EXPECT_EQ(offset, Norvane::kIppAttributeLimit);
  EXPECT_EQ(buffer[Norvane::kIppAttributeLimit], 0xEE);

  offset = 0;
  EXPECT_EQ(IPPOperations::AddStringToIPPRequest(buffer.data(), 0x41, nullptr, "v", &offset), -1);
  EXPECT_EQ(IPPOperations::AddIntegerToIPPRequest(buffer.data(), 0x21, "", 1, &offset), -1);
  EXPECT_EQ(offset, 0);
}

TEST(IppEncodeWriters, ValueLayouts) {
  std::vector<uint8_t> buffer(Norvane::kIppAttributeLimit + 1, 0);
  int32_t offset = 0;
  ASSERT_EQ(IPPOperations::AddResolutionToIPPRequest(buffer.data(), "r", 3, 600, 300, &offset), 0);
  ASSERT_EQ(IPPOperations::AddRangeToIPPRequest(buffer.data(), "g", -1, 5, &offset), 0);
  ASSERT_EQ(IPPOperations::AddIntegerToIPPRequest(buffer.data(), 0x23, "e", -2, &offset), 0);
  ASSERT_EQ(IPPOperations::AddBooleanToIPPRequest(buffer.data(), "b", 0, &offset), 0);
  ASSERT_EQ(IPPOperations::AddStringToIPPRequest(buffer.data(), 0x42, "s", nullptr, &offset), 0);
  ASSERT_EQ(IPPOperations::AddStringsToIPPRequest(buffer.data(), 0x44, "k", "a,,b", &offset), 0);
  EXPECT_TRUE(SameBytes(B({0x32, 0x00, 0x01, 'r', 0x00, 0x09, 0x00, 0x00, 0x02, 0x58, 0x00, 0x00, 0x01, 0x2C, 0x03}) +
                            B({0x33, 0x00, 0x01, 'g', 0x00, 0x08, 0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x05}) +
                            B({0x23, 0x00, 0x01, 'e', 0x00, 0x04, 0xFF, 0xFF, 0xFF, 0xFE}) +
                            B({0x22, 0x00, 0x01, 'b', 0x00, 0x01, 0x00}) + B({0x42, 0x00, 0x01, 's', 0x00, 0x00}) +
                            Attr(0x44, "k", "a") + Attr(0x44, "", "") + Attr(0x44, "", "b"),
                        std::string(buffer.begin(), buffer.begin() + offset)));
}

TEST(IppEncodeWriters, ASplitListIsWrittenWholeOrNotAtAll) {
  std::vector<uint8_t> buffer(Norvane::kIppAttributeLimit + 1, 0xEE);
  // "k" once, three values of one byte each: 1 + 3 * (5 + 1) = 19 bytes.
  int32_t offset = Norvane::kIppAttributeLimit - 18;
  EXPECT_EQ(IPPOperations::AddStringsToIPPRequest(buffer.data(), 0x44, "k", "a,b,c", &offset), 1);
  EXPECT_EQ(offset, Norvane::kIppAttributeLimit - 18);
  EXPECT_EQ(buffer[static_cast<size_t>(offset)], 0xEE);
  offset = Norvane::kIppAttributeLimit - 19;
  EXPECT_EQ(IPPOperations::AddStringsToIPPRequest(buffer.data(), 0x44, "k", "a,b,c", &offset), 0);
  EXPECT_EQ(offset, Norvane::kIppAttributeLimit);
}

TEST(IppEncodeAttributeNames, OnlyExactNamesFindTheirTableTag) {
  IPPOperations ops(nullptr);
  uint8_t tag = 0;
  for (const char* unknown : {"Printer-State", "media-col-ready", "printer-state "}) {
    tag = 0;
    EXPECT_EQ(ops.GetTypeOfAttribute(unknown, &tag), Norvane::kIppKindText);
    EXPECT_EQ(tag, 0x44) << unknown;
  }

  std::vector<uint8_t> buffer(Norvane::kIppAttributeLimit + 1, 0);
  int32_t offset = 0;
  EXPECT_EQ(ops.AddAttributeBasedOnType("printer-state", buffer.data(), &offset), S_OK);
  EXPECT_TRUE(SameBytes(Attr(0x23, "requested-attributes", "printer-state"),
                        std::string(buffer.begin(), buffer.begin() + offset)));
}

}  // namespace
