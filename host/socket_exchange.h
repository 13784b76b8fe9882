// A whole-body HTTP/1.1 exchange the host writes and reads itself on a
// connection it already holds (the library's connect probe), rather than
// through libcurl. On an open connection to a printer an exchange is one write
// and a read or two; libcurl's machinery around them costs more than the
// exchange itself, and a provider's creation is that one exchange.
#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "http_response_reader.h"

namespace NorvaneHost {

struct SocketRequest {
  std::string head;  // request line and fields, up to and with the empty line
  const uint8_t* body = nullptr;
  size_t bodyLength = 0;
  bool noBody = false;  // a HEAD request: the answer has no body
  size_t maxBody = 0;
  uint32_t readTimeoutMs = 30000;
};

struct SocketOutcome {
  CURLcode result = CURLE_OK;  // in libcurl's terms, as the host reports every failure
  bool answered = false;       // some byte of an answer came
  bool reusable = false;       // the connection may carry the next request
};

// Sends `request` on the connected socket `socket` and reads the answer into
// `response` (complete when the result is CURLE_OK). The socket stays the
// caller's.
SocketOutcome ExchangeOnSocket(int socket, const SocketRequest& request, ExchangeResponse* response);

}  // namespace NorvaneHost
