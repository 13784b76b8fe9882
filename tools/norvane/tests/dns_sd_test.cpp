// What the tool takes from a printer's DNS-SD announcement: TXT values come from
// the network, so only plain resource paths become printer URIs.
#include "../dns_sd.h"

#include <gtest/gtest.h>

#include <string>

namespace NorvaneCli {
namespace {

TEST(DnsSd, ResourcePathFromRp) {
  struct Case {
    std::string rp;
    bool plain;
    std::string path;
  };
  const Case cases[] = {
      {"ipp/print", true, "ipp/print"},
      {"/ipp/print", true, "ipp/print"},  // written with its slash by some printers
      {"", true, ""},
      {"printers/Lab_2", true, "printers/Lab_2"},
      {"..", false, ""},
      {"ipp/../../etc", false, ""},
      {"ipp/./print", false, ""},
      {"ipp/print?x=1", false, ""},
      {"ipp/pr%2fint", false, ""},
      {"ipp/print\r\nHost: x", false, ""},
      {std::string("ipp\0x", 5), false, ""},
  };
  for (const auto& c : cases) {
    std::string path = "unchanged";
    EXPECT_EQ(PrinterResourcePath(c.rp, &path), c.plain) << c.rp;
    EXPECT_EQ(path, c.plain ? c.path : "unchanged") << c.rp;
  }
}

TEST(DnsSd, TxtTextIsBoundedAndPrintable) {
  EXPECT_EQ(TxtText("Lab\x1b[2J\x7f", 8), "Lab?[2J?");
  EXPECT_EQ(TxtText(std::string(300, 'a').data(), 300), std::string(255, 'a'));
  EXPECT_EQ(TxtText("a\0b", 3), "a?b");
}

}  // namespace
}  // namespace NorvaneCli
