// A hash index over a value table for lookups by key. The table is a tree
// kept in key order for the caches that save it; finding one key there
// compares the long shared key prefixes ("dev:Supply...") at every level and
// reads a scattered node per level.
//
// The index is two arrays. The slots, at most half full, hold a piece of
// each key's hash and the number of its entry: eight bytes each, so that the
// slots of a large table still fit the processor's nearer caches. The
// entries, one cache line each and packed, hold the value and the start of
// the key itself, so a hit reads one slot, one entry and the value, and
// compares no key outside the index unless the key is long.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "norvane/values.h"

namespace Norvane {

class ValueIndex {
 public:
  bool Built() const { return built_; }
  void Build(const ValueTable& table);
  void Clear();
  // An entry the table just gained; the table's nodes never move, so the
  // key and value stay where they are until erased (then Clear).
  void Add(const std::u16string& key, const CachedValue* value);
  const CachedValue* Find(std::u16string_view key) const;

 private:
  static constexpr size_t kInlineUnits = 22;
  struct alignas(64) Entry {
    const CachedValue* value;
    const std::u16string* key;
    uint32_t length;
    char16_t head[kInlineUnits];
  };
  // High half: the hash's upper 32 bits; low half: entry number + 1 (0: free).
  using Slot = uint64_t;

  void Reserve(size_t entries);
  void Append(uint64_t hash, const std::u16string& key, const CachedValue* value);
  void Place(uint64_t hash, uint32_t entry);

  std::vector<Slot> slots_;
  std::vector<Entry> entries_;
  bool built_ = false;
};

}  // namespace Norvane
