// The attribute-name table: the value tag and kind under which an attribute
// name is asked for in "requested-attributes". Its tags are its own (it lists
// "sides" and "job-sheets" as integers, for instance); the request builders
// use the tags of their own attribute sets.
#include <cstring>

#include "ipp/ipp_operations.h"
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
    {"printer-uri", 0x45, kIppKindText},
    {"job-uri", 0x45, kIppKindText},
    {"job-printer-uri", 0x45, kIppKindText},
    {"job-more-info", 0x45, kIppKindText},
    {"printer-uri-supported", 0x45, kIppKindText},
    {"printer-more-info", 0x45, kIppKindText},
    {"printer-driver-installer", 0x45, kIppKindText},
    {"printer-more-info-manufacturer", 0x45, kIppKindText},
    {"document-uri", 0x45, kIppKindText},
    // nameWithoutLanguage
    {"requesting-user-name", 0x42, kIppKindText},
    {"document-name", 0x42, kIppKindText},
    {"job-name", 0x42, kIppKindText},
    {"job-originating-user-name", 0x42, kIppKindText},
    {"output-device-assigned", 0x42, kIppKindText},
    {"printer-name", 0x42, kIppKindText},
    // textWithoutLanguage
    {"message", 0x41, kIppKindText},
    {"job-state-message", 0x41, kIppKindText},
    {"job-message-from-operator", 0x41, kIppKindText},
    {"printer-location", 0x41, kIppKindText},
    {"printer-info", 0x41, kIppKindText},
    {"printer-make-and-model", 0x41, kIppKindText},
    {"printer-state-message", 0x41, kIppKindText},
    {"printer-message-from-operator", 0x41, kIppKindText},
    {"status-message", 0x41, kIppKindText},
    // keyword
    {"compression", 0x44, kIppKindText},
    {"requested-attributes", 0x44, kIppKindText},
    {"job-hold-until", 0x44, kIppKindText},
    {"multiple-document-handling", 0x44, kIppKindText},
    {"media", 0x44, kIppKindText},
    {"job-hold-until-default", 0x44, kIppKindText},
    {"multiple-document-handling-default", 0x44, kIppKindText},
    {"media-default", 0x44, kIppKindText},
    {"job-hold-until-supported", 0x44, kIppKindText},
    {"multiple-document-handling-supported", 0x44, kIppKindText},
    {"media-supported", 0x44, kIppKindText},
    {"job-state-reasons", 0x44, kIppKindText},
    {"uri-security-supported", 0x44, kIppKindText},
    {"printer-state-reasons", 0x44, kIppKindText},
    {"pdl-override-supported", 0x44, kIppKindText},
    {"compression-supported", 0x44, kIppKindText},
    {"which-jobs", 0x44, kIppKindText},
    // mimeMediaType
    {"document-format", 0x49, kIppKindText},
    {"document-format-default", 0x49, kIppKindText},
    {"document-format-supported", 0x49, kIppKindText},
    // naturalLanguage
    {"document-natural-language", 0x48, kIppKindText},
    {"attributes-natural-language", 0x48, kIppKindText},
    {"natural-language-configured", 0x48, kIppKindText},
    {"generated-natural-language-supported", 0x48, kIppKindText},
    // charset
    {"attributes-charset", 0x47, kIppKindText},
    {"charset-configured", 0x47, kIppKindText},
    {"charset-supported", 0x47, kIppKindText},
    // uriScheme
    {"reference-uri-schemes-supported", 0x46, kIppKindText},
    // integer
    {"job-priority", 0x21, kIppKindInteger},
    {"job-sheets", 0x21, kIppKindInteger},
    {"copies", 0x21, kIppKindInteger},
    {"sides", 0x21, kIppKindInteger},
    {"number-up", 0x21, kIppKindInteger},
    {"job-priority-default", 0x21, kIppKindInteger},
    {"job-sheets-default", 0x21, kIppKindInteger},
    {"copies-default", 0x21, kIppKindInteger},
    {"sides-default", 0x21, kIppKindInteger},
    {"number-up-default", 0x21, kIppKindInteger},
    {"job-priority-supported", 0x21, kIppKindInteger},
    {"job-sheets-supported", 0x21, kIppKindInteger},
    {"sides-supported", 0x21, kIppKindInteger},
    {"number-up-supported", 0x21, kIppKindInteger},
    {"job-id", 0x21, kIppKindInteger},
    {"number-of-documents", 0x21, kIppKindInteger},
    {"time-at-creation", 0x21, kIppKindInteger},
    {"time-at-processing", 0x21, kIppKindInteger},
    {"time-at-completed", 0x21, kIppKindInteger},
    {"number-of-intervening-jobs", 0x21, kIppKindInteger},
    {"job-k-octets", 0x21, kIppKindInteger},
    {"job-impressions", 0x21, kIppKindInteger},
    {"job-media-sheet", 0x21, kIppKindInteger},
    {"job-k-octets-processed", 0x21, kIppKindInteger},
    {"job-impressions-completed", 0x21, kIppKindInteger},
    {"job-media-sheets-completed", 0x21, kIppKindInteger},
    {"queued-job-count", 0x21, kIppKindInteger},
    {"printer-up-time", 0x21, kIppKindInteger},
    {"multiple-operation-timeout", 0x21, kIppKindInteger},
    {"limit", 0x21, kIppKindInteger},
    // enum
    {"finishings", 0x23, kIppKindInteger},
    {"orientation-requested", 0x23, kIppKindInteger},
    {"print-quality", 0x23, kIppKindInteger},
    {"finishings-default", 0x23, kIppKindInteger},
    {"orientation-requested-default", 0x23, kIppKindInteger},
    {"print-quality-default", 0x23, kIppKindInteger},
    {"finishings-supported", 0x23, kIppKindInteger},
    {"orientation-requested-supported", 0x23, kIppKindInteger},
    {"print-quality-supported", 0x23, kIppKindInteger},
    {"job-state", 0x23, kIppKindInteger},
    {"printer-state", 0x23, kIppKindInteger},
    {"operations-supported", 0x23, kIppKindInteger},
    // boolean
    {"ipp-attribute-fidelity", 0x22, kIppKindBoolean},
    {"page-ranges-supported", 0x22, kIppKindBoolean},
    {"printer-is-accepting-jobs", 0x22, kIppKindBoolean},
    {"color-supported", 0x22, kIppKindBoolean},
    {"my-jobs", 0x22, kIppKindBoolean},
    {"last-document", 0x22, kIppKindBoolean},
    // rangeOfInteger
    {"page-ranges", 0x33, kIppKindRange},
    {"copies-supported", 0x33, kIppKindRange},
    {"job-k-octets-supported", 0x33, kIppKindRange},
    {"job-impressions-supported", 0x33, kIppKindRange},
    {"job-media-sheets-supported", 0x33, kIppKindRange},
    // resolution
    {"printer-resolution", 0x32, kIppKindResolution},
    {"printer-resolution-default", 0x32, kIppKindResolution},
    {"printer-resolution-supported", 0x32, kIppKindResolution},
    // dateTime
    {"printer-current-time", 0x31, kIppKindDateTime},
};

static_assert(sizeof kAttributeNames / sizeof kAttributeNames[0] == 110);

}  // namespace

int IPPOperations::GetTypeOfAttribute(const char* name, uint8_t* valueTag) {
  if (valueTag != nullptr) *valueTag = 0x44;
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
  uint8_t tag = 0x44;
  GetTypeOfAttribute(name, &tag);
  return AddStringToIPPRequest(buffer, tag, "requested-attributes", name, offset) == 0 ? S_OK : E_FAIL;
}

}  // namespace Norvane
