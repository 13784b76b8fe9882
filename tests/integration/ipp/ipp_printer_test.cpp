// A request encoded by the library, carried by the reference host transport to
// ippeveprinter, and its answer decoded by the library.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "ipp/ipp_operations.h"
#include "norvane/host.h"
#include "support/string_utils.h"
#include "../bench_env.h"
#include "unit/ipp/ipp_test_util.h"

namespace {

using IppTest::Text;
using Norvane::IPPOperations;

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

}  // namespace
