// What the integration bench tells its command about the peers: the one reader
// of its environment for every integration suite.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace NorvaneBench {

// An unset or empty variable gives the fallback.
inline std::string BenchValue(const char* name, const char* fallback = "") {
  const char* value = std::getenv(name);
  return value != nullptr && *value != 0 ? value : fallback;
}

inline uint32_t BenchPort(const char* name, uint32_t fallback) {
  std::string text = BenchValue(name);
  return text.empty() ? fallback : static_cast<uint32_t>(std::stoul(text));
}

// Peers listen only inside the bench; anywhere else the tests have nobody to talk to.
#define NORVANE_REQUIRE_BENCH()                               \
  do {                                                        \
    if (::NorvaneBench::BenchValue("NORVANE_BENCH") != "1") { \
      GTEST_SKIP() << "needs tests/integration/bench.sh";     \
    }                                                         \
  } while (0)

}  // namespace NorvaneBench
