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

HRESULT Decode(IPPOperations& ops, const std::string& body, VARIANT* value) {
  return ops.ParseIPPContent(reinterpret_cast<const uint8_t*>(body.data()), static_cast<uint32_t>(body.size()), value);
}

HRESULT Decode(const std::string& body) {
  IPPOperations ops(nullptr);
  ops.SetAttributeName("printer-state");
  VARIANT v;
  VariantInit(&v);
  HRESULT hr = Decode(ops, body, &v);
  VariantClear(&v);
  return hr;
}

size_t Footprint(const IPPOperations& ops) {
  return ops.GetValueMap().MemoryUsage() + ops.GetCollectionStore().MemoryUsage();
}

TEST(IppHostile, EveryTruncationFailsOrEndsCleanlyWithoutAValue) {
  std::string full = ReadFile(std::string(NORVANE_IPP_CAPTURES_DIR) + "/python-ipp__get-printer-attributes-epsonxp6000.bin");
  ASSERT_GT(full.size(), 1000u);
  size_t succeeded = 0;
  IPPOperations ops(nullptr);
  ops.SetAttributeName("printer-state");
  for (size_t cut = 0; cut < full.size(); ++cut) {
    // A copy of exactly `cut` bytes, so a read past the end is a sanitizer error.
    std::string part = full.substr(0, cut);
    VARIANT v;
    VariantInit(&v);
    HRESULT hr = Decode(ops, part, &v);
    ASSERT_TRUE(hr == S_OK || hr == E_FAIL) << cut;
    // Without its end tag no response answers the question.
    ASSERT_EQ(v.vt, VT_EMPTY) << cut;
    succeeded += hr == S_OK;
    ASSERT_LE(Footprint(ops), 16 * full.size() + 4096) << cut;
  }
  // Cuts between attributes end cleanly; cuts inside one fail.
  EXPECT_GT(succeeded, 100u);
  EXPECT_LT(succeeded, full.size() / 4);
  VARIANT v;
  VariantInit(&v);
  EXPECT_EQ(Decode(ops, full, &v), S_OK);
  EXPECT_EQ(Text(v), "3");
  VariantClear(&v);
}

TEST(IppHostile, LengthsBeyondTheBufferFail) {
  const std::string start = ResponseStart();
  for (const std::string& tail : {
           B({0x44}) + Be16(0xFFFF),                                         // name-length past the end
           B({0x44}) + Be16(500) + "printer-state",                          // shorter name than announced
           B({0x44}) + Be16(1) + "n" + Be16(40) + "abc",                     // value past the end
           B({0x30}) + Be16(1) + "n" + Be16(1000) + std::string(999, '='),  // octet string one short
           B({0x21}) + Be16(1) + "n" + Be16(4) + B({0x00, 0x00}),           // integer cut short
           B({0x32}) + Be16(1) + "r" + Be16(9) + std::string(8, '\0'),      // resolution cut short
           B({0x31}) + Be16(1) + "d" + Be16(11) + std::string(10, '\0'),    // dateTime cut short
           B({0x4A}) + Be16(0) + Be16(7) + "x",                              // member name past the end
           B({0x44}) + B({0x00}),                                            // half a name-length
       }) {
    EXPECT_EQ(Decode(start + tail), E_FAIL) << HexDump(tail);
  }
}

TEST(IppHostile, NamesAndValuesOver1023BytesFail) {
  std::string start = ResponseStart();
  EXPECT_EQ(Decode(start + Attr(0x44, std::string(1023, 'n'), "v") + B({0x03})), S_OK);
  EXPECT_EQ(Decode(start + Attr(0x44, std::string(1024, 'n'), "v") + B({0x03})), E_FAIL);
  EXPECT_EQ(Decode(start + Attr(0x44, std::string(60000, 'n'), "v") + B({0x03})), E_FAIL);
  EXPECT_EQ(Decode(start + Attr(0x41, "t", std::string(1023, 'v')) + B({0x03})), S_OK);
  for (int tag : {0x41, 0x30, 0x4A, 0x12, 0x7F}) {
    EXPECT_EQ(Decode(start + Attr(tag, "t", std::string(1024, 'v')) + B({0x03})), E_FAIL) << tag;
  }
  EXPECT_EQ(Decode(start + Attr(0x35, "t", std::string(1025, 'v')) + B({0x03})), E_FAIL);
}

TEST(IppHostile, CollectionDelimitersMustBeEmptyAndBalanced) {
  std::string start = ResponseStart();
  EXPECT_EQ(Decode(start + Attr(0x34, "c", "x") + Attr(0x37, "", "") + B({0x03})), E_FAIL);
  EXPECT_EQ(Decode(start + Attr(0x34, "c", "") + Attr(0x37, "", "x") + B({0x03})), E_FAIL);
  EXPECT_EQ(Decode(start + Attr(0x37, "", "") + B({0x03})), E_FAIL);
  EXPECT_EQ(Decode(start + Attr(0x34, "c", "") + Attr(0x37, "", "") + Attr(0x37, "", "") + B({0x03})), E_FAIL);
  // Left open: the decode ends at the end tag and the record is not kept.
  IPPOperations ops(nullptr);
  ops.SetAttributeName("c");
  VARIANT v;
  VariantInit(&v);
  EXPECT_EQ(Decode(ops, start + Attr(0x34, "c", "") + Attr(0x4A, "", "m") + Attr(0x44, "", "k") + B({0x03}), &v),
            S_OK);
  EXPECT_EQ(ops.GetCollectionStore().RecordCount(), 0u);
  VariantClear(&v);
}

TEST(IppHostile, DeepNestingStopsAtTheDepthCap) {
  auto nested = [](int depth) {
    std::string body = ResponseStart() + Attr(0x34, "c", "");
    for (int i = 1; i < depth; ++i) body += Attr(0x4A, "", "m") + Attr(0x34, "", "");
    for (int i = 0; i < depth; ++i) body += Attr(0x37, "", "");
    return body + Attr(0x23, "printer-state", Be32(3)) + B({0x03});
  };
  EXPECT_EQ(Decode(nested(Norvane::kIppMaxCollectionDepth)), S_OK);
  EXPECT_EQ(Decode(nested(Norvane::kIppMaxCollectionDepth + 1)), E_FAIL);

  std::string deep = nested(10000);
  IPPOperations ops(nullptr);
  ops.SetAttributeName("printer-state");
  VARIANT v;
  VariantInit(&v);
  EXPECT_EQ(Decode(ops, deep, &v), E_FAIL);
  EXPECT_EQ(v.vt, VT_EMPTY);
  EXPECT_LE(Footprint(ops), 4 * deep.size());
}

TEST(IppHostile, ManySmallValuesStayProportional) {
  // 100,000 one-byte keyword values: about 600 kB of response.
  std::string body = ResponseStart() + Attr(0x44, "k", "a");
  for (int i = 0; i < 100000; ++i) body += Attr(0x44, "", "b");
  body += B({0x03});
  IPPOperations ops(nullptr);
  ops.SetAttributeName("k");
  VARIANT v;
  VariantInit(&v);
  ASSERT_EQ(Decode(ops, body, &v), S_OK);
  EXPECT_EQ(Text(v).size(), 2u * 100001 - 1);
  EXPECT_LE(Footprint(ops), 8 * body.size());
  VariantClear(&v);
}

TEST(IppHostile, MemberNamesWithANameLengthDoNotDerail) {
  // A memberAttrName that carries a name-length keeps its name bytes unread:
  // they are taken for the value-length, and the decode must still end cleanly.
  std::string body = ResponseStart() + Attr(0x34, "c", "") + Attr(0x4A, "zz", "m") + Attr(0x37, "", "") + B({0x03});
  HRESULT hr = Decode(body);
  EXPECT_TRUE(hr == S_OK || hr == E_FAIL);
}

TEST(IppHostile, NullAndOversizedInput) {
  IPPOperations ops(nullptr);
  EXPECT_EQ(ops.ParseIPPContent(nullptr, 100, nullptr), E_FAIL);
  EXPECT_EQ(ops.ParseIPPResponse(static_cast<Norvane::HTTPResponse*>(nullptr), nullptr), E_FAIL);
  uint8_t byte = 2;
  EXPECT_EQ(ops.ParseIPPContent(&byte, Norvane::kIppMaxResponseBytes + 1, nullptr), E_FAIL);
}

}  // namespace
