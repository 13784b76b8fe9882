// Printer URIs reach the provider from hosts and from users' configuration:
// arbitrary text goes through the port cut, URL cracking and the scheme and
// port-name tests, and the results must describe the input.
#include <cstddef>
#include <cstdint>
#include <string>

#include "ipp/ipp_provider_impl.h"
#include "support/string_utils.h"

using Norvane::IPPProviderImpl;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::u16string uri = QxUtils::Utf8ToWide(std::string_view(reinterpret_cast<const char*>(data), size));
  // Embedded terminators would cut the text for the C-string tests.
  for (char16_t& c : uri) {
    if (c == 0) c = u' ';
  }

  std::u16string port, rest;
  IPPProviderImpl::SplitPortFromURI(uri, &port, &rest);
  // Either nothing was cut, or exactly one colon and the port text.
  if (rest != uri && rest.size() + port.size() + 1 != uri.size()) __builtin_trap();

  std::u16string resource, full;
  uint32_t error = IPPProviderImpl::CrackPrinterURI(rest, &resource, &full);
  if (error == 0) {
    if (resource.size() < 4 || full != rest || rest.find(resource) == std::u16string::npos) __builtin_trap();
  } else if (error != 87 && error != 1796 && error != 0x20000003 && error != 0x20000004) {
    __builtin_trap();
  }

  IPPProviderImpl::GetURIScheme(uri.c_str());
  if (IPPProviderImpl::IsUSBPort(uri.c_str()) && (uri.size() != 6 || uri.compare(0, 3, u"USB") != 0)) {
    __builtin_trap();
  }
  return 0;
}
