// The attribute-name table: the value tag and kind under which an attribute
// name is asked for in "requested-attributes". Its tags are its own (it lists
// "sides" and "job-sheets" as integers, for instance); the request builders
// use the tags of their own attribute sets.
#include <cstring>

#include "ipp/ipp_operations.h"
#include "ipp/ipp_tags.h"
#include "support/log.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

namespace {

struct AttributeName {
  const char* name;
  uint8_t tag;
  IppValueKind kind;
};

constexpr AttributeName kAttributeNames[] = {
    {"reserved", 0x00, kIppKindText},
    // uri
    {"printer-uri", kTagUri, kIppKindText},
    {"job-uri", kTagUri, kIppKindText},
    {"job-printer-uri", kTagUri, kIppKindText},
    {"job-more-info", kTagUri, kIppKindText},
    {"printer-uri-supported", kTagUri, kIppKindText},
    {"printer-more-info", kTagUri, kIppKindText},
    {"printer-driver-installer", kTagUri, kIppKindText},
    {"printer-more-info-manufacturer", kTagUri, kIppKindText},
    {"document-uri", kTagUri, kIppKindText},
    // nameWithoutLanguage
    {"requesting-user-name", kTagName, kIppKindText},
    {"document-name", kTagName, kIppKindText},
    {"job-name", kTagName, kIppKindText},
    {"job-originating-user-name", kTagName, kIppKindText},
    {"output-device-assigned", kTagName, kIppKindText},
    {"printer-name", kTagName, kIppKindText},
    // textWithoutLanguage
    {"message", kTagText, kIppKindText},
    {"job-state-message", kTagText, kIppKindText},
    {"job-message-from-operator", kTagText, kIppKindText},
    {"printer-location", kTagText, kIppKindText},
    {"printer-info", kTagText, kIppKindText},
    {"printer-make-and-model", kTagText, kIppKindText},
    {"printer-state-message", kTagText, kIppKindText},
    {"printer-message-from-operator", kTagText, kIppKindText},
    {"status-message", kTagText, kIppKindText},
    // keyword
    {"compression", kTagKeyword, kIppKindText},
    {"requested-attributes", kTagKeyword, kIppKindText},
    {"job-hold-until", kTagKeyword, kIppKindText},
    {"multiple-document-handling", kTagKeyword, kIppKindText},
    {"media", kTagKeyword, kIppKindText},
    {"job-hold-until-default", kTagKeyword, kIppKindText},
    {"multiple-document-handling-default", kTagKeyword, kIppKindText},
    {"media-default", kTagKeyword, kIppKindText},
    {"job-hold-until-supported", kTagKeyword, kIppKindText},
    {"multiple-document-handling-supported", kTagKeyword, kIppKindText},
    {"media-supported", kTagKeyword, kIppKindText},
    {"job-state-reasons", kTagKeyword, kIppKindText},
    {"uri-security-supported", kTagKeyword, kIppKindText},
    {"printer-state-reasons", kTagKeyword, kIppKindText},
    {"pdl-override-supported", kTagKeyword, kIppKindText},
    {"compression-supported", kTagKeyword, kIppKindText},
    {"which-jobs", kTagKeyword, kIppKindText},
    // mimeMediaType
    {"document-format", kTagMimeType, kIppKindText},
    {"document-format-default", kTagMimeType, kIppKindText},
    {"document-format-supported", kTagMimeType, kIppKindText},
    // naturalLanguage
    {"document-natural-language", kTagLanguage, kIppKindText},
    {"attributes-natural-language", kTagLanguage, kIppKindText},
    {"natural-language-configured", kTagLanguage, kIppKindText},
    {"generated-natural-language-supported", kTagLanguage, kIppKindText},
    // charset
    {"attributes-charset", kTagCharset, kIppKindText},
    {"charset-configured", kTagCharset, kIppKindText},
    {"charset-supported", kTagCharset, kIppKindText},
    // uriScheme
    {"reference-uri-schemes-supported", kTagUriScheme, kIppKindText},
    // integer
    {"job-priority", kTagInteger, kIppKindInteger},
    {"job-sheets", kTagInteger, kIppKindInteger},
    {"copies", kTagInteger, kIppKindInteger},
    {"sides", kTagInteger, kIppKindInteger},
    {"number-up", kTagInteger, kIppKindInteger},
    {"job-priority-default", kTagInteger, kIppKindInteger},
    {"job-sheets-default", kTagInteger, kIppKindInteger},
    {"copies-default", kTagInteger, kIppKindInteger},
    {"sides-default", kTagInteger, kIppKindInteger},
    {"number-up-default", kTagInteger, kIppKindInteger},
    {"job-priority-supported", kTagInteger, kIppKindInteger},
    {"job-sheets-supported", kTagInteger, kIppKindInteger},
    {"sides-supported", kTagInteger, kIppKindInteger},
    {"number-up-supported", kTagInteger, kIppKindInteger},
    {"job-id", kTagInteger, kIppKindInteger},
    {"number-of-documents", kTagInteger, kIppKindInteger},
    {"time-at-creation", kTagInteger, kIppKindInteger},
    {"time-at-processing", kTagInteger, kIppKindInteger},
    {"time-at-completed", kTagInteger, kIppKindInteger},
    {"number-of-intervening-jobs", kTagInteger, kIppKindInteger},
    {"job-k-octets", kTagInteger, kIppKindInteger},
    {"job-impressions", kTagInteger, kIppKindInteger},
    {"job-media-sheet", kTagInteger, kIppKindInteger},
    {"job-k-octets-processed", kTagInteger, kIppKindInteger},
    {"job-impressions-completed", kTagInteger, kIppKindInteger},
    {"job-media-sheets-completed", kTagInteger, kIppKindInteger},
    {"queued-job-count", kTagInteger, kIppKindInteger},
    {"printer-up-time", kTagInteger, kIppKindInteger},
    {"multiple-operation-timeout", kTagInteger, kIppKindInteger},
    {"limit", kTagInteger, kIppKindInteger},
    // enum
    {"finishings", kTagEnum, kIppKindInteger},
    {"orientation-requested", kTagEnum, kIppKindInteger},
    {"print-quality", kTagEnum, kIppKindInteger},
    {"finishings-default", kTagEnum, kIppKindInteger},
    {"orientation-requested-default", kTagEnum, kIppKindInteger},
    {"print-quality-default", kTagEnum, kIppKindInteger},
    {"finishings-supported", kTagEnum, kIppKindInteger},
    {"orientation-requested-supported", kTagEnum, kIppKindInteger},
    {"print-quality-supported", kTagEnum, kIppKindInteger},
    {"job-state", kTagEnum, kIppKindInteger},
    {"printer-state", kTagEnum, kIppKindInteger},
    {"operations-supported", kTagEnum, kIppKindInteger},
    // boolean
    {"ipp-attribute-fidelity", kTagBoolean, kIppKindBoolean},
    {"page-ranges-supported", kTagBoolean, kIppKindBoolean},
    {"printer-is-accepting-jobs", kTagBoolean, kIppKindBoolean},
    {"color-supported", kTagBoolean, kIppKindBoolean},
    {"my-jobs", kTagBoolean, kIppKindBoolean},
    {"last-document", kTagBoolean, kIppKindBoolean},
    // rangeOfInteger
    {"page-ranges", kTagRange, kIppKindRange},
    {"copies-supported", kTagRange, kIppKindRange},
    {"job-k-octets-supported", kTagRange, kIppKindRange},
    {"job-impressions-supported", kTagRange, kIppKindRange},
    {"job-media-sheets-supported", kTagRange, kIppKindRange},
    // resolution
    {"printer-resolution", kTagResolution, kIppKindResolution},
    {"printer-resolution-default", kTagResolution, kIppKindResolution},
    {"printer-resolution-supported", kTagResolution, kIppKindResolution},
    // dateTime
    {"printer-current-time", kTagDateTime, kIppKindDateTime},
};

static_assert(sizeof kAttributeNames / sizeof kAttributeNames[0] == 110);

}  // namespace

int IPPOperations::GetTypeOfAttribute(const char* name, uint8_t* valueTag) {
  if (valueTag != nullptr) *valueTag = kTagKeyword;
  if (name == nullptr) return kIppKindText;
  for (const AttributeName& entry : kAttributeNames) {
    if (std::strcmp(entry.name, name) == 0) {
      if (valueTag != nullptr) *valueTag = entry.tag;
      return entry.kind;
    }
  }
  return kIppKindText;
}

HRESULT IPPOperations::AddAttributeBasedOnType(const char* name, uint8_t* buffer, int32_t* offset) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPOperations::AddAttributeBasedOnType");
  uint8_t tag = kTagKeyword;
  GetTypeOfAttribute(name, &tag);
  return AddStringToIPPRequest(buffer, tag, "requested-attributes", name, offset) == 0 ? S_OK : E_FAIL;
}

}  // namespace Norvane
