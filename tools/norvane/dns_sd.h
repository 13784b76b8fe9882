// Printers announced by DNS-SD on the local network, found through the system's
// avahi-daemon (which does the multicast) and its client library.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct AvahiStringList;

namespace NorvaneCli {

// One printer: every service type announced under the same instance name merged.
struct DiscoveredPrinter {
  std::string name;      // the service instance name, as the printer announces it
  std::string hostName;  // e.g. "printer.local"
  std::vector<std::string> addresses;
  uint16_t port = 0;  // of the IPP service when there is one, else of the first that has a port
  // ipp[s]://ADDRESS:PORT/RP from the "rp" TXT key; empty when the printer offers
  // no IPP or its "rp" is not a plain path.
  std::string uri;
  std::string uuid, ty, pdl;          // TXT keys "UUID", "ty", "pdl"
  std::vector<std::string> services;  // "_ipp._tcp", ...
};

// Browses the printer service types for up to timeoutMs (less when the daemon
// says it has reported everything it knows). No reachable daemon is a Failure
// with kExitUnavailable.
std::vector<DiscoveredPrinter> DiscoverPrinters(uint32_t timeoutMs);

// The targets `collect --discover` reads: each printer's IPP URI, else an address.
std::vector<std::string> DiscoveredTargets(uint32_t timeoutMs);

// A TXT value as the tool may show it: at most 255 bytes (the most one DNS TXT
// string holds), control characters replaced.
std::string TxtText(const void* data, size_t size);
// The value of a TXT key as TxtText gives it; keys compare ignoring case, as
// DNS-SD defines them. Empty when the key is absent.
std::string TxtValue(AvahiStringList* txt, std::string_view key);
// The "rp" key as a URI path: empty for "", the path otherwise; false for text
// that is not a plain relative path (a query, a fragment, "..", control characters).
bool PrinterResourcePath(const std::string& rp, std::string* path);

}  // namespace NorvaneCli
