#include "text.h"

#include <cstring>

namespace NorvaneHost {

// The exported names of the shared conversion, for hosts that have no
// internal headers.
std::string ToUtf8(std::u16string_view text) { return WideToUtf8(text); }
std::u16string ToUtf16(std::string_view text) { return Utf8ToWide(text); }

bool EqualsIgnoreAsciiCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
    if (x != y) return false;
  }
  return true;
}

std::string_view TrimSpaces(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r' ||
                           text.back() == '\n')) {
    text.remove_suffix(1);
  }
  return text;
}

void Wipe(std::string& secret) {
  // The whole buffer, not just the text: a shorter value assigned earlier
  // leaves the longer one's tail behind its terminator.
  explicit_bzero(secret.data(), secret.capacity());
  secret.clear();
}

}  // namespace NorvaneHost
