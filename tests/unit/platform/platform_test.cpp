#include "norvane/platform.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>

#include "norvane/com.h"
#include "platform/clock.h"

namespace {

using Norvane::Variant;

TEST(Platform, BstrCarriesItsByteLengthAndVariantsCopyDeepAndFailAllocationsWithAnError) {
  const char16_t withZero[] = {u'a', 0, u'b'};
  BSTR b = SysAllocStringLen(withZero, 3);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(SysStringLen(b), 3u);
  EXPECT_EQ(b[3], 0);  // terminated past the length
  uint32_t prefix;
  std::memcpy(&prefix, reinterpret_cast<uint8_t*>(b) - 4, 4);
  EXPECT_EQ(prefix, 6u);
  SysFreeString(b);
  EXPECT_EQ(SysAllocString(nullptr), nullptr);
  EXPECT_EQ(SysStringLen(nullptr), 0u);

  // Variant copies are deep for strings and byte arrays.
  Variant bytes = Variant::FromBytes("\x01\x02\x03", 3);
  Variant copy = bytes;
  ASSERT_NE(copy.Get().parray, bytes.Get().parray);
  EXPECT_EQ(copy.Get().parray->rgsabound[0].cElements, 3u);
  EXPECT_EQ(std::memcmp(copy.Get().parray->pvData, "\x01\x02\x03", 3), 0);
  Variant text = Variant::FromString(u"idle");
  Variant textCopy(text.Get());
  ASSERT_NE(textCopy.Get().bstrVal, text.Get().bstrVal);
  EXPECT_EQ(std::u16string(textCopy.Get().bstrVal), u"idle");
  VARIANT raw;
  VariantInit(&raw);
  EXPECT_EQ(VariantCopy(&raw, &text.Get()), S_OK);
  EXPECT_EQ(VariantClear(&raw), S_OK);
  EXPECT_EQ(raw.vt, VT_EMPTY);
  EXPECT_EQ(VariantCopy(nullptr, &text.Get()), E_INVALIDARG);
  try {
    Variant::FromBytes(nullptr, size_t{1} << 40);
    FAIL() << "no exception";
  } catch (const Norvane::ComError& e) {
    EXPECT_EQ(static_cast<uint32_t>(e.Error()), 0x8007000Eu);
  }
}

TEST(Platform, FileTimeCountsFrom1601AndTheCoarseClockStaysWithinItsLag) {
  // (The clock moved for tests is read by every lifespan test.)
  uint64_t stamp = 0;
  ASSERT_EQ(Norvane::GetCurrentFileTime(&stamp), 1);
  int64_t unixSeconds = stamp / Norvane::kFileTimeTicksPerSecond - Norvane::kFileTimeUnixEpochSeconds;
  EXPECT_LE(std::llabs(unixSeconds - static_cast<int64_t>(std::time(nullptr))), 2);
  EXPECT_EQ(Norvane::GetCurrentFileTime(nullptr), 0);
  for (int i = 0; i < 1000; ++i) {
    // Read between two full reads, so that a pause of the thread cannot fail it.
    uint64_t before = 0, coarse = 0, lag = 0, after = 0;
    ASSERT_EQ(Norvane::GetCurrentFileTime(&before), 1);
    ASSERT_EQ(Norvane::GetCoarseFileTime(&coarse, &lag), 1);
    ASSERT_EQ(Norvane::GetCurrentFileTime(&after), 1);
    ASSERT_LE(coarse, after);
    ASSERT_LT(before, coarse + lag);
  }
}

}  // namespace
