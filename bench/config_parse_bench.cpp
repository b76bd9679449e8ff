// Reading configuration files into a config directory, at 10k, 100k and 1M
// entries, side by side with libconfig++ parsing the same content and with
// a lexing pass over the same text (the floor no reader can go below).
//
// Each entry has a comment, source0, target, dependency, timeoutPeriod and
// typeName. Entries are laid out in groups of at most 32, nested as deep as
// needed (nested aggregates here, nested groups in libconfig's syntax): the
// layout libconfig++ reads best, since it takes time quadratic in the
// number of settings of one group. The top-level groups are spread over two
// files, the first of which includes the second; at 1M entries the two
// files hold about 220 MB.
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

constexpr int kGroupSize = 32;

void appendEntry(std::string& out, Syntax const& s, int i) {
  std::string n = std::to_string(i);
  out += "// entry " + n + ": a store mounted from another agent\nstore" + n + s.open;
  out += "  source0 = \"tcp://host" + std::to_string(i % 64) + ":4000/agents/store" + n + "\";\n";
  out += "  target = \"/env/stores/store" + n + "\";\n";
  out += "  dependency = \"store" + std::to_string(i > 0 ? i - 1 : 0) + "\";\n";
  out += "  timeoutPeriod = 30.5;\n";
  out += "  typeName = \"Zet::StoreMember\";\n";
  out += s.close;
}

// Appends the entries [first, first + count) as a group of level `level`:
// level 0 is the entries themselves, level L holds groups of level L - 1,
// each with kGroupSize^(L-1) entries at most.
void appendGroup(std::string& out, Syntax const& s, int level, int first, int count, int& groups) {
  if (level == 0) {
    for (int i = first; i < first + count; ++i) appendEntry(out, s, i);
    return;
  }
  int span = 1;
  for (int l = 1; l < level; ++l) span *= kGroupSize;
  ++groups;
  out += "group" + std::to_string(level) + "_" + std::to_string(first) + s.open;
  for (int i = first; i < first + count; i += span)
    appendGroup(out, s, level - 1, i, std::min(span, first + count - i), groups);
  out += s.close;
}

// Writes the files for `entries` entries in `syntax`; returns the first file,
// adds their sizes to `bytes` and the number of groups to `groups`.
std::string writeFiles(std::string const& dir, Syntax const& syntax, int entries, size_t& bytes, int& groups) {
  // The fewest levels that leave at most kGroupSize groups at the top.
  int levels = 1, span = kGroupSize;
  while ((entries + span - 1) / span > kGroupSize) ++levels, span *= kGroupSize;
  auto name = [&](int part) { return "part" + std::to_string(part) + syntax.extension; };
  for (int part = 0; part < kFiles; ++part) {
    std::ofstream out(dir + "/" + name(part), std::ios::binary);
    if (part == 0)
      for (int other = 1; other < kFiles; ++other) out << syntax.include << '"' << name(other) << "\"\n";
    std::string chunk;
    for (int top = part; top * span < entries; top += kFiles) {
      appendGroup(chunk, syntax, levels, top * span, std::min(span, entries - top * span), groups);
      out << std::exchange(chunk, std::string());
    }
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
  int groups = 0;  // records besides the entries: the enclosing aggregates
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
    f.agentEnvFile = writeFiles(f.dir, kAgentEnv, entries, f.agentEnvBytes, f.groups);
    int twinGroups = 0;
    f.libconfigFile = writeFiles(f.dir, kLibconfig, entries, f.libconfigBytes, twinGroups);
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
    if (parser->parsingErrorsCount() != 0 || dir->agentEnvConfigCount() != size_t(state.range(0) + f.groups))
      state.SkipWithError("the generated files did not read cleanly");
    return dir;
  });
}
BENCHMARK(agentEnvFill)->Name("agentenv_fill")->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);

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
