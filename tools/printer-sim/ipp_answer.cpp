#include "ipp_answer.h"

#include <cstdint>
#include <map>
#include <sstream>

namespace PrinterSim {
namespace {

constexpr uint16_t kGetPrinterAttributes = 0x000B;
constexpr uint16_t kSuccessfulOk = 0x0000;
constexpr uint16_t kOperationNotSupported = 0x0501;
constexpr uint16_t kInternalError = 0x0500;
constexpr uint16_t kVersionNotSupported = 0x0503;
constexpr uint8_t kOperationGroup = 0x01;
constexpr uint8_t kPrinterGroup = 0x04;
constexpr uint8_t kEndOfAttributes = 0x03;

const std::map<std::string, uint8_t>& ValueTags() {
  static const std::map<std::string, uint8_t> tags = {
      {"integer", 0x21}, {"enum", 0x23},    {"text", 0x41},     {"name", 0x42}, {"keyword", 0x44},
      {"uri", 0x45},     {"charset", 0x47}, {"language", 0x48}, {"mime", 0x49},
  };
  return tags;
}

void Put16(std::string& out, uint32_t value) {
  out.push_back(static_cast<char>((value >> 8) & 0xFF));
  out.push_back(static_cast<char>(value & 0xFF));
}

void PutValue(std::string& out, uint8_t tag, const std::string& name, const std::string& value) {
  out.push_back(static_cast<char>(tag));
  Put16(out, static_cast<uint32_t>(name.size()));
  out += name;
  if (tag == 0x21 || tag == 0x23) {
    const uint32_t number = static_cast<uint32_t>(std::stol(value));
    Put16(out, 4);
    Put16(out, number >> 16);
    Put16(out, number);
    return;
  }
  Put16(out, static_cast<uint32_t>(value.size()));
  out += value;
}

// The printer group from the fixture; false on a line it cannot encode.
bool PrinterGroup(const std::string& fixture, std::string& out) {
  std::istringstream lines(fixture);
  std::string line;
  while (std::getline(lines, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    std::string tag, name, values;
    // The value is the rest of the line: a text may hold spaces.
    if (!(fields >> tag >> name >> std::ws) || !std::getline(fields, values) || values.empty()) return false;
    const auto found = ValueTags().find(tag);
    if (found == ValueTags().end() || name.size() > 0x7FFF || values.size() > 0x7FFF) return false;
    // Further values of a set carry an empty name.
    std::string first = name;
    std::istringstream items(values);
    for (std::string item; std::getline(items, item, ',');) {
      if ((found->second == 0x21 || found->second == 0x23) &&
          item.find_first_not_of("-0123456789") != std::string::npos)
        return false;
      PutValue(out, found->second, first, item);
      first.clear();
    }
  }
  return true;
}

}  // namespace

IppAnswer AnswerFromCapture(const std::string& request, const std::string& capture) {
  IppAnswer answer;
  if (request.size() < 9 || capture.size() < 8) {
    answer.httpStatus = 400;
    return answer;
  }
  answer.body = capture;
  answer.body.replace(4, 4, request, 4, 4);
  return answer;
}

std::optional<IppAnswer> RefuseIpp2(const std::string& request) {
  if (request.size() < 9 || static_cast<uint8_t>(request[0]) < 2) return std::nullopt;
  IppAnswer answer;
  std::string& out = answer.body;
  out.push_back(1);
  out.push_back(1);
  Put16(out, kVersionNotSupported);
  out.append(request, 4, 4);
  out.push_back(static_cast<char>(kOperationGroup));
  PutValue(out, 0x47, "attributes-charset", "utf-8");
  PutValue(out, 0x48, "attributes-natural-language", "en");
  out.push_back(static_cast<char>(kEndOfAttributes));
  return answer;
}

IppAnswer AnswerIppRequest(const std::string& request, const std::string& fixture) {
  IppAnswer answer;
  // version (2), operation (2), request id (4), then at least the end tag.
  if (request.size() < 9) {
    answer.httpStatus = 400;
    return answer;
  }
  const auto byte = [&](size_t at) { return static_cast<uint8_t>(request[at]); };
  const uint16_t operation = static_cast<uint16_t>(byte(2) << 8 | byte(3));
  std::string printer;
  uint16_t status = kSuccessfulOk;
  if (operation != kGetPrinterAttributes) status = kOperationNotSupported;
  else if (!PrinterGroup(fixture, printer)) status = kInternalError;

  std::string& out = answer.body;
  out.append(request, 0, 2);  // the client's version
  Put16(out, status);
  out.append(request, 4, 4);  // its request id
  out.push_back(static_cast<char>(kOperationGroup));
  PutValue(out, 0x47, "attributes-charset", "utf-8");
  PutValue(out, 0x48, "attributes-natural-language", "en");
  if (status == kSuccessfulOk) {
    out.push_back(static_cast<char>(kPrinterGroup));
    out += printer;
  }
  out.push_back(static_cast<char>(kEndOfAttributes));
  return answer;
}

}  // namespace PrinterSim
