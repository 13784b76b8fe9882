#include "access_log.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>

namespace PrinterSim {

bool AccessLog::Open(const std::string& file, std::string& error) {
  if (file.empty()) return true;
  std::FILE* f = std::fopen(file.c_str(), "a");
  if (!f) {
    error = "cannot open log " + file + ": " + std::strerror(errno);
    return false;
  }
  std::lock_guard lock(mutex_);
  owned_.reset(f);
  out_ = f;
  return true;
}

void AccessLog::Write(const std::string& line) {
  using namespace std::chrono;
  const auto now = system_clock::now();
  const std::time_t seconds = system_clock::to_time_t(now);
  const auto millis = duration_cast<milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%S", &parts);

  std::lock_guard lock(mutex_);
  std::fprintf(out_, "%s.%03dZ %s\n", stamp, static_cast<int>(millis), line.c_str());
  std::fflush(out_);
}

}  // namespace PrinterSim
