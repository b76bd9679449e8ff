#pragma once
// The files the parse benchmarks read: `entries` entries written twice, in
// the agentenv syntax and as its twin in libconfig's, in the layout
// libconfig++ reads best.
//
// Each entry has a comment, source0, target, dependency, timeoutPeriod and
// typeName. Entries are laid out in groups of at most 32, nested as deep as
// needed (nested aggregates here, nested groups in libconfig's syntax): the
// layout libconfig++ reads best, since it takes time quadratic in the
// number of settings of one group. The top-level groups are spread over two
// files, the first of which includes the second; at 1M entries the two
// files hold about 220 MB.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <utility>

#ifdef ZET_HAVE_LIBCONFIGXX
#include <libconfig.h++>
#endif

#include "bench/BenchDirectory.h"

namespace TwinFiles {

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

inline void appendEntry(std::string& out, Syntax const& s, int i) {
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
inline void appendGroup(std::string& out, Syntax const& s, int level, int first, int count, int& groups) {
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
inline std::string writeFiles(std::string const& dir, Syntax const& syntax, int entries, size_t& bytes, int& groups) {
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

// The files for `entries`, written once per process (see BenchDirectory.h).
inline FileSet const& files(int entries) {
  static std::map<int, FileSet> made;
  static std::string const root = BenchDirectory::made("zet-config-bench");
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

#ifdef ZET_HAVE_LIBCONFIGXX
// libconfig++'s tree of the twin files.
inline std::unique_ptr<libconfig::Config> libconfigParse(FileSet const& f) {
  auto config = std::make_unique<libconfig::Config>();
  config->setIncludeDir(f.dir.c_str());
  config->readFile(f.libconfigFile.c_str());
  return config;
}
#endif

}  // namespace TwinFiles
