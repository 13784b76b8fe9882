#include "ipp/ipp_request_attributes.h"

#include <new>

#include "ipp/ipp_text_field.h"
#include "support/log.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

// Key functions of the exported interfaces: their vtables and type information
// live in the library, so run-time type tests agree across shared objects.
IPPRequestBase::~IPPRequestBase() = default;

IPPRequestBase* IPPRequestAttributes::Create() {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPRequestAttributes::Create");
  auto* object = new (std::nothrow) IPPRequestAttributes();
  if (object == nullptr) {
    QX_LOG(QxLogging::kStandout, "Unable to allocate memory for IPPRequestAttributes");
    return nullptr;
  }
  object->AddRef();
  return object;
}

HRESULT IPPRequestAttributes::SetPrinterURI(const char* uri) { return IppText::Store(&printerURI_, uri); }
const char* IPPRequestAttributes::GetPrinterURI() { return IppText::Get(printerURI_); }
HRESULT IPPRequestAttributes::SetRequestingUserName(const char* name) {
  return IppText::Store(&requestingUserName_, name);
}
const char* IPPRequestAttributes::GetRequestingUserName() { return IppText::Get(requestingUserName_); }
HRESULT IPPRequestAttributes::SetDocumentUri(const char* uri) { return IppText::Store(&documentUri_, uri); }
const char* IPPRequestAttributes::GetDocumentUri() { return IppText::Get(documentUri_); }
HRESULT IPPRequestAttributes::SetJobName(const char* name) { return IppText::Store(&jobName_, name); }
const char* IPPRequestAttributes::GetJobName() { return IppText::Get(jobName_); }
HRESULT IPPRequestAttributes::SetDocumentName(const char* name) { return IppText::Store(&documentName_, name); }
const char* IPPRequestAttributes::GetDocumentName() { return IppText::Get(documentName_); }
HRESULT IPPRequestAttributes::SetJobURI(const char* uri) { return IppText::Store(&jobURI_, uri); }
const char* IPPRequestAttributes::GetJobURI() { return IppText::Get(jobURI_); }
HRESULT IPPRequestAttributes::SetUsername(const char16_t* name) { return IppText::Store(&userName_, name); }
const char16_t* IPPRequestAttributes::GetUsername() { return IppText::Get(userName_); }
HRESULT IPPRequestAttributes::SetPassword(const char16_t* password) { return IppText::Store(&password_, password); }
const char16_t* IPPRequestAttributes::GetPassword() { return IppText::Get(password_); }

void IPPRequestAttributes::SetPrinterResolution(uint32_t crossFeed, uint32_t feed) {
  resolutionCrossFeed_ = crossFeed;
  resolutionFeed_ = feed;
}

void IPPRequestAttributes::GetPrinterResolution(uint32_t* crossFeed, uint32_t* feed) {
  if (crossFeed != nullptr) *crossFeed = resolutionCrossFeed_;
  if (feed != nullptr) *feed = resolutionFeed_;
}

void IPPRequestAttributes::SetPrinterResolutionUnits(int32_t units) {
  // The IPP resolution units: 3 dots per inch, 4 dots per centimetre.
  if (units == 3 || units == 4) resolutionUnits_ = units;
}

void IPPRequestAttributes::SetAuthorization(std::u16string authorization) { authorization_ = std::move(authorization); }

HRESULT IPPRequestAttributes::AddExtraHTTPHeader(const char16_t* name, const char16_t* value) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPRequestAttributes::AddExtraHTTPHeader");
  if (name == nullptr) return S_OK;
  try {
    if (value == nullptr) {
      extraHeaders_.erase(name);
    } else {
      extraHeaders_.insert_or_assign(name, value);
    }
  } catch (const std::bad_alloc&) {
    QX_LOG(QxLogging::kStandout, "Unable to allocate memory for the header");
    return E_OUTOFMEMORY;
  }
  return S_OK;
}

HRESULT IPPRequestAttributes::AddIPPRequest(uint32_t group, const uint8_t* bytes, int32_t size) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPRequestAttributes::AddIPPRequest");
  if (bytes == nullptr || size < 1) {
    QX_LOG(QxLogging::kStandout, "Invalid input parameters.. attributeblobSize=%d", size);
    return E_INVALIDARG;
  }
  try {
    IPPAttributeBlob blob;
    blob.group = group;
    try {
      blob.blobArray.assign(bytes, bytes + size);
    } catch (const std::bad_alloc&) {
      QX_LOG(QxLogging::kStandout, "Unable to allocate memory for blobTemp->blobArray");
      return E_OUTOFMEMORY;
    }
    blob.blobSize = size;
    blobs_.push_back(std::move(blob));
  } catch (const std::bad_alloc&) {
    QX_LOG(QxLogging::kStandout, "Unable to allocate memory for blobTemp");
    return E_OUTOFMEMORY;
  }
  return S_OK;
}

HRESULT IPPRequestAttributes::AddIPPRequest(const IPPAttributeStruct& attribute) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPRequestAttributes::AddIPPRequest");
  try {
    attributes_.push_back(attribute);
    // The name field is read as a C string: never let a caller's unterminated
    // name run past the field.
    attributes_.back().name[sizeof attribute.name - 1] = 0;
    attributes_.back().value.text[sizeof attribute.value.text - 1] = 0;
  } catch (const std::bad_alloc&) {
    QX_LOG(QxLogging::kStandout, "Unable to allocate memory for the attribute");
    return E_OUTOFMEMORY;
  }
  return S_OK;
}

}  // namespace Norvane
