// Reading configuration files into a config directory, at 10k, 100k and 1M
// entries. Each entry has source0, target, dependency, timeoutPeriod, a
// comment and one nested entry; the entries are spread over two files, the
// first of which includes the second (at 1M entries each is about 128 MB).
//
// When libconfig++ is available, the same content written in its syntax is
// parsed by it in the same run, and the ratio of the two times is printed at
// the end: how much faster filling the directory is than libconfig++ merely
// parsing its twin file. libconfig++ takes time quadratic in the number of
// settings of a group (two minutes at 100k entries), so it is not run at 1M;
// 1k entries show the ratio where that does not dominate yet.
//
// Every iteration starts from memory handed back to the system, as a process
// reading its configuration at start-up does, and the peak memory the first
// fill adds is reported per entry.

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>

#include "AgentEnv/ConfigFileParser.h"

#ifdef ZET_HAVE_LIBCONFIGXX
#include <libconfig.h++>
#endif

namespace {

constexpr int kFiles = 2;

// The two syntaxes differ only in how a block opens and closes and how a
// file is included.
struct Syntax {
  char const* extension;
  char const* include;  // followed by the quoted file name
  char const* open;     // after the entry's name
  char const* close;
};
Syntax const kAgentEnv{".conf", "#include ", " {\n", "}\n"};
Syntax const kLibconfig{".cfg", "@include ", " = {\n", "};\n"};

std::string entryText(Syntax const& s, int i) {
  std::string n = std::to_string(i);
  std::string text = "// entry " + n + ": a store mounted from another agent\nstore" + n + s.open;
  text += "  source0 = \"tcp://host" + std::to_string(i % 64) + ":4000/agents/store" + n + "\";\n";
  text += "  target = \"/env/stores/store" + n + "\";\n";
  text += "  dependency = \"store" + std::to_string(i > 0 ? i - 1 : 0) + "\";\n";
  text += "  timeoutPeriod = 30.5;\n";
  text += "  member" + n + s.open + "    typeName = \"Zet::StoreMember\";\n  " + s.close;
  return text + s.close;
}

// Writes the files for `entries` entries in `syntax`; returns the first file
// and adds their sizes to `bytes`.
std::string writeFiles(std::string const& dir, Syntax const& syntax, int entries, size_t& bytes) {
  auto name = [&](int part) { return "part" + std::to_string(part) + syntax.extension; };
  for (int part = 0; part < kFiles; ++part) {
    std::ofstream out(dir + "/" + name(part), std::ios::binary);
    if (part == 0)
      for (int other = 1; other < kFiles; ++other) out << syntax.include << '"' << name(other) << "\"\n";
    std::string chunk;
    for (int i = part; i < entries; i += kFiles) {
      chunk += entryText(syntax, i);
      if (chunk.size() > (1 << 20)) out << std::exchange(chunk, std::string());
    }
    out << chunk;
    out.flush();
    bytes += static_cast<size_t>(out.tellp());
  }
  return dir + "/" + name(0);
}

struct FileSet {
  std::string dir;
  std::string agentEnvFile;
  std::string libconfigFile;
  size_t agentEnvBytes = 0;
  size_t libconfigBytes = 0;
};

// The files for `entries`, written once per process into a temporary
// directory removed at exit.
FileSet const& files(int entries) {
  static std::map<int, FileSet> made;
  static std::string root;
  if (root.empty()) {
    std::string pattern = (std::filesystem::temp_directory_path() / "zet-config-bench-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) std::abort();
    root = pattern;
    std::atexit([] { std::filesystem::remove_all(root); });
  }
  auto [it, inserted] = made.try_emplace(entries);
  if (inserted) {
    FileSet& f = it->second;
    f.dir = root + "/" + std::to_string(entries);
    std::filesystem::create_directory(f.dir);
    f.agentEnvFile = writeFiles(f.dir, kAgentEnv, entries, f.agentEnvBytes);
    f.libconfigFile = writeFiles(f.dir, kLibconfig, entries, f.libconfigBytes);
  }
  return it->second;
}

// Peak resident memory since the last reset, in bytes (Linux).
long statusBytes(char const* field) {
  std::ifstream in("/proc/self/status");
  for (std::string line; std::getline(in, line);)
    if (line.rfind(field, 0) == 0) return std::atol(line.c_str() + std::string_view(field).size()) * 1024;
  return 0;
}
void resetPeakMemory() { std::ofstream("/proc/self/clear_refs") << "5"; }

// Runs `fill` once per iteration; reports throughput and the peak memory
// the first fill added per entry.
template <class Fill>
void measure(benchmark::State& state, size_t bytes, Fill fill) {
  int const entries = static_cast<int>(state.range(0));
  double peakPerEntry = 0;
  for (auto _ : state) {
    state.PauseTiming();
    ::malloc_trim(0);
    resetPeakMemory();
    long before = statusBytes("VmRSS:");
    state.ResumeTiming();
    auto filled = fill();
    state.PauseTiming();
    if (peakPerEntry == 0) peakPerEntry = double(statusBytes("VmHWM:") - before) / entries;
    filled = {};
    state.ResumeTiming();
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(bytes));
  state.SetItemsProcessed(int64_t(state.iterations()) * entries);
  state.counters["peakBytesPerEntry"] = peakPerEntry;
}

void agentEnvFill(benchmark::State& state) {
  FileSet const& f = files(static_cast<int>(state.range(0)));
  ::setenv("AGENTENV_CONFIGS", f.dir.c_str(), 1);  // where the includes are found
  measure(state, f.agentEnvBytes, [&] {
    Zet::Ptr<Zet::AgentEnvConfigDir> dir = Zet::agentEnvConfigDirFactory("AgentEnvConfigDir");
    Zet::Ptr<Zet::ConfigFileParser> parser = Zet::configFileParserFactory(dir);
    parser->configFileEnq(Zet::String8(f.agentEnvFile));
    if (parser->parsingErrorsCount() != 0 || dir->agentEnvConfigCount() != size_t(2 * state.range(0)))
      state.SkipWithError("the generated files did not read cleanly");
    return dir;
  });
}
BENCHMARK(agentEnvFill)->Name("agentenv_fill")->Arg(1000)->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);

#ifdef ZET_HAVE_LIBCONFIGXX
void libconfigParse(benchmark::State& state) {
  FileSet const& f = files(static_cast<int>(state.range(0)));
  measure(state, f.libconfigBytes, [&] {
    auto config = std::make_unique<libconfig::Config>();
    config->setIncludeDir(f.dir.c_str());
    config->readFile(f.libconfigFile.c_str());
    return config;
  });
}
BENCHMARK(libconfigParse)->Name("libconfig++_parse")->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
#endif

// Prints the usual table, keeping each run's time per iteration so that the
// two readers can be compared at the end.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(std::vector<Run> const& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (Run const& r : runs) seconds_[r.benchmark_name()] = r.GetAdjustedRealTime();
  }
  void printRatios() const {
    for (char const* size : {"1000", "10000", "100000"}) {
      auto ours = seconds_.find(std::string("agentenv_fill/") + size);
      auto theirs = seconds_.find(std::string("libconfig++_parse/") + size);
      if (ours == seconds_.end() || theirs == seconds_.end()) continue;
      std::printf("%8s entries: agentenv fills its directory %.2fx as fast as libconfig++ parses the twin file\n",
                  size, theirs->second / ours->second);
    }
  }

 private:
  std::map<std::string, double> seconds_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
#ifndef ZET_HAVE_LIBCONFIGXX
  std::printf("libconfig++ was not found when building: no side-by-side comparison\n");
#endif
  reporter.printRatios();
  benchmark::Shutdown();
}
