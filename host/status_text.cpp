// Words for the library's statuses and last-error codes, so that hosts (and the
// command-line tool) report failures as sentences rather than bare numbers.
#include <curl/curl.h>

#include <cstdint>

#include "norvane/host.h"

namespace {

struct CodeText {
  uint32_t code;
  const char* text;
};

constexpr CodeText kStatuses[] = {
    {0x00000000u, "success"},
    {0x00000001u, "nothing found or nothing done"},
    {0x80004001u, "not implemented"},
    {0x80004003u, "invalid pointer"},
    {0x80004005u, "the operation failed"},
    {0x8007000Eu, "out of memory, or a buffer too small"},
    {0x80070057u, "invalid argument"},
    {0x8007007Au, "a buffer too small"},
    {0x80020005u, "type mismatch"},
    {0x80190001u, "the HTTP exchange failed"},
    {0x902A010Au, "the job was canceled at the device"},
    // The single-request processor answers these in place of a status.
    {102, "the first data map is neither SNMP nor web services"},
    {103, "the document has no DataMaps element"},
    {108, "an argument is missing"},
    {109, "the document is not well-formed XML"},
    {110, "web-services values cannot be set"},
    {111, "the web-services data map has no item with a URI and an XPath"},
    {112, "the data map has no item of its kind"},
    {113, "the device returned no web-services value"},
    {114, "the SNMP data map has no item with an OID"},
    {115, "the device returned no SNMP value"},
    {116, "the device does not answer web services"},
    {117, "the device does not answer SNMP"},
    {118, "the SNMP set failed"},
    {119, "only integers can be set"},
};

constexpr CodeText kLastErrors[] = {
    {0, "no error"},
    {2, "file not found"},
    {5, "access denied"},
    {13, "the data is invalid"},
    {30, "the device's answer could not be read"},
    {87, "invalid argument"},
    {401, "the printer asks for credentials"},
    {1025, "the operation requires a secure (ipps) connection"},
    {1026, "the credentials were refused by the printer"},
    {1280, "the job could not be set up"},
    {1291, "the job could not be found"},
    {1460, "timed out"},
    {1462, "no print data was given"},
    {1796, "the printer URI names a port other than 631 or 443"},
    {0x20000001u, "the device answers HTTP on port 80 but not IPP on port 631"},
    {0x20000002u, "no answer on port 631 (IPP, or the port the address names) nor port 80 (HTTP)"},
    {0x20000003u, "the printer URI's path is too short"},
    {0x20000004u, "the printer URI has no path"},
    {0x20000009u, "the printer refused the IPP request (HTTP 400, 404 or 405)"},
    {0x20000010u, "the printer's state could not be read"},
};

template <size_t N>
const char* Find(const CodeText (&table)[N], uint32_t code) {
  for (const auto& entry : table) {
    if (entry.code == code) return entry.text;
  }
  return nullptr;
}

}  // namespace

extern "C" const char* NorvaneStatusText(HRESULT status) {
  const char* text = Find(kStatuses, static_cast<uint32_t>(status));
  if (text != nullptr) return text;
  // A last-error code wrapped as a status reads as that code.
  if ((static_cast<uint32_t>(status) & 0xFFFF0000u) == 0x80070000u) {
    text = Find(kLastErrors, static_cast<uint32_t>(status) & 0xFFFFu);
    if (text != nullptr) return text;
  }
  return FAILED(status) ? "unknown failure" : "unknown status";
}

extern "C" const char* NorvaneLastErrorText(uint32_t code) {
  const char* text = Find(kLastErrors, code);
  if (text != nullptr) return text;
  // An HTTP status left by a failed IPP exchange, or the transport error of a
  // request that got no answer at all.
  if (code >= 100 && code < 600) return "the printer answered with this HTTP status";
  if (code < CURL_LAST) return curl_easy_strerror(static_cast<CURLcode>(code));
  return "unknown error";
}
