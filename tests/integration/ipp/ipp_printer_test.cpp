// Requests encoded by the library, carried by the reference host transport to
// ippeveprinter, and its answers decoded by the library.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "ipp/ipp_operations.h"
#include "ipp/ipp_request_attributes.h"
#include "ipp/ipp_response_attributes.h"
#include "norvane/host.h"
#include "support/string_utils.h"
#include "../bench_env.h"

namespace {

using Norvane::IPPOperations;

std::string Text(const VARIANT& v) {
  if (v.vt != VT_BSTR) return "<vt " + std::to_string(v.vt) + ">";
  return QxUtils::WideToUtf8(std::u16string_view(v.bstrVal, SysStringLen(v.bstrVal)));
}

class IppPrinter : public ::testing::Test {
 protected:
  void SetUp() override {
    NORVANE_REQUIRE_BENCH();
    address_ = CreateNetAddress(QxUtils::Utf8ToWide(NorvaneBench::BenchValue("NORVANE_PRINTER_HOST", "127.0.0.1")).c_str());
    ASSERT_NE(address_, nullptr);
    address_->SetPortText(QxUtils::Utf8ToWide(NorvaneBench::BenchValue("NORVANE_IPP_PORT", "631")).c_str());
  }
  void TearDown() override {
    if (address_ != nullptr) address_->Dispose();
  }
  std::string Lookup(IPPOperations& ops, const char* key) {
    VARIANT v;
    VariantInit(&v);
    EXPECT_EQ(ops.GetValueFromIPPMap(key, &v), 1) << key;
    std::string text = Text(v);
    VariantClear(&v);
    return text;
  }

  Norvane::QxNetAddress* address_ = nullptr;
};

TEST_F(IppPrinter, GetPrinterAttributesWithTheMediaDatabase) {
  IPPOperations ops(address_);
  ops.SetResourceURI("/ipp/print");
  ops.SetAttributeName("all,media-col-database");
  ops.SetCollectionQueryFlag(1);
  ops.SetCollectionQuery("media-col-database[0].media-size.x-dimension");
  Norvane::HTTPResponse* response = nullptr;
  ASSERT_EQ(ops.SendIPPRequest(Norvane::kIppGetPrinterAttributes, &response, nullptr, false), S_OK)
      << "last error " << GetLastError();
  // Kept for the decoder's tests and benchmark when asked for.
  std::string save = NorvaneBench::BenchValue("NORVANE_IPP_SAVE_RESPONSE", "");
  if (!save.empty()) {
    std::ofstream(save, std::ios::binary)
        .write(reinterpret_cast<const char*>(response->GetBody()), response->GetBodyLength());
  }
  VARIANT width;
  VariantInit(&width);
  ASSERT_EQ(ops.ParseIPPResponse(response, &width), S_OK);
  EXPECT_EQ(Text(width), "21590");  // the first medium is US Letter
  VariantClear(&width);
  EXPECT_EQ(Lookup(ops, "printer-make-and-model"), "Norvane NX-4100");
  EXPECT_EQ(Lookup(ops, "printer-state"), "3");
  EXPECT_GT(ops.GetCollectionStore().RecordCount(), 5u);
  // The same database searched by a member value.
  VARIANT a4;
  VariantInit(&a4);
  EXPECT_TRUE(ops.QueryCollection("media-col-database[media-key=iso_a4_210x297mm].media-size.y-dimension", &a4));
  EXPECT_EQ(Text(a4), "29700");
  VariantClear(&a4);
}

TEST_F(IppPrinter, ChunkedPrintJobIsAcceptedAndAnswered) {
  IPPOperations ops(address_);
  ops.SetResourceURI("/ipp/print");
  Norvane::IPPRequestBase* attributes = Norvane::IPPRequestAttributes::Create();
  attributes->SetRequestingUserName("norvane");
  attributes->SetJobName("chunked");
  Norvane::IPPAttributeStruct format{};
  format.group = Norvane::kIPPOperationGroup;
  format.valueTag = 0x49;
  std::strcpy(format.name, "document-format");
  std::strcpy(format.value.text, "application/pdf");
  attributes->AddIPPRequest(format);

  const std::string pdf =
      "%PDF-1.4\n1 0 obj<</Type/Catalog/Pages 2 0 R>>endobj\n"
      "2 0 obj<</Type/Pages/Kids[3 0 R]/Count 1>>endobj\n"
      "3 0 obj<</Type/Page/Parent 2 0 R/MediaBox[0 0 612 792]>>endobj\n"
      "trailer<</Root 1 0 R>>\n%%EOF\n";
  const size_t half = pdf.size() / 2;
  Norvane::HTTPResponse* response = nullptr;
  ops.SetPrinterFileBufferContent(reinterpret_cast<const uint8_t*>(pdf.data()), static_cast<int32_t>(half));
  ASSERT_EQ(ops.SendPrintJobRequest(&response, attributes, true, 0, 0, false), S_OK);
  std::string rest = pdf.substr(half);
  ops.SetPrinterFileBufferContent(reinterpret_cast<const uint8_t*>(rest.data()), static_cast<int32_t>(rest.size()));
  ASSERT_EQ(ops.SendPrintJobRequest(&response, attributes, true, static_cast<uint32_t>(rest.size()), 0, false), S_OK);
  ASSERT_EQ(ops.SendPrintJobRequest(&response, attributes, true, 0, 0, false), S_OK);
  ASSERT_NE(response, nullptr);
  ASSERT_EQ(ops.ParseIPPResponse(response, nullptr), S_OK);
  Norvane::IPPResponseBase* result = Norvane::IPPResponseAttributes::Create();
  ASSERT_EQ(ops.FormResponseStructure(Norvane::kIppPrintJob, result), S_OK);
  EXPECT_STREQ(result->GetSuccessStatus(), "0");
  EXPECT_GT(result->GetJobID(), 0);
  ASSERT_NE(result->GetJobURI(), nullptr);
  EXPECT_NE(std::string(result->GetJobURI()).find("/ipp/print/"), std::string::npos);
  result->Dispose();
  attributes->Dispose();
}

}  // namespace
