// Just enough ELF to find one section by name. Every offset read from the file is
// checked against the file's size before use.
#include <elf.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "support/file_version_info.h"

namespace QxUtils {

namespace {

constexpr size_t kMaxFileBytes = 512u * 1024 * 1024;

bool InRange(uint64_t offset, uint64_t length, uint64_t size) { return offset <= size && length <= size - offset; }

template <class Ehdr, class Shdr>
bool FindSection(const std::string& file, const char* name, std::string* out) {
  if (file.size() < sizeof(Ehdr)) return false;
  Ehdr eh;
  std::memcpy(&eh, file.data(), sizeof eh);
  if (eh.e_shentsize != sizeof(Shdr) || eh.e_shnum == 0) return false;
  uint64_t tableBytes = static_cast<uint64_t>(eh.e_shnum) * sizeof(Shdr);
  if (!InRange(eh.e_shoff, tableBytes, file.size())) return false;
  if (eh.e_shstrndx >= eh.e_shnum) return false;
  auto section = [&](size_t i) {
    Shdr sh;
    std::memcpy(&sh, file.data() + eh.e_shoff + i * sizeof(Shdr), sizeof sh);
    return sh;
  };
  Shdr names = section(eh.e_shstrndx);
  if (names.sh_type == SHT_NOBITS || !InRange(names.sh_offset, names.sh_size, file.size())) return false;
  std::string_view table(file.data() + names.sh_offset, names.sh_size);
  size_t wanted = std::strlen(name);
  for (size_t i = 0; i < eh.e_shnum; ++i) {
    Shdr sh = section(i);
    if (sh.sh_name >= table.size()) continue;
    std::string_view candidate = table.substr(sh.sh_name);
    size_t end = candidate.find('\0');
    if (end == std::string_view::npos) continue;
    if (end != wanted || candidate.compare(0, end, name) != 0) continue;
    if (sh.sh_type == SHT_NOBITS || !InRange(sh.sh_offset, sh.sh_size, file.size())) return false;
    out->assign(file.data() + sh.sh_offset, sh.sh_size);
    return true;
  }
  return false;
}

}  // namespace

bool ReadElfSection(const char* path, const char* name, std::string* bytes) {
  if (path == nullptr || name == nullptr || bytes == nullptr) return false;
  try {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    in.seekg(0, std::ios::end);
    std::streamoff size = in.tellg();
    if (size < EI_NIDENT || static_cast<uint64_t>(size) > kMaxFileBytes) return false;
    in.seekg(0);
    std::string file(static_cast<size_t>(size), '\0');
    if (!in.read(file.data(), size)) return false;
    if (std::memcmp(file.data(), ELFMAG, SELFMAG) != 0) return false;
    if (file[EI_DATA] != ELFDATA2LSB) return false;
    if (file[EI_CLASS] == ELFCLASS64) return FindSection<Elf64_Ehdr, Elf64_Shdr>(file, name, bytes);
    if (file[EI_CLASS] == ELFCLASS32) return FindSection<Elf32_Ehdr, Elf32_Shdr>(file, name, bytes);
    return false;
  } catch (...) {
    return false;
  }
}

}  // namespace QxUtils
