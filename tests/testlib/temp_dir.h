// A scratch directory removed with everything in it at the end of the test, and
// a registry root pointed at it while the test runs.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace NorvaneTest {

class TempDir {
 public:
  TempDir() : path_((std::filesystem::temp_directory_path() / "norvane-test-XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

// Sets NORVANE_REGISTRY_DIR to a fresh directory for its lifetime.
class ScopedRegistryRoot {
 public:
  ScopedRegistryRoot() { setenv("NORVANE_REGISTRY_DIR", dir_.Path().c_str(), 1); }
  ~ScopedRegistryRoot() { unsetenv("NORVANE_REGISTRY_DIR"); }
  const std::string& Path() const { return dir_.Path(); }

 private:
  TempDir dir_;
};

}  // namespace NorvaneTest
