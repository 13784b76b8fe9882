#include "logging_test_util.h"

#include <filesystem>

#include "support/logging/process_facts.h"

namespace NorvaneLogTest {

std::u16string ExecutableKey() {
  return RootKey() + u"\\" + QxUtils::Utf8ToWide(QxLogging::ExecutableBaseName());
}

void SetKey(const std::u16string& path, const std::vector<Value>& values) {
  Norvane::Registry::Key key;
  ASSERT_EQ(Norvane::Registry::Key::Create(Norvane::Registry::Hive::CurrentUser, path, &key), 0);
  ASSERT_EQ(key.SetValues(values), 0);
}

std::string ReadLog(const std::string& path) {
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

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> out;
  size_t start = 0;
  for (;;) {
    size_t end = text.find("\r\n", start);
    if (end == std::string::npos) break;
    out.push_back(text.substr(start, end - start));
    start = end + 2;
  }
  if (start < text.size()) out.push_back(text.substr(start));
  return out;
}

void LoggingTest::TearDown() {
  // Drop the test's settings before its folder goes away.
  Norvane::Registry::Key root;
  if (Norvane::Registry::Key::Open(Norvane::Registry::Hive::CurrentUser, RootKey(), &root) == 0) {
    std::error_code ignored;
    std::filesystem::remove_all(registry_.Path() + "/HKCU", ignored);
  }
  QxLogging::RefreshLogSettings();
}

}  // namespace NorvaneLogTest
