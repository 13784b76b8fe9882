// Per-address settings, copied into each request or connection when it is made.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "secret.h"

namespace NorvaneHost {

struct HttpSettings {
  uint32_t connectTimeoutMs = 5000;
  uint32_t readTimeoutMs = 30000;
};

// SNMPv3's user-based security. The pass phrases become keys when a
// connection opens; nothing prints or logs them, and every copy is wiped
// when it is dropped.
struct SnmpUserSecurity {
  std::string user;
  std::string context;
  uint32_t level = 1;         // NORVANE_SNMP_NO_AUTH_NO_PRIV and up
  uint32_t authProtocol = 0;  // NORVANE_SNMP_AUTH_*, 0: none set
  Secret authPassphrase;
  uint32_t privProtocol = 0;  // NORVANE_SNMP_PRIV_*, 0: none set
  Secret privPassphrase;
};

// net-snmp refuses shorter pass phrases when it makes keys of them.
constexpr size_t kMinSnmpPassphrase = 8;

struct SnmpSettings {
  std::string community = "public";
  uint32_t version = 2;  // 1 = v1, 2 = v2c, 3 = v3 with `v3`
  uint32_t port = 161;
  uint32_t timeoutMs = 2000;
  uint32_t retries = 1;
  SnmpUserSecurity v3;
};

}  // namespace NorvaneHost
