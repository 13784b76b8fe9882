// Records configured through the registry end up in the log file with the
// layout, indentation, size limit and queueing the options ask for.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <thread>

#include "logging_test_util.h"
#include "norvane/platform.h"
#include "support/logging/log_file.h"
#include "support/logging/parameter_block.h"

QX_LOG_SOURCE_FILE()

namespace NorvaneLogTest {
namespace {

using QxLogging::CLogFunction;
using QxLogging::CLogModule;

void Probe(CLogModule& module, int count) {
  CLogFunction scope(&module, &qxLogSourceFile_, "Norvane::Printer::Probe", 42);
  scope.Format(QxLogging::kInfo, 43, "probing %d", count);
}

class LogFileOutput : public LoggingTest {};

// The indent, on request, sits between the prefix (tags included) and the
// text. (The prefix's fields are LineFormat's; the options reach them in the
// threads' test.)
TEST_F(LogFileOutput, EntryMessageAndExitLinesCarryTheirTagsLineEndsAndIndent) {
  SetKey(RootKey(), {Dword(u"LogCategories", 0x10 | 0x400 | 0x800), Dword(u"LogOptions", 0x200000),
                     Dword(u"LogInfoDetailLevel", 3), Text(u"LogFileName", File("qx.log"))});
  CLogModule module("LogTestModule", "01:02:03");
  SetLastError(77);
  {
    // Categories outside the mask and levels above the setting write nothing;
    // the last error stays.
    CLogFunction scope(&module, &qxLogSourceFile_, "Norvane::Printer::Quiet", 50);
    scope.Format(QxLogging::kStandout, 51, "not written");
    scope.Format(QxLogging::kInfo | 3, 52, "level three");
    scope.Format(QxLogging::kInfo | 4, 53, "level four");
    Probe(module, 3);
  }
  EXPECT_EQ(GetLastError(), 77u);
  EXPECT_EQ(ReadLog(File("qx.log")),
            "(->) Printer::Quiet\r\n(I3)   level three\r\n(->)   Printer::Probe\r\n(I0)     probing 3\r\n"
            "(<-)   Printer::Probe\r\n(<-) Printer::Quiet\r\n");
  // Two bytes per character, no byte-order mark.
  EXPECT_EQ(std::filesystem::file_size(File("qx.log")), 2u * ReadLog(File("qx.log")).size());
}

// The line that crosses the limit is written, then the marker, then nothing;
// a file another process already filled past the limit gets only the marker.
TEST_F(LogFileOutput, SizeLimitWritesTheCrossingLineThenTheMarkerThenDrops) {
  std::string filled;
  for (int i = 0; i < 600; ++i) filled += std::string("x\0", 2);
  std::ofstream(File("Full.log"), std::ios::binary) << filled;
  const std::string payload(100, 'x');
  std::string expected;
  // Each line is 5 + 100 + 2 characters, 214 bytes: the fifth crosses 1024.
  for (int i = 0; i < 5; ++i) expected += "(I0) " + std::to_string(i) + payload + "\r\n";
  for (std::string name : {"Limit", "Full"}) {
    SetKey(RootKey(),
           {Dword(u"LogCategories", 0x10), Dword(u"LogOptions", 1), Text(u"LogFileName", File(name + ".log"))});
    QxLogging::RefreshLogSettings();
    CLogModule module(name.c_str(), "01:02:03");
    CLogFunction scope(&module, &qxLogSourceFile_, "Norvane::Big::Write", 1);
    for (int i = 0; i < 7; ++i) scope.Format(QxLogging::kInfo, 2, "%d%s", i, payload.c_str());
    EXPECT_EQ(ReadLog(File(name + ".log")), (name == "Full" ? std::string(600, 'x') : expected) +
                                                "*** FILE SIZE LIMIT REACHED, LOGGING DISABLED FOR " + name +
                                                " MODULE ***");
  }
}

TEST_F(LogFileOutput, ReplaceAndUniqueNamesStartAFreshFileAtTheLimit) {
  SetKey(RootKey(), {Dword(u"LogCategories", 0x10), Dword(u"LogOptions", 0x10000 | 0x20000 | 1),
                     Text(u"LogFileName", File("roll.log"))});
  CLogModule module("RollModule", "01:02:03");
  CLogFunction scope(&module, &qxLogSourceFile_, "Norvane::Big::Write", 1);
  std::string payload(300, 'y');
  for (int i = 0; i < 3; ++i) scope.Format(QxLogging::kInfo, 2, "%d%s", i, payload.c_str());
  std::vector<std::string> names;
  for (auto& entry : std::filesystem::directory_iterator(dir_.Path())) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  // Two started files, "roll-XXXXXX.log", never the configured name itself.
  ASSERT_EQ(names.size(), 2u);
  for (const auto& name : names) EXPECT_TRUE(std::regex_match(name, std::regex(R"(roll-.{6}\.log)"))) << name;
  std::string first = ReadLog(File(names[0])), second = ReadLog(File(names[1]));
  std::string full = first.find("LIMIT") != std::string::npos ? first : second;
  std::string fresh = full == first ? second : first;
  EXPECT_EQ(Lines(full).size(), 3u);  // two lines and the marker
  EXPECT_EQ(fresh, "(I0) 2" + payload + "\r\n");
}

// The file stays open between lines, but a rotated or deleted file is not
// written to behind its name's back.
TEST_F(LogFileOutput, LinesFollowTheFileNameWhenTheFileIsRotatedOrDeleted) {
  SetKey(RootKey(), {Dword(u"LogCategories", 0x10), Text(u"LogFileName", File("kept.log"))});
  CLogModule module("KeptModule", "01:02:03");
  const auto pathCheck = std::chrono::milliseconds(QxLogging::kPathCheckMs + 20);
  Probe(module, 1);
  std::filesystem::rename(File("kept.log"), File("kept.log.1"));
  std::this_thread::sleep_for(pathCheck);
  Probe(module, 2);
  std::filesystem::remove(File("kept.log"));
  std::this_thread::sleep_for(pathCheck);
  Probe(module, 3);
  EXPECT_EQ(ReadLog(File("kept.log.1")), "(I0) probing 1\r\n");
  EXPECT_EQ(ReadLog(File("kept.log")), "(I0) probing 3\r\n");
}

TEST_F(LogFileOutput, LinesWaitInTheQueueWhileAnotherWriterHoldsTheFile) {
  std::string path = File("locked.log");
  SetKey(RootKey(), {Dword(u"LogCategories", 0x10), Text(u"LogFileName", path)});
  CLogModule module("QueueModule", "01:02:03");
  CLogFunction scope(&module, &qxLogSourceFile_, "Norvane::Q::Run", 1);
  scope.Format(QxLogging::kInfo, 2, "first");  // starts the file
  int holder = open(path.c_str(), O_RDWR);
  ASSERT_GE(holder, 0);
  ASSERT_EQ(flock(holder, LOCK_EX), 0);
  testing::internal::CaptureStderr();
  scope.Format(QxLogging::kInfo, 3, "while locked");
  std::string note = testing::internal::GetCapturedStderr();
  EXPECT_NE(note.find("Unable to open log file:\n<" + path + ">"), std::string::npos) << note;
  EXPECT_EQ(ReadLog(path), "(I0) first\r\n");
  close(holder);
  scope.Format(QxLogging::kInfo, 4, "after");
  EXPECT_EQ(Lines(ReadLog(path)),
            (std::vector<std::string>{"(I0) first", "--- Queued Lines Start ---", "(I0) while locked",
                                      "--- Queued Lines End ---", "(I0) after"}));
}

TEST_F(LogFileOutput, HeaderErrorTextAndDurationOnRequest) {
  SetKey(RootKey(), {Dword(u"LogCategories", 0x40000000 | 0x800 | 0x20000000), Dword(u"LogOptions", 0x400000),
                     Text(u"LogFileName", File("header.log"))});
  CLogModule module("HeaderModule", "04:15:05");
  {
    CLogFunction scope(&module, &qxLogSourceFile_, "Norvane::Job::Cancel", 1);
    scope.SetErrorCode(0x80004005);
    scope.SetExceptionState(2);
  }
  const std::string patterns[] = {
      R"(\(\+\+\) Module File Name: /.* bytes\).*)",
      R"(\(\+\+\)     Command Line: .*)",
      R"(\(\+\+\)     File Version: .*)",
      R"(\(\+\+\)       Process ID: \[)" + std::to_string(getpid()) + R"(\] )",
      R"(\(\+\+\)         Built on: \w{3} [ \d]\d \d{4} 04:15:05)",
      R"(\(\+\+\)    Log File Name: <)" + std::filesystem::canonical(File("header.log")).string() + ">",
      R"(\(<-\) Job::Cancel \(Dur: \d+ us\) \(handled exception\) )",
      R"(\(\*\*\) \[Err: 0x80004005\] Unspecified error)"};
  auto lines = Lines(ReadLog(File("header.log")));
  ASSERT_EQ(lines.size(), std::size(patterns));
  for (size_t i = 0; i < lines.size(); ++i)
    EXPECT_TRUE(std::regex_match(lines[i], std::regex(patterns[i]))) << lines[i];
}

TEST_F(LogFileOutput, AStartingFileIsAppendedToUnlessAskedToReplaceItAndItsNameIsExpanded) {
  for (const char* name : {"keep.log", "replace.log"}) {
    std::ofstream(File(name), std::ios::binary) << std::string("o\0l\0d\0\r\0\n\0", 10);
  }
  // The name may refer to the environment.
  setenv("NORVANE_LOG_TEST_DIR", dir_.Path().c_str(), 1);
  SetKey(RootKey(), {Dword(u"LogCategories", 0x400), Text(u"LogFileName", "${NORVANE_LOG_TEST_DIR}/keep.log")});
  CLogModule module("StartModule", "01:02:03");
  Probe(module, 0);
  unsetenv("NORVANE_LOG_TEST_DIR");
  EXPECT_EQ(ReadLog(File("keep.log")), "old\r\n(->) Printer::Probe\r\n");
  SetKey(RootKey(), {Dword(u"LogOptions", 0x10000), Text(u"LogFileName", File("replace.log"))});
  QxLogging::RefreshLogSettings();
  Probe(module, 0);
  EXPECT_EQ(ReadLog(File("replace.log")), "(->) Printer::Probe\r\n");
}

// A record that cannot have the settings lock within its wait is dropped
// rather than holding up its caller.
TEST_F(LogFileOutput, ARecordWaitingTooLongForTheSettingsIsDropped) {
  SetKey(RootKey(), {Dword(u"LogCategories", 0x10), Text(u"LogFileName", File("held.log"))});
  CLogModule module("HeldModule", "01:02:03");
  Probe(module, 1);
  std::unique_lock<std::recursive_timed_mutex> held(QxLogging::CLogParameterBlock::Instance().Lock());
  std::thread([&module] { Probe(module, 2); }).join();
  held.unlock();
  Probe(module, 3);
  EXPECT_EQ(ReadLog(File("held.log")), "(I0) probing 1\r\n(I0) probing 3\r\n");
}

TEST_F(LogFileOutput, LinesOfConcurrentThreadsNeverInterleave) {
  SetKey(RootKey(),
         {Dword(u"LogCategories", 0x10), Dword(u"LogOptions", 0x8000000), Text(u"LogFileName", File("threads.log"))});
  CLogModule module("ThreadModule", "01:02:03");
  constexpr int kThreads = 4, kLines = 50;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&module, t] {
      CLogFunction scope(&module, &qxLogSourceFile_, "Norvane::T::Run", 1);
      for (int i = 0; i < kLines; ++i) scope.Format(QxLogging::kInfo, 2, "thread %d line %d end", t, i);
    });
  }
  for (auto& thread : threads) thread.join();
  auto lines = Lines(ReadLog(File("threads.log")));
  // A record that waits more than 50 ms for the settings lock is dropped by
  // design, which a machine stalled on its disk can make happen: a few may go,
  // none may be doubled, torn or reordered.
  ASSERT_LE(lines.size(), static_cast<size_t>(kThreads * kLines));
  ASSERT_GE(lines.size(), static_cast<size_t>(kThreads * kLines * 9 / 10));
  std::regex whole(R"(\{tid: 0x[0-9A-F]{4,}\} \(I0\) thread (\d) line (\d+) end)");
  std::vector<int> last(kThreads, -1);
  for (const auto& line : lines) {
    std::smatch m;
    ASSERT_TRUE(std::regex_match(line, m, whole)) << line;
    int t = std::stoi(m[1]);
    EXPECT_GT(std::stoi(m[2]), last[t]) << "lines of one thread keep their order";
    last[t] = std::stoi(m[2]);
  }
}

}  // namespace
}  // namespace NorvaneLogTest
