#include "support/logging/process_facts.h"

#include <pthread.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>

namespace QxLogging {

std::string ExecutablePath() {
  std::string buffer(4096, '\0');
  ssize_t n = readlink("/proc/self/exe", buffer.data(), buffer.size());
  if (n <= 0 || static_cast<size_t>(n) >= buffer.size()) return std::string();
  buffer.resize(static_cast<size_t>(n));
  return buffer;
}

std::string ExecutableBaseName() {
  std::string path = ExecutablePath();
  if (path.empty()) return program_invocation_short_name != nullptr ? program_invocation_short_name : "";
  size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string ProcessCommandLine() {
  std::ifstream in("/proc/self/cmdline", std::ios::binary);
  std::string raw((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  while (!raw.empty() && raw.back() == '\0') raw.pop_back();
  for (char& c : raw) {
    if (c == '\0') c = ' ';
  }
  return raw;
}

namespace {

// Every log line shows the process and thread ids, and each asks the kernel:
// they are kept per thread and asked again only in the child of a fork.
std::atomic<unsigned> g_forks{0};

unsigned ForkGeneration() {
  static const bool registered = pthread_atfork(nullptr, nullptr, [] { g_forks.fetch_add(1); }) == 0;
  (void)registered;
  return g_forks.load(std::memory_order_relaxed);
}

struct ThreadIds {
  unsigned generation = ~0u;
  std::string processId;
  uint32_t threadId = 0;
};

const ThreadIds& CurrentIds() {
  thread_local ThreadIds ids;
  unsigned generation = ForkGeneration();
  if (ids.generation != generation) {
    char text[32];
    std::snprintf(text, sizeof text, "[%ld] ", static_cast<long>(getpid()));
    ids.processId = text;
    ids.threadId = static_cast<uint32_t>(syscall(SYS_gettid));
    ids.generation = generation;
  }
  return ids;
}

}  // namespace

const std::string& ProcessIdText() { return CurrentIds().processId; }

uint32_t CurrentThreadId() { return CurrentIds().threadId; }

uint64_t MonotonicMicros() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<uint64_t>(ts.tv_sec) * 1000000u + static_cast<uint64_t>(ts.tv_nsec) / 1000u;
}

// Millisecond waits and intervals need no finer clock than the tick, and the
// coarse clock costs a fraction of a full read; it is also the clock the
// modules' gates compare their refresh deadlines with.
uint64_t TickCountMillis() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &ts);
  return static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u;
}

namespace {

bool MakeDirectories(const std::string& path) {
  for (size_t i = 1; i <= path.size(); ++i) {
    if (i == path.size() || path[i] == '/') {
      std::string part = path.substr(0, i);
      if (mkdir(part.c_str(), 0700) != 0 && errno != EEXIST) return false;
    }
  }
  return true;
}

bool IsNameChar(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
}

}  // namespace

std::string LogFolder() {
  std::string base;
  if (const char* state = std::getenv("XDG_STATE_HOME"); state != nullptr && *state == '/') {
    base = state;
  } else if (const char* home = std::getenv("HOME"); home != nullptr && *home == '/') {
    base = std::string(home) + "/.local/state";
  }
  if (!base.empty()) {
    std::string folder = base + "/norvane/logs";
    if (MakeDirectories(folder)) return folder;
  }
  return "/tmp";
}

std::string ExpandEnvironmentReferences(const std::string& text) {
  std::string out;
  size_t i = 0;
  while (i < text.size()) {
    char c = text[i];
    size_t nameStart = 0, nameEnd = 0, refEnd = 0;
    if (c == '$' && i + 1 < text.size() && text[i + 1] == '{') {
      size_t close = text.find('}', i + 2);
      if (close != std::string::npos && close > i + 2) {
        nameStart = i + 2, nameEnd = close, refEnd = close + 1;
      }
    } else if (c == '$') {
      size_t j = i + 1;
      while (j < text.size() && IsNameChar(text[j])) ++j;
      if (j > i + 1) nameStart = i + 1, nameEnd = j, refEnd = j;
    } else if (c == '%') {
      size_t j = i + 1;
      while (j < text.size() && IsNameChar(text[j])) ++j;
      if (j < text.size() && text[j] == '%' && j > i + 1) nameStart = i + 1, nameEnd = j, refEnd = j + 1;
    }
    if (refEnd != 0) {
      std::string name = text.substr(nameStart, nameEnd - nameStart);
      if (const char* value = std::getenv(name.c_str()); value != nullptr) {
        out += value;
        i = refEnd;
        continue;
      }
      // Unset: keep the reference as written and go on after it.
      out.append(text, i, refEnd - i);
      i = refEnd;
      continue;
    }
    out.push_back(c);
    ++i;
  }
  return out;
}

}  // namespace QxLogging
