// Settings layering, refresh, the no-configuration fast path, debugger output
// and the external monitor plug-in, all through the registry store.
#include <dlfcn.h>

#include <chrono>
#include <thread>

#include "logging_test_util.h"
#include "norvane/platform.h"
#include "testlib/capture_log.h"

QX_LOG_SOURCE_FILE()

namespace NorvaneLogTest {
namespace {

using QxLogging::CLogFunction;
using QxLogging::CLogModule;
using QxLogging::CLogSourceFile;

void Traced(CLogModule& module, const CLogSourceFile& file, const char* function, const char* message) {
  CLogFunction scope(&module, &file, function, 7);
  scope.Format(QxLogging::kInfo, 8, "%s", message);
}

class LogSettings : public LoggingTest {};

TEST_F(LogSettings, WithoutConfigurationNothingIsWrittenAndTheGateCloses) {
  CLogModule module("QuietModule", "01:02:03");
  testing::internal::CaptureStderr();
  SetLastError(5);
  Traced(module, qxLogSourceFile_, "Norvane::Quiet::Op", "nothing");
  EXPECT_EQ(GetLastError(), 5u);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  // After the first record found no settings, records cost only the gate.
  for (uint32_t category : {0x10u, 0x20u, 0x80u, 0x400u, 0x800u, 0x20000000u}) EXPECT_FALSE(module.MayWant(category));
}

TEST_F(LogSettings, RootKeyAloneSendsEveryModuleOfTheLibraryToOneFile) {
  SetKey(RootKey(), {Dword(u"LogCategories", 0x10 | 0x400 | 0x800), Text(u"LogFileName", File("all.log"))});
  // The library's modules live as long as the process; one that an earlier
  // test already started watches the store no more, so ask for the refresh
  // instead of depending on what ran before.
  QxLogging::RefreshLogSettings();
  NorvaneTest::CaptureLog capture;  // an attached writer and the file both receive records
  Traced(QxLogging::NorvaneDM(), qxLogSourceFile_, "Norvane::Engine::Go", "engine");
  Traced(QxLogging::Utils(), qxLogSourceFile_, "QxUtils::CDisposable::Dispose", "utils");
  Traced(QxLogging::NorvaneResolver(), qxLogSourceFile_, "CaptureSubString", "resolver");
  EXPECT_EQ(Lines(ReadLog(File("all.log"))),
            (std::vector<std::string>{"(->) Engine::Go", "(I0) engine", "(<-) Engine::Go", "(->) CDisposable::Dispose",
                                      "(I0) utils", "(<-) CDisposable::Dispose", "(->) CaptureSubString",
                                      "(I0) resolver", "(<-) CaptureSubString"}));
  EXPECT_TRUE(capture.Contains("engine", QxLogging::kInfo));
  EXPECT_TRUE(capture.Contains("resolver", QxLogging::kInfo));
}

TEST_F(LogSettings, ExecutableModuleAndSourceFileKeysLayerFromGeneralToSpecific) {
  const std::u16string moduleKey = ExecutableKey() + u"\\LayerModule";
  SetKey(RootKey(), {Dword(u"LogCategories", 0x400), Text(u"LogFileName", File("root.log"))});
  SetKey(ExecutableKey(), {Dword(u"LogCategories", 0x400 | 0x800)});
  SetKey(moduleKey, {Dword(u"LogCategories", 0x10 | 0x400 | 0x800), Dword(u"LogOptions", 0x200000)});
  // Any letter case names this source file; the subkey lacks LogOptions.
  SetKey(moduleKey + u"\\LOG_Settings_TEST.cpp",
         {Dword(u"LogCategories", 0x10 | 0x400 | 0x800), Text(u"LogFileName", File("file.log"))});
  CLogModule layered("LayerModule", "01:02:03");
  CLogModule other("OtherModule", "01:02:03");
  const CLogSourceFile elsewhere("src/engine/elsewhere.cpp");

  CLogFunction outer(&layered, &elsewhere, "Norvane::A::Outer", 1);
  Traced(layered, qxLogSourceFile_, "Norvane::A::Mine", "from this file");
  Traced(layered, elsewhere, "Norvane::A::Theirs", "from elsewhere");
  Traced(other, elsewhere, "Norvane::B::Other", "other module");
  // This file's records: only the subkey's categories, the default record's
  // indent option as it stood when the subkey was read, its own file.
  EXPECT_EQ(ReadLog(File("file.log")), "(->) A::Mine\r\n(I0)   from this file\r\n(<-) A::Mine\r\n");
  // The module's records: module key over executable key over root.
  // The other module stops at the executable key.
  EXPECT_EQ(Lines(ReadLog(File("root.log"))),
            (std::vector<std::string>{"(->) A::Outer", "(->)   A::Theirs", "(I0)     from elsewhere",
                                      "(<-)   A::Theirs", "(->)   B::Other", "(<-)   B::Other"}));

  // The general keys change; the source-file record keeps its indent option
  // until its own subkey changes.
  SetKey(moduleKey, {Dword(u"LogOptions", 0)});
  QxLogging::RefreshLogSettings();
  Traced(layered, qxLogSourceFile_, "Norvane::A::Mine", "still indented");
  auto lines = Lines(ReadLog(File("file.log")));
  ASSERT_EQ(lines.size(), 6u);
  EXPECT_EQ(lines[4], "(I0)   still indented");
  SetKey(moduleKey + u"\\LOG_Settings_TEST.cpp", {Dword(u"LogOptions", 0)});
  QxLogging::RefreshLogSettings();
  Traced(layered, qxLogSourceFile_, "Norvane::A::Mine", "flush left");
  lines = Lines(ReadLog(File("file.log")));
  ASSERT_EQ(lines.size(), 9u);
  EXPECT_EQ(lines[7], "(I0) flush left");
}

// Logging switched on while the host runs: until its file has started, a
// module sees a write of the store at its next record; after that, changes
// wait for the poll interval, given in seconds (0: the default 30 s), even
// for a category the module's gate holds back.
TEST_F(LogSettings, ChangesReachARunningModuleAtOnceUntilItsFileStartsThenAtThePollInterval) {
  CLogModule module("LateModule", "01:02:03");
  Traced(module, qxLogSourceFile_, "Norvane::Late::Before", "m");
  EXPECT_FALSE(module.MayWant(0x800));
  SetKey(RootKey(),
         {Dword(u"LogCategories", 0x800), Dword(u"LogParmsPollTime", 1), Text(u"LogFileName", File("late.log"))});
  Traced(module, qxLogSourceFile_, "Norvane::Late::Now", "m");
  EXPECT_EQ(QxLogging::LogPollIntervalMs(), 1000u);
  SetKey(RootKey(), {Dword(u"LogCategories", 0x400 | 0x800)});
  Traced(module, qxLogSourceFile_, "Norvane::Late::Soon", "m");  // not yet due
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  Traced(module, qxLogSourceFile_, "Norvane::Late::After", "m");
  EXPECT_EQ(Lines(ReadLog(File("late.log"))),
            (std::vector<std::string>{"(<-) Late::Now", "(<-) Late::Soon", "(->) Late::After", "(<-) Late::After"}));
  SetKey(RootKey(), {Dword(u"LogParmsPollTime", 0)});
  QxLogging::RefreshLogSettings();
  Traced(module, qxLogSourceFile_, "Norvane::Late::Default", "m");
  EXPECT_EQ(QxLogging::LogPollIntervalMs(), 30000u);
}

TEST_F(LogSettings, CategoryBitAsksForTheModuleKeyToBeCreated) {
  using namespace Norvane::Registry;
  CLogModule module("MadeModule", "01:02:03");
  Key key;
  for (uint32_t create : {0u, 0x1000000u}) {
    SetKey(RootKey(), {Dword(u"LogCategories", 0x400 | create)});
    QxLogging::RefreshLogSettings();
    Traced(module, qxLogSourceFile_, "Norvane::M::Run", "m");
    EXPECT_EQ(Key::Open(Hive::CurrentUser, ExecutableKey() + u"\\MadeModule", &key), create ? kSuccess : kNotFound);
  }
}

// Records marked for the debugger, or every record when the options ask.
TEST_F(LogSettings, DebuggerOutputGoesToStandardError) {
  CLogModule module("DebugModule", "01:02:03");
  const struct {
    uint32_t categories, options;
    const char* expected;
  } cases[] = {{0x400 | 0x80 | 0x8000000, 0, "(##) to the debugger\n"}, {0x400, 0x80000, "(->) D::Run\n"}};
  for (const auto& c : cases) {
    SetKey(RootKey(), {Dword(u"LogCategories", c.categories), Dword(u"LogOptions", c.options)});
    QxLogging::RefreshLogSettings();
    testing::internal::CaptureStderr();
    {
      CLogFunction scope(&module, &qxLogSourceFile_, "Norvane::D::Run", 1);
      scope.Format(QxLogging::kStandout | 0x8000000, 2, "to the debugger");
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), c.expected);
  }
}

#if defined(NORVANE_TEST_LOG_MONITOR)
TEST_F(LogSettings, MonitorPluginHearsClassChangesEntriesAndExits) {
  void* plugin = dlopen(NORVANE_TEST_LOG_MONITOR, RTLD_NOW);
  ASSERT_NE(plugin, nullptr) << dlerror();
  auto transcript = reinterpret_cast<const char* (*)()>(dlsym(plugin, "TestMonitorTranscript"));
  auto reset = reinterpret_cast<void (*)()>(dlsym(plugin, "TestMonitorReset"));
  ASSERT_TRUE(transcript != nullptr && reset != nullptr);
  reset();
  // No file: the monitor alone is reason enough to pass entries and exits.
  SetKey(RootKey(), {Dword(u"LogCategories", 0x400 | 0x800)});
  SetKey(ExecutableKey(), {Text(u"ExtMonitorCLSID", NORVANE_TEST_LOG_MONITOR), Dword(u"ExtMonitorFlags", 7),
                           Text(u"ExtMonitorParmFile", "parms.txt")});
  CLogModule module("MonitorModule", "01:02:03");
  {
    CLogFunction a(&module, &qxLogSourceFile_, "Norvane::Job::Start", 1);
    CLogFunction b(&module, &qxLogSourceFile_, "Norvane::Job::Poll", 2);
    CLogFunction c(&module, &qxLogSourceFile_, "Norvane::GetDeviceLocaleStrings", 3);
  }
  EXPECT_STREQ(transcript(),
               "start:parms.txt\nstart2:parms.txt\nclass:Job\nenter:Job::Start\nenter:Job::Poll\n"
               "class:Norvane\nenter:Norvane::GetDeviceLocaleStrings\nexit:Norvane::GetDeviceLocaleStrings\n"
               "exit:Job::Poll\nexit:Job::Start\n");

  // Entries only; then a plug-in lacking a notification replaces it: the old
  // one is stopped and nothing is loaded.
  SetKey(ExecutableKey(), {Dword(u"ExtMonitorFlags", 2)});
  QxLogging::RefreshLogSettings();
  reset();
  { CLogFunction a(&module, &qxLogSourceFile_, "Norvane::Job::Start", 1); }
  EXPECT_STREQ(transcript(), "enter:Job::Start\n");
  SetKey(ExecutableKey(), {Text(u"ExtMonitorCLSID", NORVANE_TEST_LOG_MONITOR_INCOMPLETE)});
  QxLogging::RefreshLogSettings();
  reset();
  { CLogFunction a(&module, &qxLogSourceFile_, "Norvane::Job::Start", 1); }
  EXPECT_EQ(std::string(transcript()), "stop:" + QxLogging::ExecutableBaseName() + "\n");
  // Categories without a file or a monitor to write to keep the gate closed.
  EXPECT_FALSE(module.MayWant(0x400));
  dlclose(plugin);
}
#endif

}  // namespace
}  // namespace NorvaneLogTest
