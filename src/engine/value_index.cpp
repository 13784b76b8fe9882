#include "engine/value_index.h"

#include <algorithm>
#include <cstring>
#include <functional>

namespace Norvane {

namespace {

uint64_t HashOf(std::u16string_view key) { return std::hash<std::u16string_view>{}(key); }

}  // namespace

void ValueIndex::Clear() {
  slots_.clear();
  entries_.clear();
  built_ = false;
}

void ValueIndex::Build(const ValueTable& table) {
  Clear();
  entries_.reserve(table.size());
  Reserve(table.size());
  for (const auto& [key, value] : table) Append(HashOf(key), key, &value);
  built_ = true;
}

void ValueIndex::Add(const std::u16string& key, const CachedValue* value) {
  const uint64_t hash = HashOf(key);
  const uint32_t tag = static_cast<uint32_t>(hash >> 32);
  // A key already indexed (the table replaced its value) keeps its entry.
  if (!slots_.empty()) {
    const size_t mask = slots_.size() - 1;
    for (size_t at = hash & mask; slots_[at] != 0; at = (at + 1) & mask) {
      if (static_cast<uint32_t>(slots_[at] >> 32) != tag) continue;
      Entry& entry = entries_[static_cast<uint32_t>(slots_[at]) - 1];
      if (*entry.key == key) {
        entry.value = value;
        return;
      }
    }
  }
  Reserve(entries_.size() + 1);
  Append(hash, key, value);
}

void ValueIndex::Append(uint64_t hash, const std::u16string& key, const CachedValue* value) {
  Entry entry{value, &key, static_cast<uint32_t>(key.size()), {}};
  std::memcpy(entry.head, key.data(), std::min(key.size(), kInlineUnits) * sizeof(char16_t));
  entries_.push_back(entry);
  Place(hash, static_cast<uint32_t>(entries_.size()));
}

// At most half the slots in use, so probe runs stay short.
void ValueIndex::Reserve(size_t entries) {
  size_t wanted = 16;
  while (wanted < 2 * entries) wanted *= 2;
  if (wanted <= slots_.size()) return;
  slots_.assign(wanted, 0);
  for (uint32_t i = 0; i < entries_.size(); ++i) Place(HashOf(*entries_[i].key), i + 1);
}

void ValueIndex::Place(uint64_t hash, uint32_t entry) {
  const size_t mask = slots_.size() - 1;
  size_t at = hash & mask;
  while (slots_[at] != 0) at = (at + 1) & mask;
  slots_[at] = (hash >> 32 << 32) | entry;
}

const CachedValue* ValueIndex::Find(std::u16string_view key) const {
  if (slots_.empty()) return nullptr;
  const uint64_t hash = HashOf(key);
  const uint32_t tag = static_cast<uint32_t>(hash >> 32);
  const size_t mask = slots_.size() - 1;
  const size_t inlined = std::min(key.size(), kInlineUnits);
  for (size_t at = hash & mask;; at = (at + 1) & mask) {
    const Slot slot = slots_[at];
    if (slot == 0) return nullptr;
    if (static_cast<uint32_t>(slot >> 32) != tag) continue;
    const Entry& entry = entries_[static_cast<uint32_t>(slot) - 1];
    if (entry.length != key.size()) continue;
    if (std::memcmp(entry.head, key.data(), inlined * sizeof(char16_t)) != 0) continue;
    if (key.size() <= kInlineUnits ||
        key.substr(kInlineUnits) == std::u16string_view(*entry.key).substr(kInlineUnits)) {
      return entry.value;
    }
  }
}

}  // namespace Norvane
