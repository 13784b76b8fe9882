// Facts about the running process and clocks that log lines and settings keys
// are built from.
#pragma once

#include <cstdint>
#include <string>

namespace QxLogging {

// Full path of the host executable ("/proc/self/exe"); empty when unknown.
std::string ExecutablePath();
// Its base name with extension ("norvane", "host.bin").
std::string ExecutableBaseName();
// The command line with its arguments joined by blanks.
std::string ProcessCommandLine();
// "[1234] "
const std::string& ProcessIdText();
uint32_t CurrentThreadId();
// Microseconds of the monotonic clock, the high-resolution counter here.
uint64_t MonotonicMicros();
// Milliseconds of the monotonic clock, the tick count here.
uint64_t TickCountMillis();
// Where a bare log file name lives when a unique name is asked for:
// $XDG_STATE_HOME/norvane/logs (or ~/.local/state/norvane/logs), created if
// missing; "/tmp" when neither can be had.
std::string LogFolder();

// Expands environment references in a configured file name: "${NAME}",
// "$NAME" and "%NAME%" (NAME: letters, digits, underscore), the last so
// names written for the original platform keep working. A reference to an
// unset variable stays as written.
std::string ExpandEnvironmentReferences(const std::string& text);

}  // namespace QxLogging
