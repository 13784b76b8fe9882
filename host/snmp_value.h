// SNMP values and object identifiers as the library sees them: OIDs as
// dotted-decimal wide text, values as variants.
#pragma once

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "norvane/platform.h"

namespace NorvaneHost {

// "1.3.6.1.2.1.1.1.0", with or without a leading '.'; at least two arcs, each
// below 2^32, at most MAX_OID_LEN arcs. Null for anything else.
std::optional<std::vector<oid>> ParseOid(std::u16string_view text);
// Dotted decimal without a leading '.'.
std::u16string FormatOid(const oid* arcs, size_t count);

// Whether a get-next answer lies after the OID asked about in the agent's
// object order. An answer that does not (the same OID, or one before it) would
// make a walk circle forever, so it is treated as the end of the walk.
bool FollowsOid(const netsnmp_variable_list& answer, const std::vector<oid>& asked);

// The variant for a received value: integers as VT_I4 (unsigned kinds beyond
// INT32_MAX as decimal VT_BSTR text, so the number stays right); octet strings
// that are text (trailing zero bytes ignored, no control characters but tab, CR
// and LF) as VT_BSTR: UTF-8 when they are valid UTF-8, else Latin-1, which
// older devices use for their descriptions; other octet strings as
// VT_ARRAY|VT_UI1; object
// identifiers and IP addresses as text. E_FAIL for the exception values
// (noSuchObject, noSuchInstance, endOfMibView) and unknown kinds.
HRESULT VariableToVariant(const netsnmp_variable_list& variable, VARIANT* value);

// What a set sends: VT_I4/VT_INT/VT_I2/VT_UI1/VT_UI2/VT_UI4/VT_BOOL as INTEGER,
// VT_BSTR as an OCTET STRING of its UTF-8 text, VT_ARRAY|VT_UI1 as its bytes.
struct SnmpSetValue {
  u_char type = ASN_INTEGER;
  long integer = 0;
  std::string bytes;
};
std::optional<SnmpSetValue> VariantToSetValue(const VARIANT& value);

}  // namespace NorvaneHost
