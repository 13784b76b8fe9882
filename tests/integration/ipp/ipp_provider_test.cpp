// The IPP provider and an IPP data collection as a host program sees them:
// only exported functions, the reference host transport, and ippeveprinter.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "../bench_env.h"
#include "norvane/host.h"
#include "norvane/norvane.h"
#include "testlib/temp_dir.h"

namespace {

std::string Text(const VARIANT& v) {
  if (v.vt != VT_BSTR) return "<vt " + std::to_string(v.vt) + ">";
  return std::string(v.bstrVal, v.bstrVal + SysStringLen(v.bstrVal));
}

// Each kind of IPP item, read in this order from one collection with a
// registry cache, which is kept under the identity after the printer's "uuid:".
TEST(IppProviderBench, EachKindOfItemAnswersAndTheCacheIsNamedByTheUuid) {
  NORVANE_REQUIRE_BENCH();
  std::string host = NorvaneBench::BenchValue("NORVANE_PRINTER_HOST", "127.0.0.1");
  Norvane::QxNetAddress* address = CreateNetAddress(std::u16string(host.begin(), host.end()).c_str());
  ASSERT_NE(address, nullptr);
  NorvaneTest::ScopedRegistryRoot registry;
  const char16_t* document =
      u"<DataMaps><IPPDataMap><IPPParams Name='params' ResourceURI='/ipp/print'/>"
      u"<DataItem Name='Model' AttributeID='printer-make-and-model' Command='' JobURI=''/>"
      u"<DataItem Name='State' AttributeID='printer-state' Command='' JobURI='' LifeSpan='100'>"
      u"  <Conversion Equals='3' Value='idle'/></DataItem>"
      u"<DataItem Name='A4Width' Prefix='media'"
      u"  AttributeID='media-col-database[0].media-size.x-dimension' Command='' JobURI=''/>"
      u"<DataItem Name='Accepting' AttributeID='printer-is-accepting-jobs'"
      u"  Command='Get-Printer-Attributes' JobURI='' Transient='true'/>"
      u"<DataItem Name='Absent' AttributeID='no-such-attribute' Command='' JobURI=''/>"
      u"<DataItem Name='Job' AttributeID='job-state' Command='Get-Job-Attributes'"
      u"  JobURI='ipp://127.0.0.1:631/ipp/print/4242' Transient='TRUE'/>"
      u"<DataItem Name='Lazy' AttributeID='queued-job-count' Command='' JobURI='' Transient='TRUE'/>"
      u"<DataItem Name='Bare' AttributeID='printer-info'/>"
      u"<StaticDataItem Name='Vendor'>Norvane</StaticDataItem>"
      u"</IPPDataMap></DataMaps>";
  const struct {
    const char16_t* key;
    HRESULT result;
    std::string text;
  } rows[] = {
      {u"dev:Model", S_OK, "Norvane NX-4100"},
      {u"State", S_OK, "idle"},
      {u"media:A4Width", S_OK, "21590"},  // the first medium is US Letter
      {u"media:A4Width", S_OK, "21590"},
      {u"Accepting", S_OK, "1"},
      {u"Absent", S_OK, "<vt 0>"},  // the printer does not know it, and says so
      {u"Job", E_FAIL, "<vt 0>"},   // no such job
      {u"Lazy", E_FAIL, "<vt 0>"},  // transient with no command: nothing to ask
      {u"Bare", E_FAIL, "<vt 0>"},  // no command or job URI at all
      {u"Unknown", E_FAIL, "<vt 0>"},
      {u"Vendor", S_OK, "Norvane"},
  };
  Norvane::ICacheProvider* cache = CreateRegCacheProvider(u"SOFTWARE\\Norvane\\IppBench");
  Norvane::DataCollection* collection = nullptr;
  ASSERT_EQ(CreateDataCollectionFromXML(address, document, &collection, cache), S_OK);
  for (const auto& row : rows) {
    Norvane::Variant v;
    EXPECT_EQ(SUCCEEDED(collection->GetValue(row.key, v.Ptr())), SUCCEEDED(row.result)) << Text(v.Get());
    EXPECT_EQ(Text(v.Get()), row.text);
  }
  collection->Dispose();
  cache->Dispose();
  Norvane::Variant uuid;
  Norvane::IPPProvider* provider = CreateIPPProvider(address, "/ipp/print");
  ASSERT_NE(provider, nullptr);
  ASSERT_EQ(provider->GetValue("printer-uuid", uuid.Ptr()), S_OK);
  provider->Dispose();
  address->Dispose();
  std::string identity = Text(uuid.Get()).substr(Text(uuid.Get()).find("uuid:") + 5);
  bool found = false;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(registry.Path())) {
    found = found || entry.path().filename() == identity;
  }
  EXPECT_TRUE(found) << identity;
}

}  // namespace
