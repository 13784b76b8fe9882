// A request encoded by the library, carried by the reference host transport to
// ippeveprinter, and its answer decoded by the library.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "../bench_env.h"
#include "ipp/ipp_operations.h"
#include "norvane/host.h"
#include "support/ref.h"
#include "support/string_utils.h"
#include "unit/ipp/ipp_test_util.h"

namespace {

using IppTest::OwnedVariant;
using IppTest::Text;

TEST(IppPrinter, GetPrinterAttributesWithTheMediaDatabase) {
  NORVANE_REQUIRE_BENCH();
  auto address = QxUtils::AdoptRef<Norvane::QxNetAddress>(
      CreateNetAddress(QxUtils::Utf8ToWide(NorvaneBench::BenchValue("NORVANE_PRINTER_HOST", "127.0.0.1")).c_str()));
  ASSERT_TRUE(address);
  address->SetPortText(QxUtils::Utf8ToWide(NorvaneBench::BenchValue("NORVANE_IPP_PORT", "631")).c_str());
  Norvane::IPPOperations ops(address.get());
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
  // Plain values of this answer are read through the provider in IppProviderBench.
  OwnedVariant width, a4;
  ASSERT_EQ(ops.ParseIPPResponse(response, &width.v), S_OK);
  EXPECT_EQ(Text(width.v), "21590");  // the first medium is US Letter
  EXPECT_GT(ops.GetCollectionStore().RecordCount(), 5u);
  // The same database searched by a member value.
  EXPECT_TRUE(ops.QueryCollection("media-col-database[media-key=iso_a4_210x297mm].media-size.y-dimension", &a4.v));
  EXPECT_EQ(Text(a4.v), "29700");
}

}  // namespace
