// The printer's localised strings resource: the printer tells over IPP which
// languages it generates, which one it is configured for and where its strings
// file lies; the file for the chosen language is then read with a plain HTTP
// GET on the printer itself.
#pragma once

#include <cstdint>
#include <string>

#include "norvane/platform.h"
#include "norvane/transport.h"

namespace Norvane {

// Status of a strings fetch whose HTTP exchange failed or was not answered
// with 200; the thread's last error is then kStringsFetchLastError.
inline constexpr HRESULT kStringsFetchFailed = static_cast<HRESULT>(0x80190001);
inline constexpr uint32_t kStringsFetchLastError = 30;

struct StringsResource {
  std::u16string path;  // resource path on the printer; empty when none remains
  uint32_t port;        // 631 when the URI named that port, 8080 otherwise
};

// Rewrites the strings URI the printer advertises into a resource path on the
// printer for `locale`: the scheme, host address and port are cut out, and the
// letters of the file name before its first "." stand for the language.
StringsResource LocateStringsResource(const std::u16string& stringsUri, const std::u16string& locale);

// Fetches the strings for `requestedLocale` (or, when the printer does not
// generate it, its configured language). 0 with `localeStrings` set;
// E_FAIL before the HTTP exchange or for an empty body; kStringsFetchFailed
// when the exchange fails.
HRESULT FetchDeviceLocaleStrings(Address* address, const std::u16string& requestedLocale,
                                 std::u16string& localeStrings);

}  // namespace Norvane
