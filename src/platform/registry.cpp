#include "platform/registry.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <memory>

#include "platform/clock.h"
#include "platform/registry_changes.h"
#include "platform/unique_fd.h"
#include "platform/utf.h"

namespace Norvane::Registry {

namespace {

constexpr const char* kValueFile = "values.reg";
constexpr const char* kLockFile = ".lock";
constexpr const char* kSetAsidePrefix = "values.reg.unreadable-";
constexpr size_t kMaxComponentBytes = 255;

std::atomic<NoticeHandler> noticeHandler{nullptr};

void Tell(const std::string& notice) {
  if (NoticeHandler handler = noticeHandler.load()) handler(notice.c_str());
}

long FromErrno(int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
      return kNotFound;
    case EACCES:
    case EPERM:
    case EROFS:
      return kAccessDenied;
    default:
      return kGenericFailure;
  }
}

std::string EnvOr(const char* name, const std::string& fallback) {
  const char* v = std::getenv(name);
  return v != nullptr && *v == '/' ? std::string(v) : fallback;
}

bool ValidComponent(const std::string& c) {
  if (c.empty() || c.size() > kMaxComponentBytes || c[0] == '.' || c == kValueFile) return false;
  for (unsigned char ch : c) {
    if (ch == '/' || ch < 0x20 || ch == 0x7F) return false;
  }
  return true;
}

bool IsDirectory(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

int MakeDirectories(const std::string& path) {
  std::string partial;
  size_t at = 0;
  while (at != std::string::npos) {
    at = path.find('/', at + 1);
    partial = path.substr(0, at);
    if (partial.empty()) continue;
    if (mkdir(partial.c_str(), 0755) != 0 && errno != EEXIST) return errno;
  }
  struct stat st {};
  if (stat(path.c_str(), &st) != 0) return errno;
  return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
}

long ReadFile(const std::string& path, std::string* out) {
  UniqueFd f(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (f.get() < 0) return errno == ENOENT ? kNotFound : FromErrno(errno);
  struct stat st {};
  if (fstat(f.get(), &st) != 0) return FromErrno(errno);
  if (!S_ISREG(st.st_mode) || static_cast<uint64_t>(st.st_size) > kMaxFileBytes) return kInvalidData;
  out->clear();
  char buffer[65536];
  for (;;) {
    ssize_t n = read(f.get(), buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return FromErrno(errno);
    if (n == 0) break;
    out->append(buffer, static_cast<size_t>(n));
    if (out->size() > kMaxFileBytes) return kInvalidData;
  }
  return kSuccess;
}

long LoadValues(const std::string& directory, ValueList* values) {
  std::string text;
  long rc = ReadFile(directory + "/" + kValueFile, &text);
  if (rc == kNotFound) {
    values->clear();
    return kSuccess;
  }
  if (rc != kSuccess) return rc;
  return ParseValues(text, values) ? kSuccess : kInvalidData;
}

long ReplaceValueFile(const std::string& directory, const ValueList& values) {
  static std::atomic<unsigned> counter{0};
  std::string tmp =
      directory + "/.values.reg.tmp." + std::to_string(getpid()) + "." + std::to_string(counter.fetch_add(1));
  std::string text = FormatValues(values);
  if (text.size() > kMaxFileBytes) return kNoResources;
  {
    UniqueFd f(open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644));
    if (f.get() < 0) return FromErrno(errno);
    if (!WriteAll(f.get(), text) || fsync(f.get()) != 0) {
      int e = errno;
      unlink(tmp.c_str());
      return FromErrno(e);
    }
  }
  if (rename(tmp.c_str(), (directory + "/" + kValueFile).c_str()) != 0) {
    int e = errno;
    unlink(tmp.c_str());
    return FromErrno(e);
  }
  UniqueFd dir(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (dir.get() >= 0) fsync(dir.get());
  return kSuccess;
}

// Temporary files exist only while their writer holds the key's lock, so any
// found under the lock were left by a writer that died.
void RemoveStaleTemporaries(const std::string& directory) {
  std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(directory.c_str()), closedir);
  if (!dir) return;
  while (dirent* entry = readdir(dir.get())) {
    if (std::string_view(entry->d_name).rfind(".values.reg.tmp.", 0) == 0) {
      unlinkat(dirfd(dir.get()), entry->d_name, 0);
    }
  }
}

// A value file that does not parse (edited by hand, damaged on disk) would
// otherwise block every later write to its key. It is kept for inspection
// under a name that says why, and the key starts afresh. Called under the
// key's lock.
// Says what happened in *notice.
long SetAsideUnreadable(const std::string& directory, std::string* notice) {
  static std::atomic<unsigned> counter{0};
  char stamp[32] = "";
  time_t now = time(nullptr);
  struct tm utc {};
  if (gmtime_r(&now, &utc) != nullptr) strftime(stamp, sizeof stamp, "%Y%m%dT%H%M%SZ", &utc);
  std::string aside = directory + "/" + kSetAsidePrefix + stamp + "-" + std::to_string(getpid()) + "-" +
                      std::to_string(counter.fetch_add(1));
  if (rename((directory + "/" + kValueFile).c_str(), aside.c_str()) != 0) {
    int e = errno;
    *notice = "Unreadable value file in " + directory + " could not be moved aside, error " + std::to_string(e);
    return FromErrno(e);
  }
  *notice = "Unreadable value file moved aside to " + aside + "; the key starts empty";
  return kSuccess;
}

// Splits a key path into its components, refusing any that could name a place
// outside the hive root.
long SplitPath(std::u16string_view path, std::vector<std::u16string>* components) {
  size_t at = 0;
  while (at <= path.size()) {
    size_t end = path.find(u'\\', at);
    if (end == std::u16string_view::npos) end = path.size();
    if (end > at) {
      std::u16string component(path.substr(at, end - at));
      if (!ValidComponent(QxUtils::WideToUtf8(component))) return kInvalidParameter;
      components->push_back(std::move(component));
    }
    at = end + 1;
  }
  return kSuccess;
}

// The name of the subdirectory of `parent` that is `component` ignoring case.
bool FindSubdirectory(const std::string& parent, std::u16string_view component, std::string* found) {
  std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(parent.c_str()), closedir);
  if (!dir) return false;
  while (dirent* entry = readdir(dir.get())) {
    std::string name = entry->d_name;
    if (!ValidComponent(name) || !SameName(QxUtils::Utf8ToWide(std::string_view(name)), component)) continue;
    if (IsDirectory(parent + "/" + name)) {
      *found = std::move(name);
      return true;
    }
  }
  return false;
}

// Key paths ignore case and keep the case a key was created with: each
// component resolves to the existing directory of that name in any case, and
// only a component found in no case is created.
long ResolveKey(Hive hive, std::u16string_view path, bool create, std::string* directory) {
  std::string at = HiveRoot(hive);
  if (at.empty()) return kNotFound;
  std::vector<std::u16string> components;
  long rc = SplitPath(path, &components);
  if (rc != kSuccess) return rc;
  if (create) {
    int e = MakeDirectories(at);
    if (e != 0) return FromErrno(e);
  } else if (!IsDirectory(at)) {
    return kNotFound;
  }
  for (const auto& component : components) {
    std::string exact = at + "/" + QxUtils::WideToUtf8(component);
    std::string found;
    if (IsDirectory(exact)) {
      at = std::move(exact);
      continue;
    }
    if (FindSubdirectory(at, component, &found)) {
      at += "/" + found;
      continue;
    }
    if (!create) return kNotFound;
    // Two creators of one key in different cases must end with one directory.
    UniqueFd parent(open(at.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (parent.get() < 0) return FromErrno(errno);
    while (flock(parent.get(), LOCK_EX) != 0) {
      if (errno != EINTR) return FromErrno(errno);
    }
    if (FindSubdirectory(at, component, &found)) {
      at += "/" + found;
    } else if (mkdir(exact.c_str(), 0755) == 0 || (errno == EEXIST && IsDirectory(exact))) {
      at = std::move(exact);
    } else {
      return errno == EEXIST ? kNotFound : FromErrno(errno);
    }
  }
  *directory = std::move(at);
  return kSuccess;
}

}  // namespace

void SetNoticeHandler(NoticeHandler handler) { noticeHandler.store(handler); }

std::string HiveRoot(Hive hive) {
  const char* base = std::getenv("NORVANE_REGISTRY_DIR");
  if (base != nullptr && *base != 0) {
    return std::string(base) + (hive == Hive::LocalMachine ? "/HKLM" : "/HKCU");
  }
  const char* home = std::getenv("HOME");
  std::string homeDir = home != nullptr && *home == '/' ? home : "";
  if (hive == Hive::LocalMachine) {
    std::string state = EnvOr("XDG_STATE_HOME", homeDir.empty() ? "" : homeDir + "/.local/state");
    return state.empty() ? "" : state + "/norvane/registry";
  }
  std::string config = EnvOr("XDG_CONFIG_HOME", homeDir.empty() ? "" : homeDir + "/.config");
  return config.empty() ? "" : config + "/norvane/registry";
}

long Key::Open(Hive hive, std::u16string_view path, Key* key) {
  std::string dir;
  long rc = ResolveKey(hive, path, false, &dir);
  if (rc == kSuccess) key->directory_ = std::move(dir);
  return rc;
}

long Key::Create(Hive hive, std::u16string_view path, Key* key) {
  std::string dir;
  long rc = ResolveKey(hive, path, true, &dir);
  if (rc == kSuccess) key->directory_ = std::move(dir);
  return rc;
}

long Key::ReadValues(ValueList* values) const {
  if (!IsOpen() || values == nullptr) return kInvalidParameter;
  return LoadValues(directory_, values);
}

long Key::QueryValue(std::u16string_view name, Value* value) const {
  ValueList values;
  long rc = ReadValues(&values);
  if (rc != kSuccess) return rc;
  const Value* found = FindValue(values, name);
  if (found == nullptr) return kNotFound;
  *value = *found;
  return kSuccess;
}

template <class Change>
long Key::Update(Change change) {
  if (!IsOpen()) return kInvalidParameter;
  UniqueFd lock(open((directory_ + "/" + kLockFile).c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
  if (lock.get() < 0) return FromErrno(errno);
  while (flock(lock.get(), LOCK_EX) != 0) {
    if (errno != EINTR) return FromErrno(errno);
  }
  RemoveStaleTemporaries(directory_);
  ValueList values;
  std::string notice;
  long rc = LoadValues(directory_, &values);
  if (rc == kInvalidData) {
    rc = SetAsideUnreadable(directory_, &notice);
    values.clear();
  }
  if (rc == kSuccess) {
    rc = change(&values);
    if (rc == kSuccess) rc = ReplaceValueFile(directory_, values);
  }
  flock(lock.get(), LOCK_UN);
  if (rc == kSuccess) NoteStoreChanged(directory_);
  // Told outside the lock: whoever listens may read this key.
  if (!notice.empty()) Tell(notice);
  return rc;
}

long Key::SetValue(const Value& value) { return SetValues(ValueList{value}); }

long Key::SetValues(const ValueList& updates) {
  for (const auto& v : updates) {
    if (!WithinLimits(v)) return kInvalidParameter;
  }
  return Update([&](ValueList* values) {
    PutValues(values, updates);
    return kSuccess;
  });
}

long Key::DeleteValue(std::u16string_view name) {
  return Update([&](ValueList* values) {
    for (auto it = values->begin(); it != values->end(); ++it) {
      if (SameName(it->name, name)) {
        values->erase(it);
        return kSuccess;
      }
    }
    return kNotFound;
  });
}

long Key::EnumSubkeys(std::vector<std::u16string>* names) const {
  if (!IsOpen() || names == nullptr) return kInvalidParameter;
  names->clear();
  std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(directory_.c_str()), closedir);
  if (!dir) return FromErrno(errno);
  while (dirent* entry = readdir(dir.get())) {
    std::string name = entry->d_name;
    if (!ValidComponent(name)) continue;
    struct stat st {};
    if (lstat((directory_ + "/" + name).c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
      names->push_back(QxUtils::Utf8ToWide(std::string_view(name)));
    }
  }
  std::sort(names->begin(), names->end());
  return kSuccess;
}

long Key::LastWriteTime(uint64_t* fileTime) const {
  if (!IsOpen() || fileTime == nullptr) return kInvalidParameter;
  struct stat st {};
  if (stat((directory_ + "/" + kValueFile).c_str(), &st) != 0 && stat(directory_.c_str(), &st) != 0) {
    return FromErrno(errno);
  }
  *fileTime = (static_cast<uint64_t>(st.st_mtim.tv_sec) + kFileTimeUnixEpochSeconds) * kFileTimeTicksPerSecond +
              static_cast<uint64_t>(st.st_mtim.tv_nsec) / 100;
  return kSuccess;
}

}  // namespace Norvane::Registry
