// An HTTP/1.1 server on 127.0.0.1 inside the test process, for what the
// bench's simulator cannot play: one thread reads each request (a body sized
// by Content-Length), keeps it with the number of the connection it came on, and sends what the test's handler
// answers (or closes without a word).
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace NorvaneHostTest {

struct SeenRequest {
  int connection = 0;  // 1 for the first connection accepted, and so on
  std::string head;    // request line and fields, CRLF-separated, without the empty line
  std::string body;    // unframed
};

struct Reply {
  std::string bytes;   // sent as they are: status line, fields, body
  bool close = false;  // close the connection once they are sent
};

class LoopbackServer {
 public:
  explicit LoopbackServer(std::function<Reply(const SeenRequest&)> handler) : handler_(std::move(handler)) {
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof at;
    bind(listener_, reinterpret_cast<sockaddr*>(&at), size);
    listen(listener_, 8);
    getsockname(listener_, reinterpret_cast<sockaddr*>(&at), &size);
    port_ = ntohs(at.sin_port);
    if (pipe(wake_) != 0) std::abort();
    thread_ = std::thread([this] { Serve(); });
  }
  ~LoopbackServer() {
    (void)!write(wake_[1], "x", 1);
    thread_.join();
    for (int fd : {listener_, wake_[0], wake_[1]}) close(fd);
  }

  uint32_t Port() const { return port_; }
  std::vector<SeenRequest> Requests() {
    std::lock_guard<std::mutex> lock(mutex_);
    return seen_;
  }

 private:
  struct Connection {
    int fd;
    int number;
    std::string pending;
  };

  // Takes one whole request off the front of `data`; false while it is
  // incomplete.
  static bool TakeRequest(std::string& data, SeenRequest* request) {
    size_t headEnd = data.find("\r\n\r\n");
    if (headEnd == std::string::npos) return false;
    const std::string head = data.substr(0, headEnd);
    size_t field = head.find("\r\nContent-Length: "), size = 0;
    if (field != std::string::npos) size = std::strtoul(head.c_str() + field + 18, nullptr, 10);
    const size_t at = headEnd + 4 + size;
    if (data.size() < at) return false;
    std::string body = data.substr(headEnd + 4, size);
    request->head = head;
    request->body = std::move(body);
    data.erase(0, at);
    return true;
  }

  void Serve() {
    std::vector<Connection> connections;
    int accepted = 0;
    for (;;) {
      std::vector<pollfd> watched{{wake_[0], POLLIN, 0}, {listener_, POLLIN, 0}};
      for (const Connection& c : connections) watched.push_back({c.fd, POLLIN, 0});
      if (poll(watched.data(), watched.size(), -1) < 0) continue;
      if (watched[0].revents != 0) break;
      if (watched[1].revents != 0)
        connections.push_back({accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC), ++accepted, {}});
      for (size_t i = 2; i < watched.size(); ++i) {
        if (watched[i].revents == 0) continue;
        Connection& c = connections[i - 2];
        char buffer[65536];
        ssize_t got = read(c.fd, buffer, sizeof buffer);
        bool open = got > 0;
        if (open) c.pending.append(buffer, static_cast<size_t>(got));
        SeenRequest request;
        request.connection = c.number;
        while (open && TakeRequest(c.pending, &request)) {
          {
            std::lock_guard<std::mutex> lock(mutex_);
            seen_.push_back(request);
          }
          Reply reply = handler_(request);
          for (size_t sent = 0; sent < reply.bytes.size();) {
            ssize_t wrote = send(c.fd, reply.bytes.data() + sent, reply.bytes.size() - sent, MSG_NOSIGNAL);
            if (wrote <= 0) break;
            sent += static_cast<size_t>(wrote);
          }
          open = !reply.close;
        }
        if (!open) {
          close(c.fd);
          c.fd = -1;
        }
      }
      std::erase_if(connections, [](const Connection& c) { return c.fd < 0; });
    }
    for (const Connection& c : connections) close(c.fd);
  }

  std::function<Reply(const SeenRequest&)> handler_;
  int listener_ = -1;
  int wake_[2] = {-1, -1};
  uint32_t port_ = 0;
  std::mutex mutex_;
  std::vector<SeenRequest> seen_;
  std::thread thread_;
};

}  // namespace NorvaneHostTest
