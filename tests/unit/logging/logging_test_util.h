// Shared pieces of the logging tests: a registry root and a scratch folder per
// test, registry writes, and reading a UTF-16LE log file back as lines.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/registry.h"
#include "support/log.h"
#include "support/logging/record_writer.h"
#include "support/string_utils.h"
#include "testlib/temp_dir.h"

namespace NorvaneLogTest {

using Norvane::Registry::Value;
using Norvane::Registry::ValueType;

inline Value Dword(const char16_t* name, uint32_t v) {
  Value value;
  value.name = name;
  value.type = ValueType::Dword;
  value.dword = v;
  return value;
}

inline Value Text(const char16_t* name, const std::string& v) {
  Value value;
  value.name = name;
  value.type = ValueType::String;
  value.text = QxUtils::Utf8ToWide(std::string_view(v));
  return value;
}

inline std::u16string RootKey() { return u"Software\\QV\\Qx\\Logging"; }
std::u16string ExecutableKey();

void SetKey(const std::u16string& path, const std::vector<Value>& values);

// The file as text (each UTF-16 unit must be ASCII here); "" when missing.
std::string ReadLog(const std::string& path);
// Split at "\r\n"; a trailing piece without a line end is kept.
std::vector<std::string> Lines(const std::string& text);

// A registry root and a folder per test; every module re-reads its settings
// when the test starts and again when it ends, so no test inherits another's.
class LoggingTest : public ::testing::Test {
 protected:
  void SetUp() override { QxLogging::RefreshLogSettings(); }
  void TearDown() override;
  std::string File(const std::string& name) const { return dir_.Path() + "/" + name; }

  NorvaneTest::ScopedRegistryRoot registry_;
  NorvaneTest::TempDir dir_;
};

}  // namespace NorvaneLogTest
