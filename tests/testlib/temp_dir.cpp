#include "testlib/temp_dir.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace NorvaneTest {

TempDir::TempDir() {
  std::string tmpl = (std::filesystem::temp_directory_path() / "norvane-test-XXXXXX").string();
  if (mkdtemp(tmpl.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = tmpl;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

ScopedRegistryRoot::ScopedRegistryRoot() { setenv("NORVANE_REGISTRY_DIR", dir_.Path().c_str(), 1); }

ScopedRegistryRoot::~ScopedRegistryRoot() { unsetenv("NORVANE_REGISTRY_DIR"); }

}  // namespace NorvaneTest
