#include "support/logging/line_format.h"

#include <cinttypes>
#include <cstdio>

#include "support/logging/log_settings.h"
#include "support/logging/process_facts.h"

namespace QxLogging {

namespace {

struct Tag {
  uint32_t bit;
  const char* text;
};

// The order tags appear in; the detail level and the M tags are special.
constexpr Tag kTags[] = {
    {0x20, "(EX) "},  {0x80, "(##) "},       {0x40, "(WN) "},      {0x40000000, "(++) "},
    {0x10, nullptr},  {0x100, "(ST) "},      {0x200, "(DB) "},     {0x400, "(->) "},
    {0x800, "(<-) "}, {0x20000000, "(**) "}, {0x2000000, "(LK) "}, {0x4000000, "(IP) "},
};

}  // namespace

std::string CategoryTags(uint32_t bits) {
  std::string out;
  AppendCategoryTags(bits, &out);
  return out;
}

void AppendCategoryTags(uint32_t bits, std::string* into) {
  std::string& out = *into;
  char buffer[16];
  for (const Tag& tag : kTags) {
    if ((bits & tag.bit) == 0) continue;
    if (tag.text != nullptr) {
      out += tag.text;
    } else {
      std::snprintf(buffer, sizeof buffer, "(I%u) ", bits & kLevelMask);
      out += buffer;
    }
  }
  if (uint32_t m = (bits >> 12) & 0xF; m != 0) {
    std::snprintf(buffer, sizeof buffer, "(M%u) ", m);
    out += buffer;
  }
}

std::string LinePrefix(uint32_t options, uint32_t bits, int line, const LinePrefixFacts& facts) {
  std::string out;
  AppendLinePrefix(options, bits, line, facts, &out);
  return out;
}

void AppendLinePrefix(uint32_t options, uint32_t bits, int line, const LinePrefixFacts& facts, std::string* into) {
  std::string& out = *into;
  char buffer[64];
  bool compact = (options & kOptCompactTime) != 0;
  if (options & kOptDate) {
    std::strftime(buffer, sizeof buffer, compact ? "%Y%m%d" : "%Y/%m/%d ", &facts.localTime);
    out += buffer;
  }
  if (options & kOptTime) {
    std::strftime(buffer, sizeof buffer, compact ? "%H%M%S" : "%H:%M:%S ", &facts.localTime);
    out += buffer;
  }
  if (options & kOptCounterAndLine) {
    if (compact) out += ':';
    std::snprintf(buffer, sizeof buffer, "%10.10" PRIu64 " ", static_cast<uint64_t>(facts.micros % 10000000000ull));
    out += buffer;
  }
  if (options & kOptElapsed) {
    std::snprintf(buffer, sizeof buffer, "(%6.6" PRIu64 " ms) ", facts.millisSinceLast);
    out += buffer;
  }
  if (options & kOptProcessId) out += facts.processId;
  if (options & kOptThreadId) {
    std::snprintf(buffer, sizeof buffer, "{tid: 0x%04X} ", facts.threadId);
    out += buffer;
  }
  if (options & kOptCounterAndLine) {
    if (line != 0) {
      std::snprintf(buffer, sizeof buffer, "%04d: ", line);
      out += buffer;
    } else {
      out += "      ";
    }
  }
  AppendCategoryTags(bits, &out);
}

LinePrefixFacts CurrentFacts(uint64_t lastLineMicros, std::string_view processId, bool counters) {
  LinePrefixFacts facts;
  // Lines come many to a second; the broken-down time changes once a second.
  thread_local std::time_t lastSecond = -1;
  thread_local std::tm lastLocal{};
  std::time_t now = std::time(nullptr);
  if (now != lastSecond) {
    localtime_r(&now, &lastLocal);
    lastSecond = now;
  }
  facts.localTime = lastLocal;
  if (counters) {
    facts.micros = MonotonicMicros();
    facts.millisSinceLast = (facts.micros - lastLineMicros) / 1000u;
  }
  facts.processId = processId;
  facts.threadId = CurrentThreadId();
  return facts;
}

}  // namespace QxLogging
