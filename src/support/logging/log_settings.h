// The settings that decide what becomes of a record, and the log files they
// name. Both live in the process-wide parameter block and are only touched
// under its lock.
#pragma once

#include <cstdint>
#include <deque>
#include <string>

namespace QxLogging {

// Options word: the low 16 bits are the file size limit in KiB (0: none).
enum : uint32_t {
  kOptSizeLimitMask = 0xFFFF,
  kOptReplaceOnStart = 0x10000,
  kOptUniqueName = 0x20000,
  kOptDebugger = 0x80000,
  kOptIndent = 0x200000,
  kOptDuration = 0x400000,
  kOptCompactTime = 0x800000,
  kOptDate = 0x1000000,
  kOptTime = 0x2000000,
  kOptProcessId = 0x4000000,
  kOptThreadId = 0x8000000,
  kOptElapsed = 0x10000000,
  kOptCounterAndLine = 0x20000000,
};

// Category bits beyond the ones scopes use (see log.h).
enum : uint32_t {
  kLevelMask = 0x0F,
  kHeader = 0x40000000,
  kToDebugger = 0x8000000,
  kCreateModuleKey = 0x1000000,
};

// One per distinct configured file name, shared by every settings record that
// names it, kept until the parameter block ends.
struct CLogFile {
  std::string configured;  // the name as configured, references expanded
  std::string name;        // after the first start: the path actually written
  bool startPending = true;
  uint32_t size = 0;   // bytes as known after the last write
  std::string indent;  // one per file, not per thread
  // UTF-16LE lines waiting while the file cannot be opened, oldest first.
  std::deque<std::string> queued;
  // Kept open between lines and reopened when the path names another file
  // (rotated, replaced or deleted by someone else).
  int fd = -1;
  uint64_t device = 0;
  uint64_t inode = 0;
  uint64_t pathCheckedMs = 0;  // when the name last led to the open file
  std::string bytes;           // the line being appended, kept for its capacity

  CLogFile() = default;
  CLogFile(const CLogFile&) = delete;
  CLogFile& operator=(const CLogFile&) = delete;
  ~CLogFile() { CloseKept(); }
  void CloseKept();
};

struct CLogSettings {
  uint64_t stamp = 0;  // source-file records: last-write time of their key
  uint32_t infoLevel = 0;
  uint32_t categories = 0;
  uint32_t options = 0;
  CLogFile* file = nullptr;
  bool startPending = true;  // stands in for the file's flag when there is none

  bool StartPending() const { return file != nullptr ? file->startPending : startPending; }
  // Whether a record that passes the filter can reach any output. The
  // external monitor is checked separately.
  bool HasOutput() const {
    return (file != nullptr && !file->configured.empty()) || (options & kOptDebugger) != 0 ||
           (categories & kToDebugger) != 0;
  }
};

}  // namespace QxLogging
