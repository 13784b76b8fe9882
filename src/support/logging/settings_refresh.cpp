#include "support/logging/settings_refresh.h"

#include <cctype>

#include "platform/registry.h"
#include "platform/registry_changes.h"
#include "support/log.h"
#include "support/logging/process_facts.h"
#include "support/string_utils.h"

QX_LOG_SOURCE_FILE()

namespace QxLogging {

namespace {

// The store cannot log for itself (these settings are read from it), so it
// hands what it did of its own accord to the logging.
void LogStoreNotice(const char* text) {
  QX_LOG_FUNCTION(NorvaneDM(), "Norvane::Registry::Notice");
  QX_LOG(kStandout, "%s", text);
}
[[maybe_unused]] const bool kStoreNoticesLogged = (Norvane::Registry::SetNoticeHandler(&LogStoreNotice), true);

using Norvane::Registry::Hive;
using Norvane::Registry::Key;
using Norvane::Registry::Value;
using Norvane::Registry::ValueType;

bool ReadDword(const Key& key, std::u16string_view name, uint32_t* out) {
  Value value;
  if (key.QueryValue(name, &value) != Norvane::Registry::kSuccess || value.type != ValueType::Dword) return false;
  *out = value.dword;
  return true;
}

bool ReadString(const Key& key, std::u16string_view name, std::string* out) {
  Value value;
  if (key.QueryValue(name, &value) != Norvane::Registry::kSuccess || value.type != ValueType::String) return false;
  *out = QxUtils::WideToUtf8(value.text);
  return true;
}

std::string Lower(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

// Reads one key's settings values into a record. For a source-file record an
// empty or missing file name means the module's default file.
void ReadSettingsValues(CLogParameterBlock& block, const Key& key, CLogSettings* record, const CLogSettings* defaults) {
  ReadDword(key, u"LogInfoDetailLevel", &record->infoLevel);
  ReadDword(key, u"LogCategories", &record->categories);
  record->categories |= kLevelMask;
  ReadDword(key, u"LogOptions", &record->options);
  std::string name;
  bool present = ReadString(key, u"LogFileName", &name);
  if (present && !name.empty()) {
    std::string expanded = ExpandEnvironmentReferences(name);
    record->file = expanded.empty() ? nullptr : block.FileNamedLocked(expanded);
  } else if (defaults != nullptr) {
    record->file = defaults->file;
  } else if (present) {
    record->file = nullptr;
  }
}

void ReadMonitorValues(CLogParameterBlock& block, const Key& executableKey) {
  std::string name;
  if (!ReadString(executableKey, u"ExtMonitorCLSID", &name) || name.empty()) return;
  uint32_t flags = 0;
  bool hasFlags = ReadDword(executableKey, u"ExtMonitorFlags", &flags);
  std::string parameterFile;
  ReadString(executableKey, u"ExtMonitorParmFile", &parameterFile);
  block.MonitorLocked().Configure(ExpandEnvironmentReferences(name), flags, hasFlags, parameterFile,
                                  block.ExecutableName());
}

void ReadSourceFileKeys(CLogParameterBlock& block, ModuleState& state, const Key& moduleKey,
                        const std::u16string& modulePath) {
  std::vector<std::u16string> names;
  if (moduleKey.EnumSubkeys(&names) != Norvane::Registry::kSuccess) return;
  std::vector<std::string> seen;
  for (const std::u16string& subkey : names) {
    std::string lower = Lower(QxUtils::WideToUtf8(subkey));
    seen.push_back(lower);
    Key key;
    if (Key::Open(Hive::CurrentUser, modulePath + u"\\" + subkey, &key) != Norvane::Registry::kSuccess) continue;
    uint64_t stamp = 0;
    key.LastWriteTime(&stamp);
    auto found = state.files.find(lower);
    if (found != state.files.end() && stamp <= found->second.stamp) continue;
    // A new record starts as the default record stands now; a known one
    // keeps what it had and takes only its own key's values.
    CLogSettings record = found != state.files.end() ? found->second : state.defaults;
    ReadSettingsValues(block, key, &record, &state.defaults);
    record.stamp = stamp;
    state.files[lower] = record;
  }
  // A removed subkey stops applying, so deleting it switches its file back to
  // the module's settings.
  for (auto it = state.files.begin(); it != state.files.end();) {
    bool present = false;
    for (const auto& name : seen) present = present || name == it->first;
    it = present ? std::next(it) : state.files.erase(it);
  }
}

uint32_t GateMask(CLogParameterBlock& block, const ModuleState& state) {
  bool monitor = block.MonitorLocked().Loaded();
  uint32_t mask = 0;
  if (monitor || state.defaults.HasOutput()) mask |= state.defaults.categories;
  for (const auto& [name, record] : state.files) {
    if (monitor || record.HasOutput()) mask |= record.categories;
  }
  return mask;
}

// Once the default record has started, only the poll interval refreshes, so
// the module stops watching the store.
void WatchWhileStartPending(ModuleState& state) {
  state.module->WatchStoreChanges(state.defaults.StartPending() ? state.storeChanges : nullptr, state.changesSeen);
}

}  // namespace

void RefreshModuleLocked(CLogParameterBlock& block, ModuleState& state) {
  // Read before the store, so that a write racing with this refresh still
  // moves the counter past what is remembered.
  state.storeChanges = Norvane::Registry::ChangeCounter(Hive::CurrentUser);
  state.changesSeen = state.storeChanges->load(std::memory_order_acquire);
  state.lastRefreshMs = TickCountMillis();
  state.refreshDue = false;
  CLogSettings& defaults = state.defaults;
  defaults.infoLevel = defaults.categories = defaults.options = 0;
  defaults.file = nullptr;

  Key root;
  if (Key::Open(Hive::CurrentUser, kLoggingRootKey, &root) == Norvane::Registry::kSuccess) {
    uint32_t seconds = 0;
    if (ReadDword(root, u"LogParmsPollTime", &seconds)) {
      block.SetPollIntervalMsLocked(seconds == 0 ? kDefaultPollMs : seconds * 1000u);
    }
    ReadSettingsValues(block, root, &defaults, nullptr);

    const std::string& executable = block.ExecutableName();
    std::u16string executablePath = std::u16string(kLoggingRootKey) + u"\\" + QxUtils::Utf8ToWide(executable);
    size_t dot = executable.find_last_of('.');
    std::string stem = dot == std::string::npos ? executable : executable.substr(0, dot);
    std::u16string modulePath =
        state.name == stem ? executablePath : executablePath + u"\\" + QxUtils::Utf8ToWide(state.name);

    Key moduleKey;
    if (defaults.categories & kCreateModuleKey) {
      Key::Create(Hive::CurrentUser, modulePath, &moduleKey);
    } else {
      Key::Open(Hive::CurrentUser, modulePath, &moduleKey);
    }
    Key executableKey;
    if (Key::Open(Hive::CurrentUser, executablePath, &executableKey) == Norvane::Registry::kSuccess) {
      ReadSettingsValues(block, executableKey, &defaults, nullptr);
      ReadMonitorValues(block, executableKey);
      if (moduleKey.IsOpen()) {
        if (modulePath != executablePath) ReadSettingsValues(block, moduleKey, &defaults, nullptr);
        ReadSourceFileKeys(block, state, moduleKey, modulePath);
      }
    }
  } else {
    state.files.clear();
  }
  state.lastRefreshMs = TickCountMillis();
  state.module->SetConfiguredMask(GateMask(block, state));
  state.module->SetRefreshDeadline(state.lastRefreshMs + block.PollIntervalMs());
  WatchWhileStartPending(state);
}

const CLogSettings* SelectSettingsLocked(CLogParameterBlock& block, ModuleState& state, std::string_view sourceFile) {
  // While the default record has not started, every record would re-read the
  // settings; the store's change counter says when that could find anything
  // new, so records in between skip the reading.
  bool changed =
      state.storeChanges == nullptr || state.storeChanges->load(std::memory_order_acquire) != state.changesSeen;
  bool due = state.refreshDue || TickCountMillis() - state.lastRefreshMs > block.PollIntervalMs() ||
             (state.defaults.StartPending() && changed);
  if (due) {
    RefreshModuleLocked(block, state);
  } else if (changed) {
    WatchWhileStartPending(state);
  }
  auto found = state.files.find(sourceFile);
  return found != state.files.end() ? &found->second : &state.defaults;
}

}  // namespace QxLogging
