#pragma once

#include <string>

#include "norvane/datamap.h"

namespace Norvane {

// The key under which an item's value is asked for and stored: "prefix:name",
// or the name alone when the item has no prefix.
std::u16string ItemKey(const NvoDataItem& item);

}  // namespace Norvane
