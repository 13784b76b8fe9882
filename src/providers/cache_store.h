// What the two cache providers share: the store format (a value and its
// "<name>.Expires" companion) and the rule that turns a dictionary read from a
// store back into valid table entries.
#pragma once

#include <cstdint>
#include <string>

#include "norvane/cache.h"
#include "norvane/values.h"
#include "platform/registry_format.h"

namespace Norvane::CacheStore {

inline constexpr char16_t kExpiresSuffix[] = u".Expires";

// Appends the store entries of one value to `out`: the value when it is text
// or a 32-bit integer, then its companion with `time` as decimal text. Values
// of other types (a machine integer among them) write only the companion.
// Nothing for an empty name. False, with nothing appended, when the value or
// its companion is more than the store holds.
bool AppendEntries(const std::u16string& name, const VARIANT& value, int64_t time, Registry::ValueList* out);

// Entries of a table that have not expired, ready for one write; false when
// some entry was left out because the store cannot hold it.
bool EntriesOf(const ValueTable& table, Registry::ValueList* entries);

// A store value as the dictionary keeps it: text as a string, a dword as a
// 32-bit integer.
Variant ToVariant(const Registry::Value& value);

// Fills `table` from `dictionary`: a value is used only when the entry right
// after it in name order is its companion. Companion "0" never expires;
// otherwise the lifespan comes from the data map's item of the same key and an
// expired value is left out.
HRESULT FillDataMapSpec(const CacheDictionary& dictionary, DataMapSpec* dataMap, ValueTable* table);

}  // namespace Norvane::CacheStore
