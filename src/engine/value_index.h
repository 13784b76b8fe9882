// A flat hash index over a value table for lookups by key. The table is a
// tree kept in key order for the caches that save it; finding one key there
// compares the long shared key prefixes ("dev:Supply...") at every level and
// reads a scattered node per level. A slot here holds the key's hash, the
// start of the key itself and the entry, so a hit usually costs two reads of
// memory: the slot and the value.
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
  struct Slot {
    uint64_t hash = 0;
    const std::u16string* key = nullptr;  // null: free
    const CachedValue* value = nullptr;
    uint32_t length = 0;
    char16_t head[kInlineUnits];
  };

  void Reserve(size_t entries);
  void Place(uint64_t hash, const std::u16string* key, const CachedValue* value);

  std::vector<Slot> slots_;
  size_t used_ = 0;
  bool built_ = false;
};

}  // namespace Norvane
