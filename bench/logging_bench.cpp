// The cost of a traced function: a scope with one message, when no setting
// enables anything (the common case in production) and when every record goes
// to a log file. A file line is set beside the least a line costs under the
// same rules: take the file's lock, append the line's UTF-16 bytes, let the
// lock go.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "cpu_time_reporter.h"
#include "platform/registry.h"
#include "support/log.h"
#include "support/logging/record_writer.h"
#include "support/string_utils.h"

QX_LOG_SOURCE_FILE()

namespace {

__attribute__((noinline)) int Traced(int value) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::Bench::Traced");
  QX_LOG(QxLogging::kInfo, "value %d", value);
  return value + 1;
}

// A registry root of our own for the run, removed afterwards.
class BenchRegistry {
 public:
  BenchRegistry() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "norvane-logbench-XXXXXX").string();
    if (mkdtemp(tmpl.data()) != nullptr) root_ = tmpl;
    setenv("NORVANE_REGISTRY_DIR", root_.c_str(), 1);
  }
  ~BenchRegistry() {
    unsetenv("NORVANE_REGISTRY_DIR");
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }
  const std::string& Root() const { return root_; }

 private:
  std::string root_;
};

void BM_ScopeAndMessage_LoggingOff(benchmark::State& state) {
  BenchRegistry registry;
  QxLogging::RefreshLogSettings();
  Traced(0);  // the first record finds no settings and closes the gate
  int v = 0;
  for (auto _ : state) {
    v = Traced(v);
    benchmark::DoNotOptimize(v);
  }
}
BENCHMARK(BM_ScopeAndMessage_LoggingOff);

void BM_ScopeAndMessage_ToFile(benchmark::State& state) {
  BenchRegistry registry;
  Norvane::Registry::Key key;
  Norvane::Registry::Key::Create(Norvane::Registry::Hive::CurrentUser, u"Software\\QV\\Qx\\Logging", &key);
  Norvane::Registry::ValueList values(3);
  values[0].name = u"LogCategories";
  values[0].type = Norvane::Registry::ValueType::Dword;
  values[0].dword = 0x10 | 0x400 | 0x800;
  values[1].name = u"LogOptions";
  values[1].type = Norvane::Registry::ValueType::Dword;
  values[1].dword = 0x2000000 | 0x200000;  // time prefix, indentation
  values[2].name = u"LogFileName";
  values[2].text = QxUtils::Utf8ToWide(registry.Root() + "/bench.log");
  key.SetValues(values);
  QxLogging::RefreshLogSettings();
  int v = 0;
  for (auto _ : state) {
    v = Traced(v);
    benchmark::DoNotOptimize(v);
  }
  state.counters["lines/s"] =
      benchmark::Counter(3.0 * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  QxLogging::RefreshLogSettings();
}
BENCHMARK(BM_ScopeAndMessage_ToFile);

// A line the size of the bench's lines ("21:40:07 (->)   Bench::Traced" and
// the like), in UTF-16.
void BM_BareLockedAppend(benchmark::State& state) {
  BenchRegistry registry;
  int fd = open((registry.Root() + "/bare.log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  std::string line;
  for (char c : std::string("21:40:07   (I0) value 12345678\r\n")) line += {c, '\0'};
  for (auto _ : state) {
    flock(fd, LOCK_EX | LOCK_NB);
    benchmark::DoNotOptimize(write(fd, line.data(), line.size()));
    flock(fd, LOCK_UN);
  }
  close(fd);
}
BENCHMARK(BM_BareLockedAppend);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  NorvaneBench::CpuTimeReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintHeading("One log line to a file (goal < 5000 ns)", "line (ns CPU)", "bare lock+write");
  // A traced scope writes three lines: entry, message and exit.
  reporter.PrintPair("scope of three lines / 3", "BM_ScopeAndMessage_ToFile", "BM_BareLockedAppend", 1.0 / 3);
  reporter.PrintHeading("A record nobody wants (goal < 20 ns)", "scope (ns CPU)", "");
  std::printf("%-56s %16.1f\n", "scope and message, logging off", reporter.Time("BM_ScopeAndMessage_LoggingOff"));
  benchmark::Shutdown();
  return 0;
}
