// Version resources are read from files the library did not write.
#include <cstddef>
#include <cstdint>

#include "support/file_version_info.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  QxUtils::CFileVersionInfo info(data, size);
  info.GetFileVersion();
  info.GetProductName();
  info.GetString("CompanyName");
  return 0;
}
