// IPP job request and response objects. A host fills an IPPRequestBase (made by
// CreateIPPRequest) with what it wants to print and hands it to the IPP
// provider's job operations, which fill an IPPResponseBase (made by
// CreateIPPResponse) with what the printer answered. Narrow texts are UTF-8;
// every text a getter returns is owned by the object and stays valid until the
// next setter of that field or the object's end. A getter of a text that was
// never set returns null.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "norvane/disposable.h"
#include "norvane/platform.h"

namespace Norvane {

// Attribute groups a caller-supplied attribute can belong to.
enum IPPAttributeGroup : uint32_t {
  kIPPOperationGroup = 0,
  kIPPJobGroup = 1,
};

struct IPPResolutionValue {
  int32_t crossFeed;
  int32_t feed;
  int32_t units;  // 3 dots per inch, 4 dots per centimetre
};

struct IPPRangeValue {
  int32_t lower;
  int32_t upper;
};

// One extra request attribute in structured form. The value area is read
// according to valueTag: integer and enum (0x21, 0x23) take `integer`, boolean
// (0x22) `boolean`, resolution (0x32) `resolution`, rangeOfInteger (0x33)
// `range`, and every other tag the zero-terminated UTF-8 `text`; a text with
// commas in one of the string tags is sent as several values.
struct IPPAttributeStruct {
  uint32_t group;     // IPPAttributeGroup
  uint32_t valueTag;  // an IPP value tag
  char name[128];     // zero-terminated, at most 127 characters
  union {
    int32_t integer;
    uint8_t boolean;
    IPPResolutionValue resolution;
    IPPRangeValue range;
    char text[512];
  } value;
};

// One extra request attribute already in IPP wire form (value tag, name
// length, name, value length, value, and any further values), copied into the
// request verbatim. blobSize equals blobArray.size().
struct IPPAttributeBlob {
  uint32_t group;  // IPPAttributeGroup
  std::vector<uint8_t> blobArray;
  int32_t blobSize;
};

// What a caller prints with. Defaults of a new object: copies 1, printing
// sides 3 (not sent), orientation 2 and print quality 2 (not sent),
// multiple-document handling -1 (not sent), margins pre-applied true,
// everything else zero, false or unset.
class NORVANE_API IPPRequestBase : public IDisposable {
 public:
  ~IPPRequestBase() override;

  // Text setters copy their argument; a null text clears the field.
  virtual HRESULT SetPrinterURI(const char* uri) = 0;
  virtual const char* GetPrinterURI() = 0;
  virtual void SetCopy(int32_t copies) = 0;
  virtual int32_t GetCopy() = 0;
  virtual HRESULT SetRequestingUserName(const char* name) = 0;
  virtual const char* GetRequestingUserName() = 0;
  virtual HRESULT SetDocumentUri(const char* uri) = 0;
  virtual const char* GetDocumentUri() = 0;
  virtual HRESULT SetJobName(const char* name) = 0;
  virtual const char* GetJobName() = 0;
  virtual void SetIPPAttributeFidelity(bool fidelity) = 0;
  virtual bool GetIPPAttributeFidelity() = 0;
  virtual HRESULT SetDocumentName(const char* name) = 0;
  virtual const char* GetDocumentName() = 0;
  // 1 separate documents uncollated, 2 collated, 3 single document new sheet.
  virtual void SetMultipleDocHandling(int32_t handling) = 0;
  virtual int32_t GetMultipleDocHandling() = 0;
  // 0 one-sided, 1 two-sided long edge, 2 two-sided short edge, 3 not sent.
  virtual void SetPrintingSides(int32_t sides) = 0;
  virtual int32_t GetPrintingSides() = 0;
  // IPP orientation-requested enum; sent when greater than 2.
  virtual void SetOrientationRequested(int32_t orientation) = 0;
  virtual int32_t GetOrientationRequested() = 0;
  virtual void SetPrinterResolution(uint32_t crossFeed, uint32_t feed) = 0;
  virtual void GetPrinterResolution(uint32_t* crossFeed, uint32_t* feed) = 0;
  // Only 3 (per inch) and 4 (per centimetre) are stored.
  virtual void SetPrinterResolutionUnits(int32_t units) = 0;
  virtual int32_t GetPrinterResolutionUnits() = 0;
  // IPP print-quality enum; sent when greater than 2.
  virtual void SetPrintQuality(int32_t quality) = 0;
  virtual int32_t GetPrintQuality() = 0;
  // Non-zero asks for monochrome output.
  virtual void SetOutputMode(uint32_t mode) = 0;
  virtual uint32_t GetOutputMode() = 0;
  virtual void SetPrintContentOptimize(uint32_t optimize) = 0;
  virtual uint32_t GetPrintContentOptimize() = 0;
  virtual void SetMarginsPreApplied(bool applied) = 0;
  virtual bool GetMarginsPreApplied() = 0;
  virtual HRESULT SetJobURI(const char* uri) = 0;
  virtual const char* GetJobURI() = 0;
  virtual void SetLastDocument(bool last) = 0;
  virtual bool GetLastDocument() = 0;
  // HTTP credentials of the print stream.
  virtual HRESULT SetUsername(const char16_t* name) = 0;
  virtual const char16_t* GetUsername() = 0;
  virtual HRESULT SetPassword(const char16_t* password) = 0;
  virtual const char16_t* GetPassword() = 0;
  // Adds or replaces a header (names compare exactly); a null value removes it.
  virtual HRESULT AddExtraHTTPHeader(const char16_t* name, const char16_t* value) = 0;
  // Pre-encoded attribute bytes (see IPPAttributeBlob); size must be at least 1.
  virtual HRESULT AddIPPRequest(uint32_t group, const uint8_t* bytes, int32_t size) = 0;
  virtual HRESULT AddIPPRequest(const IPPAttributeStruct& attribute) = 0;
  // "Authorization" header value of later print streams.
  virtual void SetAuthorization(std::u16string authorization) = 0;
  virtual std::u16string GetAuthorization() = 0;
  virtual const std::map<std::u16string, std::u16string>& GetExtraHTTPHeader() = 0;
};

// What the printer answered to a job operation. Texts start unset, the job id
// at 0.
class NORVANE_API IPPResponseBase : public IDisposable {
 public:
  ~IPPResponseBase() override;

  // The IPP status code in decimal, or "NOT_SET_ERROR".
  virtual HRESULT SetSuccess(const char* status) = 0;
  virtual const char* GetSuccessStatus() = 0;
  virtual HRESULT SetRequestID(const char* id) = 0;
  virtual const char* GetRequestID() = 0;
  virtual HRESULT SetDocumentAccessError(const char* text) = 0;
  virtual const char* GetDocumentAccessError() = 0;
  virtual HRESULT SetJobURI(const char* uri) = 0;
  virtual const char* GetJobURI() = 0;
  virtual void SetJobID(int32_t id) = 0;
  virtual int32_t GetJobID() = 0;
  // "Pending", "Pending_held", "Processing", "Processing_stopped", "Canceled",
  // "Aborted" or "Completed".
  virtual HRESULT SetJobState(const char* state) = 0;
  virtual const char* GetJobState() = 0;
  // Comma-joined job-state-reasons keywords.
  virtual HRESULT SetJobStateReasons(const char* reasons) = 0;
  virtual const char* GetJobStateReasons() = 0;
};

}  // namespace Norvane
