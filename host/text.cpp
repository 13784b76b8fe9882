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
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r' || text.back() == '\n')) {
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

namespace {

bool StartsWithIgnoreCase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && EqualsIgnoreAsciiCase(text.substr(0, prefix.size()), prefix);
}

}  // namespace

std::string Redact(std::string_view line) {
  std::string out;
  out.reserve(line.size());
  size_t at = 0;
  while (at < line.size()) {
    std::string_view rest = line.substr(at);
    if (StartsWithIgnoreCase(rest, "authorization:") || StartsWithIgnoreCase(rest, "proxy-authorization:")) {
      // The field name and the scheme stay: which scheme went is worth knowing.
      size_t colon = rest.find(':');
      size_t scheme = rest.find_first_not_of(' ', colon + 1);
      size_t end = scheme == std::string_view::npos ? rest.size() : rest.find(' ', scheme);
      if (end == std::string_view::npos) end = colon + 1;  // a bare credential: all of it goes
      out.append(rest.substr(0, end)).append(" ***");
      break;  // nothing after the value but the line's end
    }
    if (rest.starts_with("://")) {
      std::string_view authority = rest.substr(3, rest.find_first_of("/?# ", 3) - 3);
      size_t userEnd = authority.rfind('@');
      out.append("://");
      at += 3;
      if (userEnd != std::string_view::npos) {
        out.append("***");
        at += userEnd;
      }
      continue;
    }
    out.push_back(line[at++]);
  }
  return out;
}

}  // namespace NorvaneHost
