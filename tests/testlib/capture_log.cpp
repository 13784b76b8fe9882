#include "testlib/capture_log.h"

namespace NorvaneTest {

class CaptureLog::Writer : public QxLogging::ILogWriter {
 public:
  void Write(const QxLogging::CLogModule& module, const QxLogging::LogRecord& r) override {
    std::lock_guard<std::mutex> lock(mutex);
    records.push_back({module.Name(), r.category, r.line, std::string(r.function), std::string(r.sourceFile),
                       std::string(r.text)});
  }
  mutable std::mutex mutex;
  std::vector<CapturedRecord> records;
};

CaptureLog::CaptureLog() : writer_(std::make_shared<Writer>()) {
  QxLogging::NorvaneDM().SetWriter(writer_);
  QxLogging::Utils().SetWriter(writer_);
  QxLogging::NorvaneResolver().SetWriter(writer_);
}

CaptureLog::~CaptureLog() {
  QxLogging::NorvaneDM().SetWriter(nullptr);
  QxLogging::Utils().SetWriter(nullptr);
  QxLogging::NorvaneResolver().SetWriter(nullptr);
}

std::vector<CapturedRecord> CaptureLog::Records() const {
  std::lock_guard<std::mutex> lock(writer_->mutex);
  return writer_->records;
}

std::vector<CapturedRecord> CaptureLog::Find(const std::string& needle, uint32_t category) const {
  std::vector<CapturedRecord> out;
  for (auto& r : Records()) {
    if (r.text.find(needle) != std::string::npos && (category == 0 || r.category == category)) out.push_back(r);
  }
  return out;
}

bool CaptureLog::Contains(const std::string& needle, uint32_t category) const {
  return !Find(needle, category).empty();
}

}  // namespace NorvaneTest
