#include "support/logging/log_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "platform/debug_output.h"
#include "platform/sync.h"
#include "support/logging/process_facts.h"
#include "support/string_utils.h"

namespace QxLogging {

namespace {

class Fd {
 public:
  explicit Fd(int fd) : fd_(fd) {}
  ~Fd() {
    if (fd_ >= 0) close(fd_);
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

bool WriteAll(int fd, const std::string& bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

// Opens for appending and takes the file for ourselves: cooperating writers
// (this library in other processes) hold an exclusive flock for one line.
int OpenExclusive(const std::string& name) {
  uint64_t first = TickCountMillis();
  for (;;) {
    int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0) return -1;
    if (flock(fd, LOCK_EX | LOCK_NB) == 0) return fd;
    int error = errno;
    close(fd);
    errno = error;
    if (error != EWOULDBLOCK) return -1;
    if (TickCountMillis() - first >= static_cast<uint64_t>(kOpenRetryTotalMs)) return -1;
    Norvane::SleepMilliseconds(kOpenRetryPauseMs);
  }
}

void Queue(CLogFile* file, std::string line) {
  if (file->queued.empty()) file->queued.push_back(ToUtf16Le("--- Queued Lines Start ---\r\n"));
  if (file->queued.size() < kMaxQueuedLines) file->queued.push_back(std::move(line));
}

void ReportOpenFailure(const std::string& name, int error) {
  std::string note = "Unable to open log file:\n<" + name + ">\n";
  if (error != 0) note += "[errno " + std::to_string(error) + "] " + std::strerror(error);
  note += "\n";
  Norvane::OutputDebugText(note.c_str());
}

}  // namespace

std::string ToUtf16Le(const std::string& text) {
  std::u16string wide = QxUtils::Utf8ToWide(std::string_view(text));
  std::string bytes;
  bytes.reserve(wide.size() * 2);
  for (char16_t unit : wide) {
    bytes.push_back(static_cast<char>(unit & 0xFF));
    bytes.push_back(static_cast<char>(unit >> 8));
  }
  return bytes;
}

bool StartLogFile(CLogFile* file, uint32_t options) {
  std::string target = file->configured;
  if (options & kOptUniqueName) {
    std::string folder, base;
    size_t slash = target.find_last_of('/');
    if (slash == std::string::npos) {
      folder = LogFolder();
      base = target;
    } else {
      folder = target.substr(0, slash == 0 ? 1 : slash);
      base = target.substr(slash + 1);
    }
    // stem-XXXXXX.ext: created atomically, so two processes never share it.
    size_t dot = base.find_last_of('.');
    std::string stem = dot == std::string::npos || dot == 0 ? base : base.substr(0, dot);
    std::string ext = dot == std::string::npos || dot == 0 ? std::string() : base.substr(dot);
    std::string pattern = folder + (folder == "/" ? "" : "/") + stem + "-XXXXXX" + ext;
    int fd = mkostemps(pattern.data(), static_cast<int>(ext.size()), O_CLOEXEC);
    if (fd >= 0) {
      close(fd);
      target = pattern;
    }
  }
  int flags = O_WRONLY | O_CREAT | O_CLOEXEC | ((options & kOptReplaceOnStart) ? O_TRUNC : 0);
  Fd fd(open(target.c_str(), flags, 0644));
  if (fd.get() < 0) return false;
  char resolved[PATH_MAX];
  file->name = realpath(target.c_str(), resolved) != nullptr ? std::string(resolved) : target;
  struct stat st{};
  file->size = fstat(fd.get(), &st) == 0 ? static_cast<uint32_t>(st.st_size) : 0;
  return true;
}

AppendResult AppendLogLine(CLogFile* file, uint32_t options, const std::string& line,
                           const std::string& moduleName) {
  const uint64_t limit = static_cast<uint64_t>(options & kOptSizeLimitMask) * 1024u;
  if (limit != 0 && file->size >= limit) return AppendResult::Dropped;
  const std::string& name = file->name.empty() ? file->configured : file->name;
  std::string bytes = ToUtf16Le(line);
  Fd fd(OpenExclusive(name));
  if (fd.get() < 0) {
    int error = errno;
    Queue(file, std::move(bytes));
    ReportOpenFailure(name, error);
    return AppendResult::Queued;
  }
  struct stat st{};
  uint64_t length = fstat(fd.get(), &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0;
  AppendResult result = AppendResult::Dropped;
  if (limit == 0 || length < limit) {
    if (!file->queued.empty()) {
      file->queued.push_back(ToUtf16Le("--- Queued Lines End ---\r\n"));
      for (const std::string& queued : file->queued) {
        if (WriteAll(fd.get(), queued)) length += queued.size();
      }
      file->queued.clear();
    }
    if (WriteAll(fd.get(), bytes)) {
      length += bytes.size();
      result = AppendResult::Written;
    }
  }
  if (limit != 0 && length >= limit) {
    WriteAll(fd.get(), ToUtf16Le("*** FILE SIZE LIMIT REACHED, LOGGING DISABLED FOR " + moduleName + " MODULE ***"));
    result = AppendResult::LimitReached;
    if ((options & kOptReplaceOnStart) && (options & kOptUniqueName)) {
      file->startPending = true;
      length = 0;
    }
  }
  file->size = static_cast<uint32_t>(length > UINT32_MAX ? UINT32_MAX : length);
  return result;
}

}  // namespace QxLogging
