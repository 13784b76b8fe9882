// A counter per hive root that every write of the store moves, kept in a small
// file under the root and mapped shared, so that a process notices another's
// change with one atomic load instead of reading the store again.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "platform/registry.h"

namespace Norvane::Registry {

// The counter of the hive's current root (the root is created when missing).
// Never null: when no root can be had, a counter of this process alone.
// Resolving costs a stat; hold on to the result between checks.
const std::atomic<uint64_t>* ChangeCounter(Hive hive);

// Moves the counter of the hive whose root holds the key directory.
void NoteStoreChanged(const std::string& keyDirectory);

}  // namespace Norvane::Registry
