#include "platform/uuid.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/unique_fd.h"

namespace Norvane {

std::string GenerateUuid() {
  unsigned char b[16];
  UniqueFd fd(open("/dev/urandom", O_RDONLY | O_CLOEXEC));
  if (!fd.valid()) return {};
  size_t got = 0;
  while (got < sizeof b) {
    ssize_t n = read(fd.get(), b + got, sizeof b - got);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    got += static_cast<size_t>(n);
  }
  if (got != sizeof b) return {};
  b[6] = static_cast<unsigned char>((b[6] & 0x0F) | 0x40);
  b[8] = static_cast<unsigned char>((b[8] & 0x3F) | 0x80);
  char text[37];
  std::snprintf(text, sizeof text, "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x", b[0], b[1],
                b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13], b[14], b[15]);
  return text;
}

}  // namespace Norvane
