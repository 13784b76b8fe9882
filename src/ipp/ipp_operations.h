// The IPP message engine: one conversation with one printer. It encodes IPP/2.0
// requests (RFC 8010) into a flat buffer, posts them through the host's
// transport, streams Print-Job data in chunks, and decodes the answer into a
// value map that callers query by attribute name.
//
// Ownership: the Address is borrowed (the provider holds the reference). The
// ordinary request of SendIPPRequest is owned and kept after a successful send
// so that the caller can read its response; it is released by the next
// SendIPPRequest on this object or by the destructor. The stream request of
// SendPrintJobRequest lives from the first chunk until a failure or the
// destructor. An IPPOperations is used by one thread at a time.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ipp/ipp_collection_store.h"
#include "ipp/ipp_value_map.h"
#include "norvane/ipp.h"
#include "norvane/platform.h"
#include "norvane/transport.h"
#include "support/ref.h"

namespace Norvane {

// IPP operation ids the library sends.
enum IppOperation : uint32_t {
  kIppPrintJob = 2,
  kIppPrintURI = 3,
  kIppCreateJob = 5,
  kIppSendURI = 7,
  kIppCancelJob = 8,
  kIppGetJobAttributes = 9,
  kIppGetJobs = 10,
  kIppGetPrinterAttributes = 11,
  // Not an IPP operation: a Print-Job without a document that carries the
  // caller's HTTP credentials.
  kIppPrintJobWithCredentials = 50,
};

// Value kinds of the attribute-name table (GetTypeOfAttribute).
enum IppValueKind : int {
  kIppKindText = 0,
  kIppKindInteger = 1,
  kIppKindBoolean = 2,
  kIppKindRange = 3,
  kIppKindResolution = 4,
  kIppKindDateTime = 5,
};

// The attribute part of a request may use this many bytes; the end tag and the
// document follow it.
inline constexpr int32_t kIppAttributeLimit = 2048;
// Responses larger than this are refused before decoding.
inline constexpr uint32_t kIppMaxResponseBytes = 64u << 20;
// Collections nested deeper than this fail the decode.
inline constexpr int kIppMaxCollectionDepth = 64;
// The request id of every request.
inline constexpr int32_t kIppRequestId = 100;
// Host status of a response read that the host itself reports as benign.
inline constexpr HRESULT kHostResponseReadBenign = static_cast<HRESULT>(0x83E8F5FA);

// A request object for the second SendIPPRequest overload: a transport that
// takes the host and the body length separately and sends in two steps.
class IppStartableRequest {
 public:
  virtual ~IppStartableRequest() = default;
  virtual HRESULT SetMethod(const char16_t* method) = 0;
  virtual HRESULT SetResource(const char16_t* resource) = 0;
  virtual HRESULT SetContentType(const char16_t* contentType) = 0;
  virtual HRESULT SetHost(const char16_t* host) = 0;
  virtual HRESULT SetUserName(const char16_t* name) = 0;
  virtual HRESULT SetPassword(const char16_t* password) = 0;
  virtual HRESULT SetLength(uint32_t length) = 0;
  virtual HRESULT SetBody(const uint8_t* body, uint32_t length) = 0;
  virtual HRESULT SetSendValue(uint32_t value) = 0;
  virtual HRESULT Start() = 0;
  virtual HRESULT Complete() = 0;
};

// A response body offered by something other than an HTTPResponse.
class IppResponseSource {
 public:
  virtual ~IppResponseSource() = default;
  virtual const uint8_t* GetData() = 0;
  virtual uint32_t GetDataLength() = 0;
};

class IPPOperations {
 public:
  explicit IPPOperations(Address* address);
  IPPOperations(const IPPOperations&) = delete;
  IPPOperations& operator=(const IPPOperations&) = delete;
  virtual ~IPPOperations();

  // Posts one request. On success (0) `response` is the HTTP 200 response with
  // a body, owned by this object's ordinary request. On failure 0x80004005 and
  // the thread's last error is the HTTP status, or the transport's error code
  // when no response came back.
  virtual HRESULT SendIPPRequest(uint32_t operation, HTTPResponse** response, IPPRequestBase* attributes, bool secure);
  virtual HRESULT SendIPPRequest(IppStartableRequest* request, IPPRequestBase* attributes, bool sendFlag,
                                 uint32_t sendValue);
  // Streams one Print-Job. The first call opens the stream with the request
  // and the document bytes set so far (or, not chunked, sends everything and
  // reads the answer); later calls write `chunkLength` bytes of the document
  // buffer as one chunk, and a chunkLength of 0 ends the stream and reads the
  // answer into `response`. Results: 0; 1026 for HTTP 401; 1 when the host
  // reports its benign read status; 0x80004005.
  virtual HRESULT SendPrintJobRequest(HTTPResponse** response, IPPRequestBase* attributes, bool chunked,
                                      uint32_t chunkLength, uint64_t context, bool secure);
  // Decodes a response body and, when `value` is given, looks up the attribute
  // name (or answers the collection query) into it. 0 or 0x80004005.
  virtual HRESULT ParseIPPResponse(HTTPResponse* response, VARIANT* value);
  virtual HRESULT ParseIPPResponse(IppResponseSource* source, VARIANT* value);
  virtual HRESULT FormResponseStructure(uint32_t operation, IPPResponseBase* response);
  // Encodes a request into `buffer` (at least kIppAttributeLimit + 1 bytes);
  // `length` receives its size. 0, or a failure code with whatever was written
  // still closed by the end tag.
  virtual HRESULT FormIPPRequestBasedOnOperation(uint8_t* buffer, uint32_t operation, uint32_t* length,
                                                 IPPRequestBase* attributes);
  virtual HRESULT ParseIPPContent(const uint8_t* data, uint32_t length, VARIANT* value);
  // Writes "requested-attributes" naming `name`, with the tag the
  // attribute-name table gives it.
  virtual HRESULT AddAttributeBasedOnType(const char* name, uint8_t* buffer, int32_t* offset);
  // Kind of `name` in the attribute-name table; kIppKindText with tag kTagKeyword
  // when the name is not listed.
  virtual int GetTypeOfAttribute(const char* name, uint8_t* valueTag);

  // Text fields. Each copies a non-empty text: 0, or 0x80004005 for null or
  // empty text (SetFullPrinterURI also sets last error 87).
  HRESULT SetAttributeName(const char* name);
  const char* GetAttributeName() const;
  HRESULT SetResourceURI(const char* uri);
  const char* GetResourceURI() const;
  HRESULT SetJobURI(const char* uri);
  const char* GetJobURI() const;
  HRESULT SetRequestedUserName(const char* name);
  const char* GetRequestedUserName() const;
  HRESULT SetFullPrinterURI(const char16_t* uri);
  const char16_t* GetFullPrinterURI() const;
  HRESULT SetCollectionQuery(const char* query);
  // Makes the decoder refuse unsuccessful IPP statuses (1028 excepted); set
  // when a Get-Job-Attributes or Cancel-Job request is formed, never cleared.
  void SetJobOperations() { jobOperationFlag_ = 1; }
  uint32_t GetJobOperations() const { return jobOperationFlag_; }
  void SetSecurityFlags(uint32_t flags) { securityFlags_ = flags; }
  uint32_t GetSecurityFlags() const { return securityFlags_; }
  // 1: the decoder answers the collection query instead of the attribute name.
  void SetCollectionQueryFlag(uint32_t flag) { collectionQueryFlag_ = flag; }
  uint32_t GetCollectionQueryFlag() const { return collectionQueryFlag_; }

  // The print data of the next Print-Job body or chunk; ignored for null data
  // or a negative length.
  void SetPrinterFileBufferContent(const uint8_t* data, int32_t length);
  uint32_t GetDocumentLength() const { return documentLength_; }
  void AddPrinterFileBufferToRequestData(uint8_t* buffer, int32_t* offset) const;

  // Adds the caller's headers in key order, then "Cache-Control: no-cache",
  // "Connection: Keep-Alive" and "Pragma: no-cache" unless a caller's header
  // name contains that name.
  static void AddHttpHeaders(const std::map<std::u16string, std::u16string>& extraHeaders, HTTPRequest* request);
  // 1 when the caller supplied a structured attribute whose lower-cased name
  // is `name`.
  static int IsSetViaIPPAttributeStruct(IPPRequestBase* attributes, const char* name);
  // The port of an IPP request: 631, or for a secure one 443 unless the
  // address's port text is "631".
  static uint32_t ChoosePort(Address* address, bool secure);
  // One chunk of a chunked body: size in upper-case hex, CR LF, data, CR LF;
  // the last chunk (length 0) is "0\r\n\r\n".
  static void FrameChunk(const uint8_t* data, uint32_t length, std::vector<uint8_t>* chunk);

  // Primitive writers: 0 on success, 1 when the attribute would not end within
  // the first kIppAttributeLimit bytes (nothing written), -1 for a null or
  // empty name.
  static int AddIntegerToIPPRequest(uint8_t* buffer, uint8_t tag, const char* name, int32_t value, int32_t* offset);
  static int AddBooleanToIPPRequest(uint8_t* buffer, const char* name, uint8_t value, int32_t* offset);
  static int AddRangeToIPPRequest(uint8_t* buffer, const char* name, int32_t lower, int32_t upper, int32_t* offset);
  static int AddResolutionToIPPRequest(uint8_t* buffer, const char* name, int32_t units, int32_t crossFeed,
                                       int32_t feed, int32_t* offset);
  static int AddStringToIPPRequest(uint8_t* buffer, uint8_t tag, const char* name, const char* value, int32_t* offset);
  // Splits the value at every comma (empty pieces kept) into one attribute
  // with several values.
  static int AddStringsToIPPRequest(uint8_t* buffer, uint8_t tag, const char* name, const char* values,
                                    int32_t* offset);
  HRESULT FormIPPRequestHeader(uint8_t* buffer, uint32_t operation, int32_t* offset);
  // Writes the caller's structured and pre-encoded attributes of `group`.
  // 0; 1 when the attributes are not this library's object or a pre-encoded
  // attribute does not fit (those before it stay); 0x80004005 when a structured
  // one does not fit.
  HRESULT AddIPPAttributesToIPPHeader(uint8_t* buffer, IPPRequestBase* attributes, int32_t* offset, uint32_t group);

  // Response side.
  // Decodes `data`, whose length is the bytes-remaining field; 0 or -1.
  int ReadResponseData(const uint8_t* data, VARIANT* value);
  // Looks `key` up in the value map: "name" gives all values of the attribute
  // joined with ","; "name.member" a member of an octet string or collection
  // set; "name.COLn.member" a member of the n-th collection. Returns 1 (also
  // when nothing was stored) or 0 when a member was asked for and not found.
  int GetValueFromIPPMap(const char* key, VARIANT* value) const;
  // Every occurrence of `name` in the last response, its values joined with ",",
  // occurrences separated by "\n" (one line per job of a job list).
  std::string ValuesByOccurrence(const char* name) const;
  // Answers a collection query on the collection store of the last response.
  bool QueryCollection(const char* query, VARIANT* value) const;
  // Maps an IPP job-state enum (3 to 9) to its text; other values leave
  // `text` unchanged.
  static void GetJobState(int32_t state, std::string* text);

  const IppValueMap& GetValueMap() const { return valueMap_; }
  const IppCollectionStore& GetCollectionStore() const { return collections_; }
  // Takes the collection records of another object's fresher answer for
  // `attribute` in place of this object's records of the same names.
  void ReplaceCollectionRecords(const IPPOperations& other, std::string_view attribute) {
    collections_.ReplaceRecords(other.collections_, attribute);
  }
  uint8_t GetResponseVersionMajor() const { return versionMajor_; }
  uint8_t GetResponseVersionMinor() const { return versionMinor_; }
  int32_t GetResponseStatusCode() const { return statusCode_; }
  int32_t GetResponseRequestId() const { return responseRequestId_; }

 private:
  HRESULT AddGetJobAttr(uint8_t* buffer, int32_t* offset);
  HRESULT AddGetPrinterAttr(uint8_t* buffer, int32_t* offset);
  HRESULT AddGetJobs(uint8_t* buffer, int32_t* offset);
  HRESULT AddCancelJobAttr(uint8_t* buffer, IPPRequestBase* attributes, int32_t* offset);
  HRESULT AddJobCreationAttr(uint8_t* buffer, uint32_t operation, IPPRequestBase* attributes, int32_t* offset);
  HRESULT ReadFinalResponse(HTTPRequest* request, HTTPResponse** response);
  // Sends `operation` on request_, which the caller has just created.
  HRESULT PostRequest(uint32_t operation, HTTPResponse** response, IPPRequestBase* attributes);
  void DumpCollections() const;
  // The host's field-compatibility opt-in on the address (off for any other
  // address class), and the address's class for its IPP version notes.
  QxNetAddress* FieldAddress() const;
  bool FieldCompatible() const;
  // IPP/2.0 unless a field-compatible exchange with this device fell back.
  uint16_t RequestVersion() const;
  // Whether a field-compatible exchange just sent as IPP/2.0 was refused for its
  // version: an answer of server-error-version-not-supported, or the connection
  // closed without one (`hr`, the response and the host's error code).
  bool RefusedForVersion(HRESULT hr, HTTPResponse* response) const;

  Address* address_;
  IppValueMap valueMap_;
  uint8_t versionMajor_ = 0;
  uint8_t versionMinor_ = 0;
  int32_t statusCode_ = 0;
  int32_t responseRequestId_ = 0;
  uint32_t bytesRemaining_ = 0;
  std::optional<std::string> jobURI_;
  std::optional<std::string> resourceURI_;
  std::optional<std::u16string> printerURI_;
  std::optional<std::string> attributeName_;
  std::optional<std::string> requestingUserName_;
  QxUtils::Ref<HTTPRequest> request_;
  QxUtils::Ref<HTTPRequest> streamRequest_;
  std::vector<uint8_t> document_;
  uint32_t documentLength_ = 0;
  uint32_t jobOperationFlag_ = 0;
  uint32_t securityFlags_ = 0;
  uint32_t collectionQueryFlag_ = 0;
  std::optional<std::string> collectionQuery_;
  IppCollectionStore collections_;
  std::vector<uint8_t> chunk_;  // reused for every chunk of a stream
};

}  // namespace Norvane
