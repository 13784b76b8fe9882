// Per-address settings, copied into each request or connection when it is made.
#pragma once

#include <cstdint>
#include <string>

namespace NorvaneHost {

struct HttpSettings {
  uint32_t connectTimeoutMs = 5000;
  uint32_t readTimeoutMs = 30000;
};

struct SnmpSettings {
  std::string community = "public";
  uint32_t version = 2;  // 1 = v1, 2 = v2c
  uint32_t port = 161;
  uint32_t timeoutMs = 2000;
  uint32_t retries = 1;
};

}  // namespace NorvaneHost
