// The simulator's only output besides the ready line: one line per request and per
// lifecycle event, to standard error or to the file named by --log.
#pragma once

#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

namespace PrinterSim {

class AccessLog {
 public:
  // Appends to `file`, or writes to standard error when `file` is empty.
  bool Open(const std::string& file, std::string& error);

  // Writes "<UTC time> <line>\n" and flushes, so the bench can show the log of a
  // simulator that was killed.
  void Write(const std::string& line);

 private:
  struct Closer {
    void operator()(std::FILE* f) const { std::fclose(f); }
  };

  std::mutex mutex_;
  std::unique_ptr<std::FILE, Closer> owned_;
  std::FILE* out_ = stderr;
};

}  // namespace PrinterSim
