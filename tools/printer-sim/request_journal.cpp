#include "request_journal.h"

namespace PrinterSim {

void RequestJournal::Record(const std::string& path, std::string head, std::string body) {
  std::lock_guard lock(mutex_);
  Entry& entry = entries_[path];
  ++entry.count;
  entry.lastHead = std::move(head);
  entry.lastBody = std::move(body);
}

void RequestJournal::Clear() {
  std::lock_guard lock(mutex_);
  entries_.clear();
}

std::string RequestJournal::Summary() const {
  std::lock_guard lock(mutex_);
  std::string out;
  for (const auto& [path, entry] : entries_) out += std::to_string(entry.count) + " " + path + "\n";
  return out;
}

std::string RequestJournal::Describe(const std::string& path) const {
  std::lock_guard lock(mutex_);
  auto found = entries_.find(path);
  if (found == entries_.end()) return "count: 0\n";
  const Entry& entry = found->second;
  return "count: " + std::to_string(entry.count) + "\n\n" + entry.lastHead + "\n" + entry.lastBody;
}

}  // namespace PrinterSim
