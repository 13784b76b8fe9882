// Language-tagged values under the host's field-compatibility opt-in: the text is
// kept only when both inner lengths fill the value exactly. (Versions and the
// opt-in's absence are covered by real captures in the bench.)
#include <gtest/gtest.h>

#include "ipp/ipp_operations.h"
#include "ipp_test_util.h"
#include "support/ref.h"
#include "testlib/fake_host.h"

namespace {

TEST(IppFieldCompatibility, LanguageTaggedTextNeedsExactLengths) {
  // value bytes: language length, language, text length, text
  struct Case {
    std::string value;
    HRESULT result;
  } cases[] = {
      {std::string("\0\2en\0\4Desk", 10), S_OK},
      {std::string("\0\2en\0\5Desk", 10), E_FAIL},   // text length past the value
      {std::string("\0\2en\0\3Desk", 10), E_FAIL},   // short of it
      {std::string("\0\11en\0\4Desk", 10), E_FAIL},  // language length past the value
  };
  for (const auto& c : cases) {
    auto address = QxUtils::AdoptRef(NorvaneTest::FakeAddress::Create(u"192.0.2.7"));
    address->SetIppFieldCompatibility(true);
    Norvane::IPPOperations ops(address.get());
    std::string body("\1\1\0\0\0\0\0\7\4\x36\0\4name\0", 17);
    body += static_cast<char>(c.value.size()) + c.value + '\3';
    EXPECT_EQ(IppTest::Decode(ops, body), c.result) << c.value;
    IppTest::OwnedVariant name;
    ops.GetValueFromIPPMap("name", &name.v);
    if (c.result == S_OK) {
      EXPECT_EQ(IppTest::Text(name.v), "Desk");
    }
  }
}

}  // namespace
