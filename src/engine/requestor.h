// One get or one set without keeping a data collection: the caller hands over a
// small data-map document, and the first data map of it names the one value to
// read (web services or SNMP) or to write (SNMP only). Values travel raw: no
// conversion, no value table, no lifespan.
//
// A failure is reported as one of the small numeric codes below in place of a
// status. Each step that fails records its code; a later failure overwrites an
// earlier one, so the code returned is that of the last step that failed.
#pragma once

#include <cstdint>
#include <string>

#include "norvane/datamap.h"
#include "norvane/platform.h"
#include "norvane/transport.h"

typedef struct _xmlNode xmlNode;

namespace Norvane {

class Requestor {
 public:
  enum ErrorCode : uint32_t {
    kNoError = 0,
    kUnsupportedDataMap = 102,     // first data map neither WS nor OID (or none at all)
    kNoDataMaps = 103,             // no DataMaps element
    kMissingArgument = 108,        // no address, text or variant; an empty value to set
    kNotXml = 109,                 // the text does not parse
    kSetOnWebServices = 110,       // web services are read-only
    kNoXmlItem = 111,              // no XML item, or one without URI or XPath
    kNoItemName = 112,             // no item of the data map's kind, or an empty name
    kWebServicesReadFailed = 113,  // includes a value of 256 characters or more
    kNoOidItem = 114,              // no OID item, or one without OID
    kOidReadFailed = 115,
    kNoWebServicesProvider = 116,  // the device does not answer web services
    kNoOidProvider = 117,          // the device does not answer SNMP
    kOidSetFailed = 118,
    kNotAnInteger = 119,  // only machine integers (VT_INT) are written
  };

  // Read requests carry an empty value; a non-empty value makes the request a
  // write, whichever of the two is called. The result is the status of the
  // work, or the error code when a step recorded one. On success of a read the
  // caller's variant receives the value (the caller clears it).
  static HRESULT GetValueFromSingleRequest(Address* address, const char16_t* text, VARIANT* value);
  // As GetValueFromSingleRequest, but an empty value is refused with 108.
  static HRESULT SetValueFromSingleRequest(Address* address, const char16_t* text, VARIANT* value);

  Requestor();
  ~Requestor();
  Requestor(const Requestor&) = delete;
  Requestor& operator=(const Requestor&) = delete;

  uint32_t GetErrorCode() const { return errorCode_; }

 private:
  static HRESULT Run(const char* scopeName, Address* address, const char16_t* text, VARIANT* value, bool isSet);

  HRESULT LoadRequestXML(Address* address, const char16_t* text, VARIANT* value);
  HRESULT CreateFromDOM(Address* address, xmlNode* document, VARIANT* value);
  HRESULT GetValueOrSetValueFromDataMapSpecsColl(Address* address, DataMapSpecCollection* specs, VARIANT* value);
  // The name of the last item (in key order) of the kind the data map's type
  // reads; empty, with 112 recorded, when there is none.
  std::u16string FindItemName(DataMapSpec* dataMap);
  // The item FindItemName names, when it is of the kind wanted; otherwise null
  // with `missingCode` recorded.
  template <class Item>
  Item* FindItem(DataMapSpec* dataMap, ErrorCode missingCode);
  HRESULT GetWSValue(Address* address, DataMapSpec* dataMap, VARIANT* value);
  HRESULT GetOIDValue(Address* address, DataMapSpec* dataMap, VARIANT* value);
  HRESULT SetOIDValue(Address* address, DataMapSpec* dataMap, const VARIANT* value);

  void Record(ErrorCode code) { errorCode_ = code; }

  uint32_t errorCode_ = kNoError;
};

}  // namespace Norvane
