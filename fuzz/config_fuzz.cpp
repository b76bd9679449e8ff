// Reads arbitrary bytes as a configuration file. Whatever the input, the
// parser may only print diagnostics (here discarded): no crash, leak, hang
// or undefined behaviour. Each input gets a fresh parser and directory, so
// a fault cannot hide behind state left by an earlier input.
//
// The file lives in a private temporary directory that is also the search
// path, holding one more file for includes to find. The directory is in
// memory where possible: rewriting a file on disk for every input makes the
// file system flush it, and the fuzzer would spend its time waiting.

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>

#include "AgentEnv/ConfigFileParser.h"

namespace {

std::string sandbox;
std::ostream discard(nullptr);  // no buffer: every write is dropped

// Takes every remark, as agentenv check does, so that its paths run too.
struct Remarks : Zet::ConfigFileParser::Remarks {
  void onIgnoredByteBesideName(Zet::String8 const& file, unsigned long, unsigned char) override { seen += file.size(); }
  void onUndefinedSubstitution(Zet::String8 const&, unsigned long, std::string_view name) override {
    seen += name.size();
  }
  size_t seen = 0;
};

void writeFile(std::string const& path, char const* data, size_t size) {
  std::ofstream(path, std::ios::binary | std::ios::trunc).write(data, static_cast<std::streamsize>(size));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  std::string pattern =
      (::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") + std::string("/zet-config-fuzz-XXXXXX");
  if (!::mkdtemp(pattern.data())) std::abort();
  sandbox = pattern;
  std::atexit([] { std::filesystem::remove_all(sandbox); });
  ::setenv("AGENTENV_CONFIGS", sandbox.c_str(), 1);
  std::string const other = "base { source0 = \"*\"; target = anyPort; }\n";
  writeFile(sandbox + "/base.conf", other.data(), other.size());
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string const input = sandbox + "/input.conf";
  writeFile(input, reinterpret_cast<char const*>(data), size);
  Zet::Ptr<Zet::AgentEnvConfigDir> dir = Zet::agentEnvConfigDirFactory("AgentEnvConfigDir");
  Zet::Ptr<Zet::ConfigFileParser> parser = Zet::configFileParserFactory(dir);
  parser->errorStreamIs(discard);
  parser->echoStreamIs(discard);
  parser->substitutionsIs("N", "5");
  parser->substitutionsIs("Q", "\"quoted\"");
  parser->substitutionsIs("E", "");
  Remarks remarks;
  parser->remarksIs(&remarks);
  try {
    parser->configFileEnq(Zet::String8(input));
  } catch (Zet::AgentException const&) {
    // an include named a file that is not there: a diagnosis, not a fault
  }
  return 0;
}
