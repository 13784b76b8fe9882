#include "url.h"

#include <arpa/inet.h>

#include "text.h"

namespace NorvaneHost {

namespace {

bool IsUnreservedOrReserved(unsigned char c) {
  if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
  switch (c) {
    case '-':
    case '.':
    case '_':
    case '~':  // unreserved
    case ':':
    case '/':
    case '?':
    case '#':
    case '[':
    case ']':
    case '@':  // gen-delims
    case '!':
    case '$':
    case '&':
    case '\'':
    case '(':
    case ')':
    case '*':
    case '+':
    case ',':
    case ';':
    case '=':  // sub-delims
      return true;
    default:
      return false;
  }
}

bool IsHex(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

bool IsValidIpv6(const std::string& text) {
  std::string address = text.substr(0, text.find('%'));
  in6_addr parsed;
  return inet_pton(AF_INET6, address.c_str(), &parsed) == 1;
}

}  // namespace

std::optional<HostName> ParseHostName(std::u16string_view text) {
  std::string host = WideToUtf8(text);
  if (host.size() >= 2 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
    if (!IsValidIpv6(host)) return std::nullopt;
    return HostName{host, true};
  }
  if (host.empty()) return std::nullopt;
  if (host.find(':') != std::string::npos) {
    if (!IsValidIpv6(host)) return std::nullopt;
    return HostName{host, true};
  }
  for (unsigned char c : host) {
    if (c <= ' ' || c == 0x7F) return std::nullopt;
    if (c == '/' || c == '?' || c == '#' || c == '@' || c == '[' || c == ']' || c == '%' || c == '\\') {
      return std::nullopt;
    }
  }
  return HostName{host, false};
}

std::optional<uint32_t> ParsePort(std::u16string_view text) {
  if (text.empty() || text.size() > 5) return std::nullopt;
  uint32_t value = 0;
  for (char16_t c : text) {
    if (c < u'0' || c > u'9') return std::nullopt;
    value = value * 10 + (c - u'0');
  }
  if (value == 0 || value > 65535) return std::nullopt;
  return value;
}

uint32_t EffectivePort(uint32_t asked, std::u16string_view portText) {
  if (!IsIppPort(asked)) return asked;
  return ParsePort(portText).value_or(asked);
}

std::string ResourcePath(std::string_view resource) {
  std::string_view rest = resource;
  size_t scheme = rest.find("://");
  size_t firstSlash = rest.find('/');
  if (scheme != std::string_view::npos && scheme > 0 && scheme < firstSlash) {
    rest.remove_prefix(scheme + 3);
    size_t pathStart = rest.find_first_of("/?#");
    rest = pathStart == std::string_view::npos ? std::string_view() : rest.substr(pathStart);
  }
  size_t fragment = rest.find('#');
  if (fragment != std::string_view::npos) rest = rest.substr(0, fragment);

  std::string path;
  if (rest.empty() || rest.front() != '/') path.push_back('/');
  static const char kHex[] = "0123456789ABCDEF";
  for (size_t i = 0; i < rest.size(); ++i) {
    unsigned char c = static_cast<unsigned char>(rest[i]);
    if (c == '%' && i + 2 < rest.size() && IsHex(rest[i + 1]) && IsHex(rest[i + 2])) {
      path.push_back('%');
    } else if (IsUnreservedOrReserved(c) && c != '#') {
      path.push_back(static_cast<char>(c));
    } else {
      path.push_back('%');
      path.push_back(kHex[c >> 4]);
      path.push_back(kHex[c & 0xF]);
    }
  }
  return path;
}

std::string BuildUrl(const HostName& host, bool tls, uint32_t port, std::string_view resource) {
  std::string url = tls ? "https://" : "http://";
  if (host.ipv6) {
    url += '[';
    size_t zone = host.text.find('%');
    if (zone == std::string::npos) {
      url += host.text;
    } else {
      url += host.text.substr(0, zone);
      url += "%25";
      url += host.text.substr(zone + 1);
    }
    url += ']';
  } else {
    url += host.text;
  }
  url += ':';
  url += std::to_string(port);
  url += ResourcePath(resource);
  return url;
}

std::string SnmpPeerName(const HostName& host, uint32_t port) {
  if (host.ipv6) return "udp6:[" + host.text + "]:" + std::to_string(port);
  return "udp:" + host.text + ":" + std::to_string(port);
}

}  // namespace NorvaneHost
