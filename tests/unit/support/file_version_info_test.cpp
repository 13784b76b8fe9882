#include "support/file_version_info.h"

#include <elf.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "support/string_utils.h"
#include "testlib/temp_dir.h"
#include "version_resource.h"

namespace {

using NorvaneBuild::VersionResource;
using NorvaneBuild::WriteVersionResource;
using QxUtils::CFileVersionInfo;

std::string Narrow(const char16_t* text) { return text == nullptr ? "<null>" : QxUtils::WideToUtf8(text); }

TEST(FileVersionInfo, LastTranslationHoldingTheNameWinsInTheTranslationTablesOrder) {
  VersionResource r;
  r.major = 3;
  r.minor = 1;
  r.tables.push_back({0x0409, 0x04b0, {{"FileVersion", "1.0 english"}, {"CompanyName", "First"}}});
  r.tables.push_back({0x0407, 0x04e4, {{"FileVersion", "1.0 deutsch"}, {"ProductName", "Only here"}}});
  std::string resource = WriteVersionResource(r);
  CFileVersionInfo info(reinterpret_cast<const uint8_t*>(resource.data()), resource.size());
  EXPECT_EQ(info.TranslationCount(), 2u);
  EXPECT_EQ(Narrow(info.GetFileVersion()), "1.0 deutsch");
  EXPECT_EQ(Narrow(info.GetCompanyName()), "First");  // only the first has it
  EXPECT_EQ(Narrow(info.GetProductName()), "Only here");
  EXPECT_EQ(info.GetFileDescription(), nullptr);
  EXPECT_EQ(info.GetString(nullptr), nullptr);
  ASSERT_NE(info.GetFixedInfo(), nullptr);
  EXPECT_EQ(info.GetFixedInfo()->fileVersionMS, 0x00030001u);

  r.translations = {{0x0407, 0x04e4}, {0x0409, 0x04b0}};
  std::string swapped = WriteVersionResource(r);
  EXPECT_EQ(Narrow(CFileVersionInfo(reinterpret_cast<const uint8_t*>(swapped.data()), swapped.size()).GetFileVersion()),
            "1.0 english");

  // Every truncation of the resource, and every single-byte corruption of its
  // header words, either parses or yields nothing: never a read past the end.
  for (size_t n = 0; n < resource.size(); n += 3) {
    CFileVersionInfo cut(reinterpret_cast<const uint8_t*>(resource.data()), n);
    cut.GetFileVersion();
    cut.GetProductName();
  }
  for (size_t at = 0; at < 64; ++at) {
    std::string bad = resource;
    bad[at] = static_cast<char>(0xFF);
    CFileVersionInfo(reinterpret_cast<const uint8_t*>(bad.data()), bad.size()).GetFileVersion();
  }
}

// The library carries its own version; a copy of it cut short or with its
// version section's header pointing past the end yields nothing, and so do
// files without the section.
TEST(FileVersionInfo, TheLibraryCarriesItsOwnVersionAndDamagedOrForeignFilesNone) {
  CFileVersionInfo info(NORVANE_LIBRARY_PATH);
  EXPECT_EQ(Narrow(info.GetFileVersion()), NORVANE_VERSION_STRING);
  EXPECT_EQ(Narrow(info.GetProductName()), "Norvane");
  std::ifstream in(NORVANE_LIBRARY_PATH, std::ios::binary);
  const std::string library{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  NorvaneTest::TempDir dir;
  auto hasResource = [&](const std::string& bytes) {
    std::ofstream(dir.Path() + "/f", std::ios::binary | std::ios::trunc) << bytes;
    return CFileVersionInfo((dir.Path() + "/f").c_str()).HasResource();
  };
  ASSERT_TRUE(hasResource(library));
  for (size_t n : {size_t{8}, size_t{40}, library.size() - 1}) EXPECT_FALSE(hasResource(library.substr(0, n))) << n;
  std::string lying = library;
  Elf64_Ehdr eh;
  std::memcpy(&eh, lying.data(), sizeof eh);
  auto* sections = reinterpret_cast<Elf64_Shdr*>(lying.data() + eh.e_shoff);
  for (size_t i = 0; i < eh.e_shnum; ++i) {
    if (std::strcmp(lying.data() + sections[eh.e_shstrndx].sh_offset + sections[i].sh_name, ".qxversion") == 0) {
      sections[i].sh_size = 1u << 30;
    }
  }
  EXPECT_FALSE(hasResource(lying));
  EXPECT_FALSE(hasResource("just some text, not an executable"));
  EXPECT_FALSE(CFileVersionInfo(NORVANE_TEST_LOG_MONITOR).HasResource());
  EXPECT_FALSE(CFileVersionInfo("/nonexistent/file").HasResource());
  EXPECT_FALSE(CFileVersionInfo(static_cast<const char*>(nullptr)).HasResource());
}

}  // namespace
