#include "allow_list.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <cstring>
#include <memory>

#include "cli.h"

namespace NorvaneCli {

void AllowList::Add(const std::string& ranges) {
  size_t start = 0;
  while (start <= ranges.size()) {
    size_t comma = ranges.find(',', start);
    std::string item = ranges.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
    start = comma == std::string::npos ? ranges.size() + 1 : comma + 1;
    if (item.empty()) continue;
    Range range{};
    std::string address = item.substr(0, item.find('/'));
    range.family = address.find(':') != std::string::npos ? AF_INET6 : AF_INET;
    const unsigned width = range.family == AF_INET ? 32 : 128;
    range.bits = width;
    bool ok = inet_pton(range.family, address.c_str(), range.bytes) == 1;
    if (ok && item.size() > address.size()) {
      std::string bits = item.substr(address.size() + 1);
      ok = !bits.empty() && bits.size() <= 3 && bits.find_first_not_of("0123456789") == std::string::npos &&
           std::stoul(bits) <= width;
      if (ok) range.bits = static_cast<unsigned>(std::stoul(bits));
    }
    if (!ok) throw Failure(kExitUsage, "--allow: '" + item + "' is not an address or ADDRESS/BITS range");
    ranges_.push_back(range);
  }
}

bool AllowList::Contains(int family, const unsigned char* bytes) const {
  for (const auto& range : ranges_) {
    if (range.family != family) continue;
    unsigned whole = range.bits / 8, rest = range.bits % 8;
    if (std::memcmp(range.bytes, bytes, whole) != 0) continue;
    unsigned char mask = static_cast<unsigned char>(0xFF00 >> rest);
    if (rest == 0 || ((range.bytes[whole] ^ bytes[whole]) & mask) == 0) return true;
  }
  return false;
}

std::string AllowList::Resolve(const std::string& host, std::string* why) const {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (int error = getaddrinfo(host.c_str(), nullptr, &hints, &found); error != 0) {
    *why = "cannot resolve host name '" + host + "': " + gai_strerror(error);
    return {};
  }
  std::unique_ptr<addrinfo, void (*)(addrinfo*)> hold(found, freeaddrinfo);
  char text[INET6_ADDRSTRLEN] = "";
  const unsigned char* bytes;
  if (found->ai_family == AF_INET) {
    bytes = reinterpret_cast<const unsigned char*>(&reinterpret_cast<sockaddr_in*>(found->ai_addr)->sin_addr);
  } else {
    bytes = reinterpret_cast<const unsigned char*>(&reinterpret_cast<sockaddr_in6*>(found->ai_addr)->sin6_addr);
  }
  inet_ntop(found->ai_family, bytes, text, sizeof text);
  if (!Contains(found->ai_family, bytes)) {
    *why = std::string(text) + " is outside the ranges --allow gives";
    return {};
  }
  return text;
}

}  // namespace NorvaneCli
