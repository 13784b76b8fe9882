// A scratch directory removed with everything in it at the end of the test, and
// a registry root pointed at it while the test runs.
#pragma once

#include <string>

namespace NorvaneTest {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

// Sets NORVANE_REGISTRY_DIR to a fresh directory for its lifetime.
class ScopedRegistryRoot {
 public:
  ScopedRegistryRoot();
  ~ScopedRegistryRoot();
  const std::string& Path() const { return dir_.Path(); }

 private:
  TempDir dir_;
};

}  // namespace NorvaneTest
