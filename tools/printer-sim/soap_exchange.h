// The device's side of the web-services GetPrinterElements exchange (SOAP 1.2 over HTTP).
//
// A real device checks the envelope before it answers, so the simulator does too: a
// client bug in the content type, the SOAP version, the WS-Addressing action or the
// message id gets the fault a device would send, not a friendly 200.
#pragma once

#include <optional>
#include <string>

namespace PrinterSim {

struct SoapAnswer {
  int status = 200;
  std::string contentType;
  std::string body;
};

struct SoapRequestFacts {
  std::string messageId;  // text of wsa:MessageID, e.g. "urn:uuid:..."
};

// Checks a POSTed GetPrinterElements request. Returns the facts the answer needs, or
// sets `fault` to the answer a device gives to a request it rejects.
std::optional<SoapRequestFacts> CheckGetPrinterElementsRequest(const std::string& contentType, const std::string& body,
                                                               SoapAnswer& fault);

// A SOAP 1.2 fault envelope. `code` is "Sender", "Receiver" or "VersionMismatch";
// `subcode` is a qualified name in the WS-Addressing namespace or empty.
SoapAnswer MakeSoapFault(int status, const std::string& code, const std::string& subcode, const std::string& reason);

// Fills the response fixture's placeholders: @MESSAGE_ID@ (a fresh urn:uuid),
// @RELATES_TO@ (the request's message id) and @DEVICE_TIME@ (UTC, xs:dateTime).
std::string FillResponseTemplate(std::string response, const SoapRequestFacts& facts);

// A random RFC 4122 version-4 UUID in lower-case hyphenated form.
std::string NewUuid();

}  // namespace PrinterSim
