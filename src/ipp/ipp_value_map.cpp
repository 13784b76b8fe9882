#include "ipp/ipp_value_map.h"

#include <algorithm>
#include <cstring>

namespace Norvane {

void IppValueMap::Clear() {
  arena_.clear();
  entries_.clear();
  runs_.clear();
}

void IppValueMap::Reserve(size_t responseBytes) {
  // A typical response, not a worst case: names and values are copied once
  // (integers grow a little as decimal text, markers add some), and printers
  // send an attribute value per twenty-odd bytes. Anything beyond grows.
  arena_.reserve(responseBytes + 256);
  entries_.reserve(responseBytes / 20 + 16);
  runs_.reserve(responseBytes / 40 + 16);
}

std::string_view IppValueMap::AddOctetStringText(std::string_view text) {
  auto offset = static_cast<uint32_t>(arena_.size());
  arena_.append(text);
  // memchr finds the few separators of a long value far faster than a test of
  // every byte.
  char* begin = arena_.data() + offset;
  char* end = begin + text.size();
  for (char separator : {'=', ';'}) {
    for (char* p = begin; (p = static_cast<char*>(std::memchr(p, separator, static_cast<size_t>(end - p)))) != nullptr;
         ++p) {
      *p = ',';
    }
  }
  Push(Kind::kText, offset, static_cast<uint32_t>(text.size()));
  return {arena_.data() + offset, text.size()};
}

std::vector<std::string_view> IppValueMap::Names() const {
  std::vector<std::string_view> names;
  for (const Run& run : runs_) {
    std::string_view name = NameOf(run);
    if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
  }
  return names;
}

size_t IppValueMap::MemoryUsage() const {
  return arena_.capacity() + entries_.capacity() * sizeof(Entry) + runs_.capacity() * sizeof(Run);
}

}  // namespace Norvane
