#include "soap_exchange.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <random>
#include <regex>

namespace PrinterSim {
namespace {

constexpr const char* kSoap12Namespace = "http://www.w3.org/2003/05/soap-envelope";
constexpr const char* kSoap11Namespace = "http://schemas.xmlsoap.org/soap/envelope/";
constexpr const char* kAddressingNamespace = "http://schemas.xmlsoap.org/ws/2004/08/addressing";
constexpr const char* kSoapContentType = "application/soap+xml; charset=utf-8";

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

// Text of the first element with this local name, whatever prefix the client chose.
std::optional<std::string> ElementText(const std::string& body, const std::string& localName) {
  const std::regex element("<(?:[A-Za-z_][-A-Za-z0-9_.]*:)?" + localName + "(?:\\s[^>]*)?>\\s*([^<]*?)\\s*</");
  std::smatch match;
  if (!std::regex_search(body, match, element)) return std::nullopt;
  return match[1].str();
}

bool HasElement(const std::string& body, const std::string& localName) {
  const std::regex element("<(?:[A-Za-z_][-A-Za-z0-9_.]*:)?" + localName + "[\\s/>]");
  return std::regex_search(body, element);
}

std::string EscapeXml(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

void ReplaceAll(std::string& text, const std::string& token, const std::string& value) {
  for (auto at = text.find(token); at != std::string::npos; at = text.find(token, at + value.size()))
    text.replace(at, token.size(), value);
}

std::string UtcNow() {
  const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm parts{};
  gmtime_r(&now, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text;
}

}  // namespace

std::optional<SoapRequestFacts> CheckGetPrinterElementsRequest(const std::string& contentType, const std::string& body,
                                                               SoapAnswer& fault) {
  // SOAP 1.2 travels as application/soap+xml; anything else is refused before the
  // body is looked at, as the SOAP HTTP binding prescribes.
  const std::string mediaType = Lower(contentType.substr(0, contentType.find(';')));
  if (mediaType.find("application/soap+xml") == std::string::npos) {
    fault = {415, "text/plain", "expected application/soap+xml\n"};
    return std::nullopt;
  }
  if (body.find(kSoap12Namespace) == std::string::npos) {
    const bool soap11 = body.find(kSoap11Namespace) != std::string::npos;
    fault = MakeSoapFault(soap11 ? 500 : 400, soap11 ? "VersionMismatch" : "Sender", "",
                          soap11 ? "SOAP 1.1 envelopes are not accepted" : "the body is not a SOAP 1.2 envelope");
    return std::nullopt;
  }
  const auto action = ElementText(body, "Action");
  if (!action || !action->ends_with("/GetPrinterElements")) {
    fault = MakeSoapFault(400, "Sender", "wsa:ActionNotSupported", "unsupported action '" + action.value_or("") + "'");
    return std::nullopt;
  }
  if (!HasElement(body, "GetPrinterElementsRequest") || !HasElement(body, "RequestedElements")) {
    fault = MakeSoapFault(400, "Sender", "", "GetPrinterElementsRequest with RequestedElements expected");
    return std::nullopt;
  }
  const auto messageId = ElementText(body, "MessageID");
  if (!messageId || messageId->empty()) {
    fault = MakeSoapFault(400, "Sender", "wsa:MessageAddressingHeaderRequired", "a request must carry wsa:MessageID");
    return std::nullopt;
  }
  return SoapRequestFacts{*messageId};
}

SoapAnswer MakeSoapFault(int status, const std::string& code, const std::string& subcode, const std::string& reason) {
  std::string body = std::string(
                         "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
                         "<soap:Envelope xmlns:soap=\"") +
                     kSoap12Namespace + "\" xmlns:wsa=\"" + kAddressingNamespace +
                     "\">\n"
                     "  <soap:Header>\n"
                     "    <wsa:Action>" +
                     kAddressingNamespace +
                     "/fault</wsa:Action>\n"
                     "    <wsa:MessageID>urn:uuid:" +
                     NewUuid() +
                     "</wsa:MessageID>\n"
                     "  </soap:Header>\n"
                     "  <soap:Body>\n"
                     "    <soap:Fault>\n"
                     "      <soap:Code>\n"
                     "        <soap:Value>soap:" +
                     code + "</soap:Value>\n";
  if (!subcode.empty()) body += "        <soap:Subcode><soap:Value>" + subcode + "</soap:Value></soap:Subcode>\n";
  body +=
      "      </soap:Code>\n"
      "      <soap:Reason><soap:Text xml:lang=\"en\">" +
      EscapeXml(reason) +
      "</soap:Text></soap:Reason>\n"
      "    </soap:Fault>\n"
      "  </soap:Body>\n"
      "</soap:Envelope>\n";
  return {status, kSoapContentType, std::move(body)};
}

std::string FillResponseTemplate(std::string response, const SoapRequestFacts& facts) {
  ReplaceAll(response, "@MESSAGE_ID@", "urn:uuid:" + NewUuid());
  ReplaceAll(response, "@RELATES_TO@", EscapeXml(facts.messageId));
  ReplaceAll(response, "@DEVICE_TIME@", UtcNow());
  return response;
}

std::string NewUuid() {
  static thread_local std::mt19937_64 engine{std::random_device{}()};
  std::uniform_int_distribution<unsigned> byte(0, 255);
  unsigned char bytes[16];
  for (auto& b : bytes) b = static_cast<unsigned char>(byte(engine));
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);
  char text[37];
  std::snprintf(text, sizeof text, "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x", bytes[0],
                bytes[1], bytes[2], bytes[3], bytes[4], bytes[5], bytes[6], bytes[7], bytes[8], bytes[9], bytes[10],
                bytes[11], bytes[12], bytes[13], bytes[14], bytes[15]);
  return text;
}

}  // namespace PrinterSim
