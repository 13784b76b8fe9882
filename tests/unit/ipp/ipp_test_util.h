// Helpers of the IPP tests: building IPP bytes by hand, comparing them with a
// hex dump of both sides, and reading decoded variants.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <string>
#include <string_view>

#include "ipp/ipp_operations.h"
#include "norvane/platform.h"
#include "support/string_utils.h"
#include "testlib/fake_host.h"

namespace IppTest {

inline std::string B(std::initializer_list<int> bytes) {
  std::string s;
  for (int b : bytes) s.push_back(static_cast<char>(b));
  return s;
}

inline std::string Be16(uint32_t v) { return B({static_cast<int>((v >> 8) & 0xFF), static_cast<int>(v & 0xFF)}); }

inline std::string Be32(int32_t value) {
  auto v = static_cast<uint32_t>(value);
  return Be16(v >> 16) + Be16(v & 0xFFFF);
}

// One attribute value: tag, name-length, name, value-length, value. An empty
// name makes an additional value of the previous attribute.
inline std::string Attr(int tag, std::string_view name, std::string_view value) {
  return B({tag}) + Be16(static_cast<uint32_t>(name.size())) + std::string(name) +
         Be16(static_cast<uint32_t>(value.size())) + std::string(value);
}
inline std::string IntAttr(int tag, std::string_view name, int32_t value) { return Attr(tag, name, Be32(value)); }

// Bytes 0 to 8 of every request this library sends, plus the standard
// operation attributes: printer-uri for every operation but Cancel-Job (8).
inline std::string RequestStart(int operation, std::string_view printerUri = {}) {
  std::string s = B({0x02, 0x00}) + Be16(static_cast<uint32_t>(operation)) + Be32(100) + B({0x01}) +
                  Attr(0x47, "attributes-charset", "utf-8") + Attr(0x48, "attributes-natural-language", "en");
  if (operation != 8) s += Attr(0x45, "printer-uri", printerUri);
  return s;
}

// A response header: version, status, request id, operation group with the
// charset and language, then the printer group tag.
inline std::string ResponseStart(int status = 0, int major = 2, int minor = 0) {
  return B({major, minor}) + Be16(static_cast<uint32_t>(status)) + Be32(100) + B({0x01}) +
         Attr(0x47, "attributes-charset", "utf-8") + Attr(0x48, "attributes-natural-language", "en") + B({0x04});
}

// Sixteen bytes a line, in hex.
inline std::string HexDump(std::string_view bytes) {
  std::string out;
  char hex[4];
  for (size_t i = 0; i < bytes.size(); ++i) {
    std::snprintf(hex, sizeof hex, "%02x%c", static_cast<unsigned char>(bytes[i]), i % 16 == 15 ? '\n' : ' ');
    out += hex;
  }
  return out + "\n";
}

inline ::testing::AssertionResult SameBytes(std::string_view expected, std::string_view actual) {
  if (expected == actual) return ::testing::AssertionSuccess();
  size_t at = 0;
  while (at < expected.size() && at < actual.size() && expected[at] == actual[at]) ++at;
  return ::testing::AssertionFailure() << "bytes differ at offset " << at << " (expected " << expected.size()
                                       << " bytes, got " << actual.size() << ")\nexpected:\n"
                                       << HexDump(expected) << "actual:\n"
                                       << HexDump(actual);
}

inline HRESULT Decode(Norvane::IPPOperations& ops, const std::string& body, VARIANT* value = nullptr) {
  return ops.ParseIPPContent(reinterpret_cast<const uint8_t*>(body.data()), static_cast<uint32_t>(body.size()), value);
}

// The text of a string variant in UTF-8; "<vt N>" for any other kind.
inline std::string Text(const VARIANT& v) {
  if (v.vt != VT_BSTR) return "<vt " + std::to_string(v.vt) + ">";
  return QxUtils::WideToUtf8(std::u16string_view(v.bstrVal, SysStringLen(v.bstrVal)));
}

inline std::string ByteArray(const VARIANT& v) {
  if (v.vt != (VT_ARRAY | VT_UI1) || v.parray == nullptr) return "<not bytes>";
  return std::string(static_cast<const char*>(v.parray->pvData), v.parray->rgsabound[0].cElements);
}

inline std::string ReadFile(const std::string& path) {
  std::ostringstream s;
  s << std::ifstream(path, std::ios::binary).rdbuf();
  return s.str();
}

// A variant cleared when the test is done with it.
struct OwnedVariant {
  VARIANT v;
  OwnedVariant() { VariantInit(&v); }
  ~OwnedVariant() { VariantClear(&v); }
  OwnedVariant(const OwnedVariant&) = delete;
  OwnedVariant& operator=(const OwnedVariant&) = delete;
};

// The operation code of an encoded request, -1 when the body is too short.
inline int Operation(const NorvaneTest::FakeExchange& e) {
  return e.body.size() < 4 ? -1 : static_cast<uint8_t>(e.body[2]) << 8 | static_cast<uint8_t>(e.body[3]);
}

// What the printer returns for "all": state, info and uuid, no media database.
inline const std::string kAllAttributes =
    ResponseStart() + IntAttr(0x23, "printer-state", 3) + Attr(0x41, "printer-info", "Front office") +
    Attr(0x45, "printer-uuid", "urn:uuid:4509a320-00a0-008f-00b6-002507510eca") + B({0x03});

}  // namespace IppTest
