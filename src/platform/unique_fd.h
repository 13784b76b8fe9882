// A file descriptor closed on scope exit, and writing a whole buffer to one.
#pragma once

#include <string_view>
#include <utility>

namespace Norvane {

class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) Reset(std::exchange(other.fd_, -1));
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd() { Reset(); }

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  void Reset(int fd = -1);

 private:
  int fd_ = -1;
};

// Writes all of `bytes`, resuming after short writes and signals; false (errno
// set) when the descriptor refuses the rest.
bool WriteAll(int fd, std::string_view bytes);

}  // namespace Norvane
