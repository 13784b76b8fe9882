// Log scopes: every operation opens a CLogFunction, which writes an entry record
// on construction and an exit record on destruction, and messages go through it.
//
// A module has two writers, and both receive every record they want: the
// configured writer (support/logging: settings from the registry, the log file,
// standard error, the external monitor) and, optionally, an attached
// ILogWriter (tests capture records this way). Each module keeps a gate, the
// union of the categories either writer could want; a record outside it is
// dropped before any text is formatted, so tracing costs one atomic load when
// nobody listens. Logging never throws and never changes the thread's
// last-error code.
#pragma once

#include <time.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace QxLogging {

// Category words of a record.
enum : uint32_t {
  kInfo = 0x10,  // plus a detail level 0..15 in the low four bits
  kException = 0x20,
  kStandout = 0x80,
  kEntry = 0x400,
  kExit = 0x800,
  kErrorText = 0x20000000,
};

class CLogModule;

struct LogRecord {
  uint32_t category;
  int line;
  std::string_view function;     // fully qualified, as the scope was opened
  std::string_view displayName;  // class::method part of the function name
  std::string_view sourceFile;   // lower-cased base name
  std::string_view text;
  std::string_view className;  // next-to-last component of the function name
  uint32_t errorCode = 0;      // exit records: the scope's error code
  int exceptionState = 0;      // exit records: 0 none, 2 handled, 3 unhandled
  uint64_t startMicros = 0;    // monotonic microseconds when the scope opened
};

// Receives every record of the modules it is attached to. Calls are serialised
// by the module.
class ILogWriter {
 public:
  virtual ~ILogWriter() = default;
  virtual bool Wants(uint32_t category) const { return category != 0; }
  virtual void Write(const CLogModule& module, const LogRecord& record) = 0;
};

class CLogSourceFile;

class CLogModule {
 public:
  CLogModule(const char* name, const char* buildTime);
  virtual ~CLogModule();
  CLogModule(const CLogModule&) = delete;
  CLogModule& operator=(const CLogModule&) = delete;

  const std::string& Name() const { return name_; }
  const std::string& BuildTime() const { return buildTime_; }

  // Replaces the attached writer; null detaches. Returns the previous one.
  std::shared_ptr<ILogWriter> SetWriter(std::shared_ptr<ILogWriter> writer);
  // The fast test: false means no writer wants any record of `category`.
  // Also true once the settings are due for their periodic re-read, so that
  // logging switched on while the host runs is noticed by the next record: a
  // coarse clock read instead of a thread of our own.
  bool MayWant(uint32_t category) const {
    if ((gate_.load(std::memory_order_relaxed) & category) != 0 || RefreshDue()) return true;
    // A refresh on another thread stores the gate before its new deadline, so
    // a deadline read as not yet due may follow a gate read from before that
    // refresh: the gate is read once more, or the record would be lost.
    return (gate_.load(std::memory_order_acquire) & category) != 0;
  }
  bool RefreshDue() const {
    const std::atomic<uint64_t>* changes = storeChanges_.load(std::memory_order_relaxed);
    if (changes != nullptr &&
        changes->load(std::memory_order_relaxed) != changesSeen_.load(std::memory_order_acquire)) {
      return true;
    }
    return CoarseMillis() >= refreshDeadlineMs_.load(std::memory_order_acquire);
  }
  // When the configured writer next re-reads its settings (monotonic ms).
  void SetRefreshDeadline(uint64_t ms) { refreshDeadlineMs_.store(ms, std::memory_order_release); }
  // A settings store change counter whose move from `seen` makes the next
  // record re-read the settings at once; null: only the deadline does.
  void WatchStoreChanges(const std::atomic<uint64_t>* counter, uint64_t seen) {
    changesSeen_.store(seen, std::memory_order_release);
    storeChanges_.store(counter, std::memory_order_relaxed);
  }
  bool Wants(uint32_t category, const CLogSourceFile* file = nullptr) const;
  void Write(const LogRecord& record);

  // The categories the configured writer could want (all of them while its
  // settings are due for a refresh). Set by the configured writer.
  void SetConfiguredMask(uint32_t mask);

 private:
  void UpdateGateNoLock();

  std::string name_;
  std::string buildTime_;
  mutable std::mutex mutex_;  // the attached writer
  std::shared_ptr<ILogWriter> writer_;
  std::mutex gateMutex_;  // leaf lock: the two masks and the gate
  bool hasWriter_ = false;
  std::atomic<uint32_t> configured_{~0u};
  std::atomic<uint32_t> gate_{~0u};
  std::atomic<uint64_t> refreshDeadlineMs_{0};
  std::atomic<const std::atomic<uint64_t>*> storeChanges_{nullptr};
  std::atomic<uint64_t> changesSeen_{0};

  static uint64_t CoarseMillis() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000u + static_cast<uint64_t>(now.tv_nsec) / 1000000u;
  }
};

// The three modules of the library.
CLogModule& NorvaneDM();
CLogModule& Utils();
CLogModule& NorvaneResolver();
// Looks a module up by name ("NorvaneDM", "Utils", "NorvaneResolver"); null if unknown.
CLogModule* FindModule(std::string_view name);

class CLogSourceFile {
 public:
  explicit CLogSourceFile(const char* path);
  const std::string& Name() const { return name_; }

 private:
  std::string name_;
};

// Keeps the thread's last-error code across logging work.
class CLastErrorRestore {
 public:
  CLastErrorRestore();
  ~CLastErrorRestore();
  CLastErrorRestore(const CLastErrorRestore&) = delete;
  CLastErrorRestore& operator=(const CLastErrorRestore&) = delete;

 private:
  uint32_t saved_;
};

// The class name and display name derived from a function name:
// "Norvane::IPPOperations::SendIPPRequest" gives "IPPOperations" and
// "IPPOperations::SendIPPRequest"; template arguments are dropped.
void SplitFunctionName(std::string_view function, std::string* className, std::string* displayName);

class CLogFunction {
 public:
  // Inline so that a scope nobody listens to costs two atomic loads.
  CLogFunction(CLogModule* module, const CLogSourceFile* file, const char* function, int line)
      : module_(module), file_(file), function_(function != nullptr ? function : ""), line_(line) {
    if (MayLog(kEntry | kExit)) EnterSlow();
  }
  ~CLogFunction() {
    if (MayLog(kExit | kErrorText)) ExitSlow();
  }
  CLogFunction(const CLogFunction&) = delete;
  CLogFunction& operator=(const CLogFunction&) = delete;

  // printf-style message; %s takes UTF-8 text.
  void Format(uint32_t category, int line, const char* format, ...) __attribute__((format(printf, 4, 5)));
  // A piece of a message; incomplete pieces are held and joined with the next.
  void Message(uint32_t category, int line, std::string_view text, bool complete = true);
  // A non-zero code makes the exit record carry its error text.
  void SetErrorCode(uint32_t code) { errorCode_ = code; }
  uint32_t ErrorCode() const { return errorCode_; }
  // 2: the function handled an exception, 3: one left it; shown on the exit record.
  void SetExceptionState(int state) { exceptionState_ = state; }
  int LastLine() const { return line_; }
  // The fast test alone: false means nothing of this category is written.
  bool MayLog(uint32_t category) const { return module_ != nullptr && module_->MayWant(category); }
  bool Enabled(uint32_t category) const {
    return module_ != nullptr && module_->MayWant(category) && module_->Wants(category, file_);
  }

 private:
  void Emit(uint32_t category, int line, std::string_view text);
  const std::string& DisplayName();
  void EnterSlow();
  void ExitSlow();

  CLogModule* module_;
  const CLogSourceFile* file_;
  const char* function_;
  int line_;
  uint32_t errorCode_ = 0;
  int exceptionState_ = 0;
  uint64_t startMicros_ = 0;
  bool displayReady_ = false;
  std::string className_;
  std::string displayName_;
  std::string pending_;
};

}  // namespace QxLogging

// One per source file, at namespace scope.
#define QX_LOG_SOURCE_FILE()                                    \
  namespace {                                                   \
  const ::QxLogging::CLogSourceFile qxLogSourceFile_(__FILE__); \
  }
// Opens the scope of the current function.
#define QX_LOG_FUNCTION(module, name) ::QxLogging::CLogFunction qxLog_(&(module), &qxLogSourceFile_, name, __LINE__)
// The arguments are evaluated only when some writer may want the record.
#define QX_LOG(category, ...) (qxLog_.MayLog(category) ? qxLog_.Format((category), __LINE__, __VA_ARGS__) : void())
