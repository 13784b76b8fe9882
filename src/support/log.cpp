#include "support/log.h"

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <vector>

#include "norvane/platform.h"
#include "support/logging/process_facts.h"
#include "support/logging/record_writer.h"
#include "support/resolver_utils.h"
#include "support/string_utils.h"
#include "support/win32_exception.h"

namespace QxLogging {

namespace {

// The release date of this library, fixed like the modules' build times so
// that the header reads the same for every build of one release (and builds
// stay reproducible) instead of carrying the compiler's clock.
constexpr const char* kLibraryBuildDate = "Aug 16 2019";

}  // namespace

CLogModule::CLogModule(const char* name, const char* buildTime)
    : name_(name != nullptr ? name : ""), buildTime_(buildTime != nullptr ? buildTime : "") {
  try {
    AttachConfiguredWriter(this, std::string(kLibraryBuildDate) + " " + buildTime_);
  } catch (...) {
    SetConfiguredMask(0);
  }
}

CLogModule::~CLogModule() {
  SetConfiguredMask(0);
  DetachConfiguredWriter(this);
}

void CLogModule::UpdateGateNoLock() {
  gate_.store(configured_.load(std::memory_order_relaxed) | (hasWriter_ ? ~0u : 0u), std::memory_order_relaxed);
}

void CLogModule::SetConfiguredMask(uint32_t mask) {
  std::lock_guard<std::mutex> lock(gateMutex_);
  configured_.store(mask, std::memory_order_relaxed);
  UpdateGateNoLock();
}

std::shared_ptr<ILogWriter> CLogModule::SetWriter(std::shared_ptr<ILogWriter> writer) {
  std::lock_guard<std::mutex> lock(mutex_);
  {
    std::lock_guard<std::mutex> gate(gateMutex_);
    hasWriter_ = writer != nullptr;
    UpdateGateNoLock();
  }
  writer_.swap(writer);
  return writer;
}

bool CLogModule::Wants(uint32_t category, const CLogSourceFile* file) const {
  if (!MayWant(category)) return false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (writer_ != nullptr && writer_->Wants(category)) return true;
  }
  if ((configured_.load(std::memory_order_relaxed) & category) == 0 && !RefreshDue()) return false;
  return ConfiguredWants(this, file != nullptr ? std::string_view(file->Name()) : std::string_view(), category);
}

void CLogModule::Write(const LogRecord& record) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    try {
      if (writer_ != nullptr && writer_->Wants(record.category)) writer_->Write(*this, record);
      // The attached writer sees a scope's error text as a record of its own.
      if (writer_ != nullptr && (record.category & kExit) != 0 && record.errorCode != 0 && writer_->Wants(kErrorText)) {
        std::string text = QxUtils::WideToUtf8(QxUtils::FormatErrorText(record.errorCode));
        LogRecord error = record;
        error.category = kErrorText;
        error.text = text;
        error.errorCode = 0;
        writer_->Write(*this, error);
      }
    } catch (...) {
      // A writer's failure is never the caller's.
    }
  }
  // A mask from before a due refresh may be stale: an attached writer that
  // wanted the record must not keep the configured one from its refresh.
  if ((configured_.load(std::memory_order_relaxed) & record.category) != 0 || RefreshDue()) {
    ConfiguredWrite(this, record);
  }
}

CLogModule& NorvaneDM() {
  static CLogModule module("NorvaneDM", "04:15:05");
  return module;
}

CLogModule& Utils() {
  static CLogModule module("Utils", "04:14:10");
  return module;
}

CLogModule& NorvaneResolver() {
  static CLogModule module("NorvaneResolver", "04:14:29");
  return module;
}

CLogModule* FindModule(std::string_view name) {
  if (name == "NorvaneDM") return &NorvaneDM();
  if (name == "Utils") return &Utils();
  if (name == "NorvaneResolver") return &NorvaneResolver();
  return nullptr;
}

CLogSourceFile::CLogSourceFile(const char* path) {
  std::string_view p = path != nullptr ? path : "";
  size_t slash = p.find_last_of("/\\");
  if (slash != std::string_view::npos) p.remove_prefix(slash + 1);
  name_.reserve(p.size());
  for (char c : p) name_.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
}

CLastErrorRestore::CLastErrorRestore() : saved_(GetLastError()) {}

CLastErrorRestore::~CLastErrorRestore() { SetLastError(saved_); }

void SplitFunctionName(std::string_view function, std::string* className, std::string* displayName) {
  constexpr size_t kMaxName = 255;
  std::string copy;
  int depth = 0;
  for (char c : function) {
    if (c == '<') {
      ++depth;
    } else if (c == '>') {
      if (depth > 0) --depth;
    } else if (depth == 0) {
      if (copy.size() == kMaxName) break;
      copy.push_back(c);
    }
  }
  std::vector<size_t> starts;
  if (!copy.empty() && copy[0] != ':') starts.push_back(0);
  for (size_t i = 0; i + 1 < copy.size(); ++i) {
    if (copy[i] == ':' && copy[i + 1] == ':') {
      starts.push_back(i + 2);
      ++i;
    }
  }
  className->clear();
  displayName->clear();
  if (starts.size() >= 2) {
    size_t from = starts[starts.size() - 2];
    size_t classEnd = starts.back() - 2;
    *className = copy.substr(from, classEnd - from);
    *displayName = copy.substr(from);
  } else if (starts.size() == 1) {
    *displayName = copy.substr(starts[0]);
  }
}

void CLogFunction::EnterSlow() {
  CLastErrorRestore keep;
  try {
    startMicros_ = MonotonicMicros();
    if (Enabled(kEntry)) Emit(kEntry, line_, DisplayName());
  } catch (...) {
  }
}

void CLogFunction::ExitSlow() {
  CLastErrorRestore keep;
  try {
    if (!Enabled(kExit) && !(errorCode_ != 0 && Enabled(kErrorText))) return;
    if (QxUtils::CWin32Exception::LiveCount() > 0) {
      Emit(kExit, 0, DisplayName() + "   *** UNHANDLED EXCEPTION PENDING ***");
    } else {
      Emit(kExit, 0, DisplayName());
    }
  } catch (...) {
  }
}

const std::string& CLogFunction::DisplayName() {
  if (!displayReady_) {
    SplitFunctionName(function_, &className_, &displayName_);
    displayReady_ = true;
  }
  return displayName_;
}

void CLogFunction::Emit(uint32_t category, int line, std::string_view text) {
  line_ = line;
  LogRecord record{category,
                   line,
                   function_,
                   DisplayName(),
                   file_ != nullptr ? std::string_view(file_->Name()) : std::string_view(),
                   text,
                   className_,
                   0,
                   0,
                   startMicros_};
  if (category & kExit) {
    record.errorCode = errorCode_;
    record.exceptionState = exceptionState_;
  }
  module_->Write(record);
}

void CLogFunction::Format(uint32_t category, int line, const char* format, ...) {
  line_ = line;
  if (!MayLog(category)) return;
  CLastErrorRestore keep;
  if (!Enabled(category) || format == nullptr) return;
  try {
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    int n = std::vsnprintf(nullptr, 0, format, args);
    va_end(args);
    std::string text;
    if (n > 0) {
      text.resize(static_cast<size_t>(n));
      std::vsnprintf(text.data(), text.size() + 1, format, again);
    }
    va_end(again);
    Emit(category, line, text);
  } catch (...) {
  }
}

void CLogFunction::Message(uint32_t category, int line, std::string_view text, bool complete) {
  CLastErrorRestore keep;
  line_ = line;
  try {
    if (!complete) {
      pending_.append(text);
      return;
    }
    if (!Enabled(category)) {
      pending_.clear();
      return;
    }
    if (pending_.empty()) {
      Emit(category, line, text);
    } else {
      pending_.append(text);
      std::string joined;
      joined.swap(pending_);
      Emit(category, line, joined);
    }
  } catch (...) {
  }
}

}  // namespace QxLogging
