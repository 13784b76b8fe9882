// Decoding real printer responses.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "ipp/ipp_operations.h"
#include "ipp_test_util.h"

namespace {

using namespace IppTest;
using Norvane::IPPOperations;

// Values read from real printers' answers, beyond those the tool's capture
// bench shows (tests/integration/cli/cli_captures.sh). Each answer is read as
// IPP/2.0: one IPP/1.1 printer's, relabelled (only 2.x is read without the
// hosts' field compatibility), holds the deepest collection of the captures.
// What the tool makes of these answers as they are, the malformed ones
// included, is cli_captures.sh's.
TEST(IppCaptures, ValuesOfRealPrinters) {
  const std::string epson = "python-ipp__get-printer-attributes-epsonxp6000.bin";
  const std::string colorLaser = "SharpIppNext__GetPrinterAttributes_HP_Color_LaserJet_MFP_M476dn.bin";
  struct Case {
    std::string file;
    const char* key;
    const char* expected;
  } cases[] = {
      {epson, "printer-state-reasons", "marker-supply-low-warning"},
      {epson, "marker-names", "Photo Black ink,Cyan ink,Magenta ink,Yellow ink,Black ink"},
      {epson, "printer-alert.code", "other"},
      {epson, "media-col-ready.COL2.media-type", "photographic"},
      {epson, "media-col-ready[1].media-source", "photo"},
      {epson, "media-col-ready[media-source=photo].media-size.x-dimension", "10160"},
      {"ipp-client-kotlin__Xerox_B210_Printer__001-Get-Printer-Attributes.res", "printer-state-message",
       "Printer is ready to print."},
      {"ipp-client-kotlin__Xerox_B210_Printer__printer-stopped-toner-empty.res", "printer-state", "5"},
      // Names with a language are read past.
      {"python-ipp__get-printer-attributes-brother-mfcj5320dw.bin", "marker-names", "<vt 0>"},
      {"python-ipp__get-printer-attributes-hp6830.bin", "printer-alert.severity", "other"},
      {"python-ipp__get-printer-attributes-kyocera-ecosys-m2540dn-001.bin", "status-code", "1"},  // partial success
      {"python-ipp__get-jobs-kyocera-ecosys-m2540dn-000.bin", "job-name", "Microsoft Word - \xD0\xA2\xD0\xA1\xD0\x94"},
      // job-constraints-supported / media-col / media-size.
      {colorLaser, "job-constraints-supported[0].media-col.media-size.y-dimension", "34036"},
  };
  for (const Case& c : cases) {
    std::string bytes = ReadFile(std::string(NORVANE_IPP_CAPTURES_DIR) + "/" + c.file);
    ASSERT_GT(bytes.size(), 8u) << c.file;
    bytes[0] = 2, bytes[1] = 0;
    IPPOperations ops(nullptr);
    ASSERT_EQ(Decode(ops, bytes), S_OK) << c.file;
    // A key of the decoded map, or a collection query when it holds '['.
    OwnedVariant value;
    bool query = std::strchr(c.key, '[') != nullptr;
    EXPECT_TRUE(query ? ops.QueryCollection(c.key, &value.v) : ops.GetValueFromIPPMap(c.key, &value.v) == 1) << c.key;
    EXPECT_EQ(Text(value.v), c.expected) << c.file << " " << c.key;
  }
}

}  // namespace
