// Writing lines into a log file: start (create or replace, unique names),
// the size limit, and the queue of lines kept while the file cannot be
// opened. Lines are UTF-16LE without a byte-order mark, so a line of n code
// units costs 2n bytes of the size limit. Callers hold the parameter block's
// lock.
#pragma once

#include <cstdint>
#include <string>

#include "support/logging/log_settings.h"

namespace QxLogging {

// The time a line keeps retrying while another writer holds the file, and the
// pause between tries.
constexpr int kOpenRetryTotalMs = 120;
constexpr int kOpenRetryPauseMs = 30;
// How long a kept file is written without checking that its name still leads
// to it.
constexpr uint64_t kPathCheckMs = 100;
// Queued lines beyond this many are dropped (the oldest are kept).
constexpr size_t kMaxQueuedLines = 4096;

// Steps of a file start before its header: splits the name, picks a unique
// name with kOptUniqueName, creates (or with kOptReplaceOnStart replaces) the
// file and records its full path. False when it could not be created; the
// configured name then stays and the next line tries again.
bool StartLogFile(CLogFile* file, uint32_t options);

enum class AppendResult { Written, Dropped, Queued, LimitReached };

// Appends one complete line (UTF-8, line end included) under the size limit
// of `options`. On reaching the limit the marker naming `moduleName` is
// written; with kOptReplaceOnStart|kOptUniqueName the file is then due for a
// fresh start instead.
AppendResult AppendLogLine(CLogFile* file, uint32_t options, const std::string& line, const std::string& moduleName);

// UTF-8 to UTF-16LE bytes.
std::string ToUtf16Le(const std::string& text);
void ToUtf16Le(const std::string& text, std::string* bytes);

}  // namespace QxLogging
