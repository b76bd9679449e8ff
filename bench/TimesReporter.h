#pragma once
// The console table of Google Benchmark, keeping each run's time per
// iteration by benchmark name, so that a benchmark program can print ratios
// of runs of the same process at the end (the machine's noise then weighs
// on both sides alike).

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

class TimesReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(std::vector<Run> const& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (Run const& r : runs) seconds_[r.benchmark_name()] = r.GetAdjustedRealTime();
  }
  // The time per iteration of the named run; 0 when it did not run.
  double seconds(std::string const& name) const {
    auto it = seconds_.find(name);
    return it == seconds_.end() ? 0 : it->second;
  }

 private:
  std::map<std::string, double> seconds_;
};

// Runs the benchmarks named on the command line with a TimesReporter, then
// summary(reporter); what main returns.
template <class Summary>
int runBenchmarks(int argc, char** argv, Summary summary) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  TimesReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  summary(reporter);
  benchmark::Shutdown();
  return 0;
}
