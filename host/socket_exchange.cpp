#include "socket_exchange.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>

namespace NorvaneHost {

namespace {

using Clock = std::chrono::steady_clock;

// Waits for `events` until `deadline`: 1 when the socket is ready (or has an
// error the next call reports), 0 on time-out, -1 on failure.
int WaitFor(int socket, short events, Clock::time_point deadline) {
  for (;;) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return 0;
    pollfd p{socket, events, 0};
    int ready = poll(&p, 1, static_cast<int>(std::min<int64_t>(left, INT_MAX)));
    if (ready < 0 && errno == EINTR) continue;
    return ready;
  }
}

CURLcode SendAll(int socket, iovec* parts, size_t count, std::chrono::milliseconds timeout) {
  auto deadline = Clock::now() + timeout;
  while (count > 0) {
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = count;
    ssize_t sent = sendmsg(socket, &message, MSG_NOSIGNAL);
    if (sent < 0) {
      if (errno == EINTR) continue;
      if (errno != EAGAIN && errno != EWOULDBLOCK) return CURLE_SEND_ERROR;
      int ready = WaitFor(socket, POLLOUT, deadline);
      if (ready == 0) return CURLE_OPERATION_TIMEDOUT;
      if (ready < 0) return CURLE_SEND_ERROR;
      continue;
    }
    deadline = Clock::now() + timeout;
    auto left = static_cast<size_t>(sent);
    while (count > 0 && left >= parts->iov_len) {
      left -= parts->iov_len;
      ++parts;
      --count;
    }
    if (count > 0) {
      parts->iov_base = static_cast<uint8_t*>(parts->iov_base) + left;
      parts->iov_len -= left;
    }
  }
  return CURLE_OK;
}

CURLcode FaultResult(const HttpResponseReader& reader) {
  switch (reader.GetFault()) {
    case HttpResponseReader::Fault::kMalformed:
      return CURLE_WEIRD_SERVER_REPLY;
    case HttpResponseReader::Fault::kTooLarge:
      return CURLE_FILESIZE_EXCEEDED;
    case HttpResponseReader::Fault::kTruncated:
    case HttpResponseReader::Fault::kNone:
      break;
  }
  return reader.Started() ? CURLE_PARTIAL_FILE : CURLE_GOT_NOTHING;
}

}  // namespace

SocketOutcome ExchangeOnSocket(int socket, const SocketRequest& request, ExchangeResponse* response) {
  SocketOutcome outcome;
  const std::chrono::milliseconds timeout(request.readTimeoutMs);
  // The request goes in one write, but a body longer than a segment would
  // otherwise wait with its last bytes for the device's acknowledgement.
  int on = 1;
  setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  iovec parts[2] = {{const_cast<char*>(request.head.data()), request.head.size()},
                    {const_cast<uint8_t*>(request.body), request.bodyLength}};
  outcome.result = SendAll(socket, parts, request.bodyLength > 0 ? 2 : 1, timeout);
  if (outcome.result != CURLE_OK) return outcome;

  HttpResponseReader reader(request.noBody, request.maxBody);
  uint8_t buffer[16 * 1024];
  auto deadline = Clock::now() + timeout;
  // The answer is rarely there the moment the request has gone: wait first.
  bool wait = true;
  for (;;) {
    if (wait) {
      int ready = WaitFor(socket, POLLIN, deadline);
      if (ready == 0) {
        outcome.result = CURLE_OPERATION_TIMEDOUT;
        break;
      }
      if (ready < 0) {
        outcome.result = CURLE_RECV_ERROR;
        break;
      }
    }
    ssize_t got = recv(socket, buffer, sizeof buffer, 0);
    if (got < 0) {
      wait = errno != EINTR;
      if (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK) continue;
      outcome.result = CURLE_RECV_ERROR;
      break;
    }
    HttpResponseReader::State state =
        got == 0 ? reader.End() : reader.Feed(buffer, static_cast<size_t>(got));
    if (state == HttpResponseReader::State::kDone) break;
    if (state == HttpResponseReader::State::kFailed) {
      outcome.result = FaultResult(reader);
      break;
    }
    deadline = Clock::now() + timeout;
    // A full buffer means more is probably waiting already.
    wait = static_cast<size_t>(got) < sizeof buffer;
  }
  outcome.answered = reader.Started();
  if (outcome.result == CURLE_OK) {
    outcome.reusable = reader.Reusable();
    *response = std::move(reader.Response());
  }
  return outcome;
}

}  // namespace NorvaneHost
