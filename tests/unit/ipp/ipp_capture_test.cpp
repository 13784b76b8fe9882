// Decoding real printer responses.
#include <gtest/gtest.h>

#include <string>

#include "ipp/ipp_operations.h"
#include "ipp_test_util.h"
#include "norvane/norvane.h"

namespace {

using namespace IppTest;
using Norvane::IPPOperations;

std::string Capture(const std::string& name) {
  std::string bytes = ReadFile(std::string(NORVANE_IPP_CAPTURES_DIR) + "/" + name);
  EXPECT_FALSE(bytes.empty()) << name;
  return bytes;
}

struct Decoded {
  IPPOperations ops{nullptr};
  HRESULT result;
  explicit Decoded(const std::string& bytes) {
    result = ops.ParseIPPContent(reinterpret_cast<const uint8_t*>(bytes.data()), static_cast<uint32_t>(bytes.size()),
                                 nullptr);
  }
  std::string Get(const char* key) {
    VARIANT v;
    VariantInit(&v);
    EXPECT_EQ(ops.GetValueFromIPPMap(key, &v), 1) << key;
    std::string text = Text(v);
    VariantClear(&v);
    return text;
  }
  std::string Query(const char* query) {
    VARIANT v;
    VariantInit(&v);
    EXPECT_TRUE(ops.QueryCollection(query, &v)) << query;
    std::string text = Text(v);
    VariantClear(&v);
    return text;
  }
};

TEST(IppCaptures, EpsonXp6000) {
  Decoded d(Capture("python-ipp__get-printer-attributes-epsonxp6000.bin"));
  ASSERT_EQ(d.result, S_OK);
  EXPECT_EQ(d.Get("printer-state"), "3");
  EXPECT_EQ(d.Get("printer-state-reasons"), "marker-supply-low-warning");
  EXPECT_EQ(d.Get("marker-levels"), "27,99,83,6,64");
  EXPECT_EQ(d.Get("marker-names"), "Photo Black ink,Cyan ink,Magenta ink,Yellow ink,Black ink");
  EXPECT_EQ(d.Get("printer-alert.code"), "other");
  // The second ready medium is the photo tray's.
  EXPECT_EQ(d.Get("media-col-ready.COL2.media-type"), "photographic");
  EXPECT_EQ(d.Query("media-col-ready[1].media-source"), "photo");
  EXPECT_EQ(d.Query("media-col-ready[media-source=photo].media-size.x-dimension"), "10160");
  EXPECT_EQ(d.Query("media-col-ready[0].media-size.y-dimension"), "27940");
}

TEST(IppCaptures, XeroxB210ReadyAndTonerEmpty) {
  Decoded ready(Capture("ipp-client-kotlin__Xerox_B210_Printer__001-Get-Printer-Attributes.res"));
  ASSERT_EQ(ready.result, S_OK);
  EXPECT_EQ(ready.Get("printer-state"), "3");
  EXPECT_EQ(ready.Get("printer-state-reasons"), "none");
  EXPECT_EQ(ready.Get("printer-state-message"), "Printer is ready to print.");
  EXPECT_EQ(ready.Get("marker-levels"), "62");
  EXPECT_EQ(ready.Get("media-col-ready.COL1.media-source"), "tray-1");
  EXPECT_EQ(ready.Query("media-col-ready[media-source=tray-1].media-size.y-dimension"), "29700");

  Decoded empty(Capture("ipp-client-kotlin__Xerox_B210_Printer__printer-stopped-toner-empty.res"));
  ASSERT_EQ(empty.result, S_OK);
  EXPECT_EQ(empty.Get("printer-state"), "5");
  EXPECT_EQ(empty.Get("printer-state-reasons"), "toner-empty-error");
  EXPECT_EQ(empty.Get("marker-levels"), "0");
}

TEST(IppCaptures, TwoInkjets) {
  Decoded multifunction(Capture("python-ipp__get-printer-attributes-brother-mfcj5320dw.bin"));
  ASSERT_EQ(multifunction.result, S_OK);
  EXPECT_EQ(multifunction.Get("printer-state"), "3");
  EXPECT_EQ(multifunction.Get("marker-levels"), "11,9,45,11");
  // Names with a language are read past, so they give no value.
  EXPECT_EQ(multifunction.Get("marker-names"), "<vt 0>");

  Decoded inkjet(Capture("python-ipp__get-printer-attributes-hp6830.bin"));
  ASSERT_EQ(inkjet.result, S_OK);
  EXPECT_EQ(inkjet.Get("printer-state-reasons"), "marker-supply-low-warning");
  EXPECT_EQ(inkjet.Get("marker-levels"), "20,20,20,20");
  EXPECT_EQ(inkjet.Get("printer-alert.severity"), "other");
}

TEST(IppCaptures, LaserPartialSuccessAndGetJobs) {
  Decoded printer(Capture("python-ipp__get-printer-attributes-kyocera-ecosys-m2540dn-001.bin"));
  ASSERT_EQ(printer.result, S_OK);
  EXPECT_EQ(printer.Get("status-code"), "1");
  EXPECT_EQ(printer.Get("printer-state"), "3");

  Decoded jobs(Capture("python-ipp__get-jobs-kyocera-ecosys-m2540dn-000.bin"));
  ASSERT_EQ(jobs.result, S_OK);
  EXPECT_EQ(jobs.Get("job-name"), "Microsoft Word - \xD0\xA2\xD0\xA1\xD0\x94");
  Norvane::IPPResponseBase* response = CreateIPPResponse();
  ASSERT_EQ(jobs.ops.FormResponseStructure(10, response), S_OK);
  EXPECT_EQ(response->GetJobID(), 1000);
  EXPECT_STREQ(response->GetJobURI(), "ipps://mfu00-0365:443/jobs/1000");
  EXPECT_STREQ(response->GetJobState(), "Completed");
  EXPECT_STREQ(response->GetJobStateReasons(), "job-completed-successfully");
  response->Dispose();
}

// ippeveprinter's answer to Get-Printer-Attributes for "all,media-col-database",
// taken from the integration bench.
TEST(IppCaptures, IppEvePrinterWithItsMediaDatabase) {
  Decoded d(ReadFile(NORVANE_SOURCE_DIR "/tests/fixtures/ipp/ippeveprinter-get-printer-attributes-all.bin"));
  ASSERT_EQ(d.result, S_OK);
  EXPECT_EQ(d.Get("printer-state"), "3");
  EXPECT_EQ(d.Get("printer-state-reasons"), "none");
  EXPECT_EQ(d.Get("printer-make-and-model"), "Norvane NX-4100");
  EXPECT_EQ(d.Get("media-col-database.COL3.media-key"), "iso_a4_210x297mm");
  EXPECT_EQ(d.Query("media-col-database[2].media-size.x-dimension"), "21000");
  EXPECT_EQ(d.Query("media-col-database[media-key=iso_dl_110x220mm_by-pass-tray].media-size.y-dimension"), "22000");
  EXPECT_EQ(d.Query("media-col-ready[0].media-key"), "na_letter_8.5x11in_main_stationery");
}

TEST(IppCaptures, Ipp1ResponsesAreRefused) {
  for (const char* name : {"python-ipp__get-printer-attributes-error-0x0503.bin",
                           "ipp-client-kotlin__Xerox_B210_Printer__printer-stopped-media-jam.res",
                           "ipp-client-kotlin__invalidHpNameWithLanguage.response",
                           "ipp-client-kotlin__invalidXeroxMediaCol.response",
                           "ipp-client-kotlin__invalidBrotherMediaTypeSupported.response",
                           "ipp-client-kotlin__CUPS__Cups-Get-Printers.ipp",
                           "SharpIppNext__GetPrinterAttributes_Canon_MX490_series_low_supply.bin",
                           "SharpIppNext__GetPrinterAttributes_HP_Color_LaserJet_MFP_M476dn.bin"}) {
    Decoded d(Capture(name));
    EXPECT_EQ(d.result, E_FAIL) << name;
    EXPECT_TRUE(d.ops.GetValueMap().Empty()) << name;
  }
}

// The same bytes relabelled IPP/2.0: the sound ones decode, the two that
// their printers malformed still fail.
std::string AsIpp2(std::string bytes) {
  bytes[0] = 2;
  bytes[1] = 0;
  return bytes;
}

TEST(IppCaptures, RelabelledIpp1StructuresDecodeAndPrinterBugsStillFail) {
  Decoded jam(AsIpp2(Capture("ipp-client-kotlin__Xerox_B210_Printer__printer-stopped-media-jam.res")));
  ASSERT_EQ(jam.result, S_OK);
  EXPECT_EQ(jam.Get("printer-state-reasons"), "media-jam-error");

  Decoded colorLaser(AsIpp2(Capture("SharpIppNext__GetPrinterAttributes_HP_Color_LaserJet_MFP_M476dn.bin")));
  ASSERT_EQ(colorLaser.result, S_OK);
  // Three levels deep: job-constraints-supported / media-col / media-size.
  EXPECT_EQ(colorLaser.Query("job-constraints-supported[0].media-col.media-size.y-dimension"), "34036");

  Decoded cups(AsIpp2(Capture("ipp-client-kotlin__CUPS__Cups-Get-Printers.ipp")));
  ASSERT_EQ(cups.result, S_OK);
  EXPECT_GT(cups.ops.GetValueMap().ValueCount(), 4000u);

  Decoded multifunction(AsIpp2(Capture("ipp-client-kotlin__invalidBrotherMediaTypeSupported.response")));
  ASSERT_EQ(multifunction.result, S_OK);
  EXPECT_EQ(multifunction.Get("media-type-supported").rfind("labels,roll", 0), 0u);

  for (const char* name : {"ipp-client-kotlin__invalidHpNameWithLanguage.response",
                           "ipp-client-kotlin__invalidXeroxMediaCol.response"}) {
    Decoded broken(AsIpp2(Capture(name)));
    EXPECT_EQ(broken.result, E_FAIL) << name;
  }
}

}  // namespace
