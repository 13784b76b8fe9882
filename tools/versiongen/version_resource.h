// Writes a version resource in the VS_VERSIONINFO layout. Used by the build to
// embed the library's version and by tests to make resources to read back.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace NorvaneBuild {

struct VersionStringTable {
  uint16_t language;
  uint16_t codePage;
  std::vector<std::pair<std::string, std::string>> strings;  // UTF-8 name, value
};

struct VersionResource {
  uint16_t major = 0, minor = 0, patch = 0, build = 0;
  std::vector<VersionStringTable> tables;
  // The translation list; when empty, one entry per table in table order.
  std::vector<std::pair<uint16_t, uint16_t>> translations;
};

std::string WriteVersionResource(const VersionResource& resource);

}  // namespace NorvaneBuild
