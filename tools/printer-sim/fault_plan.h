// How one answer departs from a healthy device.
//
// A plan is written as a comma-separated list of terms, optionally followed by "@N" to
// limit it to the next N requests for the path:
//
//   404 | 500 | status:NNN   answer with that status and a short error body
//   delay:MS                 wait MS milliseconds before sending anything
//   slow:MS                  send the headers at once, then trickle the body over MS ms
//   truncate[:N]             announce the full Content-Length, send N bytes (default
//                            half the body), then close the connection
//   stall:MS                 with truncate: after those bytes go silent for MS ms before
//                            closing, as a device that hangs mid-answer
//   chunked                  frame the body with Transfer-Encoding: chunked instead of
//                            Content-Length (healthy, but exercises the other framing)
//   early                    for a POST: answer (403 unless a status is given) from the
//                            request head alone, without reading the body, and close,
//                            as a device refusing a job it is still being sent
//   basic:USER:PASS          answer 401 with a Basic challenge unless the request
//                            carries these credentials
//   rotate                   replace every "{rotation}" in a document with a number
//                            that changes on every answer, as a device whose resource
//                            URIs change each time its discovery tree is read
//
// Examples: "500", "delay:3000", "slow:1500,truncate:40", "truncate:40,stall:30000", "503@1".
#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace PrinterSim {

struct FaultPlan {
  std::optional<int> status;           // replaces the normal answer
  std::chrono::milliseconds delay{0};  // before the status line
  std::chrono::milliseconds slow{0};   // spread over the body
  std::chrono::milliseconds stall{0};  // silence after a truncated body
  bool truncate = false;
  std::optional<std::size_t> truncateAt;  // bytes actually sent; none = half
  bool chunked = false;
  bool early = false;
  std::string basic;  // "USER:PASS" asked for; empty = none
  bool rotate = false;
  int remaining = -1;  // requests left; -1 = until cleared

  // The plan's text in the same syntax it was parsed from, for logs and listings.
  std::string Describe() const;
};

// Parses the syntax above. Returns nullopt and sets `error` on anything it does not
// understand, so a typo on the command line stops the simulator instead of silently
// serving a healthy answer.
std::optional<FaultPlan> ParseFaultPlan(std::string_view text, std::string& error);

// Plans by URL path, shared by all listeners. Thread-safe.
class FaultTable {
 public:
  void Set(const std::string& path, const FaultPlan& plan);
  void Remove(const std::string& path);
  void Clear();

  // The plan for `path`, consuming one use of a counted plan. A plan whose count
  // reaches zero is removed, so "500@1" fails exactly one request. With `earlyOnly`
  // a plan that is not "early" is left for the answer after the body.
  std::optional<FaultPlan> Take(const std::string& path, bool earlyOnly = false);

  // One "PATH=PLAN" line per entry.
  std::string List() const;

 private:
  mutable std::mutex mutex_;
  std::map<std::string, FaultPlan> plans_;
};

}  // namespace PrinterSim
