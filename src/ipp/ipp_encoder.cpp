// Request encoding: the primitive attribute writers, the request header and
// the attribute set of every operation. Every writer keeps the attributes
// within the first kIppAttributeLimit bytes of the caller's buffer.
#include <cstring>
#include <string_view>

#include "ipp/ipp_operations.h"
#include "ipp/ipp_request_attributes.h"
#include "ipp/ipp_tags.h"
#include "support/log.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

namespace {

constexpr uint32_t kErrorPathNotFound = 4306;

// "sides" keywords by the request object's printing-sides value.
constexpr const char* kSidesKeywords[] = {"one-sided", "two-sided-long-edge", "two-sided-short-edge"};
// "multiple-document-handling" keywords by value 1 to 3; printers have always
// been sent these spellings.
constexpr const char* kDocumentHandlingKeywords[] = {"separate_documents_uncollated_copies",
                                                     "separate_documents_collated_copies", "single_document_new_sheet"};

void PutU16(uint8_t* p, uint32_t v) {
  p[0] = static_cast<uint8_t>(v >> 8);
  p[1] = static_cast<uint8_t>(v);
}

void PutI32(uint8_t* p, int32_t value) {
  auto v = static_cast<uint32_t>(value);
  p[0] = static_cast<uint8_t>(v >> 24);
  p[1] = static_cast<uint8_t>(v >> 16);
  p[2] = static_cast<uint8_t>(v >> 8);
  p[3] = static_cast<uint8_t>(v);
}

// memcpy without the null-pointer question of empty texts.
void CopyBytes(uint8_t* to, const char* from, size_t n) {
  if (n != 0) std::memcpy(to, from, n);
}

// Whether `size` more bytes end within the attribute limit.
bool Fits(int32_t offset, size_t size) {
  return offset >= 0 && offset <= kIppAttributeLimit && size <= static_cast<size_t>(kIppAttributeLimit - offset);
}

// Writes tag, name length, name and value length; returns where the value goes.
uint8_t* PutHead(uint8_t* buffer, int32_t* offset, uint8_t tag, std::string_view name, size_t valueLength) {
  uint8_t* p = buffer + *offset;
  *p++ = tag;
  PutU16(p, static_cast<uint32_t>(name.size()));
  p += 2;
  CopyBytes(p, name.data(), name.size());
  p += name.size();
  PutU16(p, static_cast<uint32_t>(valueLength));
  p += 2;
  *offset += static_cast<int32_t>(5 + name.size() + valueLength);
  return p;
}

// Common checks of the writers: -1 for a missing name, 1 when it cannot fit.
int Check(uint8_t* buffer, const char* name, int32_t* offset, size_t valueLength, std::string_view* nameText) {
  if (name == nullptr || *name == 0) return -1;
  if (buffer == nullptr || offset == nullptr) return 1;
  *nameText = name;
  return Fits(*offset, 5 + nameText->size() + valueLength) ? 0 : 1;
}

bool IsStringTag(uint32_t tag) {
  return tag == kTagOctetString || tag == kTagText || tag == kTagName || (tag >= kTagKeyword && tag <= kTagMimeType);
}

}  // namespace

int IPPOperations::AddIntegerToIPPRequest(uint8_t* buffer, uint8_t tag, const char* name, int32_t value,
                                          int32_t* offset) {
  std::string_view n;
  if (int r = Check(buffer, name, offset, 4, &n)) return r;
  PutI32(PutHead(buffer, offset, tag, n, 4), value);
  return 0;
}

int IPPOperations::AddBooleanToIPPRequest(uint8_t* buffer, const char* name, uint8_t value, int32_t* offset) {
  std::string_view n;
  if (int r = Check(buffer, name, offset, 1, &n)) return r;
  *PutHead(buffer, offset, kTagBoolean, n, 1) = value;
  return 0;
}

int IPPOperations::AddRangeToIPPRequest(uint8_t* buffer, const char* name, int32_t lower, int32_t upper,
                                        int32_t* offset) {
  std::string_view n;
  if (int r = Check(buffer, name, offset, 8, &n)) return r;
  uint8_t* p = PutHead(buffer, offset, kTagRange, n, 8);
  PutI32(p, lower);
  PutI32(p + 4, upper);
  return 0;
}

int IPPOperations::AddResolutionToIPPRequest(uint8_t* buffer, const char* name, int32_t units, int32_t crossFeed,
                                             int32_t feed, int32_t* offset) {
  std::string_view n;
  if (int r = Check(buffer, name, offset, 9, &n)) return r;
  uint8_t* p = PutHead(buffer, offset, kTagResolution, n, 9);
  PutI32(p, crossFeed);
  PutI32(p + 4, feed);
  p[8] = static_cast<uint8_t>(units);
  return 0;
}

int IPPOperations::AddStringToIPPRequest(uint8_t* buffer, uint8_t tag, const char* name, const char* value,
                                         int32_t* offset) {
  std::string_view text = value == nullptr ? std::string_view() : std::string_view(value);
  std::string_view n;
  if (int r = Check(buffer, name, offset, text.size(), &n)) return r;
  CopyBytes(PutHead(buffer, offset, tag, n, text.size()), text.data(), text.size());
  return 0;
}

int IPPOperations::AddStringsToIPPRequest(uint8_t* buffer, uint8_t tag, const char* name, const char* values,
                                          int32_t* offset) {
  std::string_view all = values == nullptr ? std::string_view() : std::string_view(values);
  if (name == nullptr || *name == 0) return -1;
  if (buffer == nullptr || offset == nullptr) return 1;
  std::string_view n(name);
  // The whole attribute or nothing: the name once, then five bytes of tag
  // and lengths and the bytes of each value.
  size_t commas = 0;
  for (char c : all) commas += c == ',';
  size_t total = n.size() + 5 * (commas + 1) + (all.size() - commas);
  if (!Fits(*offset, total)) return 1;
  std::string_view first = n;
  size_t start = 0;
  for (;;) {
    size_t comma = all.find(',', start);
    std::string_view piece =
        all.substr(start, comma == std::string_view::npos ? std::string_view::npos : comma - start);
    CopyBytes(PutHead(buffer, offset, tag, first, piece.size()), piece.data(), piece.size());
    first = {};
    if (comma == std::string_view::npos) break;
    start = comma + 1;
  }
  return 0;
}

HRESULT IPPOperations::FormIPPRequestHeader(uint8_t* buffer, uint32_t operation, int32_t* offset) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPOperations::FormIPPRequestHeader");
  if (buffer == nullptr || offset == nullptr || !Fits(*offset, 9)) return E_FAIL;
  uint8_t* p = buffer + *offset;
  const uint16_t version = RequestVersion();
  p[0] = static_cast<uint8_t>(version >> 8);
  p[1] = static_cast<uint8_t>(version & 0xFF);
  PutU16(p + 2, operation);
  PutI32(p + 4, kIppRequestId);
  p[8] = kTagOperationGroup;
  *offset += 9;
  if (AddStringToIPPRequest(buffer, kTagCharset, "attributes-charset", "utf-8", offset) != 0 ||
      AddStringToIPPRequest(buffer, kTagLanguage, "attributes-natural-language", "en", offset) != 0) {
    QX_LOG(QxLogging::kStandout, "Unable to write the request header");
    return E_FAIL;
  }
  // Cancel-Job names its job by "job-uri" instead.
  if (operation != kIppCancelJob &&
      AddStringToIPPRequest(buffer, kTagUri, "printer-uri", GetResourceURI(), offset) != 0) {
    QX_LOG(QxLogging::kStandout, "Unable to write printer-uri");
    return E_FAIL;
  }
  return S_OK;
}

HRESULT IPPOperations::FormIPPRequestBasedOnOperation(uint8_t* buffer, uint32_t operation, uint32_t* length,
                                                      IPPRequestBase* attributes) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPOperations::FormIPPRequestBasedOnOperation");
  if (buffer == nullptr || length == nullptr) return E_FAIL;
  std::memset(buffer, 0, kIppAttributeLimit);
  int32_t offset = 0;
  HRESULT hr =
      FormIPPRequestHeader(buffer, operation == kIppPrintJobWithCredentials ? kIppPrintJob : operation, &offset);
  if (hr != S_OK) return hr;
  switch (operation) {
    case kIppGetJobAttributes:
      hr = AddGetJobAttr(buffer, &offset);
      SetJobOperations();
      break;
    case kIppGetPrinterAttributes:
      hr = AddGetPrinterAttr(buffer, &offset);
      break;
    case kIppCancelJob:
      hr = AddCancelJobAttr(buffer, attributes, &offset);
      SetJobOperations();
      break;
    case kIppGetJobs:
      hr = AddGetJobs(buffer, &offset);
      break;
    case kIppPrintURI:
    case kIppCreateJob:
    case kIppSendURI:
    case kIppPrintJob:
      hr = AddJobCreationAttr(buffer, operation, attributes, &offset);
      break;
    case kIppPrintJobWithCredentials: {
      AddJobCreationAttr(buffer, kIppPrintJob, attributes, &offset);
      const char16_t* user = attributes != nullptr ? attributes->GetUsername() : nullptr;
      const char16_t* password = attributes != nullptr ? attributes->GetPassword() : nullptr;
      if (request_ != nullptr) {
        request_->SetUserName(user != nullptr ? user : u"");
        request_->SetPassword(password != nullptr ? password : u"");
      }
      hr = S_OK;
      break;
    }
    default:
      break;
  }
  // The attribute writers stop at kIppAttributeLimit, so the end tag always fits.
  buffer[offset++] = kTagEnd;
  *length = static_cast<uint32_t>(offset);
  if (hr != S_OK) QX_LOG(QxLogging::kStandout, "Unable to form the request for operation %u (0x%08X)", operation, hr);
  return hr;
}

HRESULT IPPOperations::AddGetJobAttr(uint8_t* buffer, int32_t* offset) {
  if (AddStringToIPPRequest(buffer, kTagUri, "job-uri", GetJobURI(), offset) != 0) return E_FAIL;
  // The attribute name goes as one value even when it lists several names.
  if (AddStringToIPPRequest(buffer, kTagKeyword, "requested-attributes", GetAttributeName(), offset) != 0) {
    return E_FAIL;
  }
  return S_OK;
}

HRESULT IPPOperations::AddGetPrinterAttr(uint8_t* buffer, int32_t* offset) {
  const char* name = GetAttributeName();
  if (buffer == nullptr || name == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return E_FAIL;
  }
  if (*name == 0) {
    SetLastError(kErrorPathNotFound);
    return E_FAIL;
  }
  return AddStringsToIPPRequest(buffer, kTagKeyword, "requested-attributes", name, offset) == 0 ? S_OK : E_FAIL;
}

HRESULT IPPOperations::AddGetJobs(uint8_t* buffer, int32_t* offset) {
  const char* user = GetRequestedUserName();
  if (user == nullptr || *user == 0) return E_FAIL;
  // The job-state attribute asks about finished jobs; every other one
  // (job-state-reasons in practice) about the jobs still in the printer.
  const char* name = GetAttributeName();
  const char* which = name != nullptr && std::strcmp(name, "job-state") == 0 ? "completed" : "not-completed";
  bool failed = AddStringsToIPPRequest(buffer, kTagName, "requesting-user-name", user, offset) != 0;
  failed |= AddBooleanToIPPRequest(buffer, "my-jobs", 1, offset) != 0;
  failed |= AddStringToIPPRequest(buffer, kTagKeyword, "which-jobs", which, offset) != 0;
  failed |= AddStringToIPPRequest(buffer, kTagKeyword, "requested-attributes", "all", offset) != 0;
  return failed ? E_FAIL : S_OK;
}

HRESULT IPPOperations::AddCancelJobAttr(uint8_t* buffer, IPPRequestBase* attributes, int32_t* offset) {
  if (attributes == nullptr) return S_OK;
  if (const char* jobUri = attributes->GetJobURI()) {
    if (AddStringToIPPRequest(buffer, kTagUri, "job-uri", jobUri, offset) != 0) return E_FAIL;
  }
  if (const char* user = attributes->GetRequestingUserName()) {
    if (AddStringToIPPRequest(buffer, kTagName, "requesting-user-name", user, offset) != 0) return E_FAIL;
  }
  return S_OK;
}

HRESULT IPPOperations::AddJobCreationAttr(uint8_t* buffer, uint32_t operation, IPPRequestBase* attributes,
                                          int32_t* offset) {
  const bool printUri = operation == kIppPrintURI;
  const bool createJob = operation == kIppCreateJob;
  const bool sendUri = operation == kIppSendURI;
  const bool printJob = operation == kIppPrintJob;
  if (attributes != nullptr) {
    // Read for every job, though no resolution attribute is sent from it.
    uint32_t crossFeed = 0, feed = 0;
    attributes->GetPrinterResolution(&crossFeed, &feed);

    const char* printerUri = attributes->GetPrinterURI();
    const char* user = attributes->GetRequestingUserName();
    const char* documentUri = attributes->GetDocumentUri();
    const char* jobName = attributes->GetJobName();
    const char* documentName = attributes->GetDocumentName();
    if ((printUri || printJob) && printerUri != nullptr &&
        AddStringToIPPRequest(buffer, kTagUri, "printer-uri", printerUri, offset) != 0) {
      return E_FAIL;
    }
    if (user != nullptr && AddStringToIPPRequest(buffer, kTagName, "requesting-user-name", user, offset) != 0) {
      return E_FAIL;
    }
    if ((printUri || sendUri) && documentUri != nullptr &&
        AddStringToIPPRequest(buffer, kTagUri, "document-uri", documentUri, offset) != 0) {
      return E_FAIL;
    }
    if (jobName != nullptr && AddStringToIPPRequest(buffer, kTagName, "job-name", jobName, offset) != 0) {
      return E_FAIL;
    }
    if (attributes->GetIPPAttributeFidelity() &&
        AddBooleanToIPPRequest(buffer, "ipp-attribute-fidelity", 1, offset) != 0) {
      return E_FAIL;
    }
    if (!createJob && documentName != nullptr &&
        AddStringToIPPRequest(buffer, kTagName, "document-name", documentName, offset) != 0) {
      return E_FAIL;
    }
    if (sendUri && attributes->GetLastDocument() && AddBooleanToIPPRequest(buffer, "last-document", 1, offset) != 0) {
      return E_FAIL;
    }
    if (printJob && FAILED(AddIPPAttributesToIPPHeader(buffer, attributes, offset, kIPPOperationGroup))) {
      return E_FAIL;
    }
  }

  if (!Fits(*offset, 1)) return E_FAIL;
  buffer[(*offset)++] = kTagJobGroup;
  if (attributes == nullptr) return S_OK;

  const int32_t copies = attributes->GetCopy();
  const int32_t sides = attributes->GetPrintingSides();
  const int32_t handling = attributes->GetMultipleDocHandling();
  const int32_t orientation = attributes->GetOrientationRequested();
  const int32_t quality = attributes->GetPrintQuality();
  const bool monochrome = attributes->GetOutputMode() != 0;

  auto writeCopies = [&]() { return AddIntegerToIPPRequest(buffer, kTagInteger, "copies", copies, offset) == 0; };
  auto writeSides = [&]() {
    if (sides < 0 || sides > 2) return true;
    return AddStringToIPPRequest(buffer, kTagKeyword, "sides", kSidesKeywords[sides], offset) == 0;
  };
  auto writeHandling = [&]() {
    if (handling <= 0) return true;
    const char* keyword = handling <= 3 ? kDocumentHandlingKeywords[handling - 1] : "";
    return AddStringToIPPRequest(buffer, kTagKeyword, "multiple-document-handling", keyword, offset) == 0;
  };
  // Both go with the integer tag, as printers have always received them.
  auto writeOrientation = [&]() {
    return orientation <= 2 ||
           AddIntegerToIPPRequest(buffer, kTagInteger, "orientation-requested", orientation, offset) == 0;
  };
  auto writeQuality = [&]() {
    return quality <= 2 || AddIntegerToIPPRequest(buffer, kTagInteger, "print-quality", quality, offset) == 0;
  };
  auto writeMonochrome = [&]() {
    return AddStringToIPPRequest(buffer, kTagKeyword, "print-color-mode", "monochrome", offset) == 0;
  };

  bool ok = true;
  if (printUri) {
    ok = (copies == 0 || writeCopies()) && writeSides() && writeOrientation() && writeQuality() &&
         (!monochrome || writeMonochrome());
  } else if (createJob) {
    ok = (copies <= 0 || writeCopies()) && writeSides() && writeHandling() && writeOrientation() && writeQuality();
  } else if (sendUri) {
    ok = writeHandling() && (copies == 0 || writeCopies()) && writeSides() && writeOrientation() && writeQuality();
  } else if (printJob) {
    // A caller's structured copies or print-color-mode replaces the built-in
    // one: the caller's job attributes are written after these.
    ok = (copies == 0 || IsSetViaIPPAttributeStruct(attributes, "copies") || writeCopies()) && writeSides() &&
         writeOrientation() && writeQuality() &&
         (!monochrome || IsSetViaIPPAttributeStruct(attributes, "print-color-mode") || writeMonochrome());
    if (ok && FAILED(AddIPPAttributesToIPPHeader(buffer, attributes, offset, kIPPJobGroup))) ok = false;
  }
  return ok ? S_OK : E_FAIL;
}

int IPPOperations::IsSetViaIPPAttributeStruct(IPPRequestBase* attributes, const char* name) {
  auto* object = dynamic_cast<IPPRequestAttributes*>(attributes);
  if (object == nullptr || name == nullptr) return 0;
  for (const IPPAttributeStruct& attribute : object->GetAttributesVector()) {
    std::string lowered(attribute.name);
    for (char& c : lowered) {
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    if (lowered == name) return 1;
  }
  return 0;
}

HRESULT IPPOperations::AddIPPAttributesToIPPHeader(uint8_t* buffer, IPPRequestBase* attributes, int32_t* offset,
                                                   uint32_t group) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPOperations::AddIPPAttributesToIPPHeader");
  auto* object = dynamic_cast<IPPRequestAttributes*>(attributes);
  if (object == nullptr || buffer == nullptr || offset == nullptr) return S_FALSE;
  for (const IPPAttributeStruct& attribute : object->GetAttributesVector()) {
    if (attribute.group != group) continue;
    const auto tag = static_cast<uint8_t>(attribute.valueTag);
    const auto& v = attribute.value;
    int r;
    switch (attribute.valueTag) {
      case kTagInteger:
      case kTagEnum:
        r = AddIntegerToIPPRequest(buffer, tag, attribute.name, v.integer, offset);
        break;
      case kTagBoolean:
        r = AddBooleanToIPPRequest(buffer, attribute.name, v.boolean, offset);
        break;
      case kTagResolution:
        r = AddResolutionToIPPRequest(buffer, attribute.name, v.resolution.units, v.resolution.crossFeed,
                                      v.resolution.feed, offset);
        break;
      case kTagRange:
        r = AddRangeToIPPRequest(buffer, attribute.name, v.range.lower, v.range.upper, offset);
        break;
      default:
        if (IsStringTag(attribute.valueTag) && std::strchr(v.text, ',') != nullptr) {
          r = AddStringsToIPPRequest(buffer, tag, attribute.name, v.text, offset);
        } else {
          r = AddStringToIPPRequest(buffer, tag, attribute.name, v.text, offset);
        }
        break;
    }
    if (r != 0) {
      QX_LOG(QxLogging::kStandout, "Unable to add the attribute %s", attribute.name);
      return E_FAIL;
    }
  }
  for (const IPPAttributeBlob& blob : object->GetBlobVector()) {
    if (blob.group != group) continue;
    if (!Fits(*offset, blob.blobArray.size())) {
      QX_LOG(QxLogging::kStandout, "The attribute blob of %d bytes does not fit in the request", blob.blobSize);
      return S_FALSE;
    }
    std::memcpy(buffer + *offset, blob.blobArray.data(), blob.blobArray.size());
    *offset += static_cast<int32_t>(blob.blobArray.size());
  }
  return S_OK;
}

}  // namespace Norvane
