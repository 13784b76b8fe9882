#include "support/logging/record_writer.h"

#include <chrono>
#include <cinttypes>
#include <cstdio>

#include "platform/debug_output.h"
#include "support/file_version_info.h"
#include "support/log.h"
#include "support/logging/line_format.h"
#include "support/logging/log_file.h"
#include "support/logging/parameter_block.h"
#include "support/logging/process_facts.h"
#include "support/logging/settings_refresh.h"
#include "support/resolver_utils.h"
#include "support/string_utils.h"
#include "support/win32_exception.h"

namespace QxLogging {

namespace {

using BlockLock = std::unique_lock<std::recursive_timed_mutex>;

// The block's lock, or nothing after 50 ms: the record is then dropped.
// The deadline is on the system clock on purpose: a steady-clock wait goes
// through pthread_mutex_clocklock, which thread sanitizers of this toolchain
// do not see, so every logging test would report a false unlock error.
BlockLock TakeBlock(CLogParameterBlock& block) {
  BlockLock lock(block.Lock(), std::defer_lock);
  // Free nearly always: the clock is read only when it is not.
  if (lock.try_lock()) return lock;
  (void)lock.try_lock_until(std::chrono::system_clock::now() + std::chrono::milliseconds(kBlockLockWaitMs));
  return lock;
}

// Standard error shows lines with a plain line feed.
void ToDebugger(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (c != '\r') out.push_back(c);
  }
  Norvane::OutputDebugText(out.c_str());
}

class Writer {
 public:
  Writer(ModuleState& state, const CLogSettings& settings)
      : state_(state), settings_(settings), processId_(ProcessIdText()) {}

  // Prefix, indent, text and line end, to every output the settings ask for.
  void Line(uint32_t bits, int line, const std::string& text) {
    LinePrefixFacts facts =
        CurrentFacts(state_.lastLineMicros, processId_, (settings_.options & (kOptCounterAndLine | kOptElapsed)) != 0);
    // The module's buffer: lines are written one at a time under the block's
    // lock, and a line's text needs no allocation of its own.
    std::string& full = state_.line;
    full.clear();
    AppendLinePrefix(settings_.options, bits, line, facts, &full);
    if (settings_.file != nullptr) full += settings_.file->indent;
    full += text;
    full += "\r\n";
    if ((bits & kToDebugger) != 0 || (settings_.options & kOptDebugger) != 0) ToDebugger(full);
    if (settings_.file != nullptr && !settings_.file->configured.empty()) {
      AppendLogLine(settings_.file, settings_.options, full, state_.name);
    }
    if (settings_.options & kOptElapsed) state_.lastLineMicros = MonotonicMicros();
  }

  void StartIfPending() {
    CLogFile* file = settings_.file;
    if (file == nullptr) {
      if (!state_.defaults.startPending || &settings_ != &state_.defaults) return;
      state_.defaults.startPending = false;
      if (settings_.categories & kHeader) Header(std::string());
      return;
    }
    if (!file->startPending) return;
    StartLogFile(file, settings_.options);
    if (settings_.categories & kHeader) Header(file->name.empty() ? file->configured : file->name);
    file->startPending = false;
  }

 private:
  void Header(const std::string& fileName) {
    std::string exe = ExecutablePath();
    std::string first = "Module File Name: " + exe;
    if (FILE* f = std::fopen(exe.c_str(), "rb"); f != nullptr) {
      if (std::fseek(f, 0, SEEK_END) == 0) {
        long size = std::ftell(f);
        if (size >= 0) first += " (" + std::to_string(size) + " bytes)";
      }
      std::fclose(f);
    }
    QxUtils::CFileVersionInfo version(exe.c_str());
    const char16_t* fileVersion = version.GetFileVersion();
    Line(kHeader, 0, first);
    Line(kHeader, 0, "    Command Line: " + ProcessCommandLine());
    Line(kHeader, 0,
         "    File Version: " +
             (fileVersion != nullptr ? QxUtils::WideToUtf8(fileVersion) : std::string("<no version info>")));
    Line(kHeader, 0, "      Process ID: " + processId_);
    Line(kHeader, 0, "        Built on: " + state_.builtOn);
    Line(kHeader, 0, "   Log File Name: <" + fileName + ">");
  }

  ModuleState& state_;
  const CLogSettings& settings_;
  const std::string& processId_;
};

bool PassesFilter(const CLogSettings& settings, uint32_t category) {
  if ((settings.categories & category) == 0) return false;
  if ((category & kInfo) != 0 && (category & kLevelMask) > settings.infoLevel) return false;
  return true;
}

std::string ErrorLineText(uint32_t code) {
  char prefix[32];
  std::snprintf(prefix, sizeof prefix, "[Err: 0x%08X] ", code);
  return prefix + QxUtils::WideToUtf8(QxUtils::FormatErrorText(code));
}

void WriteLocked(CLogParameterBlock& block, ModuleState& state, const LogRecord& record) {
  const CLogSettings* selected = SelectSettingsLocked(block, state, record.sourceFile);
  if (selected == nullptr || !PassesFilter(*selected, record.category)) return;
  // Settings records are replaced by refreshes, never while a record is
  // written: the block is held throughout.
  const CLogSettings& settings = *selected;
  uint32_t bits = settings.categories & record.category;
  Writer writer(state, settings);
  writer.StartIfPending();
  CLogFile* file = settings.file;
  bool indent = (settings.options & kOptIndent) != 0 && file != nullptr;

  std::string text(record.text);
  if (record.category & kExit) {
    if (settings.options & kOptDuration) {
      char duration[48];
      std::snprintf(duration, sizeof duration, " (Dur: %" PRIu64 " us) ", MonotonicMicros() - record.startMicros);
      text += duration;
    }
    if (record.exceptionState == 2) text += "(handled exception) ";
    if (record.exceptionState == 3) text += "(*unhandled exception*) ";
    if (indent && file->indent.size() >= 2) file->indent.resize(file->indent.size() - 2);
  }
  writer.Line(bits, record.line, text);
  if (record.category & kEntry) {
    if (block.MonitorLocked().Loaded()) {
      block.MonitorLocked().Entered(std::string(record.className), std::string(record.displayName));
    }
    if (indent) file->indent += "  ";
  }
  if (record.category & kExit) {
    if (record.errorCode != 0) writer.Line(settings.categories & kErrorText, 0, ErrorLineText(record.errorCode));
    if (block.MonitorLocked().Loaded()) block.MonitorLocked().Exited(std::string(record.displayName));
  }
}

}  // namespace

void AttachConfiguredWriter(CLogModule* module, const std::string& builtOn) {
  CLogParameterBlock::Instance().Attach(module, module->Name(), builtOn);
}

void DetachConfiguredWriter(CLogModule* module) { CLogParameterBlock::Instance().Detach(module); }

bool ConfiguredWants(const CLogModule* module, std::string_view sourceFile, uint32_t category) {
  try {
    CLogParameterBlock& block = CLogParameterBlock::Instance();
    BlockLock lock = TakeBlock(block);
    if (!lock.owns_lock()) return false;
    ModuleState* state = block.Find(module);
    if (state == nullptr) return false;
    const CLogSettings* settings = SelectSettingsLocked(block, *state, sourceFile);
    if (settings == nullptr || !PassesFilter(*settings, category)) return false;
    return settings->HasOutput() || block.MonitorLocked().Loaded();
  } catch (...) {
    return false;
  }
}

void ConfiguredWrite(const CLogModule* module, const LogRecord& record) {
  CLogParameterBlock& block = CLogParameterBlock::Instance();
  try {
    BlockLock lock = TakeBlock(block);
    if (!lock.owns_lock()) return;
    ModuleState* state = block.Find(module);
    if (state == nullptr) return;
    WriteLocked(block, *state, record);
  } catch (const QxUtils::CWin32Exception& fault) {
    std::string note = "Exception Exit: InternalLogSimpleString (";
    const char16_t* description = fault.GetDescription();
    if (description != nullptr) note += QxUtils::WideToUtf8(description);
    note += ")\n";
    Norvane::OutputDebugText(note.c_str());
  } catch (...) {
    // Dropped: logging never fails its caller.
  }
}

void RefreshLogSettings() { CLogParameterBlock::Instance().RequestRefresh(); }

uint32_t LogPollIntervalMs() {
  CLogParameterBlock& block = CLogParameterBlock::Instance();
  std::lock_guard<std::recursive_timed_mutex> lock(block.Lock());
  return block.PollIntervalMs();
}

}  // namespace QxLogging
