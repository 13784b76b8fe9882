// The request and response attribute objects handed to hosts.
#include <gtest/gtest.h>

#include <cstring>

#include "ipp/ipp_request_attributes.h"
#include "norvane/norvane.h"
#include "testlib/capture_log.h"
#include "support/ref.h"

namespace {

using Norvane::IPPAttributeStruct;
using Norvane::IPPRequestAttributes;
using Norvane::IPPRequestBase;

IPPRequestAttributes* Impl(const QxUtils::Ref<IPPRequestBase>& r) { return dynamic_cast<IPPRequestAttributes*>(r.get()); }

TEST(IppRequestAttributes, TextsAreCopiesAndNullClears) {
  auto r = QxUtils::AdoptRef(CreateIPPRequest());
  char source[] = "report";
  r->SetJobName(source);
  source[0] = 'X';
  EXPECT_STREQ(r->GetJobName(), "report");
  r->SetJobName("");
  ASSERT_NE(r->GetJobName(), nullptr);
  EXPECT_STREQ(r->GetJobName(), "");
  r->SetJobName(nullptr);
  EXPECT_EQ(r->GetJobName(), nullptr);
  char16_t user[] = u"alice";
  r->SetUsername(user);
  user[0] = u'X';
  EXPECT_EQ(std::u16string(r->GetUsername()), u"alice");
}

// The encoder shows the defaults it sends; these are for hosts only.
TEST(IppRequestAttributes, HostOnlyDefaultsAndResolutionUnitsOfInchesOrCentimetres) {
  auto r = QxUtils::AdoptRef(CreateIPPRequest());
  ASSERT_NE(Impl(r), nullptr);
  EXPECT_EQ(r->GetPrintContentOptimize(), 0u);
  EXPECT_TRUE(r->GetMarginsPreApplied());
  EXPECT_EQ(r->GetPrinterResolutionUnits(), 0);
  r->SetPrinterResolutionUnits(5);
  EXPECT_EQ(r->GetPrinterResolutionUnits(), 0);
  r->SetPrinterResolutionUnits(4);
  EXPECT_EQ(r->GetPrinterResolutionUnits(), 4);
  r->SetPrinterResolutionUnits(0);
  EXPECT_EQ(r->GetPrinterResolutionUnits(), 4);
  r->SetPrinterResolutionUnits(3);
  EXPECT_EQ(r->GetPrinterResolutionUnits(), 3);
}

TEST(IppRequestAttributes, HeadersAreReplacedByNameAndRemovedByANullValue) {
  auto r = QxUtils::AdoptRef(CreateIPPRequest());
  r->AddExtraHTTPHeader(u"X-Trace", u"1");
  r->AddExtraHTTPHeader(u"X-Trace", u"2");
  r->AddExtraHTTPHeader(u"x-trace", u"3");
  r->AddExtraHTTPHeader(nullptr, u"ignored");
  EXPECT_EQ(r->GetExtraHTTPHeader(),
            (std::map<std::u16string, std::u16string>{{u"X-Trace", u"2"}, {u"x-trace", u"3"}}));
  r->AddExtraHTTPHeader(u"X-Trace", nullptr);
  EXPECT_EQ(r->GetExtraHTTPHeader(), (std::map<std::u16string, std::u16string>{{u"x-trace", u"3"}}));
}

TEST(IppRequestAttributes, EncodedAttributesAreCopiedAndEmptyOnesRefused) {
  auto r = QxUtils::AdoptRef(CreateIPPRequest());
  NorvaneTest::CaptureLog log;
  uint8_t bytes[] = {0x44, 0x00, 0x01, 'k', 0x00, 0x01, 'v'};
  EXPECT_EQ(r->AddIPPRequest(1, bytes, 0), E_INVALIDARG);
  EXPECT_TRUE(log.Contains("Invalid input parameters.. attributeblobSize=0", QxLogging::kStandout));
  EXPECT_EQ(r->AddIPPRequest(1, nullptr, 7), E_INVALIDARG);
  EXPECT_EQ(r->AddIPPRequest(1, bytes, -3), E_INVALIDARG);
  EXPECT_TRUE(log.Contains("attributeblobSize=-3"));
  EXPECT_TRUE(Impl(r)->GetBlobVector().empty());

  ASSERT_EQ(r->AddIPPRequest(0, bytes, 7), S_OK);
  ASSERT_EQ(r->AddIPPRequest(1, bytes, 4), S_OK);
  bytes[3] = 'X';
  const auto& blobs = Impl(r)->GetBlobVector();
  ASSERT_EQ(blobs.size(), 2u);
  EXPECT_EQ(blobs[0].group, 0u);
  EXPECT_EQ(blobs[0].blobSize, 7);
  EXPECT_EQ(std::string(blobs[0].blobArray.begin(), blobs[0].blobArray.end()), std::string("\x44\0\x01k\0\x01v", 7));
  EXPECT_EQ(blobs[1].group, 1u);
  EXPECT_EQ(blobs[1].blobArray.size(), 4u);
}

TEST(IppRequestAttributes, StructuredAttributesKeepOrderAndTerminatedTexts) {
  auto r = QxUtils::AdoptRef(CreateIPPRequest());
  IPPAttributeStruct a;
  std::memset(&a, 'x', sizeof a);  // no terminators anywhere
  a.group = 1;
  a.valueTag = 0x44;
  r->AddIPPRequest(a);
  IPPAttributeStruct b{};
  b.valueTag = 0x21;
  std::strcpy(b.name, "copies");
  b.value.integer = 3;
  r->AddIPPRequest(b);
  const auto& list = Impl(r)->GetAttributesVector();
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(std::strlen(list[0].name), sizeof a.name - 1);
  EXPECT_EQ(std::strlen(list[0].value.text), sizeof a.value.text - 1);
  EXPECT_STREQ(list[1].name, "copies");
  EXPECT_EQ(list[1].value.integer, 3);
}

}  // namespace
