// The console report of a benchmark program, keeping each benchmark's CPU time
// per iteration for the lines a program prints after its run: a figure next to
// its reference, the ratio last. CPU time by default, because the build
// machines run other work beside the benchmark; wall time where what is
// measured waits on a peer.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace NorvaneBench {

class CpuTimeReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.iterations <= 0) continue;
      times_[run.benchmark_name()] = run.GetAdjustedCPUTime();
      wallTimes_[run.benchmark_name()] = run.GetAdjustedRealTime();
    }
    ConsoleReporter::ReportRuns(runs);
  }

  // The CPU time of `name` in the unit it was reported in, or a negative
  // number when it did not run.
  double Time(const std::string& name) const { return Find(times_, name); }
  double WallTime(const std::string& name) const { return Find(wallTimes_, name); }

  void PrintHeading(const char* title, const char* figure, const char* reference) const {
    std::printf("\n%-56s %16s %16s %8s\n", title, figure, reference, "ratio");
  }

  // One line: the figure (its time times `share`: a part of each iteration),
  // its reference and their ratio, when both ran.
  void PrintPair(const std::string& label, const std::string& figure, const std::string& reference,
                 double share = 1.0) const {
    Print(label, Time(figure) * share, Time(reference));
  }
  // The same line in wall time.
  void PrintWallPair(const std::string& label, const std::string& figure, const std::string& reference) const {
    Print(label, WallTime(figure), WallTime(reference));
  }

 private:
  static double Find(const std::map<std::string, double>& times, const std::string& name) {
    auto found = times.find(name);
    return found == times.end() ? -1.0 : found->second;
  }
  static void Print(const std::string& label, double a, double b) {
    if (a < 0 || b <= 0) return;
    std::printf("%-56s %16.1f %16.1f %8.2f\n", label.c_str(), a, b, a / b);
  }

  std::map<std::string, double> times_;
  std::map<std::string, double> wallTimes_;
};

}  // namespace NorvaneBench
