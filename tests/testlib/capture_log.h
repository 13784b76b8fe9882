// Attaches a writer to the library's log modules and keeps every record, so
// tests can assert what the library traced.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "support/log.h"

namespace NorvaneTest {

struct CapturedRecord {
  std::string module;
  uint32_t category;
  int line;
  std::string function;
  std::string sourceFile;
  std::string text;
};

class CaptureLog {
 public:
  // Captures from all three modules while alive.
  CaptureLog();
  ~CaptureLog();
  CaptureLog(const CaptureLog&) = delete;
  CaptureLog& operator=(const CaptureLog&) = delete;

  std::vector<CapturedRecord> Records() const;
  // Records whose text contains `needle`, optionally of one category.
  std::vector<CapturedRecord> Find(const std::string& needle, uint32_t category = 0) const;
  bool Contains(const std::string& needle, uint32_t category = 0) const;

 private:
  class Writer;
  std::shared_ptr<Writer> writer_;
};

}  // namespace NorvaneTest
