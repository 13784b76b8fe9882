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

// Captures from all three modules while alive.
class CaptureLog {
 public:
  CaptureLog() {
    for (auto* module : Modules()) module->SetWriter(writer_);
  }
  ~CaptureLog() {
    for (auto* module : Modules()) module->SetWriter(nullptr);
  }
  CaptureLog(const CaptureLog&) = delete;
  CaptureLog& operator=(const CaptureLog&) = delete;

  std::vector<CapturedRecord> Records() const {
    std::lock_guard<std::mutex> lock(writer_->mutex);
    return writer_->records;
  }
  // Records whose text contains `needle`, optionally of one category.
  std::vector<CapturedRecord> Find(const std::string& needle, uint32_t category = 0) const {
    std::vector<CapturedRecord> out;
    for (auto& r : Records()) {
      if (r.text.find(needle) != std::string::npos && (category == 0 || r.category == category)) out.push_back(r);
    }
    return out;
  }
  bool Contains(const std::string& needle, uint32_t category = 0) const { return !Find(needle, category).empty(); }

 private:
  struct Writer : QxLogging::ILogWriter {
    void Write(const QxLogging::CLogModule& module, const QxLogging::LogRecord& r) override {
      std::lock_guard<std::mutex> lock(mutex);
      records.push_back(
          {module.Name(), r.category, r.line, std::string(r.function), std::string(r.sourceFile), std::string(r.text)});
    }
    std::mutex mutex;
    std::vector<CapturedRecord> records;
  };
  static std::vector<QxLogging::CLogModule*> Modules() {
    return {&QxLogging::NorvaneDM(), &QxLogging::Utils(), &QxLogging::NorvaneResolver()};
  }
  std::shared_ptr<Writer> writer_ = std::make_shared<Writer>();
};

}  // namespace NorvaneTest
