// The document-format the print verb sends: signatures of print formats, what
// libmagic adds, and the comparison with the printer's list.
#include "../doc_format.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "../cli.h"

namespace NorvaneCli {
namespace {

std::string Sniff(const std::string& bytes) {
  return SniffPrintFormat(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

TEST(DocFormat, PrintSignatures) {
  struct Case {
    std::string bytes;
    const char* format;
  };
  const Case cases[] = {
      {std::string("RaS2") + std::string(1796, '\0'), "image/pwg-raster"},
      {std::string("UNIRAST\0\0\0\0\1", 12), "image/urf"},
      {std::string("UNIRAST"), ""},  // without its terminating zero it is text
      {"\x1b"
       "E\x1b&l0O",
       "application/vnd.hp-pcl"},
      {"\x1b%-12345X@PJL JOB\r\n@PJL ENTER LANGUAGE = POSTSCRIPT\r\n%!PS", "application/postscript"},
      {"\x1b%-12345X@PJL ENTER LANGUAGE=PDF\n%PDF-1.7", "application/pdf"},
      {"\x1b%-12345X@PJL ENTER LANGUAGE=PCL\n\x1b"
       "E",
       "application/vnd.hp-pcl"},
      {"\x1b%-12345X@PJL JOB NAME=\"x\"\n", "application/vnd.hp-pcl"},
      {"\r\n  ^XA^FO50,50^FDlabel^FS^XZ", "application/vnd.zebra-zpl"},
      {"^XA^FO50,50^FDno end of format", ""},
      {"text that mentions ^XA and ^XZ", ""},
      {"%PDF-1.4", ""},  // libmagic's
      {"", ""},
  };
  for (const Case& c : cases) EXPECT_EQ(Sniff(c.bytes), c.format) << c.bytes;
}

TEST(DocFormat, DetectsFilesThroughLibmagic) {
  // PDF, PNG and ZPL files go through the tool to real printers in the bench's
  // print test.
  const std::string path = ::testing::TempDir() + "/a.ps";
  std::ofstream(path, std::ios::binary) << "%!PS-Adobe-3.0\n%%Pages: 1\nshowpage\n";
  EXPECT_EQ(DetectDocumentFormat(path), "application/postscript");
  std::remove(path.c_str());
  EXPECT_THROW(DetectDocumentFormat(::testing::TempDir() + "/does-not-exist"), Failure);
}

TEST(DocFormat, ComparesWithThePrintersList) {
  const std::string list = "application/octet-stream,image/pwg-raster, application/PDF,image/urf";
  struct Case {
    const char* format;
    bool supported;
  };
  const Case cases[] = {
      {"application/pdf", true}, {"image/urf", true},      {"image/pwg-raster", true},
      {"image/png", false},      {"application/p", false}, {"", false},
  };
  for (const Case& c : cases) EXPECT_EQ(FormatSupported(list, c.format), c.supported) << c.format;
  EXPECT_FALSE(FormatSupported("", "application/pdf"));
}

}  // namespace
}  // namespace NorvaneCli
