#include "norvane/disposable.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <optional>
#include <thread>
#include <vector>

#include "norvane/interfaces.h"
#include "support/disposable_set.h"
#include "support/log.h"
#include "testlib/capture_log.h"

namespace {

using NorvaneTest::CaptureLog;

std::atomic<int> g_destroyed{0};

class Probe : public Norvane::DisposableObject<Norvane::DataCollection> {
 public:
  static Probe* Create() {
    auto* p = new Probe();
    p->AddRef();
    return p;
  }
  HRESULT GetValue(const char16_t*, VARIANT*) override { return E_FAIL; }
  HRESULT RemoveValuesWithPrefix(const char16_t*) override { return S_OK; }
  ~Probe() override { g_destroyed.fetch_add(1); }
};

TEST(Disposable, CountsAreLoggedAndOnlyTheLastDisposeDestroysUnlessKeptAlive) {
  int before = g_destroyed.load();
  CaptureLog log;
  Probe* p = Probe::Create();
  const ::IDisposable* registered = p;
  EXPECT_TRUE(QxUtils::IsRegisteredDisposable(registered));
  EXPECT_EQ((std::vector<uint32_t>{p->AddRef(), p->AddRef(), p->Dispose(), p->Dispose()}),
            (std::vector<uint32_t>{2, 3, 2, 1}));
  EXPECT_EQ(g_destroyed.load(), before);
  EXPECT_EQ(p->Dispose(), 0u);
  EXPECT_EQ(g_destroyed.load(), before + 1);
  EXPECT_FALSE(QxUtils::IsRegisteredDisposable(registered));
  std::vector<std::string> counts;
  for (const auto& r : log.Find(" ref is ", QxLogging::kInfo)) counts.push_back(r.text.substr(r.text.rfind(' ') + 1));
  EXPECT_EQ(counts, (std::vector<std::string>{"1", "2", "3", "2", "1", "0"}));
  auto records = log.Find(" ref is 3");
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].function, "QxUtils::CDisposable::AddRefImpl");
  EXPECT_EQ(records[0].text.rfind("<GetTypeName(): class identification disabled, refer to IDisposableImpl> (0x", 0),
            0u);

  // Kept alive, it survives zero and goes negative; its owner destroys it.
  p = Probe::Create();
  p->SetKeepAlive(true);
  EXPECT_EQ(p->Dispose(), 0u);
  EXPECT_EQ(static_cast<int32_t>(p->Dispose()), -1);
  EXPECT_EQ(g_destroyed.load(), before + 1);
  delete static_cast<::IDisposable*>(p);
  EXPECT_EQ(g_destroyed.load(), before + 2);
}

// With logging on, each release formats the object's name: a release that read the
// object after its decrement would touch freed memory when another thread released
// the last reference meanwhile (ASan and TSan see it).
class DisposableRelease : public ::testing::TestWithParam<bool> {};

TEST_P(DisposableRelease, ConcurrentReleaseDestroysExactlyOnce) {
  std::optional<CaptureLog> log;
  if (GetParam()) log.emplace();
  for (int round = 0; round < 30; ++round) {
    int before = g_destroyed.load();
    Probe* p = Probe::Create();
    constexpr int kThreads = 4, kRefs = 200;
    for (int i = 0; i < kThreads * kRefs - 1; ++i) p->AddRef();
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([p] {
        for (int i = 0; i < kRefs; ++i) p->Dispose();
      });
    }
    for (auto& t : threads) t.join();
    ASSERT_EQ(g_destroyed.load(), before + 1);
  }
}

INSTANTIATE_TEST_SUITE_P(LoggingOffAndOn, DisposableRelease, ::testing::Bool());

TEST(Disposable, ExitReportNamesEveryObjectStillAlive) {
  CaptureLog log;
  Probe* leaked = Probe::Create();
  leaked->AddRef();
  QxUtils::ReportRemainingDisposables();
  auto records = log.Find("remains in object set with ref count of 2", QxLogging::kStandout);
  ASSERT_EQ(records.size(), 1u);
  char address[32];
  std::snprintf(address, sizeof address, "(%p)", static_cast<void*>(static_cast<QxUtils::CDisposable*>(leaked)));
  EXPECT_NE(records[0].text.find(address), std::string::npos) << records[0].text;
  leaked->Dispose();
  leaked->Dispose();
}

// The exit handler itself, in a fresh process: it names what is left, and
// says nothing when nothing is.
Probe* g_neverReleased = nullptr;

class StderrWriter : public QxLogging::ILogWriter {
 public:
  void Write(const QxLogging::CLogModule&, const QxLogging::LogRecord& r) override {
    std::fprintf(stderr, "[%x] %.*s\n", r.category, static_cast<int>(r.text.size()), r.text.data());
  }
};

TEST(DisposableDeathTest, OnlyUnreleasedObjectsAreReportedAtExit) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (bool leak : {false, true}) {
    EXPECT_EXIT(
        {
          QxLogging::Utils().SetWriter(std::make_shared<StderrWriter>());
          std::fprintf(stderr, "start\n");
          if (leak) g_neverReleased = Probe::Create();  // reachable, so leak checkers stay quiet
          std::exit(0);
        },
        testing::ExitedWithCode(0),
        leak ? "\\[80\\] <GetTypeName\\(\\): class identification disabled, refer to IDisposableImpl> "
               "\\(0x[0-9a-f]+\\) remains in object set with ref count of 1"
             : "^start\n$");
  }
}

}  // namespace
