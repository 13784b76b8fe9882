#include "loopback_http_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <strings.h>

namespace NorvaneHostTest {

namespace {

// Buffered reads from one connection that give up when the server stops.
class Reader {
 public:
  Reader(int fd, const std::atomic<bool>& stopping) : fd_(fd), stopping_(stopping) {}

  bool Fill() {
    while (!stopping_.load()) {
      pollfd p{fd_, POLLIN, 0};
      int ready = poll(&p, 1, 50);
      if (ready < 0) return false;
      if (ready == 0) continue;
      char chunk[65536];
      ssize_t got = recv(fd_, chunk, sizeof chunk, 0);
      if (got <= 0) return false;
      buffer_.append(chunk, static_cast<size_t>(got));
      return true;
    }
    return false;
  }

  bool Line(std::string& line) {
    for (;;) {
      size_t end = buffer_.find("\r\n", start_);
      if (end != std::string::npos) {
        line = buffer_.substr(start_, end - start_);
        start_ = end + 2;
        Compact();
        return true;
      }
      if (!Fill()) return false;
    }
  }

  bool Bytes(size_t count, std::string& out, std::atomic<size_t>& seen,
             std::condition_variable& progress) {
    while (count > 0) {
      if (start_ == buffer_.size() && !Fill()) return false;
      size_t take = std::min(count, buffer_.size() - start_);
      out.append(buffer_, start_, take);
      start_ += take;
      count -= take;
      seen += take;
      progress.notify_all();
      Compact();
    }
    return true;
  }

 private:
  void Compact() {
    if (start_ > 65536) {
      buffer_.erase(0, start_);
      start_ = 0;
    }
  }

  int fd_;
  const std::atomic<bool>& stopping_;
  std::string buffer_;
  size_t start_ = 0;
};

bool SendAll(int fd, const std::string& data) {
  size_t sent = 0;
  while (sent < data.size()) {
    ssize_t n = send(fd, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return false;
    sent += static_cast<size_t>(n);
  }
  return true;
}

std::string Render(const Reply& reply) {
  std::string head = "HTTP/1.1 " + std::to_string(reply.status) + " " + reply.reason + "\r\n";
  for (const auto& [name, value] : reply.headers) head += name + ": " + value + "\r\n";
  if (reply.close) head += "Connection: close\r\n";
  if (reply.chunked) {
    head += "Transfer-Encoding: chunked\r\n\r\n";
    // Several chunks of varied sizes, so a reader must join them.
    size_t pos = 0, size = 1;
    while (pos < reply.body.size()) {
      size_t take = std::min(size, reply.body.size() - pos);
      char line[32];
      std::snprintf(line, sizeof line, "%zx\r\n", take);
      head += line + reply.body.substr(pos, take) + "\r\n";
      pos += take;
      size = size * 3 + 1;
    }
    head += "0\r\n\r\n";
  } else {
    head += "Content-Length: " + std::to_string(reply.body.size()) + "\r\n\r\n" + reply.body;
  }
  return head;
}

}  // namespace

std::string ReceivedRequest::Header(const std::string& name) const {
  for (const auto& [field, value] : headers) {
    if (strcasecmp(field.c_str(), name.c_str()) == 0) return value;
  }
  return {};
}

int ReceivedRequest::HeaderCount(const std::string& name) const {
  int count = 0;
  for (const auto& [field, value] : headers) count += strcasecmp(field.c_str(), name.c_str()) == 0;
  return count;
}

LoopbackHttpServer::LoopbackHttpServer(Handler handler) : handler_(std::move(handler)) {
  listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listener_ < 0) throw std::runtime_error("socket");
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener_, 16) != 0 ||
      getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    close(listener_);
    throw std::runtime_error("bind/listen");
  }
  port_ = ntohs(address.sin_port);
  acceptor_ = std::thread([this] { AcceptLoop(); });
}

LoopbackHttpServer::~LoopbackHttpServer() {
  stopping_ = true;
  acceptor_.join();
  close(listener_);
  std::vector<std::thread> workers;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    workers.swap(workers_);
  }
  for (std::thread& worker : workers) worker.join();
}

std::vector<ReceivedRequest> LoopbackHttpServer::Requests() {
  std::lock_guard<std::mutex> lock(mutex_);
  return requests_;
}

void LoopbackHttpServer::AnswerBeforeBody(Reply reply) {
  std::lock_guard<std::mutex> lock(mutex_);
  answerEarly_ = true;
  earlyReply_ = std::move(reply);
}

bool LoopbackHttpServer::WaitForBodyBytes(size_t count, int timeoutMs) {
  std::unique_lock<std::mutex> lock(mutex_);
  return progress_.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                            [&] { return bodyBytes_.load() >= count; });
}

void LoopbackHttpServer::AcceptLoop() {
  while (!stopping_.load()) {
    pollfd p{listener_, POLLIN, 0};
    if (poll(&p, 1, 50) <= 0) continue;
    int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) continue;
    int connection = ++connections_;
    std::lock_guard<std::mutex> lock(mutex_);
    workers_.emplace_back([this, fd, connection] {
      Serve(fd, connection);
      close(fd);
    });
  }
}

void LoopbackHttpServer::Serve(int fd, int connection) {
  Reader reader(fd, stopping_);
  for (;;) {
    ReceivedRequest request;
    request.connection = connection;
    std::string line;
    if (!reader.Line(line)) return;
    size_t first = line.find(' ');
    size_t second = line.find(' ', first + 1);
    if (first == std::string::npos || second == std::string::npos) return;
    request.method = line.substr(0, first);
    request.target = line.substr(first + 1, second - first - 1);
    for (;;) {
      if (!reader.Line(line)) return;
      if (line.empty()) break;
      size_t colon = line.find(':');
      if (colon == std::string::npos) return;
      size_t value = line.find_first_not_of(' ', colon + 1);
      request.headers.emplace_back(line.substr(0, colon),
                                   value == std::string::npos ? std::string() : line.substr(value));
    }
    bodyBytes_ = 0;

    Reply early;
    bool answerEarly;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      answerEarly = answerEarly_;
      early = earlyReply_;
    }
    if (answerEarly) {
      {
        std::lock_guard<std::mutex> lock(mutex_);
        requests_.push_back(request);
      }
      early.close = true;
      SendAll(fd, Render(early));
      // Let the client see the answer before the connection goes.
      shutdown(fd, SHUT_WR);
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
      return;
    }

    if (strcasecmp(request.Header("Transfer-Encoding").c_str(), "chunked") == 0) {
      request.chunked = true;
      for (;;) {
        if (!reader.Line(line)) return;
        size_t size = std::stoul(line, nullptr, 16);
        ++request.chunkCount;
        if (size == 0) {
          while (reader.Line(line) && !line.empty()) {
          }
          break;
        }
        std::string crlf;
        if (!reader.Bytes(size, request.body, bodyBytes_, progress_)) return;
        std::atomic<size_t> ignored{0};
        if (!reader.Bytes(2, crlf, ignored, progress_) || crlf != "\r\n") return;
      }
    } else if (!request.Header("Content-Length").empty()) {
      size_t length = std::stoul(request.Header("Content-Length"));
      if (!reader.Bytes(length, request.body, bodyBytes_, progress_)) return;
    }

    Reply reply = handler_(request);
    {
      std::lock_guard<std::mutex> lock(mutex_);
      requests_.push_back(request);
    }
    progress_.notify_all();
    if (reply.silent) {
      while (!stopping_.load()) std::this_thread::sleep_for(std::chrono::milliseconds(20));
      return;
    }
    if (reply.delayMs > 0) std::this_thread::sleep_for(std::chrono::milliseconds(reply.delayMs));
    if (!SendAll(fd, Render(reply)) || reply.close) return;
  }
}

}  // namespace NorvaneHostTest
