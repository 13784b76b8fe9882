#include <elf.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "support/file_version_info.h"
#include "support/string_utils.h"
#include "version_resource.h"

namespace {

using NorvaneBuild::VersionResource;
using NorvaneBuild::WriteVersionResource;
using QxUtils::CFileVersionInfo;

std::string Narrow(const char16_t* text) { return text == nullptr ? "<null>" : QxUtils::WideToUtf8(text); }

// A minimal 64-bit ELF file holding one named section (plus the name table).
std::string MakeElf(const std::string& sectionName, const std::string& payload) {
  std::string names = std::string("\0", 1) + sectionName + '\0' + ".shstrtab" + '\0';
  Elf64_Ehdr eh{};
  std::memcpy(eh.e_ident, ELFMAG, SELFMAG);
  eh.e_ident[EI_CLASS] = ELFCLASS64;
  eh.e_ident[EI_DATA] = ELFDATA2LSB;
  eh.e_ident[EI_VERSION] = EV_CURRENT;
  eh.e_type = ET_REL;
  eh.e_machine = EM_X86_64;
  eh.e_version = EV_CURRENT;
  eh.e_ehsize = sizeof eh;
  eh.e_shentsize = sizeof(Elf64_Shdr);
  eh.e_shnum = 3;
  eh.e_shstrndx = 2;
  size_t payloadAt = sizeof eh;
  size_t namesAt = payloadAt + payload.size();
  eh.e_shoff = (namesAt + names.size() + 7) & ~size_t{7};
  Elf64_Shdr sh[3]{};
  sh[1].sh_name = 1;
  sh[1].sh_type = SHT_PROGBITS;
  sh[1].sh_offset = payloadAt;
  sh[1].sh_size = payload.size();
  sh[2].sh_name = static_cast<uint32_t>(2 + sectionName.size());
  sh[2].sh_type = SHT_STRTAB;
  sh[2].sh_offset = namesAt;
  sh[2].sh_size = names.size();
  std::string file(reinterpret_cast<const char*>(&eh), sizeof eh);
  file += payload;
  file += names;
  file.resize(eh.e_shoff, '\0');
  file.append(reinterpret_cast<const char*>(sh), sizeof sh);
  return file;
}

class TempFile {
 public:
  explicit TempFile(const std::string& bytes) {
    char tmpl[] = "/tmp/norvane-version-XXXXXX";
    int fd = mkstemp(tmpl);
    path_ = tmpl;
    ::write(fd, bytes.data(), bytes.size());
    ::close(fd);
  }
  ~TempFile() { std::remove(path_.c_str()); }
  const char* Path() const { return path_.c_str(); }

 private:
  std::string path_;
};

VersionResource TwoTranslations() {
  VersionResource r;
  r.major = 3;
  r.minor = 1;
  r.tables.push_back({0x0409, 0x04b0, {{"FileVersion", "1.0 english"}, {"CompanyName", "First"}}});
  r.tables.push_back({0x0407, 0x04e4, {{"FileVersion", "1.0 deutsch"}, {"ProductName", "Only here"}}});
  return r;
}

TEST(FileVersionInfo, LastTranslationHoldingTheNameWins) {
  std::string resource = WriteVersionResource(TwoTranslations());
  TempFile file(MakeElf(".qxversion", resource));
  CFileVersionInfo info(file.Path());
  ASSERT_TRUE(info.HasResource());
  EXPECT_EQ(info.TranslationCount(), 2u);
  EXPECT_EQ(Narrow(info.GetFileVersion()), "1.0 deutsch");
  EXPECT_EQ(Narrow(info.GetCompanyName()), "First");  // only the first has it
  EXPECT_EQ(Narrow(info.GetProductName()), "Only here");
  EXPECT_EQ(info.GetFileDescription(), nullptr);
  EXPECT_EQ(info.GetString(nullptr), nullptr);
  ASSERT_NE(info.GetFixedInfo(), nullptr);
  EXPECT_EQ(info.GetFixedInfo()->signature, 0xFEEF04BDu);
  EXPECT_EQ(info.GetFixedInfo()->fileVersionMS, 0x00030001u);
}

TEST(FileVersionInfo, TranslationTableOrderDecidesNotTableOrder) {
  VersionResource r = TwoTranslations();
  r.translations = {{0x0407, 0x04e4}, {0x0409, 0x04b0}};
  CFileVersionInfo info(reinterpret_cast<const uint8_t*>(WriteVersionResource(r).data()),
                        WriteVersionResource(r).size());
  EXPECT_EQ(Narrow(info.GetFileVersion()), "1.0 english");
}

TEST(FileVersionInfo, FilesWithoutTheSectionHaveNoInformation) {
  TempFile other(MakeElf(".data", WriteVersionResource(TwoTranslations())));
  CFileVersionInfo a(other.Path());
  EXPECT_FALSE(a.HasResource());
  EXPECT_EQ(a.GetFileVersion(), nullptr);

  TempFile notElf("just some text, not an executable");
  EXPECT_FALSE(CFileVersionInfo(notElf.Path()).HasResource());
  EXPECT_FALSE(CFileVersionInfo("/nonexistent/file").HasResource());
  EXPECT_FALSE(CFileVersionInfo(static_cast<const char*>(nullptr)).HasResource());
}

TEST(FileVersionInfo, CorruptResourcesAndElfFilesFailCleanly) {
  std::string resource = WriteVersionResource(TwoTranslations());
  // Every truncation of the resource, and every single-byte corruption of its
  // header words, either parses or yields nothing: never a read past the end.
  for (size_t n = 0; n < resource.size(); n += 3) {
    CFileVersionInfo info(reinterpret_cast<const uint8_t*>(resource.data()), n);
    info.GetFileVersion();
    info.GetProductName();
  }
  for (size_t at = 0; at < 64; ++at) {
    std::string bad = resource;
    bad[at] = static_cast<char>(0xFF);
    CFileVersionInfo info(reinterpret_cast<const uint8_t*>(bad.data()), bad.size());
    info.GetFileVersion();
  }
  std::string elf = MakeElf(".qxversion", resource);
  for (size_t n = 0; n < elf.size(); n += 7) {
    TempFile cut(elf.substr(0, n));
    CFileVersionInfo info(cut.Path());
    info.GetFileVersion();
  }
  // A section header pointing beyond the file.
  std::string lying = elf;
  Elf64_Ehdr eh;
  std::memcpy(&eh, lying.data(), sizeof eh);
  Elf64_Shdr sh;
  std::memcpy(&sh, lying.data() + eh.e_shoff + sizeof sh, sizeof sh);
  sh.sh_size = 1u << 30;
  std::memcpy(lying.data() + eh.e_shoff + sizeof sh, &sh, sizeof sh);
  TempFile lie(lying);
  EXPECT_FALSE(CFileVersionInfo(lie.Path()).HasResource());
}

TEST(FileVersionInfo, TheLibraryCarriesItsOwnVersion) {
  CFileVersionInfo info(NORVANE_LIBRARY_PATH);
  ASSERT_TRUE(info.HasResource());
  EXPECT_EQ(Narrow(info.GetFileVersion()), NORVANE_VERSION_STRING);
  EXPECT_EQ(Narrow(info.GetProductName()), "Norvane");
}

}  // namespace
