// From configuration files to every entry initialized, as an operator runs
// it: `agentenv run --until-settled FILE` as a process of its own, timed from
// its start to its exit, with its peak resident memory per entry. Entries
// instantiate a directory each, in three shapes:
//   independent  10k, 100k and 1M entries that act at once
//   chain        100k entries, each depending on the one before
//   aggregates   1k aggregates of 100 entries (the aggregate and 99 members)
// The ratios printed at the end tell how the time grows with the number of
// entries, what a chain or an aggregate costs per entry beside independent
// entries, and how settling 1M entries compares with libconfig++ merely
// parsing 1M entries of the parse benchmark's files (TwinFiles.h), the two
// run in turns.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <malloc.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "bench/BenchDirectory.h"
#include "bench/TimesReporter.h"
#include "bench/TwinFiles.h"

extern char** environ;

namespace {

enum class Shape { independent, chain, aggregates };
constexpr int kAggregateSize = 100;
// Runs of settling 1M entries, each beside a libconfig++ parse of 1M.
constexpr int kComparedPairs = 5;

std::string entryName(int i) {
  std::string name = "e";
  name += std::to_string(i);
  return name;
}

void appendEntry(std::string& out, std::string const& name, std::string const& attributes) {
  out.append(name).append(" {\n    typeName = \"Zet::Dir\";\n").append(attributes).append("}\n");
}

std::string attribute(char const* name, std::string const& value) {
  std::string text = "    ";
  text.append(name).append(" = \"").append(value).append("\";\n");
  return text;
}

std::string configText(Shape shape, int entries) {
  std::string text;
  for (int i = 0; i < entries; ++i) {
    std::string name = entryName(i);
    std::string target = attribute("target", "/settle/" + name);
    if (shape == Shape::independent) {
      appendEntry(text, name, target);
    } else if (shape == Shape::chain) {
      appendEntry(text, name, i > 0 ? target + attribute("dependency", entryName(i - 1)) : target);
    } else if (i % kAggregateSize == 0) {
      std::string members;
      for (int m = i + 1; m < i + kAggregateSize && m < entries; ++m)
        appendEntry(members, entryName(m), attribute("pathSuffix", entryName(m)));
      appendEntry(text, name, target + members);
    }
  }
  return text;
}

// The directory holding the control socket and one file per shape and
// size, each written once (see BenchDirectory.h).
std::string const& root() {
  static std::string const made = BenchDirectory::made("zet-settle-bench");
  return made;
}

std::string const& configFile(Shape shape, int entries) {
  static std::map<std::pair<Shape, int>, std::string> written;
  auto [it, inserted] = written.try_emplace({shape, entries});
  if (inserted) {
    it->second = root() + "/settle-" + std::to_string(int(shape)) + "-" + std::to_string(entries) + ".conf";
    std::ofstream(it->second, std::ios::binary) << configText(shape, entries);
  }
  return it->second;
}

struct AgentRun {
  double seconds = 0;
  long peakBytes = 0;
  int status = -1;  // the exit status; -1 when it did not exit
};

// Runs `agentenv run --until-settled FILE` with its output discarded. The
// memory this process has freed (a parse tree, the text of a file written)
// is handed back to the system first: the agent would otherwise run on
// memory the system has to find elsewhere, which is slower to take on a
// virtual machine, and more so from one run to the next.
AgentRun runAgent(std::string const& file) {
  ::malloc_trim(0);
  std::string control = "unix:" + root() + "/control.sock";
  char const* argv[] = {AGENTENV_COMMAND, "run",  "--until-settled", "--control", control.c_str(),
                        file.c_str(),     nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  AgentRun run;
  auto start = std::chrono::steady_clock::now();
  pid_t pid = 0;
  if (posix_spawn(&pid, argv[0], &actions, nullptr, const_cast<char**>(argv), environ) == 0) {
    int status = 0;
    rusage usage{};
    if (::wait4(pid, &status, 0, &usage) == pid) {
      run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
      run.peakBytes = usage.ru_maxrss * 1024;
      if (WIFEXITED(status)) run.status = WEXITSTATUS(status);
    }
  }
  posix_spawn_file_actions_destroy(&actions);
  return run;
}

void settle(benchmark::State& state, Shape shape) {
  int const entries = static_cast<int>(state.range(0));
  std::string const& file = configFile(shape, entries);
  long peak = 0;
  for (auto _ : state) {
    AgentRun run = runAgent(file);
    if (run.status != 0) {
      state.SkipWithError("agentenv run did not settle with every entry initialized");
      break;
    }
    state.SetIterationTime(run.seconds);
    peak = std::max(peak, run.peakBytes);
  }
  state.counters["peakBytesPerEntry"] = double(peak) / entries;
  state.counters["perEntry"] =
      benchmark::Counter(entries, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

BENCHMARK_CAPTURE(settle, independent, Shape::independent)
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1000000)
    ->UseManualTime()
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(settle, chain, Shape::chain)
    ->Arg(100000)
    ->UseManualTime()
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(settle, aggregates, Shape::aggregates)
    ->Arg(100000)
    ->UseManualTime()
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);

#ifdef ZET_HAVE_LIBCONFIGXX
// Settling 1M entries beside libconfig++ merely parsing the twin of 1M
// entries, in turns: a slow spell of the machine then weighs on both sides
// of a pair, and the median of the pairs' ratios is printed with their
// range. Each settling is a process of its own, and each parse starts, as a
// process reading its configuration at start-up does, from memory handed
// back to the system; its tree is freed after its clock stopped.
void compareWithLibconfig(int pairs) {
  std::string const& file = configFile(Shape::independent, 1000000);
  TwinFiles::FileSet const& twin = TwinFiles::files(1000000);
  std::vector<double> settled, parsed, ratios;
  for (int i = 0; i < pairs; ++i) {
    AgentRun run = runAgent(file);
    if (run.status != 0) return (void)std::printf("settle 1M: agentenv run did not settle\n");
    ::malloc_trim(0);
    auto start = std::chrono::steady_clock::now();
    auto tree = TwinFiles::libconfigParse(twin);
    double parse = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    benchmark::DoNotOptimize(tree);
    settled.push_back(run.seconds);
    parsed.push_back(parse);
    ratios.push_back(run.seconds / parse);
  }
  auto median = [](std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
  };
  auto [least, most] = std::minmax_element(ratios.begin(), ratios.end());
  std::printf("%-34s %.2f (median of %d pairs, %.2f to %.2f; settle %.0f ms, libconfig++ %.0f ms)\n",
              "settle 1M / libconfig++ parse 1M", median(ratios), pairs, *least, *most, 1000 * median(settled),
              1000 * median(parsed));
}
#endif

// How the time grows with the entries, and what the shapes cost beside
// independent entries.
void printRatios(TimesReporter const& times) {
  auto ratio = [&](char const* what, char const* over, char const* under) {
    auto run = [](char const* name) { return std::string("settle/") + name + "/iterations:3/manual_time"; };
    double a = times.seconds(run(over)), b = times.seconds(run(under));
    if (a > 0 && b > 0) std::printf("%-34s %.2f\n", what, a / b);
  };
  ratio("growth 10k -> 100k (independent)", "independent/100000", "independent/10000");
  ratio("growth 100k -> 1M (independent)", "independent/1000000", "independent/100000");
  ratio("chain / independent at 100k", "chain/100000", "independent/100000");
  ratio("aggregates / independent at 100k", "aggregates/100000", "independent/100000");
}

}  // namespace

int main(int argc, char** argv) {
  return runBenchmarks(argc, argv, [](TimesReporter const& times) {
    printRatios(times);
#ifdef ZET_HAVE_LIBCONFIGXX
    compareWithLibconfig(kComparedPairs);
#endif
  });
}
