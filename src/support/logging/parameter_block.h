// The process-wide logging parameter block: the settings of every logging
// module, the log files they name and the external monitor. Modules re-read
// their settings every poll interval, on the first record after it. One per process,
// behind one lock, shared by all modules.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "support/logging/ext_monitor.h"
#include "support/logging/log_settings.h"

namespace QxLogging {

class CLogModule;

// What the block keeps for one attached module.
struct ModuleState {
  CLogModule* module = nullptr;
  std::string name;
  std::string builtOn;  // "<build date> <build time>"
  CLogSettings defaults;
  // Per source file (lower-cased base name). Kept per module: a subkey below
  // one module's key says nothing about another module's records.
  std::map<std::string, CLogSettings, std::less<>> files;
  uint64_t lastRefreshMs = 0;
  bool refreshDue = true;
  std::string line;  // the line being written, kept for its capacity
  // The store's change counter and its value when the settings were last read.
  const std::atomic<uint64_t>* storeChanges = nullptr;
  uint64_t changesSeen = 0;
  uint64_t lastLineMicros = 0;
};

constexpr uint32_t kDefaultPollMs = 30000;
constexpr int kBlockLockWaitMs = 50;

class CLogParameterBlock {
 public:
  static CLogParameterBlock& Instance();
  ~CLogParameterBlock();

  // Held around every settings lookup and every line written. Recursive: a
  // monitor plug-in may call back into the library, which logs.
  std::recursive_timed_mutex& Lock() { return lock_; }

  // The calls below expect the caller to hold Lock(), except Attach/Detach
  // and RequestRefresh, which take it.
  ModuleState* Attach(CLogModule* module, const std::string& name, const std::string& builtOn);
  void Detach(CLogModule* module);
  ModuleState* Find(const CLogModule* module);

  // The file object for an expanded name, made on first use.
  CLogFile* FileNamedLocked(const std::string& name);
  CExtMonitor& MonitorLocked() { return monitor_; }
  const std::string& ExecutableName() const { return executableName_; }

  uint32_t PollIntervalMs() const { return pollMs_; }
  void SetPollIntervalMsLocked(uint32_t ms);

  // Makes every module re-read its settings at its next record.
  void RequestRefresh();

 private:
  CLogParameterBlock();
  void MarkAllDueLocked();

  std::recursive_timed_mutex lock_;
  std::string executableName_;
  std::vector<std::unique_ptr<ModuleState>> modules_;
  std::vector<std::unique_ptr<CLogFile>> files_;
  CExtMonitor monitor_;
  uint32_t pollMs_ = kDefaultPollMs;
};

}  // namespace QxLogging
