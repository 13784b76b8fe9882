#include "support/file_version_info.h"

#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "support/string_utils.h"

namespace QxUtils {

namespace {

// Every block: 16-bit total length, 16-bit value length, 16-bit type (1 = text),
// a terminated UTF-16 key, padding to 32 bits, the value, padding, children.
struct Block {
  uint32_t start;
  uint32_t end;      // start + total length, within the parent
  uint32_t valueAt;  // offset of the value
  uint32_t valueBytes;
  uint32_t childrenAt;
  bool isText;
  std::u16string key;
};

uint16_t ReadWord(const uint8_t* p) {
  uint16_t w;
  std::memcpy(&w, p, sizeof w);
  return w;
}

uint32_t Align4(uint32_t offset) { return (offset + 3u) & ~3u; }

bool ParseBlock(const uint8_t* data, uint32_t start, uint32_t limit, Block* block) {
  if (start + 6 > limit) return false;
  uint32_t total = ReadWord(data + start);
  uint32_t valueLength = ReadWord(data + start + 2);
  uint32_t type = ReadWord(data + start + 4);
  if (total < 6 || start + total > limit) return false;
  block->start = start;
  block->end = start + total;
  block->isText = type == 1;
  block->key.clear();
  uint32_t at = start + 6;
  for (;;) {
    if (at + 2 > block->end) return false;
    char16_t c = ReadWord(data + at);
    at += 2;
    if (c == 0) break;
    block->key.push_back(c);
  }
  at = Align4(at);
  uint32_t valueBytes = block->isText ? valueLength * 2 : valueLength;
  if (at > block->end || valueBytes > block->end - at) {
    // A value that claims more than the block holds is cut to what is there.
    valueBytes = at > block->end ? 0 : block->end - at;
  }
  block->valueAt = at;
  block->valueBytes = valueBytes;
  block->childrenAt = Align4(at + valueBytes);
  return true;
}

bool FindChild(const uint8_t* data, const Block& parent, std::u16string_view key, Block* out) {
  uint32_t at = parent.childrenAt;
  while (at + 6 <= parent.end) {
    Block child;
    if (!ParseBlock(data, at, parent.end, &child)) return false;
    if (EqualsIgnoreAsciiCase(child.key, key)) {
      *out = child;
      return true;
    }
    uint32_t next = Align4(child.end);
    if (next <= at) return false;
    at = next;
  }
  return false;
}

}  // namespace

CFileVersionInfo::CFileVersionInfo(const char* path) {
  if (path == nullptr) return;
  std::string bytes;
  if (!ReadElfSection(path, kVersionSectionName, &bytes) || bytes.empty() || bytes.size() > 0xFFFF) return;
  buffer_.reset(new (std::nothrow) uint8_t[bytes.size()]);
  if (!buffer_) return;
  std::memcpy(buffer_.get(), bytes.data(), bytes.size());
  size_ = static_cast<uint32_t>(bytes.size());
  Parse();
}

CFileVersionInfo::CFileVersionInfo(const uint8_t* resource, size_t size) {
  if (resource == nullptr || size == 0 || size > 0xFFFF) return;
  buffer_.reset(new (std::nothrow) uint8_t[size]);
  if (!buffer_) return;
  std::memcpy(buffer_.get(), resource, size);
  size_ = static_cast<uint32_t>(size);
  Parse();
}

CFileVersionInfo::~CFileVersionInfo() = default;

void CFileVersionInfo::Parse() {
  const uint8_t* value = nullptr;
  uint32_t length = 0;
  bool isText = false;
  if (QueryValue(u"\\VarFileInfo\\Translation", &value, &length, &isText) && !isText) {
    translations_ = value;
    translationCount_ = length / 4;
  }
  if (QueryValue(u"\\", &value, &length, &isText) && length >= sizeof(FixedFileInfo) &&
      reinterpret_cast<uintptr_t>(value) % alignof(FixedFileInfo) == 0) {
    fixed_ = reinterpret_cast<const FixedFileInfo*>(value);
  }
}

bool CFileVersionInfo::QueryValue(const std::u16string& path, const uint8_t** value, uint32_t* length,
                                  bool* isText) const {
  if (!buffer_) return false;
  Block current;
  if (!ParseBlock(buffer_.get(), 0, size_, &current)) return false;
  size_t at = 0;
  while (at < path.size()) {
    if (path[at] == u'\\') {
      ++at;
      continue;
    }
    size_t end = path.find(u'\\', at);
    if (end == std::u16string::npos) end = path.size();
    Block child;
    if (!FindChild(buffer_.get(), current, std::u16string_view(path).substr(at, end - at), &child)) return false;
    current = child;
    at = end;
  }
  *value = buffer_.get() + current.valueAt;
  *length = current.valueBytes;
  *isText = current.isText;
  return true;
}

const char16_t* CFileVersionInfo::GetString(const char* name) {
  if (name == nullptr || !buffer_ || translations_ == nullptr || translationCount_ == 0) return nullptr;
  const char16_t* found = nullptr;
  std::u16string wideName = Utf8ToWide(name);
  for (uint32_t i = 0; i < translationCount_; ++i) {
    uint16_t language = ReadWord(translations_ + i * 4);
    uint16_t codePage = ReadWord(translations_ + i * 4 + 2);
    char table[9];
    std::snprintf(table, sizeof table, "%04x%04x", language, codePage);
    std::u16string path = u"\\StringFileInfo\\" + Utf8ToWide(table) + u"\\" + wideName;
    const uint8_t* value = nullptr;
    uint32_t length = 0;
    bool isText = false;
    if (!QueryValue(path, &value, &length, &isText) || !isText || length < 2) continue;
    // Text values are stored terminated; refuse one that is not, rather than
    // hand out a pointer that runs past the value.
    uint16_t last = ReadWord(value + ((length / 2) - 1) * 2);
    if (last != 0 || reinterpret_cast<uintptr_t>(value) % alignof(char16_t) != 0) continue;
    found = reinterpret_cast<const char16_t*>(value);
  }
  return found;
}

const char16_t* CFileVersionInfo::GetCompanyName() { return GetString("CompanyName"); }
const char16_t* CFileVersionInfo::GetFileDescription() { return GetString("FileDescription"); }
const char16_t* CFileVersionInfo::GetFileVersion() { return GetString("FileVersion"); }
const char16_t* CFileVersionInfo::GetProductName() { return GetString("ProductName"); }
const char16_t* CFileVersionInfo::GetProductVersion() { return GetString("ProductVersion"); }

}  // namespace QxUtils
