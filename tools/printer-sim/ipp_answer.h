// The printer's side of an IPP exchange, enough for a client that asks what the
// device is: Get-Printer-Attributes answered from a text fixture, every other
// operation refused as a printer refuses what it does not implement.
#pragma once

#include <optional>
#include <string>

namespace PrinterSim {

struct IppAnswer {
  int httpStatus = 200;  // 400 when the body is not an IPP request at all
  std::string body;      // application/ipp
};

// `fixture` lists the printer attributes, one per line: "TAG NAME VALUE[,VALUE...]"
// with TAG one of integer, enum, text, name, keyword, uri, charset, language, mime;
// blank lines and lines starting with '#' are skipped. A line that cannot be used
// fails the request with server-error-internal-error, so a broken fixture shows.
IppAnswer AnswerIppRequest(const std::string& request, const std::string& fixture);

// A recorded answer, as it was captured but with the request's request-id.
IppAnswer AnswerFromCapture(const std::string& request, const std::string& capture);

// server-error-version-not-supported, as an IPP/1.1 printer answers a request of
// a version it does not speak; nullopt when it speaks the request's version.
std::optional<IppAnswer> RefuseIpp2(const std::string& request);

}  // namespace PrinterSim
