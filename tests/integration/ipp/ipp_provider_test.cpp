// The IPP provider and an IPP data collection as a host program sees them:
// only exported functions, the reference host transport, and ippeveprinter.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "norvane/host.h"
#include "norvane/norvane.h"
#include "../bench_env.h"

namespace {

std::u16string Wide(const std::string& text) { return std::u16string(text.begin(), text.end()); }

std::string Text(const VARIANT& v) {
  if (v.vt != VT_BSTR) return "<vt " + std::to_string(v.vt) + ">";
  std::string out;
  for (UINT i = 0; i < SysStringLen(v.bstrVal); ++i) out.push_back(static_cast<char>(v.bstrVal[i]));
  return out;
}

struct Value {
  VARIANT v;
  Value() { VariantInit(&v); }
  ~Value() { VariantClear(&v); }
};

class IppProviderBench : public ::testing::Test {
 protected:
  void SetUp() override {
    NORVANE_REQUIRE_BENCH();
    address_ = CreateNetAddress(Wide(NorvaneBench::BenchValue("NORVANE_PRINTER_HOST", "127.0.0.1")).c_str());
    ASSERT_NE(address_, nullptr);
  }
  void TearDown() override {
    if (address_ != nullptr) address_->Dispose();
  }
  Norvane::QxNetAddress* address_ = nullptr;
};

TEST_F(IppProviderBench, PrintProviderAnswersPrinterAttributes) {
  std::u16string uri = Wide(NorvaneBench::BenchValue("NORVANE_IPP_URI", "ipp://127.0.0.1:631/ipp/print"));
  Norvane::IPPProvider* provider = CreateIPPPrintProvider(address_, uri.c_str());
  ASSERT_NE(provider, nullptr) << "last error " << GetLastError();

  Value state;
  EXPECT_EQ(provider->GetValue("printer-state", &state.v), S_OK);
  EXPECT_EQ(Text(state.v), "3");
  // ippeveprinter reports a make and model (-M/-m of the bench): the first
  // alternative answers.
  Value model;
  EXPECT_EQ(provider->GetValue("printer-make-and-model_OR_printer-info", &model.v), S_OK);
  EXPECT_EQ(Text(model.v), "Norvane NX-4100");
  provider->Dispose();

  // The resource-path factory reaches the same printer.
  Norvane::IPPProvider* byPath = CreateIPPProvider(address_, "/ipp/print");
  ASSERT_NE(byPath, nullptr) << "last error " << GetLastError();
  Value accepting;
  EXPECT_EQ(byPath->GetValue("printer-is-accepting-jobs", &accepting.v), S_OK);
  EXPECT_EQ(Text(accepting.v), "1");
  byPath->Dispose();
}

TEST_F(IppProviderBench, DataCollectionReadsStateAndTheMediaDatabase) {
  const char16_t* document =
      u"<DataMaps>"
      u"<IPPDataMap>"
      u"<IPPParams Name='params' ResourceURI='/ipp/print'/>"
      u"<DataItem Name='State' AttributeID='printer-state' Command='' JobURI='' LifeSpan='100'>"
      u"  <Conversion Equals='3' Value='idle'/></DataItem>"
      u"<DataItem Name='A4Width' Prefix='media'"
      u"  AttributeID='media-col-database[0].media-size.x-dimension' Command='' JobURI=''/>"
      u"<DataItem Name='Accepting' AttributeID='printer-is-accepting-jobs'"
      u"  Command='Get-Printer-Attributes' JobURI='' Transient='true'/>"
      u"</IPPDataMap>"
      u"</DataMaps>";
  Norvane::DataCollection* collection = nullptr;
  ASSERT_EQ(CreateDataCollectionFromXML(address_, document, &collection, nullptr), S_OK);
  ASSERT_NE(collection, nullptr);

  Value state, width, again, accepting;
  EXPECT_EQ(collection->GetValue(u"State", &state.v), S_OK);
  EXPECT_EQ(Text(state.v), "idle");
  EXPECT_EQ(collection->GetValue(u"media:A4Width", &width.v), S_OK);
  std::string text = Text(width.v);
  ASSERT_FALSE(text.empty());
  EXPECT_GT(std::atoi(text.c_str()), 0) << text;
  EXPECT_EQ(collection->GetValue(u"media:A4Width", &again.v), S_OK);
  EXPECT_EQ(Text(again.v), text);
  EXPECT_EQ(collection->GetValue(u"Accepting", &accepting.v), S_OK);
  EXPECT_EQ(Text(accepting.v), "1");
  collection->Dispose();
}

}  // namespace
