// The host's field-compatibility opt-in on the decoder: IPP/1.x answers and the
// text of language-tagged values, only when the address asks for them.
#include <gtest/gtest.h>

#include <string>

#include "ipp/ipp_operations.h"
#include "ipp_test_util.h"
#include "support/ref.h"
#include "testlib/fake_host.h"

namespace {

using namespace IppTest;

// An answer of `version` with one printer-make-and-model value of `tag` and
// `value` as its value bytes.
std::string Answer(uint8_t major, uint8_t tag, const std::string& value) {
  std::string out{static_cast<char>(major), 1, 0, 0, 0, 0, 0, 7, 0x04};
  const std::string name = "printer-make-and-model";
  out += static_cast<char>(tag);
  out += {0, static_cast<char>(name.size())};
  out += name;
  out += {static_cast<char>(value.size() >> 8), static_cast<char>(value.size() & 0xFF)};
  out += value + '\x03';
  return out;
}

// The two parts of a language-tagged value, each with its length.
std::string WithLanguage(const std::string& language, const std::string& text, int textLengthSkew = 0) {
  std::string out{0, static_cast<char>(language.size())};
  out += language;
  const size_t length = text.size() + textLengthSkew;
  out += {static_cast<char>(length >> 8), static_cast<char>(length & 0xFF)};
  return out + text;
}

TEST(IppFieldCompatibility, DecodesOnlyWhatTheOptInAllows) {
  struct Case {
    const char* what;
    bool optIn;
    std::string body;
    HRESULT result;
    const char* model;  // the decoded text, when decoded
  } cases[] = {
      {"1.1 refused by default", false, Answer(1, 0x41, "LX 9000"), E_FAIL, nullptr},
      {"1.1 read with the opt-in", true, Answer(1, 0x41, "LX 9000"), S_OK, "LX 9000"},
      {"3.x refused either way", true, Answer(3, 0x41, "LX 9000"), E_FAIL, nullptr},
      {"language-tagged text dropped by default", false, Answer(2, 0x35, WithLanguage("en", "LX 9000")), S_OK, ""},
      {"language-tagged text kept", true, Answer(2, 0x35, WithLanguage("en", "LX 9000")), S_OK, "LX 9000"},
      {"language-tagged name kept", true, Answer(2, 0x36, WithLanguage("de-DE", "Büro")), S_OK, "Büro"},
      {"text length past the value", true, Answer(2, 0x35, WithLanguage("en", "LX 9000", 1)), E_FAIL, nullptr},
      {"text length short of the value", true, Answer(2, 0x35, WithLanguage("en", "LX 9000", -1)), E_FAIL, nullptr},
      {"language length past the value", true, Answer(2, 0x35, std::string{0, 9, 'e', 'n', 0, 0}), E_FAIL, nullptr},
  };
  for (const auto& c : cases) {
    auto address = QxUtils::AdoptRef(NorvaneTest::FakeAddress::Create(u"192.0.2.7"));
    address->SetIppFieldCompatibility(c.optIn);
    Norvane::IPPOperations ops(address.get());
    EXPECT_EQ(Decode(ops, c.body), c.result) << c.what;
    EXPECT_EQ(address->GetIppAnsweredVersion(), static_cast<uint16_t>(c.body[0] << 8 | 1)) << c.what;
    if (c.model == nullptr) continue;
    OwnedVariant value;
    ops.GetValueFromIPPMap("printer-make-and-model", &value.v);
    EXPECT_EQ(*c.model == 0 ? std::string("<vt 0>") : std::string(c.model), Text(value.v)) << c.what;
  }
}

}  // namespace
