// Reading configuration files into a config directory, at 10k, 100k and 1M
// entries, side by side with libconfig++ parsing the same content and with
// a lexing pass over the same text (the floor no reader can go below). The
// files and their layout are described in TwinFiles.h.
//
// Every iteration starts from memory handed back to the system, as a process
// reading its configuration at start-up does, and the peak memory the first
// read adds is reported per entry. The ratios of the three times in the same
// run are printed at the end.

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "AgentEnv/ConfigFileParser.h"
#include "bench/TimesReporter.h"
#include "bench/TwinFiles.h"

namespace {

using TwinFiles::FileSet;
using TwinFiles::files;

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
    if (parser->parsingErrorsCount() != 0 || dir->agentEnvConfigCount() != size_t(state.range(0) + f.groups))
      state.SkipWithError("the generated files did not read cleanly");
    return dir;
  });
}
BENCHMARK(agentEnvFill)->Name("agentenv_fill")->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);

#ifdef ZET_HAVE_LIBCONFIGXX
void libconfigParse(benchmark::State& state) {
  FileSet const& f = files(static_cast<int>(state.range(0)));
  measure(state, f.libconfigBytes, [&] { return TwinFiles::libconfigParse(f); });
}
BENCHMARK(libconfigParse)
    ->Name("libconfig++_parse")
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond);
#endif

// The floor: reading the same files and splitting them into tokens (blanks,
// comments, strings, words, numbers, single characters) with nothing else
// done, counting the tokens.
size_t countTokens(std::string_view text) {
  static auto const kWordByte = [] {
    std::array<bool, 256> word{};
    for (int c = 0; c < 256; ++c) word[size_t(c)] = std::isalnum(c) || c == '_' || c == '.';
    return word;
  }();
  auto isWord = [](char c) { return kWordByte[static_cast<unsigned char>(c)]; };
  char const* p = text.data();
  char const* const end = p + text.size();
  auto skipTo = [&](char c) {
    auto const* found = static_cast<char const*>(std::memchr(p, c, size_t(end - p)));
    p = found ? found : end;
  };
  size_t tokens = 0;
  while (p < end) {
    char c = *p;
    if (c == ' ' || c == '\n') {
      ++p;
      continue;
    }
    ++tokens;
    if (c == '/' && p + 1 < end && p[1] == '/') {
      skipTo('\n');
    } else if (c == '"') {
      ++p;
      skipTo('"');
      p += p < end;
    } else if (isWord(c)) {
      while (p < end && isWord(*p)) ++p;
    } else {
      ++p;
    }
  }
  return tokens;
}

std::string fileText(std::string const& name) {
  std::string text(std::filesystem::file_size(name), '\0');
  FILE* file = std::fopen(name.c_str(), "rb");
  if (!file || std::fread(text.data(), 1, text.size(), file) != text.size()) std::abort();
  std::fclose(file);
  return text;
}

void lexingFloor(benchmark::State& state) {
  FileSet const& f = files(static_cast<int>(state.range(0)));
  std::vector<std::string> names;
  for (auto const& file : std::filesystem::directory_iterator(f.dir))
    if (file.path().extension() == ".conf") names.push_back(file.path().string());
  measure(state, f.agentEnvBytes, [&] {
    size_t tokens = 0;
    for (std::string const& name : names) tokens += countTokens(fileText(name));
    benchmark::DoNotOptimize(tokens);
    return std::make_unique<size_t>(tokens);
  });
}
BENCHMARK(lexingFloor)->Name("lexing_floor")->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);

// How the three readers compare, size by size.
void printRatios(TimesReporter const& times) {
  for (char const* size : {"10000", "100000", "1000000"}) {
    double ours = times.seconds(std::string("agentenv_fill/") + size);
    double theirs = times.seconds(std::string("libconfig++_parse/") + size);
    double floor = times.seconds(std::string("lexing_floor/") + size);
    if (ours == 0) continue;
    std::printf("%8s entries:", size);
    if (theirs > 0)
      std::printf(" agentenv fills its directory %.2fx as fast as libconfig++ parses the twin file;", theirs / ours);
    if (floor > 0) std::printf(" %.1fx the time of a lexing pass", ours / floor);
    std::printf("\n");
  }
}

}  // namespace

int main(int argc, char** argv) {
  return runBenchmarks(argc, argv, [](TimesReporter const& times) {
#ifndef ZET_HAVE_LIBCONFIGXX
    std::printf("libconfig++ was not found when building: no side-by-side comparison\n");
#endif
    printRatios(times);
  });
}
