#include "ipp_answer.h"

#include <cstdint>
#include <cstdlib>
#include <map>
#include <sstream>

namespace PrinterSim {
namespace {

constexpr uint16_t kPrintJob = 0x0002;
constexpr uint16_t kGetJobAttributes = 0x0009;
constexpr uint16_t kGetJobs = 0x000A;
constexpr uint16_t kGetPrinterAttributes = 0x000B;
constexpr uint16_t kSuccessfulOk = 0x0000;
constexpr uint16_t kBadRequest = 0x0400;
constexpr uint16_t kNotFound = 0x0406;
constexpr uint16_t kOperationNotSupported = 0x0501;
constexpr uint16_t kInternalError = 0x0500;
constexpr uint16_t kVersionNotSupported = 0x0503;
constexpr uint8_t kOperationGroup = 0x01;
constexpr uint8_t kJobGroup = 0x02;
constexpr uint8_t kPrinterGroup = 0x04;
constexpr uint8_t kFirstValueTag = 0x10;
constexpr int kJobCompleted = 9;
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

// What a request carries: its operation attributes (the first value of each)
// and where the document after them starts.
struct ParsedRequest {
  uint16_t operation = 0;
  std::map<std::string, std::string> operationAttributes;
  size_t documentAt = 0;
};

uint16_t Get16(const std::string& bytes, size_t at) {
  return static_cast<uint16_t>(static_cast<uint8_t>(bytes[at]) << 8 | static_cast<uint8_t>(bytes[at + 1]));
}

// nullopt when the attributes run past the request's end or never end.
std::optional<ParsedRequest> ParseRequest(const std::string& request) {
  if (request.size() < 9) return std::nullopt;
  ParsedRequest parsed;
  parsed.operation = Get16(request, 2);
  uint8_t group = 0;
  size_t at = 8;
  while (at < request.size()) {
    const uint8_t tag = static_cast<uint8_t>(request[at]);
    if (tag == kEndOfAttributes) {
      parsed.documentAt = at + 1;
      return parsed;
    }
    if (tag < kFirstValueTag) {
      group = tag;
      ++at;
      continue;
    }
    if (at + 3 > request.size()) return std::nullopt;
    const size_t nameLength = Get16(request, at + 1);
    if (at + 3 + nameLength + 2 > request.size()) return std::nullopt;
    std::string name = request.substr(at + 3, nameLength);
    const size_t valueLength = Get16(request, at + 3 + nameLength);
    const size_t valueAt = at + 5 + nameLength;
    if (valueAt + valueLength > request.size()) return std::nullopt;
    if (group == kOperationGroup && !name.empty())
      parsed.operationAttributes.emplace(name, request.substr(valueAt, valueLength));
    at = valueAt + valueLength;
  }
  return std::nullopt;
}

int32_t IntegerValue(const std::string& value) {
  if (value.size() != 4) return 0;
  return static_cast<int32_t>(static_cast<uint32_t>(Get16(value, 0)) << 16 | Get16(value, 2));
}

// The answer's header and operation group, in the request's version and with
// its request-id.
std::string AnswerHead(const std::string& request, uint16_t status) {
  std::string out;
  out.append(request, 0, 2);
  Put16(out, status);
  out.append(request, 4, 4);
  out.push_back(static_cast<char>(kOperationGroup));
  PutValue(out, 0x47, "attributes-charset", "utf-8");
  PutValue(out, 0x48, "attributes-natural-language", "en");
  return out;
}

}  // namespace

std::optional<IppAnswer> JobBook::Answer(const std::string& request) {
  if (request.size() < 9) return std::nullopt;
  const uint16_t operation = Get16(request, 2);
  if (operation != kPrintJob && operation != kGetJobAttributes && operation != kGetJobs) return std::nullopt;
  IppAnswer answer;
  const auto parsed = ParseRequest(request);
  if (!parsed) {
    answer.body = AnswerHead(request, kBadRequest);
    answer.body.push_back(static_cast<char>(kEndOfAttributes));
    return answer;
  }
  const auto attribute = [&](const char* name) {
    auto found = parsed->operationAttributes.find(name);
    return found == parsed->operationAttributes.end() ? std::string() : found->second;
  };
  const auto putJob = [](std::string& out, const Job& job) {
    out.push_back(static_cast<char>(kJobGroup));
    PutValue(out, 0x21, "job-id", std::to_string(job.id));
    PutValue(out, 0x45, "job-uri", job.uri);
    PutValue(out, 0x23, "job-state", std::to_string(kJobCompleted));
    PutValue(out, 0x44, "job-state-reasons", "job-completed-successfully");
    PutValue(out, 0x42, "job-name", job.name);
  };

  std::lock_guard<std::mutex> lock(mutex_);
  if (operation == kPrintJob) {
    Job job;
    job.id = ++lastId_;
    job.uri = attribute("printer-uri") + "/" + std::to_string(job.id);
    job.name = attribute("job-name");
    job.user = attribute("requesting-user-name");
    job.document = request.substr(parsed->documentAt);
    answer.body = AnswerHead(request, kSuccessfulOk);
    putJob(answer.body, job);
    jobs_.push_back(std::move(job));
  } else if (operation == kGetJobAttributes) {
    // By job-id, or by the number that ends its job-uri.
    int id = IntegerValue(attribute("job-id"));
    const std::string uri = attribute("job-uri");
    if (id == 0 && uri.find_last_of('/') != std::string::npos) id = std::atoi(uri.c_str() + uri.find_last_of('/') + 1);
    const Job* found = nullptr;
    for (const Job& job : jobs_) found = job.id == id ? &job : found;
    answer.body = AnswerHead(request, found != nullptr ? kSuccessfulOk : kNotFound);
    if (found != nullptr) putJob(answer.body, *found);
  } else {
    // Every job completes at once: only a request for completed jobs lists any.
    answer.body = AnswerHead(request, kSuccessfulOk);
    const std::string user = attribute("requesting-user-name");
    if (attribute("which-jobs") == "completed") {
      for (const Job& job : jobs_) {
        if (user.empty() || job.user == user) putJob(answer.body, job);
      }
    }
  }
  answer.body.push_back(static_cast<char>(kEndOfAttributes));
  return answer;
}

std::optional<std::string> JobBook::Document(int id) const {
  std::lock_guard<std::mutex> lock(mutex_);
  for (const Job& job : jobs_) {
    if (job.id == id) return job.document;
  }
  return std::nullopt;
}

void JobBook::Clear() {
  std::lock_guard<std::mutex> lock(mutex_);
  jobs_.clear();
}

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
  out = AnswerHead(request, kVersionNotSupported);
  out[0] = 1;  // in the only version it speaks
  out[1] = 1;
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
  out = AnswerHead(request, status);
  if (status == kSuccessfulOk) {
    out.push_back(static_cast<char>(kPrinterGroup));
    out += printer;
  }
  out.push_back(static_cast<char>(kEndOfAttributes));
  return answer;
}

}  // namespace PrinterSim
