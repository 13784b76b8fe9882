#include "ipp/ipp_value_map.h"

#include <algorithm>
#include <charconv>

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

void IppValueMap::BeginName(std::string_view name) {
  auto offset = static_cast<uint32_t>(arena_.size());
  arena_.append(name);
  auto count = static_cast<uint32_t>(entries_.size());
  runs_.push_back({offset, static_cast<uint32_t>(name.size()), count, count});
}

void IppValueMap::Push(Kind kind, uint32_t offset, uint32_t length) {
  // A value before any name belongs to the empty name.
  if (runs_.empty()) BeginName({});
  entries_.push_back({offset, length, kind});
  runs_.back().end = static_cast<uint32_t>(entries_.size());
}

std::string_view IppValueMap::AddText(std::string_view text) {
  auto offset = static_cast<uint32_t>(arena_.size());
  arena_.append(text);
  Push(Kind::kText, offset, static_cast<uint32_t>(text.size()));
  return {arena_.data() + offset, text.size()};
}

std::string_view IppValueMap::AddDecimal(int32_t number) {
  char digits[16];
  auto result = std::to_chars(digits, digits + sizeof digits, number);
  return AddText({digits, static_cast<size_t>(result.ptr - digits)});
}

std::string_view IppValueMap::AddBytes(const uint8_t* bytes, size_t length) {
  auto offset = static_cast<uint32_t>(arena_.size());
  arena_.append(reinterpret_cast<const char*>(bytes), length);
  Push(Kind::kBytes, offset, static_cast<uint32_t>(length));
  return {arena_.data() + offset, length};
}

std::string_view IppValueMap::AddOctetStringText(std::string_view text) {
  auto offset = static_cast<uint32_t>(arena_.size());
  arena_.append(text);
  auto begin = arena_.begin() + offset;
  std::replace_if(begin, arena_.end(), [](char c) { return c == '=' || c == ';'; }, ',');
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
