// What clients asked for, so an integration test can check what the library sent:
// how often a document was fetched (caching), and the exact last request for a path
// (headers such as Expect, the SOAP envelope and its message ids).
#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <string>

namespace PrinterSim {

class RequestJournal {
 public:
  // `head` is the request line and headers as received, one per line.
  void Record(const std::string& path, std::string head, std::string body);
  void Clear();

  // "COUNT PATH" lines for every path seen.
  std::string Summary() const;

  // "count: N" then, when N > 0, a blank line, the head of the last request, a blank
  // line and its body.
  std::string Describe(const std::string& path) const;

 private:
  struct Entry {
    std::size_t count = 0;
    std::string lastHead;
    std::string lastBody;
  };

  mutable std::mutex mutex_;
  std::map<std::string, Entry> entries_;
};

}  // namespace PrinterSim
