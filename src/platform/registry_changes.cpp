#include "platform/registry_changes.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <mutex>
#include <vector>

#include "platform/unique_fd.h"

namespace Norvane::Registry {

namespace {

constexpr const char* kCounterFile = ".changes";

static_assert(std::atomic<uint64_t>::is_always_lock_free, "the counter is shared between processes");

struct Mapping {
  std::string root;
  dev_t device = 0;
  ino_t inode = 0;
  std::atomic<uint64_t>* counter = nullptr;
};

std::mutex& MappingsLock() {
  static std::mutex lock;
  return lock;
}

// Mappings are never undone: a reader may still hold a counter of a root that
// was replaced. One page per root the process ever used. The table itself is
// never destroyed either: the exit report of live objects logs, and logging
// reads settings, after static destructors may have run.
std::vector<Mapping>& Mappings() {
  static auto* mappings = new std::vector<Mapping>;
  return *mappings;
}

std::atomic<uint64_t>* ProcessLocalCounter() {
  static std::atomic<uint64_t> counter{0};
  return &counter;
}

std::atomic<uint64_t>* MapCounter(const std::string& root) {
  std::error_code ignored;
  std::filesystem::create_directories(root, ignored);
  std::string path = root + "/" + kCounterFile;
  UniqueFd fd(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
  if (!fd.valid()) return nullptr;
  struct stat st {};
  const long page = sysconf(_SC_PAGESIZE);
  // Growing an existing file only adds zeros, so a racing second creator
  // cannot reset a counter already in use.
  bool sized =
      fstat(fd.get(), &st) == 0 && (st.st_size >= page || ftruncate(fd.get(), page) == 0) && fstat(fd.get(), &st) == 0;
  void* at =
      sized ? mmap(nullptr, static_cast<size_t>(page), PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0) : MAP_FAILED;
  fd.Reset();
  if (at == MAP_FAILED) return nullptr;
  std::lock_guard<std::mutex> hold(MappingsLock());
  auto* counter = static_cast<std::atomic<uint64_t>*>(at);
  Mappings().push_back(Mapping{root, st.st_dev, st.st_ino, counter});
  return counter;
}

std::atomic<uint64_t>* CounterOfRoot(const std::string& root) {
  if (root.empty()) return ProcessLocalCounter();
  struct stat st {};
  bool present = stat((root + "/" + kCounterFile).c_str(), &st) == 0;
  {
    std::lock_guard<std::mutex> hold(MappingsLock());
    for (auto it = Mappings().rbegin(); it != Mappings().rend(); ++it) {
      if (it->root == root && present && it->device == st.st_dev && it->inode == st.st_ino) return it->counter;
    }
  }
  std::atomic<uint64_t>* counter = MapCounter(root);
  return counter != nullptr ? counter : ProcessLocalCounter();
}

}  // namespace

const std::atomic<uint64_t>* ChangeCounter(Hive hive) { return CounterOfRoot(HiveRoot(hive)); }

void NoteStoreChanged(const std::string& keyDirectory) {
  for (Hive hive : {Hive::CurrentUser, Hive::LocalMachine}) {
    std::string root = HiveRoot(hive);
    if (root.empty() || keyDirectory.compare(0, root.size(), root) != 0) continue;
    if (keyDirectory.size() != root.size() && keyDirectory[root.size()] != '/') continue;
    CounterOfRoot(root)->fetch_add(1, std::memory_order_release);
    return;
  }
}

}  // namespace Norvane::Registry
