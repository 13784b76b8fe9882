#include "platform/registry.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "support/string_utils.h"
#include "testlib/capture_log.h"
#include "testlib/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using namespace Norvane::Registry;
using NorvaneTest::ScopedRegistryRoot;

Value Text(std::u16string name, std::u16string text) { return {std::move(name), ValueType::String, std::move(text)}; }
Value Dword(std::u16string name, uint32_t d) { return {std::move(name), ValueType::Dword, {}, d}; }
std::u16string Num(int n) { return QxUtils::Utf8ToWide(std::to_string(n)); }

std::string Slurp(const fs::path& path) {
  std::stringstream s;
  s << std::ifstream(path, std::ios::binary).rdbuf();
  return s.str();
}

// In a text file in name order, one a line, that a hand edit in the same form
// may extend.
TEST(Registry, ValuesRoundTripWithTheirTypesWhateverTheirText) {
  ScopedRegistryRoot root;
  Key key, again;
  ASSERT_EQ(Key::Create(Hive::LocalMachine, u"Software\\Norvane\\Cache", &key), kSuccess);
  const Value values[] = {Text(u"Tricky", u"quote\" back\\slash\nnew\tline \U0001F5A8 \x7F"),
                          Text(u"Lone", std::u16string(1, char16_t(0xDC01))), Dword(u"Minus", 0xFFFFFFFFu),
                          Text(u"Empty", u"")};
  for (const auto& v : values) ASSERT_EQ(key.SetValue(v), kSuccess);
  ASSERT_EQ(key.SetValues({Text(u"b", u"x\"y"), Dword(u"a", 16)}), kSuccess);
  std::string file = Slurp(key.Directory() + "/values.reg");
  EXPECT_EQ(file[0], ';');
  EXPECT_NE(file.find("\n\"a\"=dword:00000010\n\"b\"=\"x\\\"y\"\n"), std::string::npos) << file;
  std::ofstream(key.Directory() + "/values.reg", std::ios::app) << "  ; a comment\n\r\n\"Added\"=dword:0000002A\r\n";

  ASSERT_EQ(Key::Open(Hive::LocalMachine, u"Software\\Norvane\\Cache", &again), kSuccess);
  Value v;
  for (const auto& put : values) {
    ASSERT_EQ(again.QueryValue(put.name, &v), kSuccess);
    EXPECT_TRUE(v.type == put.type && v.text == put.text && v.dword == put.dword) << QxUtils::WideToUtf8(put.name);
  }
  ASSERT_EQ(again.QueryValue(u"Added", &v), kSuccess);
  EXPECT_EQ(v.dword, 42u);
  EXPECT_EQ(again.QueryValue(u"Absent", &v), kNotFound);
  EXPECT_EQ(Key::Open(Hive::LocalMachine, u"Software\\Missing", &again), kNotFound);
  EXPECT_EQ(Key::Open(Hive::CurrentUser, u"Software\\Norvane\\Cache", &again), kNotFound);  // hives are separate
}

TEST(Registry, AnUnreadableValueFileIsSetAsideAndTheKeyWorksAgain) {
  ScopedRegistryRoot root;
  NorvaneTest::CaptureLog log;
  Key key;
  ASSERT_EQ(Key::Create(Hive::LocalMachine, u"Edited", &key), kSuccess);
  std::string path = root.Path() + "/HKLM/Edited/values.reg";
  std::vector<std::string> nonsense = {
      "\"unterminated=dword:1\n",   "\"x\"=dword:12\n",      "\"x\"=\"ok\" trailing\n", "garbage\n",
      "\"x\"=\"bad \\q escape\"\n", "\"\"=\"empty name\"\n", "\"x\"=\"\\u12\"\n"};
  for (const auto& text : nonsense) {
    std::ofstream(path, std::ios::trunc) << text;
    ValueList values;
    EXPECT_EQ(key.ReadValues(&values), kInvalidData) << text;
    EXPECT_EQ(key.SetValue(Dword(u"new", 2)), kSuccess) << text;
    ASSERT_EQ(key.ReadValues(&values), kSuccess);
    EXPECT_EQ(values.size(), 1u);
  }
  std::vector<std::string> setAside;
  for (const auto& entry : fs::directory_iterator(key.Directory()))
    if (entry.path().filename().string().rfind("values.reg.unreadable-", 0) == 0)
      setAside.push_back(Slurp(entry.path()));
  std::sort(setAside.begin(), setAside.end());
  std::sort(nonsense.begin(), nonsense.end());
  EXPECT_EQ(setAside, nonsense);
  EXPECT_TRUE(log.Contains("moved aside", 0x80));
}

TEST(Registry, ValuesPastTheLimitsAreRefusedBeforeAnythingIsWritten) {
  const struct {
    const char* what;
    Value value;
    long expected;
  } cases[] = {
      {"longest text, every unit escaped", Text(u"c", std::u16string(kMaxTextChars, u'\x01')), kSuccess},
      {"longest name", Text(std::u16string(kMaxNameChars, u'\x02'), u"x"), kSuccess},
      {"text one past", Text(u"t", std::u16string(kMaxTextChars + 1, u'a')), kInvalidParameter},
      {"name one past", Text(std::u16string(kMaxNameChars + 1, u'n'), u"x"), kInvalidParameter},
  };
  for (const auto& c : cases) {
    ScopedRegistryRoot root;
    Key key;
    ASSERT_EQ(Key::Create(Hive::LocalMachine, u"Big", &key), kSuccess);
    ASSERT_EQ(key.SetValue(Dword(u"earlier", 1)), kSuccess);
    EXPECT_EQ(key.SetValues({Dword(u"same-update", 2), c.value}), c.expected) << c.what;
    ValueList values;
    ASSERT_EQ(key.ReadValues(&values), kSuccess) << c.what;
    EXPECT_EQ(values.size(), c.expected == kSuccess ? 3u : 1u) << c.what;
  }
}

TEST(Registry, KeysAndValueNamesIgnoreCaseAndKeepTheirFirstCase) {
  ScopedRegistryRoot root;
  Key key, same;
  ASSERT_EQ(Key::Create(Hive::CurrentUser, u"Software\\QV\\Qx\\Logging\\NorvaneDM", &key), kSuccess);
  ASSERT_EQ(Key::Open(Hive::CurrentUser, u"SOFTWARE\\qv\\QX\\logging\\norvanedm", &same), kSuccess);
  EXPECT_EQ(same.Directory(), key.Directory());
  ASSERT_EQ(Key::Create(Hive::CurrentUser, u"software\\Qv\\qx\\LOGGING\\Ärger", &same), kSuccess);
  ASSERT_EQ(Key::Create(Hive::CurrentUser, u"software\\Qv\\qx\\LOGGING\\äRGER", &same), kSuccess);
  std::vector<std::u16string> subkeys;
  ASSERT_EQ(Key::Open(Hive::CurrentUser, u"Software\\QV\\Qx\\Logging", &same), kSuccess);
  ASSERT_EQ(same.EnumSubkeys(&subkeys), kSuccess);
  EXPECT_EQ(subkeys, (std::vector<std::u16string>{u"NorvaneDM", u"Ärger"}));

  ASSERT_EQ(key.SetValue(Dword(u"Model", 1)), kSuccess);
  ASSERT_EQ(key.SetValues({Dword(u"MODEL", 2), Dword(u"Émile", 3), Dword(u"éMILE", 4)}), kSuccess);
  auto stored = [&key] {
    ValueList values;
    EXPECT_EQ(key.ReadValues(&values), kSuccess);
    std::vector<std::pair<std::u16string, uint32_t>> out;
    for (const auto& v : values) out.emplace_back(v.name, v.dword);
    return out;
  };
  using Stored = std::vector<std::pair<std::u16string, uint32_t>>;
  EXPECT_EQ(stored(), (Stored{{u"Model", 2}, {u"Émile", 4}}));
  Value v;
  EXPECT_EQ(key.QueryValue(u"mOdEl", &v), kSuccess);
  EXPECT_EQ(key.DeleteValue(u"ÉMILE"), kSuccess);
  // A hand edit with two spellings of one name keeps the later line.
  std::ofstream(key.Directory() + "/values.reg", std::ios::app) << "\"model\"=dword:00000009\n";
  EXPECT_EQ(stored(), (Stored{{u"Model", 9}}));
}

TEST(Registry, KeyPathsCannotLeaveTheHiveRoot) {
  ScopedRegistryRoot root;
  Key key;
  for (const char16_t* path :
       {u"..", u"a\\..\\..\\etc", u"a/b", u"..\\x", u".hidden", u"a\\.", u"values.reg", u"bad\nname"}) {
    EXPECT_EQ(Key::Create(Hive::LocalMachine, path, &key), kInvalidParameter) << QxUtils::WideToUtf8(path);
    EXPECT_EQ(Key::Open(Hive::LocalMachine, path, &key), kInvalidParameter);
  }
  EXPECT_FALSE(fs::exists(root.Path() + "/HKLM"));  // nothing was created anywhere
  // Empty components are skipped: "a\\\\b" is "a\b".
  ASSERT_EQ(Key::Create(Hive::LocalMachine, u"a\\\\b\\", &key), kSuccess);
  EXPECT_EQ(key.Directory(), root.Path() + "/HKLM/a/b");
}

// (NORVANE_REGISTRY_DIR, which names both roots, is what every test here sets.)
TEST(Registry, HiveRootsFollowTheEnvironment) {
  unsetenv("NORVANE_REGISTRY_DIR");
  setenv("XDG_STATE_HOME", "/tmp/state-x", 1);
  setenv("XDG_CONFIG_HOME", "/tmp/config-y", 1);
  EXPECT_EQ(HiveRoot(Hive::LocalMachine), "/tmp/state-x/norvane/registry");
  EXPECT_EQ(HiveRoot(Hive::CurrentUser), "/tmp/config-y/norvane/registry");
  unsetenv("XDG_STATE_HOME");
  unsetenv("XDG_CONFIG_HOME");
  setenv("HOME", "/home/someone", 1);
  EXPECT_EQ(HiveRoot(Hive::LocalMachine), "/home/someone/.local/state/norvane/registry");
  EXPECT_EQ(HiveRoot(Hive::CurrentUser), "/home/someone/.config/norvane/registry");
}

ValueList Generation(int gen, int count) {
  ValueList values;
  for (int i = 0; i < count; ++i) {
    values.push_back(Text(u"value" + std::u16string(1, u'A' + i % 26) + Num(i),
                          std::u16string(40, static_cast<char16_t>(u'a' + gen % 26))));
  }
  return values;
}

// An update that dies, or fails to finish its new file (here: past the file
// size limit), leaves the key as before or as after, never torn.
TEST(Registry, AnUpdateKilledOrFailingMidFileLeavesTheKeyAsBeforeOrAsAfter) {
  ScopedRegistryRoot root;
  Key key;
  ASSERT_EQ(Key::Create(Hive::LocalMachine, u"Crash", &key), kSuccess);
  constexpr int kValues = 20000;
  ASSERT_EQ(key.SetValues(Generation(0, kValues)), kSuccess);
  std::mt19937 rng(7);
  for (int round = 1; round <= 12; ++round) {
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      for (int gen = round;; gen += 100) key.SetValues(Generation(gen, kValues));
    }
    usleep(1000 + rng() % 60000);
    kill(child, SIGKILL);
    int status;
    waitpid(child, &status, 0);
    ValueList values;
    ASSERT_EQ(key.ReadValues(&values), kSuccess) << "torn file after kill in round " << round;
    ASSERT_EQ(values.size(), static_cast<size_t>(kValues));
    // Every value of one file comes from one generation.
    for (const auto& v : values) ASSERT_EQ(v.text, values.front().text);
  }
  // What the killed writers left behind is swept by the next update.
  ASSERT_EQ(key.SetValues(Generation(1, 10)), kSuccess);
  for (const auto& entry : fs::directory_iterator(key.Directory())) {
    EXPECT_EQ(entry.path().filename().string().find(".values.reg.tmp"), std::string::npos) << entry.path();
  }

  const std::string before = Slurp(key.Directory() + "/values.reg");
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    signal(SIGXFSZ, SIG_IGN);
    rlimit limit{64 * 1024, 64 * 1024};
    setrlimit(RLIMIT_FSIZE, &limit);
    _exit(key.SetValues(Generation(2, 20000)) == kSuccess ? 0 : 1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 1);
  EXPECT_EQ(Slurp(key.Directory() + "/values.reg"), before);
}

TEST(Registry, TwoProcessesWritingOneKeyBothKeepTheirValues) {
  ScopedRegistryRoot root;
  Key key;
  ASSERT_EQ(Key::Create(Hive::LocalMachine, u"Shared", &key), kSuccess);
  constexpr int kEach = 150;
  std::vector<pid_t> children;
  for (int writer = 0; writer < 2; ++writer) {
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      for (int i = 0; i < kEach; ++i) {
        if (key.SetValue(Dword(u"w" + Num(writer) + u"-" + Num(i), static_cast<uint32_t>(i))) != kSuccess) _exit(1);
      }
      _exit(0);
    }
    children.push_back(child);
  }
  for (pid_t child : children) {
    int status;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  ValueList values;
  ASSERT_EQ(key.ReadValues(&values), kSuccess);
  EXPECT_EQ(values.size(), 2u * kEach);
}

}  // namespace
