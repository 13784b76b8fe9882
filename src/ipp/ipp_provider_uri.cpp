// Printer URI handling of the IPP provider: scheme classes, port names, the
// port cut out of a URI, and URL cracking.
#include <cwctype>

#include "ipp/ipp_provider_impl.h"
#include "norvane/platform.h"

namespace Norvane {

namespace {

// Buffer sizes of the cracker the provider was written against, in
// characters with the terminator: longer parts do not crack.
constexpr size_t kMaxScheme = 32;
constexpr size_t kMaxHost = 256;
constexpr size_t kMaxPath = 2048;

bool IsSchemeChar(char16_t c) {
  return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') || c == u'+' || c == u'-' ||
         c == u'.';
}

bool EqualsAscii(std::u16string_view a, std::u16string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char16_t x = a[i] >= u'A' && a[i] <= u'Z' ? a[i] + 32 : a[i];
    if (x != b[i]) return false;
  }
  return true;
}

}  // namespace

IppUriScheme IPPProviderImpl::GetURIScheme(const char16_t* uri) {
  if (uri == nullptr) return IppUriScheme::kOther;
  std::u16string_view text(uri);
  if (text.starts_with(u"ipps")) return IppUriScheme::kSecureIpp;
  if (text.starts_with(u"ipp")) return IppUriScheme::kPlainIpp;
  if (text.starts_with(u"http")) return IppUriScheme::kHttp;
  return IppUriScheme::kOther;
}

bool IPPProviderImpl::IsUSBPort(const char16_t* text) {
  // The whole text is USB and three digits, not 000 (every creation asks, so
  // no regular expression).
  if (text == nullptr) return false;
  std::u16string_view name(text);
  if (name.size() != 6 || !name.starts_with(u"USB") || name == u"USB000") return false;
  for (char16_t c : name.substr(3)) {
    if (c < u'0' || c > u'9') return false;
  }
  return true;
}

void IPPProviderImpl::SplitPortFromURI(std::u16string_view uri, std::u16string* port, std::u16string* rest) {
  port->clear();
  rest->assign(uri);
  size_t first = uri.find(u':');
  size_t last = uri.rfind(u':');
  if (first == std::u16string_view::npos || last == first) return;
  size_t end = uri.find(u'/', last + 1);
  std::u16string_view text = uri.substr(last + 1, end == std::u16string_view::npos ? end : end - last - 1);
  // The last colon of a bracketed IPv6 host without a port is not a port
  // separator.
  if (text.find(u']') != std::u16string_view::npos) return;
  port->assign(text);
  rest->assign(uri.substr(0, last));
  if (end != std::u16string_view::npos) rest->append(uri.substr(end));
}

bool IPPProviderImpl::CrackUrl(std::u16string_view uri, CrackedUri* parts) {
  *parts = CrackedUri{};
  size_t colon = uri.find(u':');
  if (colon == 0 || colon == std::u16string_view::npos || colon > kMaxScheme - 1) return false;
  for (size_t i = 0; i < colon; ++i) {
    if (!IsSchemeChar(uri[i])) return false;
  }
  if (uri.substr(colon + 1, 2) != u"//") return false;
  parts->scheme.assign(uri.substr(0, colon));

  size_t authorityStart = colon + 3;
  size_t authorityEnd = uri.find_first_of(u"/?#", authorityStart);
  if (authorityEnd == std::u16string_view::npos) authorityEnd = uri.size();
  std::u16string_view authority = uri.substr(authorityStart, authorityEnd - authorityStart);
  size_t at = authority.rfind(u'@');
  if (at != std::u16string_view::npos) authority.remove_prefix(at + 1);

  std::u16string_view host;
  std::u16string_view portText;
  if (!authority.empty() && authority[0] == u'[') {
    size_t close = authority.find(u']');
    if (close == std::u16string_view::npos) return false;
    host = authority.substr(1, close - 1);
    std::u16string_view after = authority.substr(close + 1);
    if (!after.empty()) {
      if (after[0] != u':') return false;
      portText = after.substr(1);
    }
  } else {
    size_t portColon = authority.find(u':');
    host = authority.substr(0, portColon);
    if (portColon != std::u16string_view::npos) portText = authority.substr(portColon + 1);
  }
  if (host.empty() || host.size() > kMaxHost - 1) return false;
  parts->host.assign(host);

  if (!portText.empty()) {
    uint32_t port = 0;
    for (char16_t c : portText) {
      if (c < u'0' || c > u'9') return false;
      port = port * 10 + (c - u'0');
      if (port > 65535) return false;
    }
    parts->port = port;
  } else if (EqualsAscii(parts->scheme, u"http")) {
    parts->port = 80;
  } else if (EqualsAscii(parts->scheme, u"https")) {
    parts->port = 443;
  }

  std::u16string_view path = uri.substr(authorityEnd);
  size_t fragment = path.find(u'#');
  if (fragment != std::u16string_view::npos) path = path.substr(0, fragment);
  if (path.size() > kMaxPath - 1) return false;
  parts->path.assign(path);
  return true;
}

uint32_t IPPProviderImpl::CrackPrinterURI(std::u16string_view uri, std::u16string* resource, std::u16string* full) {
  CrackedUri parts;
  if (!CrackUrl(uri, &parts)) return ERROR_INVALID_PARAMETER;
  if (parts.port != 0 && parts.port != 631 && parts.port != 443) return kErrorInvalidPort;
  if (parts.path.empty()) return kIppErrorEmptyResource;
  if (parts.path.size() < 4) return kIppErrorShortResource;
  *resource = std::move(parts.path);
  full->assign(uri);
  return 0;
}

}  // namespace Norvane
