#include "norvane/api.h"
#include "support/log.h"

QX_LOG_SOURCE_FILE()

extern "C" HRESULT GetDeviceLocaleStrings(Norvane::Address* address, std::u16string requestedLocale,
                                          std::u16string& localeStrings) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::GetDeviceLocaleStrings");
  (void)requestedLocale, (void)localeStrings;
  if (address == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return E_FAIL;
  }
  // Without the IPP provider no strings resource can be found.
  QX_LOG(QxLogging::kStandout, "IPPProvider failed!!");
  return E_FAIL;
}
