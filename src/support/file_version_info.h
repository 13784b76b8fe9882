// A file's version resource in the VS_VERSIONINFO layout, read from the ELF
// section ".qxversion" that our build embeds. A file without the section (or
// one that is not ELF) has no version information.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace QxUtils {

constexpr const char* kVersionSectionName = ".qxversion";

class AFileVersionInfo {
 public:
  virtual ~AFileVersionInfo() = default;
  virtual const char16_t* GetString(const char* name) = 0;
  virtual const char16_t* GetCompanyName() = 0;
  virtual const char16_t* GetFileDescription() = 0;
  virtual const char16_t* GetFileVersion() = 0;
  virtual const char16_t* GetProductName() = 0;
  virtual const char16_t* GetProductVersion() = 0;
};

// The fixed file-information block, as the resource stores it.
struct FixedFileInfo {
  uint32_t signature;
  uint32_t structVersion;
  uint32_t fileVersionMS;
  uint32_t fileVersionLS;
  uint32_t productVersionMS;
  uint32_t productVersionLS;
  uint32_t fileFlagsMask;
  uint32_t fileFlags;
  uint32_t fileOS;
  uint32_t fileType;
  uint32_t fileSubtype;
  uint32_t fileDateMS;
  uint32_t fileDateLS;
};

class CFileVersionInfo : public AFileVersionInfo {
 public:
  explicit CFileVersionInfo(const char* path);
  // Parses a resource already in memory (the section's bytes).
  CFileVersionInfo(const uint8_t* resource, size_t size);
  ~CFileVersionInfo() override;
  CFileVersionInfo(const CFileVersionInfo&) = delete;
  CFileVersionInfo& operator=(const CFileVersionInfo&) = delete;

  // Value of "\StringFileInfo\<lang><codepage>\<name>" for the last translation
  // that has it; null when there is none. Points into this object.
  const char16_t* GetString(const char* name) override;
  const char16_t* GetCompanyName() override;
  const char16_t* GetFileDescription() override;
  const char16_t* GetFileVersion() override;
  const char16_t* GetProductName() override;
  const char16_t* GetProductVersion() override;

  bool HasResource() const { return buffer_ != nullptr; }
  const FixedFileInfo* GetFixedInfo() const { return fixed_; }
  uint32_t TranslationCount() const { return translationCount_; }

  // Looks a block up by path ("\", "\VarFileInfo\Translation", ...). True when
  // found; value and its size in bytes (characters for text blocks, counted in
  // bytes here) are returned.
  bool QueryValue(const std::u16string& path, const uint8_t** value, uint32_t* length, bool* isText) const;

 private:
  void Parse();

  std::unique_ptr<uint8_t[]> buffer_;
  uint32_t size_ = 0;
  const uint8_t* translations_ = nullptr;
  uint32_t translationCount_ = 0;
  const FixedFileInfo* fixed_ = nullptr;
};

// Reads the bytes of a named section from an ELF file; false when the file is
// unreadable, not ELF, malformed, or has no such section.
bool ReadElfSection(const char* path, const char* section, std::string* bytes);

}  // namespace QxUtils
