#include "ipp/ipp_locale_strings.h"
#include "norvane/api.h"
#include "support/log.h"

QX_LOG_SOURCE_FILE()

extern "C" HRESULT GetDeviceLocaleStrings(Norvane::Address* address, std::u16string requestedLocale,
                                          std::u16string& localeStrings) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::GetDeviceLocaleStrings");
  return Norvane::FetchDeviceLocaleStrings(address, requestedLocale, localeStrings);
}
