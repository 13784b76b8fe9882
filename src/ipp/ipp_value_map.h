// The decoded values of one IPP response, by attribute name, in arrival order.
//
// Decoding a printer's answer must not cost an allocation per attribute: every
// name and value lives in one text arena, values are (offset, length) entries,
// and the values of one attribute occurrence form a run. Conversion to UTF-16
// variants happens only when a value is looked up.
//
// Values are stored as the decoder's text notation: integers, enums and
// booleans in decimal, strings as received (UTF-8), octet strings between set
// markers with "=" and ";" turned into ",", the outermost collections between
// set markers with a COLn index, resolutions and ranges as raw bytes.
#pragma once

#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Norvane {

inline constexpr std::string_view kIppSetStart = "IPP_Set_Start";
inline constexpr std::string_view kIppSetEnd = "IPP_Set_End";

class IppValueMap {
 public:
  enum class Kind : uint8_t { kText, kBytes };

  struct Value {
    Kind kind;
    std::string_view data;
  };

  void Clear();
  // Sizes the arena for a response of this many bytes, so that decoding it
  // grows no buffer more than a few times.
  void Reserve(size_t responseBytes);

  // The decoder calls these for every name and value of a response; they are
  // defined here so that they compile into its loop.

  // Starts a new occurrence of `name`; values added later belong to it.
  void BeginName(std::string_view name) {
    auto offset = static_cast<uint32_t>(arena_.size());
    arena_.append(name);
    auto count = static_cast<uint32_t>(entries_.size());
    runs_.push_back({offset, static_cast<uint32_t>(name.size()), count, count});
  }
  // Each adder returns the stored copy, valid until the next change.
  std::string_view AddText(std::string_view text) { return Add(Kind::kText, text); }
  std::string_view AddDecimal(int32_t number) {
    char digits[16];
    auto result = std::to_chars(digits, digits + sizeof digits, number);
    return AddText({digits, static_cast<size_t>(result.ptr - digits)});
  }
  std::string_view AddBytes(const uint8_t* bytes, size_t length) {
    return Add(Kind::kBytes, {reinterpret_cast<const char*>(bytes), length});
  }
  // Appends `text` with every "=" and ";" replaced by ",", as the middle entry
  // of an octet string; returns the stored text.
  std::string_view AddOctetStringText(std::string_view text);

  // Visits every value stored under exactly `name`, in arrival order; the
  // visitor returns false to stop.
  template <class Visitor>
  void ForEachValue(std::string_view name, Visitor&& visit) const {
    for (const Run& run : runs_) {
      if (NameOf(run) != name) continue;
      for (uint32_t i = run.first; i < run.end; ++i) {
        if (!visit(ValueAt(i))) return;
      }
    }
  }
  // Visits every occurrence of `name` (one attribute of the response, such as
  // one job's job-state-reasons in a job list) with its text values, in order.
  template <class Visitor>
  void ForEachOccurrence(std::string_view name, Visitor&& visit) const {
    for (const Run& run : runs_) {
      if (NameOf(run) != name) continue;
      std::vector<std::string_view> values;
      for (uint32_t i = run.first; i < run.end; ++i) {
        Value v = ValueAt(i);
        if (v.kind == Kind::kText && v.data != kIppSetStart && v.data != kIppSetEnd) values.push_back(v.data);
      }
      visit(values);
    }
  }
  // Distinct names in order of first arrival.
  std::vector<std::string_view> Names() const;
  size_t ValueCount() const { return entries_.size(); }
  bool Empty() const { return entries_.empty(); }
  // Bytes held, for the tests that bound a hostile response's footprint.
  size_t MemoryUsage() const;

 private:
  struct Entry {
    uint32_t offset;
    uint32_t length;
    Kind kind;
  };
  struct Run {
    uint32_t nameOffset;
    uint32_t nameLength;
    uint32_t first;
    uint32_t end;
  };

  std::string_view NameOf(const Run& run) const { return {arena_.data() + run.nameOffset, run.nameLength}; }
  Value ValueAt(uint32_t i) const {
    const Entry& e = entries_[i];
    return {e.kind, {arena_.data() + e.offset, e.length}};
  }
  void Push(Kind kind, uint32_t offset, uint32_t length) {
    // A value before any name belongs to the empty name.
    if (runs_.empty()) BeginName({});
    entries_.push_back({offset, length, kind});
    runs_.back().end = static_cast<uint32_t>(entries_.size());
  }
  std::string_view Add(Kind kind, std::string_view bytes) {
    auto offset = static_cast<uint32_t>(arena_.size());
    arena_.append(bytes);
    Push(kind, offset, static_cast<uint32_t>(bytes.size()));
    return {arena_.data() + offset, bytes.size()};
  }

  std::string arena_;
  std::vector<Entry> entries_;
  std::vector<Run> runs_;
};

}  // namespace Norvane
