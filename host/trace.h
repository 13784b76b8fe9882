// The host's trace: one line per HTTP or SNMP exchange, and with the wire
// level libcurl's own account of each exchange (header lines, connection
// events, body sizes). Off unless NORVANE_HOST_TRACE is set or a host turns it
// on (NorvaneHostSetTrace); off, it costs one atomic load per exchange.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace NorvaneHost {

// NORVANE_HOST_TRACE_* of norvane/host.h, from the environment until a host
// sets it.
uint32_t TraceLevel();
inline bool Tracing() { return TraceLevel() != 0; }

// Hands one line to the host's callback, or writes it to stderr; credentials
// in it are masked first (Redact).
void TraceLine(std::string_view line);

}  // namespace NorvaneHost
