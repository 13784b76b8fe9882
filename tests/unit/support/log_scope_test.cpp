#include <gtest/gtest.h>

#include <tuple>

#include "support/log.h"
#include "support/win32_exception.h"
#include "testlib/capture_log.h"

QX_LOG_SOURCE_FILE()

namespace {

using NorvaneTest::CaptureLog;

// Incomplete pieces of a message are joined with the next complete one.
TEST(LogScope, EntryMessageAndExitRecordsCarryCategoryLineAndDisplayName) {
  CaptureLog log;
  int messageLine = 0;
  {
    QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::IPPOperations::SendIPPRequest");
    messageLine = __LINE__ + 1;
    QX_LOG(QxLogging::kInfo, "sent %d bytes to %s", 42, "printer");
    qxLog_.Message(QxLogging::kInfo, 10, "first ", false);
    qxLog_.Message(QxLogging::kInfo, 11, "second ", false);
    qxLog_.Message(QxLogging::kInfo, 12, "third", true);
  }
  std::vector<std::tuple<uint32_t, int, std::string>> seen;
  for (const auto& r : log.Records()) seen.emplace_back(r.category, r.line, r.text);
  EXPECT_EQ(seen, (std::vector<std::tuple<uint32_t, int, std::string>>{
                      {QxLogging::kEntry, messageLine - 2, "IPPOperations::SendIPPRequest"},
                      {QxLogging::kInfo, messageLine, "sent 42 bytes to printer"},
                      {QxLogging::kInfo, 12, "first second third"},
                      {QxLogging::kExit, 0, "IPPOperations::SendIPPRequest"}}));
  EXPECT_EQ(log.Records()[0].sourceFile, "log_scope_test.cpp");
}

TEST(LogScope, DisplayNamesFollowTheComponentRules) {
  // Template arguments never appear; a leading "::" records no start at 0.
  const struct {
    std::string function;
    const char* cls;
    std::string display;
  } cases[] = {{"Norvane::IPPOperations::SendIPPRequest", "IPPOperations", "IPPOperations::SendIPPRequest"},
               {"Norvane::GetDeviceLocaleStrings", "Norvane", "Norvane::GetDeviceLocaleStrings"},
               {"GetStringLength", "", "GetStringLength"},
               {"Norvane::Holder<std::map<int, Foo::Bar>>::Get", "Holder", "Holder::Get"},
               {"::Global", "", "Global"},
               {std::string(400, 'x'), "", std::string(255, 'x')}};  // cut at 255 characters
  for (const auto& c : cases) {
    std::string cls, display;
    QxLogging::SplitFunctionName(c.function, &cls, &display);
    EXPECT_EQ(cls, c.cls) << c.function;
    EXPECT_EQ(display, c.display) << c.function;
  }
}

TEST(LogScope, ModulesWithoutWriterDropEverythingAndOnlyTheirOwnRecordsArrive) {
  CaptureLog log;
  QxLogging::Utils().SetWriter(nullptr);
  {
    QX_LOG_FUNCTION(QxLogging::Utils(), "QxUtils::Detached::Op");
    QX_LOG(QxLogging::kInfo, "%s", "not captured");
  }
  { QX_LOG_FUNCTION(QxLogging::NorvaneResolver(), "CaptureSubString"); }
  ASSERT_EQ(log.Records().size(), 2u);
  EXPECT_EQ(log.Records()[0].module, "NorvaneResolver");
}

TEST(LogScope, ExitRecordMarksAConvertedFaultInFlight) {
  CaptureLog log;
  try {
    QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::Faulty::Op");
    QxUtils::FaultRecord fault;
    fault.code = QxUtils::kAccessViolation;
    QxUtils::TranslateFault(fault);
  } catch (const QxUtils::CWin32Exception&) {
  }
  auto exits = log.Find("Faulty::Op", QxLogging::kExit);
  ASSERT_EQ(exits.size(), 1u);
  EXPECT_EQ(exits[0].text, "Faulty::Op   *** UNHANDLED EXCEPTION PENDING ***");
  EXPECT_EQ(QxUtils::CWin32Exception::LiveCount(), 0);
}

}  // namespace
