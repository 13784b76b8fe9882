// A pass phrase held by the host. Its bytes are overwritten whenever the value
// is dropped, replaced or moved away, so a freed address or connection leaves
// no readable copy behind in the heap.
#pragma once

#include <cstddef>
#include <string>

namespace NorvaneHost {

class Secret {
 public:
  Secret() = default;
  // Takes the text and wipes the caller's string.
  explicit Secret(std::string&& text);
  Secret(const Secret& other);
  // Copies and wipes the source: a moved short string keeps its bytes.
  Secret(Secret&& other);
  Secret& operator=(const Secret& other);
  Secret& operator=(Secret&& other);
  ~Secret();

  const std::string& Text() const { return text_; }
  size_t size() const { return text_.size(); }
  bool empty() const { return text_.empty(); }

 private:
  std::string text_;
};

}  // namespace NorvaneHost
