#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <vector>

#include "norvane/api.h"
#include "platform/printer_data.h"
#include "testlib/temp_dir.h"

namespace {

using namespace Norvane::PrinterData;
using NorvaneTest::ScopedRegistryRoot;

struct Handle {
  uintptr_t h;
  explicit Handle(const char16_t* name) : h(OpenPrinterDataHandle(name)) {}
  ~Handle() { ClosePrinterDataHandle(h); }
};

DWORD SetText(uintptr_t h, const char16_t* name, std::u16string text) {
  return SetPrinterDataEx(h, u"UBidiData", name, kRegSz, reinterpret_cast<const uint8_t*>(text.c_str()),
                          static_cast<DWORD>((text.size() + 1) * 2));
}

TEST(PrinterData, EnumerationAsksForMoreDataThenListsEveryValue) {
  ScopedRegistryRoot root;
  Handle printer(u"Office Printer");
  ASSERT_NE(printer.h, 0u);
  ASSERT_EQ(SetText(printer.h, u"Model", u"LX-9"), 0u);
  int32_t minusOne = -1;
  ASSERT_EQ(SetPrinterDataEx(printer.h, u"UBidiData", u"Level", kRegDword, reinterpret_cast<uint8_t*>(&minusOne), 4), 0u);

  DWORD needed = 0, count = 7;
  ASSERT_EQ(EnumPrinterDataEx(printer.h, u"UBidiData", nullptr, 0, &needed, &count), static_cast<DWORD>(ERROR_MORE_DATA));
  ASSERT_GT(needed, 0u);
  std::vector<uint8_t> small(needed - 1);
  EXPECT_EQ(EnumPrinterDataEx(printer.h, u"UBidiData", small.data(), needed - 1, &needed, &count), static_cast<DWORD>(ERROR_MORE_DATA));
  std::vector<uint8_t> buffer(needed);
  ASSERT_EQ(EnumPrinterDataEx(printer.h, u"UBidiData", buffer.data(), needed, &needed, &count), 0u);
  ASSERT_EQ(count, 2u);
  auto* entries = reinterpret_cast<PrinterEnumValue*>(buffer.data());
  EXPECT_EQ(std::u16string(entries[0].valueName), u"Level");
  EXPECT_EQ(entries[0].type, kRegDword);
  int32_t level;
  std::memcpy(&level, entries[0].data, 4);
  EXPECT_EQ(level, -1);
  EXPECT_EQ(std::u16string(entries[1].valueName), u"Model");
  EXPECT_EQ(entries[1].dataBytes, 10u);
  EXPECT_EQ(std::u16string(reinterpret_cast<char16_t*>(entries[1].data)), u"LX-9");
  for (DWORD i = 0; i < count; ++i) {
    EXPECT_GE(entries[i].data, buffer.data());
    EXPECT_LE(entries[i].data + entries[i].dataBytes, buffer.data() + buffer.size());
  }
}

TEST(PrinterData, GetFollowsTheSizeProtocol) {
  ScopedRegistryRoot root;
  Handle printer(u"P");
  ASSERT_EQ(SetText(printer.h, u"Serial", u"CN123"), 0u);
  DWORD type = 0, needed = 0;
  EXPECT_EQ(GetPrinterDataEx(printer.h, u"UBidiData", u"Serial", &type, nullptr, 0, &needed), static_cast<DWORD>(ERROR_MORE_DATA));
  EXPECT_EQ(needed, 12u);
  char16_t text[6];
  ASSERT_EQ(GetPrinterDataEx(printer.h, u"UBidiData", u"Serial", &type, reinterpret_cast<uint8_t*>(text), sizeof text, &needed), 0u);
  EXPECT_EQ(type, kRegSz);
  EXPECT_EQ(std::u16string(text), u"CN123");
  EXPECT_EQ(GetPrinterDataEx(printer.h, u"UBidiData", u"Nope", &type, nullptr, 0, &needed), 2u);
}

TEST(PrinterData, PrintersWithoutDataAndUnknownHandles) {
  ScopedRegistryRoot root;
  Handle printer(u"Fresh");
  DWORD needed = 0, count = 0;
  EXPECT_EQ(EnumPrinterDataEx(printer.h, u"UBidiData", nullptr, 0, &needed, &count), 2u);
  EXPECT_EQ(EnumPrinterDataEx(0xDEAD, u"UBidiData", nullptr, 0, &needed, &count), 6u);
  uintptr_t closed = OpenPrinterDataHandle(u"Gone");
  ClosePrinterDataHandle(closed);
  EXPECT_EQ(SetText(closed, u"x", u"y"), 6u);
  SetLastError(0);
  EXPECT_EQ(OpenPrinterDataHandle(nullptr), 0u);
  EXPECT_EQ(GetLastError(), 87u);
  EXPECT_EQ(OpenPrinterDataHandle(u""), 0u);
}

TEST(PrinterData, PrinterNamesStayInsideTheirOwnKey) {
  ScopedRegistryRoot root;
  for (const char16_t* name : {u"..", u"../../etc", u"\\\\server\\queue", u".hidden", u"a/b", u"Ü-printer"}) {
    Handle printer(name);
    ASSERT_EQ(SetText(printer.h, u"v", u"1"), 0u) ;
  }
  // Every key landed directly below HKLM/Printers, one component each.
  namespace fs = std::filesystem;
  int keys = 0;
  for (const auto& entry : fs::recursive_directory_iterator(root.Path())) {
    if (entry.path().filename() == "values.reg") {
      ++keys;
      EXPECT_EQ(entry.path().parent_path().parent_path().parent_path(), fs::path(root.Path()) / "HKLM" / "Printers");
    }
  }
  EXPECT_EQ(keys, 6);
  EXPECT_EQ(EncodePrinterName(u"\\\\server\\queue"), u"%5C%5Cserver%5Cqueue");
}

TEST(PrinterData, BatchedValuesLandInOneUpdate) {
  ScopedRegistryRoot root;
  Handle printer(u"Batch");
  Norvane::Registry::ValueList values(3);
  values[0].name = u"a";
  values[0].text = u"1";
  values[1].name = u"b";
  values[1].type = Norvane::Registry::ValueType::Dword;
  values[1].dword = 2;
  values[2].name = u"a.Expires";
  values[2].text = u"0";
  ASSERT_EQ(SetPrinterDataValues(printer.h, u"UBidiData", values), 0u);
  DWORD needed = 0, count = 0;
  EnumPrinterDataEx(printer.h, u"UBidiData", nullptr, 0, &needed, &count);
  std::vector<uint8_t> buffer(needed);
  ASSERT_EQ(EnumPrinterDataEx(printer.h, u"UBidiData", buffer.data(), needed, &needed, &count), 0u);
  EXPECT_EQ(count, 3u);
}

}  // namespace
