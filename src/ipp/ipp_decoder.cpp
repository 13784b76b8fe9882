// Response decoding (RFC 8010 message encoding). The decoder reads from a byte
// span with an explicit end: every length is checked against what remains
// before anything is read, names and values are capped, and collections may
// nest only so deep, so a hostile response costs at most memory proportional
// to its size.
#include <sys/stat.h>

#include <charconv>
#include <cstdlib>
#include <new>
#include <string>
#include <string_view>

#include "ipp/ipp_operations.h"
#include "ipp/ipp_tags.h"
#include "support/log.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

namespace {

constexpr uint16_t kMaxNameOrValue = 1023;
constexpr int32_t kStatusNotPossible = 0x0404;  // client-error-not-possible

// The unread part of a response. Take hands out the next bytes only when that
// many remain. The count is the reader's own while it decodes (a count behind
// a pointer would be reloaded after every byte the decoder stores) and goes
// back to the owner when the reader does.
class Reader {
 public:
  Reader(const uint8_t* data, uint32_t* owner) : next_(data), remaining_(*owner), owner_(owner) {}
  ~Reader() { *owner_ = remaining_; }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  uint32_t Remaining() const { return remaining_; }
  const uint8_t* Take(uint32_t count) {
    if (count > remaining_) return nullptr;
    const uint8_t* p = next_;
    next_ += count;
    remaining_ -= count;
    return p;
  }
  bool ReadU16(uint16_t* value) {
    const uint8_t* p = Take(2);
    if (p == nullptr) return false;
    *value = static_cast<uint16_t>(p[0] << 8 | p[1]);
    return true;
  }

 private:
  const uint8_t* next_;
  uint32_t remaining_;
  uint32_t* owner_;
};

int32_t ReadI32(const uint8_t* p) {
  return static_cast<int32_t>(static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
                              static_cast<uint32_t>(p[2]) << 8 | p[3]);
}

std::string_view AsText(const uint8_t* p, size_t n) { return {reinterpret_cast<const char*>(p), n}; }

bool IsPlainStringTag(uint8_t tag) {
  return tag == kTagText || tag == kTagName || (tag >= kTagKeyword && tag <= kTagMimeType);
}

}  // namespace

HRESULT IPPOperations::ParseIPPResponse(HTTPResponse* response, VARIANT* value) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPOperations::ParseIPPResponse");
  if (response == nullptr) return E_FAIL;
  uint32_t length = response->GetBodyLength();
  return ParseIPPContent(response->GetBody(), length, value);
}

HRESULT IPPOperations::ParseIPPResponse(IppResponseSource* source, VARIANT* value) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPOperations::ParseIPPResponse");
  if (source == nullptr) return E_FAIL;
  uint32_t length = source->GetDataLength();
  return ParseIPPContent(source->GetData(), length, value);
}

HRESULT IPPOperations::ParseIPPContent(const uint8_t* data, uint32_t length, VARIANT* value) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPOperations::ParseIPPContent");
  if (length > kIppMaxResponseBytes) {
    QX_LOG(QxLogging::kStandout, "Response of %u bytes refused", length);
    valueMap_.Clear();
    return E_FAIL;
  }
  bytesRemaining_ = length;
  int result;
  try {
    result = ReadResponseData(data, value);
  } catch (const std::bad_alloc&) {
    // The value map's own buffers; a failed variant still throws ComError.
    valueMap_.Clear();
    collections_.Clear();
    result = -1;
  }
  if (result == -1) {
    QX_LOG(QxLogging::kStandout, "Unable to decode the IPP response");
    return E_FAIL;
  }
  return S_OK;
}

int IPPOperations::ReadResponseData(const uint8_t* data, VARIANT* value) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPOperations::ReadResponseData");
  valueMap_.Clear();
  if (data == nullptr) return -1;
  Reader in(data, &bytesRemaining_);
  const uint8_t* header = in.Take(8);
  if (header != nullptr) {
    if (QxNetAddress* noted = FieldAddress())
      noted->SetIppAnsweredVersion(static_cast<uint16_t>(header[0] << 8 | header[1]));
  }
  const bool fieldCompatible = FieldCompatible();
  if (header == nullptr || !(header[0] == 2 || (header[0] == 1 && fieldCompatible))) {
    QX_LOG(QxLogging::kStandout, "Not an IPP/2 response (version %u.%u)", header != nullptr ? header[0] : 0u,
           header != nullptr ? header[1] : 0u);
    return -1;
  }
  versionMajor_ = header[0];
  versionMinor_ = header[1];
  statusCode_ = header[2] << 8 | header[3];
  responseRequestId_ = ReadI32(header + 4);

  valueMap_.Reserve(in.Remaining());
  valueMap_.BeginName("status-code");
  valueMap_.AddDecimal(statusCode_);
  // Values before the first named attribute belong to the empty name.
  valueMap_.BeginName({});
  if (statusCode_ != 0) {
    QX_LOG(QxLogging::kInfo, "IPP status is not success %d", statusCode_);
    if (jobOperationFlag_ != 0 && statusCode_ != kStatusNotPossible) return -1;
  }
  collections_.Clear();
  collections_.Reserve(in.Remaining());

  // Names and member names point into `data`, which outlives the loop.
  std::string_view attribute;
  std::string_view member;
  std::string_view lastCollection;
  bool haveLastCollection = false;
  int32_t collectionIndex = 0;
  int depth = 0;
  // The store keeps values inside collections only: most values never reach it.
  const auto keep = [&](IppValueMap::Kind kind, std::string_view text) {
    if (depth > 0) collections_.AddValue(member, kind, text);
  };
  for (;;) {
    if (in.Remaining() == 0) {
      // A response cut short of its end tag still counts, without a value.
      DumpCollections();
      return 0;
    }
    const uint8_t tag = *in.Take(1);
    if (tag == kTagEnd) {
      if (collectionQueryFlag_ == 1) {
        if (collectionQuery_.has_value()) QueryCollection(collectionQuery_->c_str(), value);
        return 0;
      }
      return GetValueFromIPPMap(GetAttributeName(), value) == 1 ? 0 : -1;
    }
    if (tag < kTagFirstValue) continue;  // a group delimiter

    uint16_t nameLength = 0;
    if (!in.ReadU16(&nameLength) || nameLength > kMaxNameOrValue) return -1;
    if (nameLength != 0 && tag != kTagMemberName) {
      const uint8_t* name = in.Take(nameLength);
      if (name == nullptr) return -1;
      attribute = AsText(name, nameLength);
      valueMap_.BeginName(attribute);
    }
    uint16_t valueLength = 0;
    if (!in.ReadU16(&valueLength)) return -1;

    switch (tag) {
      case kTagInteger:
      case kTagEnum: {
        // Four bytes whatever the value length claims.
        const uint8_t* p = in.Take(4);
        if (p == nullptr) return -1;
        std::string_view text = valueMap_.AddDecimal(ReadI32(p));
        keep(IppValueMap::Kind::kText, text);
        break;
      }
      case kTagBoolean: {
        const uint8_t* p = in.Take(1);
        if (p == nullptr) return -1;
        std::string_view text = valueMap_.AddDecimal(*p);
        keep(IppValueMap::Kind::kText, text);
        break;
      }
      case kTagOctetString: {
        const uint8_t* p = valueLength <= kMaxNameOrValue ? in.Take(valueLength) : nullptr;
        if (p == nullptr) return -1;
        valueMap_.AddText(kIppSetStart);
        std::string_view text = valueMap_.AddOctetStringText(AsText(p, valueLength));
        keep(IppValueMap::Kind::kText, text);
        valueMap_.AddText(kIppSetEnd);
        break;
      }
      case kTagDateTime:
        if (in.Take(11) == nullptr) return -1;
        break;
      case kTagResolution:
      case kTagRange: {
        const uint32_t size = tag == kTagResolution ? 9 : 8;
        const uint8_t* p = in.Take(size);
        if (p == nullptr) return -1;
        std::string_view bytes = valueMap_.AddBytes(p, size);
        keep(IppValueMap::Kind::kBytes, bytes);
        break;
      }
      case kTagBeginCollection: {
        if (valueLength != 0 || depth >= kIppMaxCollectionDepth) return -1;
        if (depth == 0) {
          // Consecutive collections of one attribute are numbered COL1, COL2...
          collectionIndex = haveLastCollection && lastCollection == attribute ? collectionIndex + 1 : 1;
          lastCollection = attribute;
          haveLastCollection = true;
          valueMap_.AddText(kIppSetStart);
          char index[24] = {'C', 'O', 'L'};
          auto end = std::to_chars(index + 3, index + sizeof index, collectionIndex).ptr;
          valueMap_.AddText({index, static_cast<size_t>(end - index)});
        }
        ++depth;
        collections_.Open(member.empty() ? attribute : member);
        break;
      }
      case kTagTextWithLanguage:
      case kTagNameWithLanguage: {
        // Two length-prefixed parts: at least their two lengths.
        const uint8_t* p = valueLength >= 4 && valueLength <= kMaxNameOrValue + 1 ? in.Take(valueLength) : nullptr;
        if (p == nullptr) return -1;
        if (fieldCompatible) {
          // The language, then the text; both must fill the value exactly.
          const uint32_t language = static_cast<uint32_t>(p[0] << 8 | p[1]);
          if (language + 4 > valueLength) return -1;
          const uint32_t textLength = static_cast<uint32_t>(p[2 + language] << 8 | p[3 + language]);
          if (language + 4 + textLength != valueLength) return -1;
          std::string_view text = valueMap_.AddText(AsText(p + 4 + language, textLength));
          keep(IppValueMap::Kind::kText, text);
        }
        break;
      }
      case kTagEndCollection:
        if (valueLength != 0 || depth == 0) return -1;
        if (--depth == 0) valueMap_.AddText(kIppSetEnd);
        collections_.Close();
        member = {};
        break;
      case kTagMemberName: {
        const uint8_t* p = valueLength <= kMaxNameOrValue ? in.Take(valueLength) : nullptr;
        if (p == nullptr) return -1;
        member = AsText(p, valueLength);
        valueMap_.AddText(member);
        break;
      }
      default: {
        const uint8_t* p = valueLength <= kMaxNameOrValue ? in.Take(valueLength) : nullptr;
        if (p == nullptr) return -1;
        if (IsPlainStringTag(tag)) {
          std::string_view text = valueMap_.AddText(AsText(p, valueLength));
          keep(IppValueMap::Kind::kText, text);
        }
        break;
      }
    }
  }
}

void IPPOperations::DumpCollections() const {
  // A debugging aid, off unless the environment names an existing directory.
  const char* directory = std::getenv("NORVANE_COLLECTION_DUMP_DIR");
  if (directory == nullptr || *directory == 0) return;
  struct stat info;
  if (::stat(directory, &info) != 0 || !S_ISDIR(info.st_mode)) return;
  collections_.Dump(directory);
}

}  // namespace Norvane
