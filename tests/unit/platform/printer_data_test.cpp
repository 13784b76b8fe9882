#include "platform/printer_data.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "norvane/api.h"
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

TEST(PrinterData, GetAndEnumerationFollowTheSizeProtocolOnKnownHandlesOnly) {
  ScopedRegistryRoot root;
  Handle printer(u"Office Printer");
  DWORD needed = 0, count = 7, type = 0;
  EXPECT_EQ(EnumPrinterDataEx(printer.h, u"UBidiData", nullptr, 0, &needed, &count), 2u);  // no data yet
  ASSERT_EQ(SetText(printer.h, u"Model", u"LX-9"), 0u);
  int32_t minusOne = -1;
  ASSERT_EQ(SetPrinterDataEx(printer.h, u"UBidiData", u"Level", kRegDword, reinterpret_cast<uint8_t*>(&minusOne), 4),
            0u);

  EXPECT_EQ(GetPrinterDataEx(printer.h, u"UBidiData", u"Model", &type, nullptr, 0, &needed), DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(needed, 10u);
  char16_t text[5];
  ASSERT_EQ(GetPrinterDataEx(printer.h, u"UBidiData", u"Model", &type, reinterpret_cast<uint8_t*>(text), sizeof text,
                             &needed),
            0u);
  EXPECT_EQ(type, kRegSz);
  EXPECT_EQ(std::u16string(text), u"LX-9");
  EXPECT_EQ(GetPrinterDataEx(printer.h, u"UBidiData", u"Nope", &type, nullptr, 0, &needed), 2u);

  ASSERT_EQ(EnumPrinterDataEx(printer.h, u"UBidiData", nullptr, 0, &needed, &count), DWORD{ERROR_MORE_DATA});
  std::vector<uint8_t> buffer(needed);
  EXPECT_EQ(EnumPrinterDataEx(printer.h, u"UBidiData", buffer.data(), needed - 1, &needed, &count),
            DWORD{ERROR_MORE_DATA});
  ASSERT_EQ(EnumPrinterDataEx(printer.h, u"UBidiData", buffer.data(), needed, &needed, &count), 0u);
  ASSERT_EQ(count, 2u);
  // What the entries hold is read back through the print-data cache
  // (PrintDataCache.*); here, that it all lies within the buffer.
  auto* entries = reinterpret_cast<PrinterEnumValue*>(buffer.data());
  for (DWORD i = 0; i < count; ++i) {
    EXPECT_GE(entries[i].data, buffer.data());
    EXPECT_LE(entries[i].data + entries[i].dataBytes, buffer.data() + buffer.size());
  }

  // Unknown and closed handles, missing names.
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
    ASSERT_EQ(SetText(printer.h, u"v", u"1"), 0u);
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

}  // namespace
