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
  used_ = 0;
  built_ = false;
}

void ValueIndex::Build(const ValueTable& table) {
  Clear();
  Reserve(table.size());
  for (const auto& [key, value] : table) Place(HashOf(key), &key, &value);
  built_ = true;
}

void ValueIndex::Add(const std::u16string& key, const CachedValue* value) {
  Reserve(used_ + 1);
  Place(HashOf(key), &key, value);
}

// At most half the slots in use, so probe runs stay short.
void ValueIndex::Reserve(size_t entries) {
  size_t wanted = 16;
  while (wanted < 2 * entries) wanted *= 2;
  if (wanted <= slots_.size()) return;
  std::vector<Slot> old;
  old.swap(slots_);
  slots_.resize(wanted);
  used_ = 0;
  for (const Slot& slot : old) {
    if (slot.key != nullptr) Place(slot.hash, slot.key, slot.value);
  }
}

void ValueIndex::Place(uint64_t hash, const std::u16string* key, const CachedValue* value) {
  const size_t mask = slots_.size() - 1;
  for (size_t at = hash & mask;; at = (at + 1) & mask) {
    Slot& slot = slots_[at];
    if (slot.key == nullptr) {
      slot.hash = hash;
      slot.key = key;
      slot.value = value;
      slot.length = static_cast<uint32_t>(key->size());
      std::memcpy(slot.head, key->data(), std::min(key->size(), kInlineUnits) * sizeof(char16_t));
      ++used_;
      return;
    }
    if (slot.hash == hash && *slot.key == *key) {
      slot.value = value;
      return;
    }
  }
}

const CachedValue* ValueIndex::Find(std::u16string_view key) const {
  if (slots_.empty()) return nullptr;
  const uint64_t hash = HashOf(key);
  const size_t mask = slots_.size() - 1;
  const size_t inlined = std::min(key.size(), kInlineUnits);
  for (size_t at = hash & mask;; at = (at + 1) & mask) {
    const Slot& slot = slots_[at];
    if (slot.key == nullptr) return nullptr;
    if (slot.hash != hash || slot.length != key.size()) continue;
    if (std::memcmp(slot.head, key.data(), inlined * sizeof(char16_t)) != 0) continue;
    if (key.size() <= kInlineUnits || key.substr(kInlineUnits) == std::u16string_view(*slot.key).substr(kInlineUnits)) {
      return slot.value;
    }
  }
}

}  // namespace Norvane
