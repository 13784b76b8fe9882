// `serve --allow`: the address ranges a probe may reach. A target outside them
// is refused before any packet is sent to it.
#pragma once

#include <netinet/in.h>

#include <string>
#include <vector>

namespace NorvaneCli {

class AllowList {
 public:
  // "10.0.0.0/8,192.0.2.7,fd00::/8"; a Failure (usage) names a bad range.
  void Add(const std::string& ranges);
  bool Empty() const { return ranges_.empty(); }
  // The host resolved to its first address, as text, when that address is in a
  // range; empty otherwise. The probe then talks to that address, so a name that
  // resolves differently the second time cannot lead it elsewhere.
  std::string Resolve(const std::string& host, std::string* why) const;

 private:
  struct Range {
    int family;
    unsigned char bytes[16];
    unsigned bits;
  };
  bool Contains(int family, const unsigned char* bytes) const;
  std::vector<Range> ranges_;
};

}  // namespace NorvaneCli
