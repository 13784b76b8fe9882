// The request attribute object handed to hosts: what it copies, replaces and refuses.
#include <gtest/gtest.h>

#include <cstring>

#include "ipp/ipp_request_attributes.h"
#include "norvane/norvane.h"
#include "support/ref.h"

namespace {

using Norvane::IPPAttributeStruct;
using Norvane::IPPRequestAttributes;

TEST(IppRequestAttributes, TextsAndAttributesAreCopiesAndBadValuesAreRefused) {
  auto r = QxUtils::AdoptRef(CreateIPPRequest());
  auto* impl = dynamic_cast<IPPRequestAttributes*>(r.get());
  ASSERT_NE(impl, nullptr);
  char source[] = "report";
  r->SetJobName(source);
  source[0] = 'X';
  EXPECT_STREQ(r->GetJobName(), "report");
  r->SetJobName(nullptr);
  EXPECT_EQ(r->GetJobName(), nullptr);
  char16_t user[] = u"alice";
  r->SetUsername(user);
  user[0] = u'X';
  EXPECT_EQ(std::u16string(r->GetUsername()), u"alice");
  // Resolution units are inches or centimetres only.
  for (auto [set, kept] : {std::pair{5, 0}, {4, 4}, {0, 4}, {3, 3}}) {
    r->SetPrinterResolutionUnits(set);
    EXPECT_EQ(r->GetPrinterResolutionUnits(), kept) << set;
  }
  // Headers are replaced by their exact name and removed by a null value.
  r->AddExtraHTTPHeader(u"X-Trace", u"1");
  r->AddExtraHTTPHeader(u"X-Trace", u"2");
  r->AddExtraHTTPHeader(u"x-trace", u"3");
  r->AddExtraHTTPHeader(nullptr, u"ignored");
  EXPECT_EQ(r->GetExtraHTTPHeader(),
            (std::map<std::u16string, std::u16string>{{u"X-Trace", u"2"}, {u"x-trace", u"3"}}));
  r->AddExtraHTTPHeader(u"X-Trace", nullptr);
  EXPECT_EQ(r->GetExtraHTTPHeader(), (std::map<std::u16string, std::u16string>{{u"x-trace", u"3"}}));
  // Encoded attributes are copied; empty ones are refused.
  uint8_t bytes[] = {0x44, 0x00, 0x01, 'k', 0x00, 0x01, 'v'};
  EXPECT_EQ(r->AddIPPRequest(1, bytes, 0), E_INVALIDARG);
  EXPECT_EQ(r->AddIPPRequest(1, nullptr, 7), E_INVALIDARG);
  EXPECT_EQ(r->AddIPPRequest(1, bytes, -3), E_INVALIDARG);
  ASSERT_EQ(r->AddIPPRequest(1, bytes, 4), S_OK);
  bytes[0] = 'X';
  ASSERT_EQ(impl->GetBlobVector().size(), 1u);
  EXPECT_EQ(std::string(impl->GetBlobVector()[0].blobArray.begin(), impl->GetBlobVector()[0].blobArray.end()),
            std::string("\x44\0\x01k", 4));
  // Structured ones get their texts terminated.
  IPPAttributeStruct a;
  std::memset(&a, 'x', sizeof a);  // no terminators anywhere
  a.valueTag = 0x44;
  r->AddIPPRequest(a);
  ASSERT_EQ(impl->GetAttributesVector().size(), 1u);
  EXPECT_EQ(std::strlen(impl->GetAttributesVector()[0].name), sizeof a.name - 1);
  EXPECT_EQ(std::strlen(impl->GetAttributesVector()[0].value.text), sizeof a.value.text - 1);
}

}  // namespace
