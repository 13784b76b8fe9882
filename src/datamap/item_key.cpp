#include "datamap/item_key.h"

namespace Norvane {

std::u16string ItemKey(const NvoDataItem& item) {
  std::u16string key;
  const char16_t* prefix = item.GetPrefix();
  if (prefix != nullptr && *prefix != 0) {
    key = prefix;
    key += u':';
  }
  if (item.GetName() != nullptr) key += item.GetName();
  return key;
}

}  // namespace Norvane
