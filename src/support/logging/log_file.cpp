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
#include "platform/unique_fd.h"
#include "support/logging/process_facts.h"
#include "support/string_utils.h"

namespace QxLogging {

namespace {

// Opens for appending, remembering which file the descriptor holds.
bool OpenKept(CLogFile* file, const std::string& name) {
  file->CloseKept();
  int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  struct stat st {};
  if (fstat(fd, &st) != 0) {
    int error = errno;
    close(fd);
    errno = error;
    return false;
  }
  file->fd = fd;
  file->device = st.st_dev;
  file->inode = st.st_ino;
  file->pathCheckedMs = 0;
  return true;
}

// Takes the file for this line: cooperating writers (this library in other
// processes) hold an exclusive flock while they append. On success the file
// is locked and, when `needLength`, *length is its size (nobody else appends
// while we hold the lock). Whether the name still leads to the open file is
// checked at most every kPathCheckMs: a system call per line is most of a
// line's cost, and a line or two written into a just rotated file is the
// usual price of keeping a log open.
bool LockForLine(CLogFile* file, const std::string& name, bool needLength, uint64_t* length) {
  uint64_t first = TickCountMillis();
  for (;;) {
    if (file->fd < 0 && !OpenKept(file, name)) return false;
    if (flock(file->fd, LOCK_EX | LOCK_NB) == 0) {
      uint64_t now = TickCountMillis();
      struct stat st {};
      if (file->pathCheckedMs == 0 || now - file->pathCheckedMs >= kPathCheckMs) {
        if (stat(name.c_str(), &st) != 0 || st.st_dev != file->device || st.st_ino != file->inode) {
          // Rotated, replaced or deleted since: the name wins.
          file->CloseKept();
          continue;
        }
        file->pathCheckedMs = now;
      } else if (needLength && fstat(file->fd, &st) != 0) {
        st.st_size = 0;
      }
      *length = static_cast<uint64_t>(st.st_size);
      return true;
    }
    if (errno != EWOULDBLOCK) {
      int error = errno;
      file->CloseKept();
      errno = error;
      return false;
    }
    if (TickCountMillis() - first >= static_cast<uint64_t>(kOpenRetryTotalMs)) {
      errno = EWOULDBLOCK;
      return false;
    }
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

void CLogFile::CloseKept() {
  if (fd >= 0) close(fd);
  fd = -1;
}

std::string ToUtf16Le(const std::string& text) {
  std::string bytes;
  ToUtf16Le(text, &bytes);
  return bytes;
}

void ToUtf16Le(const std::string& text, std::string* bytes) {
  // Log lines are mostly ASCII: widen those bytes directly.
  bool ascii = true;
  for (char c : text) ascii = ascii && static_cast<unsigned char>(c) < 0x80;
  if (ascii) {
    bytes->assign(text.size() * 2, '\0');
    for (size_t i = 0; i < text.size(); ++i) (*bytes)[2 * i] = text[i];
    return;
  }
  std::u16string wide = QxUtils::Utf8ToWide(std::string_view(text));
  bytes->clear();
  bytes->reserve(wide.size() * 2);
  for (char16_t unit : wide) {
    bytes->push_back(static_cast<char>(unit & 0xFF));
    bytes->push_back(static_cast<char>(unit >> 8));
  }
}

bool StartLogFile(CLogFile* file, uint32_t options) {
  file->CloseKept();
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
  Norvane::UniqueFd fd(open(target.c_str(), flags, 0644));
  if (fd.get() < 0) return false;
  char resolved[PATH_MAX];
  file->name = realpath(target.c_str(), resolved) != nullptr ? std::string(resolved) : target;
  // What the file already holds is learnt at the first line: when another
  // process filled it to the limit, that line writes the limit marker.
  file->size = 0;
  return true;
}

AppendResult AppendLogLine(CLogFile* file, uint32_t options, const std::string& line, const std::string& moduleName) {
  const uint64_t limit = static_cast<uint64_t>(options & kOptSizeLimitMask) * 1024u;
  if (limit != 0 && file->size >= limit) return AppendResult::Dropped;
  const std::string& name = file->name.empty() ? file->configured : file->name;
  std::string& bytes = file->bytes;
  ToUtf16Le(line, &bytes);
  uint64_t length = 0;
  if (!LockForLine(file, name, limit != 0, &length)) {
    int error = errno;
    Queue(file, bytes);
    ReportOpenFailure(name, error);
    return AppendResult::Queued;
  }
  const int fd = file->fd;
  AppendResult result = AppendResult::Dropped;
  if (limit == 0 || length < limit) {
    if (!file->queued.empty()) {
      file->queued.push_back(ToUtf16Le("--- Queued Lines End ---\r\n"));
      for (const std::string& queued : file->queued) {
        if (Norvane::WriteAll(fd, queued)) length += queued.size();
      }
      file->queued.clear();
    }
    if (Norvane::WriteAll(fd, bytes)) {
      length += bytes.size();
      result = AppendResult::Written;
    }
  }
  if (limit != 0 && length >= limit) {
    Norvane::WriteAll(fd, ToUtf16Le("*** FILE SIZE LIMIT REACHED, LOGGING DISABLED FOR " + moduleName + " MODULE ***"));
    result = AppendResult::LimitReached;
    if ((options & kOptReplaceOnStart) && (options & kOptUniqueName)) {
      file->startPending = true;
      length = 0;
    }
  }
  flock(fd, LOCK_UN);
  if (file->startPending) file->CloseKept();
  file->size = static_cast<uint32_t>(length > UINT32_MAX ? UINT32_MAX : length);
  return result;
}

}  // namespace QxLogging
