// Data collection and single-request entry points.
#include "norvane/api.h"
#include "support/log.h"

QX_LOG_SOURCE_FILE()

namespace {
// The collection engine is not in this build yet: every creation answers as for
// a device that no data map can reach.
constexpr HRESULT kNoUsableDataMap = E_FAIL;
// Single requests answer as for a missing address or an unusable device.
constexpr HRESULT kSingleRequestUnavailable = 108;
}  // namespace

extern "C" HRESULT CreateDataCollectionFromFile(Norvane::Address* address, const char16_t* path,
                                                Norvane::DataCollection** collection,
                                                Norvane::ICacheProvider* cache) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreateDataCollectionFromFile");
  (void)address, (void)path, (void)collection, (void)cache;
  return kNoUsableDataMap;
}

extern "C" HRESULT CreateDataCollectionFromXML(Norvane::Address* address, const char16_t* xml,
                                               Norvane::DataCollection** collection,
                                               Norvane::ICacheProvider* cache) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreateDataCollectionFromXML");
  (void)address, (void)xml, (void)collection, (void)cache;
  return kNoUsableDataMap;
}

extern "C" HRESULT CreateDataCollectionFromDOM(Norvane::Address* address, xmlNode* node,
                                               Norvane::DataCollection** collection,
                                               Norvane::ICacheProvider* cache) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreateDataCollectionFromDOM");
  (void)address, (void)node, (void)collection, (void)cache;
  return kNoUsableDataMap;
}

extern "C" HRESULT CreateDataCollectionFromDataMapSpecsCollection(Norvane::Address* address,
                                                                  Norvane::DataMapSpecCollection* specs,
                                                                  Norvane::DataCollection** collection,
                                                                  Norvane::ICacheProvider* cache) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreateDataCollectionFromDataMapSpecsCollection");
  (void)address, (void)specs, (void)collection, (void)cache;
  return kNoUsableDataMap;
}

extern "C" HRESULT GetValueFromSingleRequest(Norvane::Address* address, const char16_t* xml, VARIANT* value) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::GetValueFromSingleRequest");
  (void)address, (void)xml, (void)value;
  return kSingleRequestUnavailable;
}

extern "C" HRESULT SetValueFromSingleRequest(Norvane::Address* address, const char16_t* xml, VARIANT* value) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::SetValueFromSingleRequest");
  (void)address, (void)xml, (void)value;
  return kSingleRequestUnavailable;
}
