// A small HTTP/1.1 server on 127.0.0.1 (ephemeral port) for the host transport's
// tests: a real peer on loopback that records what it received on which
// connection, decodes chunked and length-delimited request bodies, and answers
// from a handler, with delays, chunked answers, early answers and silence on
// demand.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace NorvaneHostTest {

struct ReceivedRequest {
  std::string method;
  std::string target;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;
  bool chunked = false;      // the body came in chunked framing
  size_t chunkCount = 0;     // chunks seen, the last one included
  int connection = 0;        // 1 for the first accepted connection, and so on

  // First value of a field (names ignore case), empty when absent.
  std::string Header(const std::string& name) const;
  int HeaderCount(const std::string& name) const;
};

struct Reply {
  int status = 200;
  std::string reason = "OK";
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;
  bool chunked = false;   // send the body in chunked framing (several chunks)
  int delayMs = 0;        // wait before the status line
  bool silent = false;    // never answer (the connection stays open)
  bool close = false;     // close the connection after answering
};

class LoopbackHttpServer {
 public:
  using Handler = std::function<Reply(const ReceivedRequest&)>;

  explicit LoopbackHttpServer(Handler handler);
  ~LoopbackHttpServer();
  LoopbackHttpServer(const LoopbackHttpServer&) = delete;
  LoopbackHttpServer& operator=(const LoopbackHttpServer&) = delete;

  uint16_t Port() const { return port_; }
  std::vector<ReceivedRequest> Requests();
  int Connections() const { return connections_.load(); }

  // Answer every request with this reply as soon as its head is read, without
  // reading its body, then close (a device refusing a job early).
  void AnswerBeforeBody(Reply reply);
  // Body bytes received so far on the request being read.
  size_t BodyBytesSeen() const { return bodyBytes_.load(); }
  // Waits until at least count body bytes of the current request arrived.
  bool WaitForBodyBytes(size_t count, int timeoutMs);

 private:
  void AcceptLoop();
  void Serve(int fd, int connection);

  Handler handler_;
  int listener_ = -1;
  uint16_t port_ = 0;
  std::atomic<bool> stopping_{false};
  std::atomic<int> connections_{0};
  std::atomic<size_t> bodyBytes_{0};
  std::thread acceptor_;

  std::mutex mutex_;  // guards everything below
  std::condition_variable progress_;
  std::vector<ReceivedRequest> requests_;
  std::vector<std::thread> workers_;
  bool answerEarly_ = false;
  Reply earlyReply_;
};

}  // namespace NorvaneHostTest
