// A TCP connection to the device that someone else opened (the library's
// connect probe), waiting for the exchange that sends on it instead of
// connecting again.
#pragma once

#include <sys/socket.h>

namespace NorvaneHost {

class AdoptedConnection {
 public:
  AdoptedConnection() = default;
  // Owns `socket` from here; a negative value or a socket without a peer
  // leaves the connection empty.
  explicit AdoptedConnection(int socket);
  AdoptedConnection(AdoptedConnection&& other) noexcept;
  AdoptedConnection& operator=(AdoptedConnection&& other) noexcept;
  AdoptedConnection(const AdoptedConnection&) = delete;
  AdoptedConnection& operator=(const AdoptedConnection&) = delete;
  // Closes the socket unless it was handed out.
  ~AdoptedConnection();

  bool Holds() const { return socket_ >= 0; }
  // The socket, for a connection that libcurl is about to open to `address`,
  // when it goes there and the device has neither closed it nor sent anything
  // on it; the caller owns it then. -1 otherwise (the socket stays here).
  int HandOut(const sockaddr* address);
  // Whether HandOut has given the socket away.
  bool HandedOut() const { return handedOut_; }

 private:
  void Close();

  int socket_ = -1;
  sockaddr_storage peer_{};
  bool handedOut_ = false;
};

}  // namespace NorvaneHost
