// discover: the printers DNS-SD announces on the local network.
#include <algorithm>

#include "cli.h"
#include "dns_sd.h"

namespace NorvaneCli {
namespace {

std::string Joined(const std::vector<std::string>& list, const char* separator) {
  std::string text;
  for (const auto& item : list) text += (text.empty() ? "" : separator) + item;
  return text;
}

nlohmann::json PrinterJson(const DiscoveredPrinter& printer) {
  return {{"name", printer.name}, {"host", printer.hostName}, {"addresses", printer.addresses},
          {"port", printer.port}, {"uri", printer.uri},       {"uuid", printer.uuid},
          {"ty", printer.ty},     {"pdl", printer.pdl},       {"services", printer.services}};
}

std::string OrDash(const std::string& text) { return text.empty() ? "-" : text; }

}  // namespace

void AddDiscoverVerb(CLI::App& app, Common& common) {
  auto seconds = std::make_shared<double>(3);
  auto* discover = app.add_subcommand(
      "discover", "List the printers DNS-SD announces (IPP, IPPS, LPD, raw), found through avahi-daemon");
  discover->add_option("--timeout", *seconds, "seconds to listen for announcements (default 3)")
      ->check(CLI::Range(0.1, 600.0));
  discover->callback([seconds, &common] {
    auto printers = DiscoverPrinters(static_cast<uint32_t>(*seconds * 1000));
    if (common.json) {
      for (const auto& printer : printers) PrintJson(PrinterJson(printer));
      return;
    }
    if (printers.empty()) {
      std::fprintf(stderr, "norvane: no printer announced itself within %g s\n", *seconds);
      return;
    }
    Table table({"NAME", "ADDRESSES", "PORT", "URI", "UUID", "TY", "PDL"});
    for (const auto& printer : printers) {
      table.Add({printer.name, OrDash(Joined(printer.addresses, ",")),
                 printer.port == 0 ? "-" : std::to_string(printer.port), OrDash(printer.uri), OrDash(printer.uuid),
                 OrDash(printer.ty), OrDash(printer.pdl)});
    }
    table.Print(stdout);
  });
}

// What collect --discover collects: each printer's IPP URI, else its first
// address (SNMP and the device's web resources need no more).
std::vector<std::string> DiscoveredTargets(uint32_t timeoutMs) {
  std::vector<std::string> targets;
  for (const auto& printer : DiscoverPrinters(timeoutMs)) {
    if (!printer.uri.empty()) {
      targets.push_back(printer.uri);
    } else if (!printer.addresses.empty()) {
      auto v4 = std::find_if(printer.addresses.begin(), printer.addresses.end(),
                             [](const std::string& address) { return address.find(':') == std::string::npos; });
      targets.push_back(v4 != printer.addresses.end() ? *v4 : printer.addresses.front());
    }
  }
  return targets;
}

}  // namespace NorvaneCli
