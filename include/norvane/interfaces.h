// The exported interfaces the library hands to hosts. Every one is reference
// counted: a factory returns one reference that the caller releases with Dispose.
#pragma once

#include <cstdint>

#include "norvane/disposable.h"
#include "norvane/platform.h"
#include "norvane/values.h"

namespace Norvane {

class IPPRequestBase;
class IPPResponseBase;

class NORVANE_API DataCollection : public IDisposable {
 public:
  DataCollection();
  ~DataCollection() override;
  // Reads one value by key ("name" or "prefix:name") into a caller-owned variant.
  virtual HRESULT GetValue(const char16_t* key, VARIANT* value) = 0;
  // Forgets every value held under "prefix:name".
  virtual HRESULT RemoveValuesWithPrefix(const char16_t* prefix) = 0;
};

class NORVANE_API ICacheProvider : public IDisposable {
 public:
  virtual HRESULT GetDataValue(const char16_t* name, VARIANT* value) = 0;
  // time: the read time of the value, or 0 for a value that never expires.
  virtual HRESULT SetDataValue(const char16_t* name, const VARIANT* value, int64_t time) = 0;
  // Writes every entry of the table that has not expired.
  virtual HRESULT SetDataValues(const ValueTable& table) = 0;
};

// Reads values out of the device's XML resources. Text results use the buffer
// protocol: sizes in characters including the terminator; E_OUTOFMEMORY when
// the buffer is missing or too small, with requiredSize telling how much.
class NORVANE_API IXMLProvider : public IDisposable {
 public:
  virtual uint32_t GetPort() = 0;
  virtual HRESULT GetValue(const char16_t* uri, const char16_t* xpath, char16_t* buffer, uint32_t bufferSize,
                           uint32_t* requiredSize, uint32_t useCache, uint32_t lifespan) = 0;
};

class NORVANE_API VEXAProvider : public IXMLProvider {
 public:
  virtual HRESULT GetResourceURI(const char16_t* resourceType, char16_t* buffer, uint32_t bufferSize,
                                 uint32_t* requiredSize, uint32_t lifespan) = 0;
};

class NORVANE_API PLSXMLProvider : public IXMLProvider {};

class NORVANE_API WSProvider : public IXMLProvider {
 public:
  virtual HRESULT GetServicePath(const char16_t* urn, char16_t* buffer, uint32_t bufferSize,
                                 uint32_t* requiredSize) = 0;
};

class NORVANE_API OIDProvider : public IDisposable {
 public:
  OIDProvider();
  ~OIDProvider() override;
  // One OID, or two joined by ";".
  virtual HRESULT GetValue(const char16_t* oid, VARIANT* value) = 0;
  virtual HRESULT GetNextOidAndValue(const char16_t* oid, char16_t* nextOid, uint32_t nextOidSize, VARIANT* value) = 0;
  virtual HRESULT GetMultipleValues(const char16_t** oids, VARIANT* values, uint32_t count) = 0;
};

class NORVANE_API IPPProvider : public IDisposable {
 public:
  IPPProvider();
  ~IPPProvider() override;
  virtual HRESULT GetValue(const char* name, VARIANT* value) = 0;
  virtual HRESULT GetIPPValue(const char* name, uint32_t getJob, VARIANT* value, const char* jobURI,
                              const char* resourceURI, uint32_t securityFlags, int32_t isCollectionQuery,
                              const char* collectionQuery) = 0;
  virtual HRESULT PrintUri(IPPRequestBase* attributes, IPPResponseBase* response) = 0;
  virtual HRESULT SendURI(IPPRequestBase* attributes, IPPResponseBase* response) = 0;
  virtual HRESULT CreateJob(IPPRequestBase* attributes, IPPResponseBase* response) = 0;
  virtual HRESULT CancelJob(IPPRequestBase* attributes, IPPResponseBase* response) = 0;
  // First block of print data; chunked streams continue with PrintJobWrite.
  virtual HRESULT PrintJob(IPPRequestBase* attributes, IPPResponseBase* response, const uint8_t* data, int32_t length,
                           bool chunked) = 0;
  // Next block; a length of 0 ends the document.
  virtual HRESULT PrintJobWrite(IPPRequestBase* attributes, IPPResponseBase* response, const uint8_t* data,
                                int32_t length) = 0;
  virtual HRESULT SetTimeValues(uint32_t first, uint32_t second, uint32_t third) = 0;
  virtual HRESULT ValidateCredentials(IPPRequestBase* attributes, IPPResponseBase* response) = 0;
};

}  // namespace Norvane
