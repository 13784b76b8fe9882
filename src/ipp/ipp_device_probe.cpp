// The provider's TCP connect probe: the library's only network activity of its
// own. A non-blocking connect bounded by a time-out, so that a device that
// swallows SYNs costs seconds, not the system's minutes.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>

#include "ipp/ipp_provider_impl.h"
#include "platform/unique_fd.h"
#include "support/string_utils.h"

namespace Norvane {

namespace {

// Connects within `timeoutMs`; 0, or the socket error.
int ConnectWithin(const sockaddr* address, socklen_t length, uint32_t timeoutMs) {
  UniqueFd s(socket(address->sa_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP));
  if (s.get() < 0) return errno;
  if (connect(s.get(), address, length) == 0) return 0;
  if (errno != EINPROGRESS) return errno;

  auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  for (;;) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return ETIMEDOUT;
    pollfd p{s.get(), POLLOUT, 0};
    int ready = poll(&p, 1, static_cast<int>(left.count()));
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) return errno;
    if (ready == 0) return ETIMEDOUT;
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(s.get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0) return errno;
    return error;
  }
}

}  // namespace

bool IPPProviderImpl::DeviceExists(const char16_t* host, const char16_t* port, int* error, uint32_t timeoutMs,
                                   bool exactPort) {
  int ignored = 0;
  int& result = error != nullptr ? *error : ignored;
  result = EINVAL;
  if (host == nullptr) return false;
  std::string text = QxUtils::WideToUtf8(host);
  std::string portText = port != nullptr ? QxUtils::WideToUtf8(port) : std::string();

  if (QxUtils::IsIPv6Address(host)) {
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    hints.ai_family = AF_INET6;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (portText.empty() || getaddrinfo(text.c_str(), portText.c_str(), &hints, &found) != 0 || found == nullptr) {
      return false;
    }
    std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owned(found, &freeaddrinfo);
    result = ConnectWithin(owned->ai_addr, owned->ai_addrlen, timeoutMs);
    return result == 0;
  }

  if (QxUtils::IsIPv4Address(host)) {
    // The address text may carry ":port"; the probe's own port wins.
    std::string address = text.substr(0, text.find(':'));
    sockaddr_in v4{};
    v4.sin_family = AF_INET;
    if (inet_aton(address.c_str(), &v4.sin_addr) == 0) return false;
    uint16_t number = portText == "80" ? 80 : 631;
    if (exactPort) {
      char* end = nullptr;
      unsigned long asked = std::strtoul(portText.c_str(), &end, 10);
      if (portText.empty() || *end != 0 || asked == 0 || asked > 65535) return false;
      number = static_cast<uint16_t>(asked);
    }
    v4.sin_port = htons(number);
    result = ConnectWithin(reinterpret_cast<const sockaddr*>(&v4), sizeof v4, timeoutMs);
    return result == 0;
  }
  return false;
}

}  // namespace Norvane
