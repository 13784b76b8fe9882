// DNS-SD browsing through avahi-daemon: one browser per printer service type, one
// resolver per service found, all on one simple poll loop on the calling thread.
#include "dns_sd.h"

#include <avahi-client/client.h>
#include <avahi-client/lookup.h>
#include <avahi-common/error.h>
#include <avahi-common/simple-watch.h>
#include <avahi-common/timeval.h>
#include <strings.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>

#include "cli.h"

namespace NorvaneCli {
namespace {

// IPP first: the URI comes from the first of these a printer offers.
constexpr const char* kServiceTypes[] = {"_ipp._tcp", "_ipps._tcp", "_printer._tcp", "_pdl-datastream._tcp"};
constexpr int kServiceTypeCount = 4;
constexpr size_t kMaxTxtValue = 255;
// A hostile or broken network could announce without end; the tool lists at most
// this many printers and resolves at most this many services at once.
constexpr size_t kMaxPrinters = 4096;
constexpr size_t kMaxPendingResolvers = 256;

struct PollDeleter {
  void operator()(AvahiSimplePoll* poll) const { avahi_simple_poll_free(poll); }
};
struct ClientDeleter {
  // Frees the client's browsers and resolvers with it.
  void operator()(AvahiClient* client) const { avahi_client_free(client); }
};

int ServiceRank(std::string_view type) {
  for (int i = 0; i < kServiceTypeCount; ++i) {
    if (type == kServiceTypes[i]) return i;
  }
  return kServiceTypeCount;
}

struct Browse {
  AvahiSimplePoll* poll = nullptr;
  AvahiClient* client = nullptr;
  size_t browsersPending = 0;  // browsers that have not said "all for now"
  size_t resolversPending = 0;
  std::string failure;
  std::map<std::string, DiscoveredPrinter> printers;  // by instance name and domain
  std::map<std::string, int> bestRank;                // of the service the port came from

  void QuitWhenDone() {
    if (browsersPending == 0 && resolversPending == 0) avahi_simple_poll_quit(poll);
  }
};

void AddUnique(std::vector<std::string>& list, const std::string& value) {
  if (std::find(list.begin(), list.end(), value) == list.end()) list.push_back(value);
}

// A URI host for the address: IPv6 in brackets; link-local addresses need a zone
// a URI cannot carry portably, so they give none.
std::string UriHost(const std::string& address) {
  if (address.find(':') == std::string::npos) return address;
  if (address.rfind("fe80:", 0) == 0 || address.rfind("FE80:", 0) == 0) return {};
  return "[" + address + "]";
}

void Resolved(Browse& browse, const char* name, const char* type, const char* domain, const char* hostName,
              const AvahiAddress* address, uint16_t port, AvahiStringList* txt) {
  std::string key = std::string(name) + "\n" + domain;
  auto found = browse.printers.find(key);
  if (found == browse.printers.end()) {
    if (browse.printers.size() >= kMaxPrinters) return;
    found = browse.printers.emplace(key, DiscoveredPrinter{}).first;
    found->second.name = TxtText(name, std::string_view(name).size());
  }
  DiscoveredPrinter& printer = found->second;
  if (printer.hostName.empty() && hostName != nullptr) printer.hostName = TxtText(hostName, std::strlen(hostName));
  char text[AVAHI_ADDRESS_STR_MAX] = {};
  if (address != nullptr && avahi_address_snprint(text, sizeof text, address) != nullptr) {
    AddUnique(printer.addresses, text);
  }
  AddUnique(printer.services, type);
  if (printer.uuid.empty()) printer.uuid = TxtValue(txt, "UUID");
  if (printer.ty.empty()) printer.ty = TxtValue(txt, "ty");
  if (printer.pdl.empty()) printer.pdl = TxtValue(txt, "pdl");

  // The port and URI come from the best service the printer offers: IPP, then
  // ipps, then any other. Of one service's addresses an IPv4 one makes the URI:
  // it is what every printer answers on, where IPv6 is often half set up.
  const int rank = ServiceRank(type);
  auto best = browse.bestRank.emplace(key, kServiceTypeCount).first;
  std::string path, host = UriHost(text);
  const bool betterHost = printer.uri.empty() || (printer.uri.find("://[") != std::string::npos && host[0] != '[');
  if (port == 0 || rank > best->second || (rank == best->second && !betterHost)) return;
  best->second = rank;
  printer.port = port;
  if (rank > 1 || host.empty() || !PrinterResourcePath(TxtValue(txt, "rp"), &path)) return;
  printer.uri = std::string(rank == 1 ? "ipps" : "ipp") + "://" + host + ":" + std::to_string(port) + "/" + path;
}

void OnResolved(AvahiServiceResolver* resolver, AvahiIfIndex, AvahiProtocol, AvahiResolverEvent event, const char* name,
                const char* type, const char* domain, const char* hostName, const AvahiAddress* address, uint16_t port,
                AvahiStringList* txt, AvahiLookupResultFlags, void* context) {
  auto& browse = *static_cast<Browse*>(context);
  // A service that no longer resolves is left out, as if it had gone.
  if (event == AVAHI_RESOLVER_FOUND) Resolved(browse, name, type, domain, hostName, address, port, txt);
  avahi_service_resolver_free(resolver);
  --browse.resolversPending;
  browse.QuitWhenDone();
}

void OnBrowsed(AvahiServiceBrowser*, AvahiIfIndex interface, AvahiProtocol protocol, AvahiBrowserEvent event,
               const char* name, const char* type, const char* domain, AvahiLookupResultFlags, void* context) {
  auto& browse = *static_cast<Browse*>(context);
  switch (event) {
    case AVAHI_BROWSER_NEW:
      if (browse.resolversPending >= kMaxPendingResolvers) break;
      // The address family of the interface it was seen on, so that a printer's
      // IPv4 and IPv6 addresses are both listed.
      if (avahi_service_resolver_new(browse.client, interface, protocol, name, type, domain, protocol,
                                     static_cast<AvahiLookupFlags>(0), OnResolved, &browse) != nullptr) {
        ++browse.resolversPending;
      }
      break;
    case AVAHI_BROWSER_ALL_FOR_NOW:
      if (browse.browsersPending > 0) --browse.browsersPending;
      browse.QuitWhenDone();
      break;
    case AVAHI_BROWSER_FAILURE:
      browse.failure = avahi_strerror(avahi_client_errno(browse.client));
      avahi_simple_poll_quit(browse.poll);
      break;
    default:
      break;
  }
}

void OnClientState(AvahiClient* client, AvahiClientState state, void* context) {
  auto& browse = *static_cast<Browse*>(context);
  if (state == AVAHI_CLIENT_FAILURE) {
    browse.failure = avahi_strerror(avahi_client_errno(client));
    avahi_simple_poll_quit(browse.poll);
  }
}

void OnTimeout(AvahiTimeout*, void* context) { avahi_simple_poll_quit(static_cast<Browse*>(context)->poll); }

}  // namespace

std::string TxtText(const void* data, size_t size) {
  std::string text(static_cast<const char*>(data), std::min(size, kMaxTxtValue));
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) c = '?';
  }
  return text;
}

std::string TxtValue(AvahiStringList* txt, std::string_view key) {
  for (AvahiStringList* item = txt; item != nullptr; item = avahi_string_list_get_next(item)) {
    const char* text = reinterpret_cast<const char*>(avahi_string_list_get_text(item));
    size_t size = avahi_string_list_get_size(item);
    std::string_view entry(text, size);
    size_t equals = entry.find('=');
    if (equals != key.size() || strncasecmp(text, key.data(), equals) != 0) continue;
    return TxtText(text + equals + 1, size - equals - 1);
  }
  return {};
}

bool PrinterResourcePath(const std::string& rp, std::string* path) {
  std::string value = rp;
  // Some printers write the path with its leading slash.
  if (!value.empty() && value[0] == '/') value.erase(0, 1);
  size_t start = 0;
  while (start <= value.size()) {
    size_t end = value.find('/', start);
    if (end == std::string::npos) end = value.size();
    std::string_view segment(value.data() + start, end - start);
    if (segment == "." || segment == "..") return false;
    start = end + 1;
  }
  for (unsigned char c : value) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                       std::string_view("-._~/!$&'()*+,;=:@").find(static_cast<char>(c)) != std::string_view::npos;
    if (!plain) return false;
  }
  *path = value;
  return true;
}

std::vector<DiscoveredPrinter> DiscoverPrinters(uint32_t timeoutMs) {
  Browse browse;
  std::unique_ptr<AvahiSimplePoll, PollDeleter> poll(avahi_simple_poll_new());
  if (!poll) throw Failure(kExitFailed, "DNS-SD: out of memory");
  browse.poll = poll.get();
  int error = 0;
  std::unique_ptr<AvahiClient, ClientDeleter> client(avahi_client_new(
      avahi_simple_poll_get(poll.get()), static_cast<AvahiClientFlags>(0), OnClientState, &browse, &error));
  if (!client) {
    throw Failure(kExitUnavailable, std::string("no avahi-daemon to browse DNS-SD with (") + avahi_strerror(error) +
                                        "); start avahi-daemon to discover printers");
  }
  browse.client = client.get();
  for (const char* type : kServiceTypes) {
    if (avahi_service_browser_new(client.get(), AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, type, nullptr,
                                  static_cast<AvahiLookupFlags>(0), OnBrowsed, &browse) == nullptr) {
      throw Failure(kExitFailed, std::string("DNS-SD: cannot browse ") + type + ": " +
                                     avahi_strerror(avahi_client_errno(client.get())));
    }
    ++browse.browsersPending;
  }
  const AvahiPoll* api = avahi_simple_poll_get(poll.get());
  timeval deadline{};
  avahi_elapse_time(&deadline, timeoutMs, 0);
  api->timeout_new(api, &deadline, OnTimeout, &browse);
  avahi_simple_poll_loop(poll.get());
  if (!browse.failure.empty()) throw Failure(kExitFailed, "DNS-SD: " + browse.failure);

  std::vector<DiscoveredPrinter> printers;
  for (auto& [key, printer] : browse.printers) printers.push_back(std::move(printer));
  return printers;
}

}  // namespace NorvaneCli
