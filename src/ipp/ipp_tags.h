// IPP delimiter and value tags (RFC 8010 section 3.5): the one list the
// encoder, the decoder and the attribute-name table share.
#pragma once

#include <cstdint>

namespace Norvane {

enum IppTag : uint8_t {
  kTagOperationGroup = 0x01,
  kTagJobGroup = 0x02,
  kTagEnd = 0x03,
  // Tags below this one delimit groups; from here on they tag values.
  kTagFirstValue = 0x10,
  kTagInteger = 0x21,
  kTagBoolean = 0x22,
  kTagEnum = 0x23,
  kTagOctetString = 0x30,
  kTagDateTime = 0x31,
  kTagResolution = 0x32,
  kTagRange = 0x33,
  kTagBeginCollection = 0x34,
  kTagTextWithLanguage = 0x35,
  kTagNameWithLanguage = 0x36,
  kTagEndCollection = 0x37,
  kTagText = 0x41,
  kTagName = 0x42,
  kTagKeyword = 0x44,
  kTagUri = 0x45,
  kTagUriScheme = 0x46,
  kTagCharset = 0x47,
  kTagLanguage = 0x48,
  kTagMimeType = 0x49,
  kTagMemberName = 0x4A,
};

}  // namespace Norvane
