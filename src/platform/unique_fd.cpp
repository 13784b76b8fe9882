#include "platform/unique_fd.h"

#include <unistd.h>

#include <cerrno>

namespace Norvane {

void UniqueFd::Reset(int fd) {
  int old = std::exchange(fd_, fd);
  if (old >= 0) close(old);
}

bool WriteAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t n = write(fd, bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

}  // namespace Norvane
