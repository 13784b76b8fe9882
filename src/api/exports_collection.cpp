// Data collection and single-request entry points.
#include "engine/data_collection_impl.h"
#include "engine/requestor.h"
#include "norvane/api.h"
#include "support/log.h"

QX_LOG_SOURCE_FILE()

extern "C" HRESULT CreateDataCollectionFromFile(Norvane::Address* address, const char16_t* path,
                                                Norvane::DataCollection** collection, Norvane::ICacheProvider* cache) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreateDataCollectionFromFile");
  return Norvane::DataCollectionImpl::CreateFromFile(address, path, collection, cache);
}

extern "C" HRESULT CreateDataCollectionFromXML(Norvane::Address* address, const char16_t* xml,
                                               Norvane::DataCollection** collection, Norvane::ICacheProvider* cache) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreateDataCollectionFromXML");
  return Norvane::DataCollectionImpl::CreateFromXML(address, xml, collection, cache);
}

extern "C" HRESULT CreateDataCollectionFromDOM(Norvane::Address* address, xmlNode* node,
                                               Norvane::DataCollection** collection, Norvane::ICacheProvider* cache) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreateDataCollectionFromDOM");
  return Norvane::DataCollectionImpl::CreateFromDOM(address, node, collection, cache);
}

extern "C" HRESULT CreateDataCollectionFromDataMapSpecsCollection(Norvane::Address* address,
                                                                  Norvane::DataMapSpecCollection* specs,
                                                                  Norvane::DataCollection** collection,
                                                                  Norvane::ICacheProvider* cache) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::CreateDataCollectionFromDataMapSpecsCollection");
  return Norvane::DataCollectionImpl::CreateFromSpecs(address, specs, collection, cache);
}

extern "C" HRESULT GetValueFromSingleRequest(Norvane::Address* address, const char16_t* xml, VARIANT* value) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::GetValueFromSingleRequest");
  return Norvane::Requestor::GetValueFromSingleRequest(address, xml, value);
}

extern "C" HRESULT SetValueFromSingleRequest(Norvane::Address* address, const char16_t* xml, VARIANT* value) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::SetValueFromSingleRequest");
  return Norvane::Requestor::SetValueFromSingleRequest(address, xml, value);
}
