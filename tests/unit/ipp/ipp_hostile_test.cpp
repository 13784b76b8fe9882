// Responses built to hurt the decoder: every one must fail or succeed cleanly,
// within memory proportional to its size.
#include <gtest/gtest.h>

#include <string>

#include "ipp/ipp_operations.h"
#include "ipp_test_util.h"
#include "norvane/norvane.h"

namespace {

using namespace IppTest;
using Norvane::IPPOperations;

size_t Footprint(const IPPOperations& ops) {
  return ops.GetValueMap().MemoryUsage() + ops.GetCollectionStore().MemoryUsage();
}

TEST(IppHostile, EveryTruncationFailsOrEndsCleanlyWithoutAValue) {
  std::string full =
      ReadFile(std::string(NORVANE_IPP_CAPTURES_DIR) + "/python-ipp__get-printer-attributes-epsonxp6000.bin");
  ASSERT_GT(full.size(), 1000u);
  size_t succeeded = 0;
  IPPOperations ops(nullptr);
  ops.SetAttributeName("printer-state");
  for (size_t cut = 0; cut < full.size(); ++cut) {
    // A copy of exactly `cut` bytes, so a read past the end is a sanitizer error.
    std::string part = full.substr(0, cut);
    OwnedVariant value;
    HRESULT hr = Decode(ops, part, &value.v);
    ASSERT_TRUE(hr == S_OK || hr == E_FAIL) << cut;
    // Without its end tag no response answers the question.
    ASSERT_EQ(value.v.vt, VT_EMPTY) << cut;
    succeeded += hr == S_OK;
    ASSERT_LE(Footprint(ops), 16 * full.size() + 4096) << cut;
  }
  // Cuts between attributes end cleanly; cuts inside one fail.
  EXPECT_GT(succeeded, 100u);
  EXPECT_LT(succeeded, full.size() / 4);
  OwnedVariant value;
  EXPECT_EQ(Decode(ops, full, &value.v), S_OK);
  EXPECT_EQ(Text(value.v), "3");
}

// Lengths past the buffer, names and values over 1023 bytes, collection
// delimiters that are not empty or not balanced, nesting past the cap.
TEST(IppHostile, MalformedAttributes) {
  auto nested = [](int depth) {
    std::string body = Attr(0x34, "c", "");
    for (int i = 1; i < depth; ++i) body += Attr(0x4A, "", "m") + Attr(0x34, "", "");
    for (int i = 0; i < depth; ++i) body += Attr(0x37, "", "");
    return body + Attr(0x23, "printer-state", Be32(3)) + B({0x03});
  };
  const std::string end = B({0x03});
  struct Case {
    std::string tail;  // after the response header
    HRESULT hr;
  } cases[] = {
      {B({0x44}) + Be16(500) + "printer-state", E_FAIL},                         // shorter name than announced
      {B({0x44}) + Be16(1) + "n" + Be16(40) + "abc", E_FAIL},                    // value past the end
      {B({0x30}) + Be16(1) + "n" + Be16(1000) + std::string(999, '='), E_FAIL},  // octet string one short
      {B({0x21}) + Be16(1) + "n" + Be16(4) + B({0x00, 0x00}), E_FAIL},           // integer cut short
      {B({0x32}) + Be16(1) + "r" + Be16(9) + std::string(8, '\0'), E_FAIL},      // resolution cut short
      {B({0x31}) + Be16(1) + "d" + Be16(11) + std::string(10, '\0'), E_FAIL},    // dateTime cut short
      {B({0x4A}) + Be16(0) + Be16(7) + "x", E_FAIL},                             // member name past the end
      {B({0x44}) + B({0x00}), E_FAIL},                                           // half a name-length
      {B({0x44}) + Be16(1) + "n" + B({0x00}), E_FAIL},                           // half a value-length
      {Attr(0x44, std::string(1023, 'n'), "v") + end, S_OK},
      {Attr(0x44, std::string(1024, 'n'), "v") + end, E_FAIL},
      {Attr(0x41, "t", std::string(1023, 'v')) + end, S_OK},
      {Attr(0x41, "t", std::string(1024, 'v')) + end, E_FAIL},
      {Attr(0x30, "t", std::string(1024, 'v')) + end, E_FAIL},
      {Attr(0x4A, "t", std::string(1024, 'v')) + end, E_FAIL},
      {Attr(0x35, "t", std::string(1025, 'v')) + end, E_FAIL},
      {Attr(0x34, "c", "x") + Attr(0x37, "", "") + end, E_FAIL},
      {Attr(0x34, "c", "") + Attr(0x37, "", "x") + end, E_FAIL},
      {Attr(0x37, "", "") + end, E_FAIL},
      {Attr(0x34, "c", "") + Attr(0x37, "", "") + Attr(0x37, "", "") + end, E_FAIL},
      // A memberAttrName that carries a name-length keeps its name bytes
      // unread: they are taken for the value-length.
      {Attr(0x34, "c", "") + Attr(0x4A, "zz", "m") + Attr(0x37, "", "") + end, E_FAIL},
      {nested(Norvane::kIppMaxCollectionDepth), S_OK},
      {nested(Norvane::kIppMaxCollectionDepth + 1), E_FAIL},
      {nested(10000), E_FAIL},
  };
  for (const Case& c : cases) {
    IPPOperations ops(nullptr);
    ops.SetAttributeName("printer-state");
    OwnedVariant value;
    const std::string body = ResponseStart() + c.tail;
    EXPECT_EQ(Decode(ops, body, &value.v), c.hr) << "row " << &c - cases;
    EXPECT_TRUE(c.hr == S_OK || value.v.vt == VT_EMPTY) << "a failed decode's value, row " << &c - cases;
    EXPECT_LE(Footprint(ops), 4 * body.size() + 4096) << "row " << &c - cases;
  }

  // Left open: the decode ends at the end tag and the record is not kept.
  IPPOperations open(nullptr);
  open.SetAttributeName("c");
  EXPECT_EQ(Decode(open, ResponseStart() + Attr(0x34, "c", "") + Attr(0x4A, "", "m") + Attr(0x44, "", "k") + end),
            S_OK);
  EXPECT_EQ(open.GetCollectionStore().RecordCount(), 0u);
}

TEST(IppHostile, ManySmallValuesStayProportional) {
  // 100,000 one-byte keyword values: about 600 kB of response.
  std::string body = ResponseStart() + Attr(0x44, "k", "a");
  for (int i = 0; i < 100000; ++i) body += Attr(0x44, "", "b");
  body += B({0x03});
  IPPOperations ops(nullptr);
  ops.SetAttributeName("k");
  OwnedVariant value;
  ASSERT_EQ(Decode(ops, body, &value.v), S_OK);
  EXPECT_EQ(Text(value.v).size(), 2u * 100001 - 1);
  EXPECT_LE(Footprint(ops), 8 * body.size());
}

TEST(IppHostile, NullAndOversizedInput) {
  IPPOperations ops(nullptr);
  EXPECT_EQ(ops.ParseIPPContent(nullptr, 100, nullptr), E_FAIL);
  EXPECT_EQ(ops.ParseIPPResponse(static_cast<Norvane::HTTPResponse*>(nullptr), nullptr), E_FAIL);
  uint8_t byte = 2;
  EXPECT_EQ(ops.ParseIPPContent(&byte, Norvane::kIppMaxResponseBytes + 1, nullptr), E_FAIL);
}

}  // namespace
