// The request encoder driven by request objects filled from fuzzed bytes:
// whatever a caller puts in, every request stays within its buffer, ends with
// the end tag, and reads back through the decoder.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "ipp/ipp_operations.h"
#include "ipp/ipp_request_attributes.h"
#include "norvane/platform.h"
#include "support/string_utils.h"

namespace {

std::string Text(FuzzedDataProvider& in, size_t max) {
  std::string s = in.ConsumeRandomLengthString(max);
  return s.substr(0, s.find('\0'));
}

void Fill(FuzzedDataProvider& in, Norvane::IPPRequestBase* r, bool* addedAttributes) {
  int steps = in.ConsumeIntegralInRange(0, 40);
  for (int i = 0; i < steps && in.remaining_bytes() > 0; ++i) {
    switch (in.ConsumeIntegralInRange(0, 17)) {
      case 0:
        r->SetPrinterURI(Text(in, 300).c_str());
        break;
      case 1:
        r->SetRequestingUserName(Text(in, 300).c_str());
        break;
      case 2:
        r->SetDocumentUri(Text(in, 300).c_str());
        break;
      case 3:
        r->SetJobName(Text(in, 300).c_str());
        break;
      case 4:
        r->SetDocumentName(Text(in, 300).c_str());
        break;
      case 5:
        r->SetJobURI(Text(in, 300).c_str());
        break;
      case 6:
        r->SetCopy(in.ConsumeIntegral<int32_t>());
        break;
      case 7:
        r->SetPrintingSides(in.ConsumeIntegralInRange(-2, 5));
        break;
      case 8:
        r->SetMultipleDocHandling(in.ConsumeIntegralInRange(-2, 8));
        break;
      case 9:
        r->SetOrientationRequested(in.ConsumeIntegral<int32_t>());
        break;
      case 10:
        r->SetPrintQuality(in.ConsumeIntegral<int32_t>());
        break;
      case 11:
        r->SetOutputMode(in.ConsumeIntegral<uint32_t>());
        break;
      case 12:
        r->SetIPPAttributeFidelity(in.ConsumeBool());
        break;
      case 13:
        r->SetLastDocument(in.ConsumeBool());
        break;
      case 14: {
        std::u16string name = QxUtils::Utf8ToWide(Text(in, 40));
        std::u16string value = QxUtils::Utf8ToWide(Text(in, 40));
        r->AddExtraHTTPHeader(name.c_str(), in.ConsumeBool() ? value.c_str() : nullptr);
        break;
      }
      case 15: {
        std::vector<uint8_t> blob = in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange<size_t>(0, 2500));
        r->AddIPPRequest(in.ConsumeIntegralInRange<uint32_t>(0, 2), blob.data(), static_cast<int32_t>(blob.size()));
        *addedAttributes = true;
        break;
      }
      default: {
        Norvane::IPPAttributeStruct a;
        std::memset(&a, 0, sizeof a);
        a.group = in.ConsumeIntegralInRange<uint32_t>(0, 2);
        a.valueTag = in.ConsumeIntegralInRange<uint32_t>(0x10, 0x4F);
        std::string name = Text(in, 140);
        std::memcpy(a.name, name.data(), std::min(name.size(), sizeof a.name));
        std::vector<uint8_t> value = in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange<size_t>(0, 600));
        if (!value.empty()) std::memcpy(&a.value, value.data(), std::min(value.size(), sizeof a.value));
        r->AddIPPRequest(a);
        *addedAttributes = true;
        break;
      }
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  Norvane::IPPRequestBase* attributes = Norvane::IPPRequestAttributes::Create();
  Norvane::IPPOperations ops(nullptr);
  std::string resource = Text(in, 200);
  std::string name = Text(in, 300);
  std::string user = Text(in, 100);
  ops.SetResourceURI(resource.c_str());
  ops.SetAttributeName(name.c_str());
  ops.SetRequestedUserName(user.c_str());
  ops.SetJobURI(Text(in, 200).c_str());
  bool addedAttributes = false;
  Fill(in, attributes, &addedAttributes);

  static constexpr uint32_t kOperations[] = {2, 3, 5, 7, 8, 9, 10, 11, 50, 4, 16384};
  for (uint32_t op : kOperations) {
    // Exactly the size the send operations give the attribute part.
    std::vector<uint8_t> buffer(Norvane::kIppAttributeLimit + 1);
    uint32_t length = 0;
    HRESULT hr = ops.FormIPPRequestBasedOnOperation(buffer.data(), op, &length, attributes);
    if (length > buffer.size()) __builtin_trap();
    if (length == 0) continue;  // the header did not fit
    if (buffer[length - 1] != 0x03 || buffer[0] != 2 || buffer[7] != 100) __builtin_trap();
    // Requests share the response layout: the decoder must read them back.
    Norvane::IPPOperations reader(nullptr);
    reader.SetAttributeName("attributes-charset");
    VARIANT v;
    VariantInit(&v);
    HRESULT read = reader.ParseIPPContent(buffer.data(), length, &v);
    if (hr == S_OK && !addedAttributes) {
      if (read != S_OK || v.vt != VT_BSTR || std::u16string(v.bstrVal) != u"utf-8") __builtin_trap();
    }
    VariantClear(&v);
  }

  std::vector<uint8_t> chunkData = in.ConsumeRemainingBytes<uint8_t>();
  std::vector<uint8_t> chunk;
  Norvane::IPPOperations::FrameChunk(chunkData.data(), static_cast<uint32_t>(chunkData.size()), &chunk);
  size_t prefix = chunk.size() - chunkData.size() - 2;
  if (std::strtoul(std::string(chunk.begin(), chunk.begin() + prefix).c_str(), nullptr, 16) != chunkData.size()) {
    __builtin_trap();
  }
  attributes->Dispose();
  return 0;
}
