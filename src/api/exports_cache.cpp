// Cache factories.
#include "norvane/api.h"
#include "support/log.h"

QX_LOG_SOURCE_FILE()

extern "C" Norvane::ICacheProvider* CreateRegCacheProvider(const char16_t* keyPath) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreateRegCacheProvider");
  (void)keyPath;
  return nullptr;  // the persistent store is not in this build yet
}

extern "C" Norvane::ICacheProvider* CreatePrintDataCacheProvider(uintptr_t printerHandle) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreatePrintDataCacheProvider");
  (void)printerHandle;
  return nullptr;
}
