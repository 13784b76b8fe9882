// The text of a log line: the prefix fields the options ask for, then the
// category tags. Pure functions of their inputs, so the layout is tested
// without clocks.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

namespace QxLogging {

struct LinePrefixFacts {
  std::tm localTime{};  // wall clock, local time zone
  uint64_t micros = 0;  // monotonic counter
  uint64_t millisSinceLast = 0;
  std::string_view processId;  // "[1234] "
  uint32_t threadId = 0;
};

// Tags for the bits of (settings categories AND record category), in the
// fixed tag order.
std::string CategoryTags(uint32_t bits);
void AppendCategoryTags(uint32_t bits, std::string* out);

// Date, time, counter, elapsed, process, thread, line number, then the tags.
std::string LinePrefix(uint32_t options, uint32_t bits, int line, const LinePrefixFacts& facts);
// The same, appended to *out (a line's buffer reused from line to line).
void AppendLinePrefix(uint32_t options, uint32_t bits, int line, const LinePrefixFacts& facts, std::string* out);

// The facts of this moment for a module whose previous line was at
// lastLineMicros (0: none yet). The monotonic counter is read only when
// `counters` (the line shows the counter or the time since the last line).
LinePrefixFacts CurrentFacts(uint64_t lastLineMicros, std::string_view processId, bool counters);

}  // namespace QxLogging
