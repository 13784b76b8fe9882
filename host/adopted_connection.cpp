#include "adopted_connection.h"

#include <netinet/in.h>
#include <poll.h>
#include <unistd.h>

#include <cstring>
#include <utility>

namespace NorvaneHost {

namespace {

bool SameEndpoint(const sockaddr* a, const sockaddr_storage& b) {
  if (a->sa_family != b.ss_family) return false;
  if (a->sa_family == AF_INET) {
    const auto* x = reinterpret_cast<const sockaddr_in*>(a);
    const auto* y = reinterpret_cast<const sockaddr_in*>(&b);
    return x->sin_port == y->sin_port && x->sin_addr.s_addr == y->sin_addr.s_addr;
  }
  if (a->sa_family == AF_INET6) {
    const auto* x = reinterpret_cast<const sockaddr_in6*>(a);
    const auto* y = reinterpret_cast<const sockaddr_in6*>(&b);
    return x->sin6_port == y->sin6_port && x->sin6_scope_id == y->sin6_scope_id &&
           std::memcmp(&x->sin6_addr, &y->sin6_addr, sizeof x->sin6_addr) == 0;
  }
  return false;
}

}  // namespace

AdoptedConnection::AdoptedConnection(int socket) : socket_(socket) {
  if (socket_ < 0) return;
  socklen_t length = sizeof peer_;
  if (getpeername(socket_, reinterpret_cast<sockaddr*>(&peer_), &length) != 0) Close();
}

AdoptedConnection::AdoptedConnection(AdoptedConnection&& other) noexcept
    : socket_(std::exchange(other.socket_, -1)), peer_(other.peer_), handedOut_(other.handedOut_) {}

AdoptedConnection& AdoptedConnection::operator=(AdoptedConnection&& other) noexcept {
  if (this != &other) {
    Close();
    socket_ = std::exchange(other.socket_, -1);
    peer_ = other.peer_;
    handedOut_ = other.handedOut_;
  }
  return *this;
}

AdoptedConnection::~AdoptedConnection() { Close(); }

void AdoptedConnection::Close() {
  if (socket_ >= 0) close(socket_);
  socket_ = -1;
}

int AdoptedConnection::HandOut(const sockaddr* address) {
  if (socket_ < 0 || address == nullptr || !SameEndpoint(address, peer_)) return -1;
  // Anything to read, or the device's end of the stream, means the connection
  // is no longer one a request may start on.
  pollfd p{socket_, POLLIN | POLLRDHUP, 0};
  if (poll(&p, 1, 0) != 0) return -1;
  handedOut_ = true;
  return std::exchange(socket_, -1);
}

}  // namespace NorvaneHost
