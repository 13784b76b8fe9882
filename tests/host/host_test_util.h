// Helpers shared by the host transport's tests.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>

#include "norvane/host.h"
#include "support/ref.h"

namespace NorvaneHostTest {

using QxUtils::Ref;

// One chunk as the library frames it: "%X\r\n", the bytes, "\r\n".
inline std::string Frame(const std::string& payload) {
  char head[24];
  std::snprintf(head, sizeof head, "%zX\r\n", payload.size());
  return head + payload + "\r\n";
}
inline const std::string kLastChunk = "0\r\n\r\n";

inline const uint8_t* Bytes(const std::string& text) { return reinterpret_cast<const uint8_t*>(text.data()); }

inline std::u16string Wide(const std::string& ascii) { return std::u16string(ascii.begin(), ascii.end()); }

inline std::string BodyOf(Norvane::HTTPResponse* response) {
  if (response == nullptr || response->GetBody() == nullptr) return {};
  return std::string(reinterpret_cast<const char*>(response->GetBody()), response->GetBodyLength());
}

// A made-up printable payload of the given size whose bytes depend on position,
// so that a lost, doubled or reordered piece shows.
inline std::string Pattern(size_t size, unsigned seed = 1) {
  std::string text(size, '\0');
  uint32_t state = seed * 2654435761u + 1;
  for (size_t i = 0; i < size; ++i) {
    state = state * 1664525u + 1013904223u;
    text[i] = static_cast<char>('!' + (state >> 24) % 90);
  }
  return text;
}

inline double SecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace NorvaneHostTest
