// Shared pieces of the logging tests: a registry root and a scratch folder per
// test, registry writes, and reading a UTF-16LE log file back as lines.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/registry.h"
#include "support/log.h"
#include "support/logging/process_facts.h"
#include "support/logging/record_writer.h"
#include "support/string_utils.h"
#include "testlib/temp_dir.h"

namespace NorvaneLogTest {

using Norvane::Registry::Value;
using Norvane::Registry::ValueType;

inline Value Dword(const char16_t* name, uint32_t v) { return {name, ValueType::Dword, {}, v}; }
inline Value Text(const char16_t* name, const std::string& v) {
  return {name, ValueType::String, QxUtils::Utf8ToWide(v)};
}

inline std::u16string RootKey() { return u"Software\\QV\\Qx\\Logging"; }
inline std::u16string ExecutableKey() {
  return RootKey() + u"\\" + QxUtils::Utf8ToWide(QxLogging::ExecutableBaseName());
}

inline void SetKey(const std::u16string& path, const std::vector<Value>& values) {
  Norvane::Registry::Key key;
  ASSERT_EQ(Norvane::Registry::Key::Create(Norvane::Registry::Hive::CurrentUser, path, &key), 0);
  ASSERT_EQ(key.SetValues(values), 0);
}

// The file as text (each UTF-16 unit must be ASCII here); "" when missing.
inline std::string ReadLog(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_EQ(bytes.size() % 2, 0u) << path;
  std::string text;
  for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
    uint16_t unit = static_cast<uint8_t>(bytes[i]) | (static_cast<uint8_t>(bytes[i + 1]) << 8);
    EXPECT_LT(unit, 0x80u) << "not ASCII UTF-16LE at byte " << i;
    text.push_back(static_cast<char>(unit));
  }
  return text;
}

// Split at "\r\n"; a trailing piece without a line end is kept.
inline std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> out;
  size_t start = 0;
  for (size_t end; (end = text.find("\r\n", start)) != std::string::npos; start = end + 2) {
    out.push_back(text.substr(start, end - start));
  }
  if (start < text.size()) out.push_back(text.substr(start));
  return out;
}

// A registry root and a folder per test; every module re-reads its settings
// when the test starts and again when it ends (after the test's settings are
// gone, before its folder goes), so no test inherits another's.
class LoggingTest : public ::testing::Test {
 protected:
  void SetUp() override { QxLogging::RefreshLogSettings(); }
  void TearDown() override {
    std::filesystem::remove_all(registry_.Path() + "/HKCU");
    QxLogging::RefreshLogSettings();
  }
  std::string File(const std::string& name) const { return dir_.Path() + "/" + name; }

  NorvaneTest::ScopedRegistryRoot registry_;
  NorvaneTest::TempDir dir_;
};

}  // namespace NorvaneLogTest
