#include "http_response_reader.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "text.h"

namespace NorvaneHost {

namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Whether the comma-separated list `value` holds `token` (ignoring case).
bool ListHolds(std::string_view value, std::string_view token) {
  while (!value.empty()) {
    size_t comma = value.find(',');
    if (EqualsIgnoreAsciiCase(TrimSpaces(value.substr(0, comma)), token)) return true;
    if (comma == std::string_view::npos) break;
    value.remove_prefix(comma + 1);
  }
  return false;
}

// The last coding of a Transfer-Encoding list: the one that frames the body.
std::string_view LastCoding(std::string_view value) {
  size_t comma = value.rfind(',');
  return TrimSpaces(comma == std::string_view::npos ? value : value.substr(comma + 1));
}

}  // namespace

HttpResponseReader::State HttpResponseReader::Feed(const uint8_t* data, size_t length) {
  if (length > 0) started_ = true;
  size_t pos = 0;
  while (pos < length) {
    switch (state_) {
      case State::kHead: {
        const auto* newline = static_cast<const uint8_t*>(std::memchr(data + pos, '\n', length - pos));
        size_t take = newline != nullptr ? static_cast<size_t>(newline - (data + pos)) + 1 : length - pos;
        headBytes_ += take;
        if (headBytes_ > kMaxHead) return Fail(Fault::kTooLarge);
        const char* text = reinterpret_cast<const char*>(data + pos);
        pos += take;
        if (newline == nullptr) {
          line_.append(text, take);
          break;
        }
        std::string_view line(text, take - 1);
        if (!line_.empty()) {
          line_.append(line);
          line = line_;
        }
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        bool taken = TakeLine(line);
        line_.clear();
        if (!taken) return state_;
        break;
      }
      case State::kBody:
        pos += FeedBody(data + pos, length - pos);
        break;
      case State::kDone:
        // Whatever follows the answer belongs to no request.
        extra_ = true;
        return state_;
      case State::kFailed:
        return state_;
    }
  }
  return state_;
}

HttpResponseReader::State HttpResponseReader::End() {
  if (state_ == State::kBody && framing_ == Framing::kToEnd) return state_ = State::kDone;
  if (state_ == State::kHead || state_ == State::kBody) return Fail(Fault::kTruncated);
  return state_;
}

bool HttpResponseReader::TakeLine(std::string_view line) {
  if (!sawStatus_) {
    // An empty line before the status line is tolerated, as HTTP asks.
    return line.empty() || TakeStatusLine(line);
  }
  if (line.empty()) return BeginBody();
  std::vector<std::pair<std::string, std::string>>& fields = response_.headers;
  if (line.front() == ' ' || line.front() == '\t') {
    // A folded line continues the field before it.
    if (!fields.empty()) {
      fields.back().second += ' ';
      fields.back().second += TrimSpaces(line);
    }
    return true;
  }
  size_t colon = line.find(':');
  // A line that names no field says nothing a reader could use.
  if (colon == std::string_view::npos || colon == 0) return true;
  if (fields.empty()) fields.reserve(16);
  fields.emplace_back(std::string(TrimSpaces(line.substr(0, colon))), std::string(TrimSpaces(line.substr(colon + 1))));
  return true;
}

bool HttpResponseReader::TakeStatusLine(std::string_view line) {
  // "HTTP/1.1 200 OK": the version, a space, three digits, and a reason after
  // a space, which may be empty or missing.
  if (line.size() < 12 || line.substr(0, 7) != "HTTP/1." || !IsDigit(line[7]) || line[8] != ' ' ||
      !IsDigit(line[9]) || !IsDigit(line[10]) || !IsDigit(line[11]) || (line.size() > 12 && line[12] != ' ')) {
    return Refuse(Fault::kMalformed);
  }
  http11_ = line[7] != '0';
  response_.status = (line[9] - '0') * 100 + (line[10] - '0') * 10 + (line[11] - '0');
  if (response_.status < 100) return Refuse(Fault::kMalformed);
  response_.statusLine.assign(TrimSpaces(line));
  sawStatus_ = true;
  return true;
}

bool HttpResponseReader::BeginBody() {
  long status = response_.status;
  if (status >= 100 && status < 200 && status != 101) {
    // An interim answer: the final one follows on the same connection.
    response_ = ExchangeResponse();
    sawStatus_ = false;
    return true;
  }
  keepAlive_ = http11_ && status != 101;
  bool encoded = false, chunked = false, sized = false;
  uint64_t length = 0;
  for (const auto& [name, value] : response_.headers) {
    if (EqualsIgnoreAsciiCase(name, "Connection")) {
      if (ListHolds(value, "close")) keepAlive_ = false;
    } else if (EqualsIgnoreAsciiCase(name, "Transfer-Encoding")) {
      encoded = true;
      chunked = EqualsIgnoreAsciiCase(LastCoding(value), "chunked");
    } else if (EqualsIgnoreAsciiCase(name, "Content-Length")) {
      std::string_view digits = value;
      uint64_t parsed = 0;
      if (digits.empty()) return Refuse(Fault::kMalformed);
      for (char c : digits) {
        if (!IsDigit(c)) return Refuse(Fault::kMalformed);
        parsed = parsed * 10 + static_cast<uint64_t>(c - '0');
        // Beyond any body kept; the exact figure no longer matters.
        if (parsed > maxBody_) return Refuse(Fault::kTooLarge);
      }
      if (sized && parsed != length) return Refuse(Fault::kMalformed);
      sized = true;
      length = parsed;
    }
  }
  if (noBody_ || status == 204 || status == 304 || status == 101) {
    state_ = State::kDone;
    return true;
  }
  if (encoded) {
    // The coding frames the body, whatever a length beside it says; such a
    // message is not one to send another request after.
    if (sized) keepAlive_ = false;
    framing_ = chunked ? Framing::kChunked : Framing::kToEnd;
    if (!chunked) keepAlive_ = false;
  } else if (sized) {
    framing_ = Framing::kLength;
    left_ = length;
    // Room for the body and the zero a response puts after it.
    response_.body.reserve(static_cast<size_t>(length) + 1);
  } else {
    framing_ = Framing::kToEnd;
    keepAlive_ = false;
  }
  state_ = framing_ == Framing::kLength && left_ == 0 ? State::kDone : State::kBody;
  return true;
}

size_t HttpResponseReader::FeedBody(const uint8_t* data, size_t length) {
  switch (framing_) {
    case Framing::kLength: {
      size_t take = static_cast<size_t>(std::min<uint64_t>(left_, length));
      response_.body.insert(response_.body.end(), data, data + take);
      left_ -= take;
      if (left_ == 0) state_ = State::kDone;
      return take;
    }
    case Framing::kChunked: {
      bool tooLarge = false;
      deframer_.Feed(data, length, [&](const uint8_t* piece, size_t size) {
        tooLarge = !Append(piece, size);
        return !tooLarge;
      });
      if (deframer_.Finished() || deframer_.Overran()) {
        state_ = State::kDone;
        extra_ = deframer_.Overran();
      } else if (tooLarge) {
        Fail(Fault::kTooLarge);
      } else if (deframer_.Failed()) {
        Fail(Fault::kMalformed);
      }
      return length;
    }
    case Framing::kToEnd:
      if (!Append(data, length)) Fail(Fault::kTooLarge);
      return length;
    case Framing::kNone:
      break;
  }
  return length;
}

bool HttpResponseReader::Append(const uint8_t* data, size_t length) {
  std::vector<uint8_t>& body = response_.body;
  if (length > maxBody_ - body.size()) return false;
  body.insert(body.end(), data, data + length);
  return true;
}

}  // namespace NorvaneHost
