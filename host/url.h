// Where a request goes: host text, port choice, scheme and the URL handed to
// libcurl, and the peer name handed to net-snmp. Pure functions.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace NorvaneHost {

// A host as the transport addresses it: a name or IPv4 text as given, or an
// IPv6 literal without brackets (a zone index kept after '%').
struct HostName {
  std::string text;
  bool ipv6 = false;
};

// Null when the text cannot name a host in a URL (empty, white space, or one of
// "/?#@[]" outside an IPv6 literal, or a colon that is not an IPv6 literal).
std::optional<HostName> ParseHostName(std::u16string_view text);

// A decimal port 1..65535, nothing else (no sign, no spaces).
std::optional<uint32_t> ParsePort(std::u16string_view text);

// The IPP ports the library asks for; the address's port text replaces them.
constexpr bool IsIppPort(uint32_t port) { return port == 631 || port == 443; }
uint32_t EffectivePort(uint32_t asked, std::u16string_view portText);
// https for port 443 asked, and for IPP ports while the address is secure.
constexpr bool UsesTls(uint32_t asked, bool secure) { return asked == 443 || (secure && IsIppPort(asked)); }

// The path and query of a resource: an absolute URL gives the part after its
// authority, a relative one gains a leading '/'; bytes outside the URL
// character set are percent-encoded (existing escapes are kept).
std::string ResourcePath(std::string_view resource);

std::string BuildUrl(const HostName& host, bool tls, uint32_t port, std::string_view resource);

// "udp:HOST:PORT" or "udp6:[HOST]:PORT".
std::string SnmpPeerName(const HostName& host, uint32_t port);

}  // namespace NorvaneHost
