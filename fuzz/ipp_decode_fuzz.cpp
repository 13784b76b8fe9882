// IPP responses come straight from the network. Input layout: one flag byte,
// a length-prefixed lookup key, a length-prefixed collection query, then the
// response body. Every lookup form runs on whatever the decoder kept.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ipp/ipp_collection_store.h"
#include "ipp/ipp_operations.h"
#include "ipp/ipp_response_attributes.h"
#include "norvane/platform.h"

namespace {

std::string TakeText(const uint8_t*& p, const uint8_t* end) {
  if (p == end) return {};
  size_t n = *p++;
  if (n > static_cast<size_t>(end - p)) n = static_cast<size_t>(end - p);
  std::string text(reinterpret_cast<const char*>(p), n);
  p += n;
  // Keys and queries are C strings at the interface.
  return text.substr(0, text.find('\0'));
}

void Lookup(const Norvane::IPPOperations& ops, const std::string& key) {
  VARIANT v;
  VariantInit(&v);
  ops.GetValueFromIPPMap(key.c_str(), &v);
  if (v.vt != VT_EMPTY && v.vt != VT_BSTR && v.vt != (VT_ARRAY | VT_UI1)) __builtin_trap();
  VariantClear(&v);
}

void Query(const Norvane::IPPOperations& ops, const std::string& query) {
  VARIANT v;
  VariantInit(&v);
  bool found = ops.QueryCollection(query.c_str(), &v);
  if (found == (v.vt == VT_EMPTY)) __builtin_trap();
  VariantClear(&v);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const uint8_t* p = data;
  const uint8_t* end = data + size;
  uint8_t flags = p != end ? *p++ : 0;
  std::string key = TakeText(p, end);
  std::string query = TakeText(p, end);
  // An exact-size copy, so reading one byte too far is caught.
  std::vector<uint8_t> body(p, end);

  Norvane::IPPOperations ops(nullptr);
  ops.SetAttributeName(key.c_str());
  if (flags & 1) ops.SetJobOperations();
  if (flags & 2) {
    ops.SetCollectionQueryFlag(1);
    ops.SetCollectionQuery(query.c_str());
  }
  VARIANT v;
  VariantInit(&v);
  HRESULT hr = ops.ParseIPPContent(body.empty() ? nullptr : body.data(), static_cast<uint32_t>(body.size()),
                                   (flags & 4) ? nullptr : &v);
  if (hr != S_OK && hr != E_FAIL) __builtin_trap();
  VariantClear(&v);
  // A response can never be held in more than a small multiple of its size.
  size_t held = ops.GetValueMap().MemoryUsage() + ops.GetCollectionStore().MemoryUsage();
  if (held > 64 * body.size() + (1u << 16)) __builtin_trap();

  Lookup(ops, key);
  Lookup(ops, query);
  Query(ops, query);
  Query(ops, key);
  std::vector<std::string_view> names = ops.GetValueMap().Names();
  if (names.size() > 24) names.resize(24);
  for (std::string_view n : names) {
    std::string name(n);
    Lookup(ops, name);
    Lookup(ops, name + "." + key);
    Lookup(ops, name + ".COL1." + key);
    Lookup(ops, name + ".COL2.media-type");
    Query(ops, name + "[0]." + key);
    Query(ops, name + "[1]." + key + ".x-dimension");
    Query(ops, name + "[" + key + "=" + query + "]." + key);
    std::string file = Norvane::IppDumpFileName(name);
    if (file.empty() || file[0] == '.' || file.find('/') != std::string::npos) __builtin_trap();
  }

  Norvane::IPPResponseBase* response = Norvane::IPPResponseAttributes::Create();
  ops.FormResponseStructure(flags & 8 ? 8 : 10, response);
  if (response->GetSuccessStatus() == nullptr || response->GetRequestID() == nullptr) __builtin_trap();
  response->Dispose();
  return 0;
}
