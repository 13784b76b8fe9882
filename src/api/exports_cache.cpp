// Cache factories.
#include "norvane/api.h"
#include "norvane/cache.h"
#include "support/log.h"

QX_LOG_SOURCE_FILE()

extern "C" Norvane::ICacheProvider* CreateRegCacheProvider(const char16_t* keyPath) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreateRegCacheProvider");
  return Norvane::RegCacheProvider::Create(keyPath);
}

extern "C" Norvane::ICacheProvider* CreatePrintDataCacheProvider(uintptr_t printerHandle) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreatePrintDataCacheProvider");
  return Norvane::PrintDataCacheProvider::Create(printerHandle);
}
