#pragma once
// Helpers of the configuration-language tests: a temporary directory of
// configuration files that is also the search path, and a parser whose
// diagnostics and echoed characters are captured.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "AgentEnv/ConfigFileParser.h"

namespace Zet::testing {

// Sets an environment variable (or unsets it, for nullopt) and restores the
// previous state when it goes.
class ScopedEnv {
 public:
  ScopedEnv(char const* name, std::optional<std::string> const& value) : name_(name) {
    if (char const* old = std::getenv(name)) old_ = old;
    if (value) ::setenv(name, value->c_str(), 1);
    else ::unsetenv(name);
  }
  ~ScopedEnv() {
    if (old_) ::setenv(name_, old_->c_str(), 1);
    else ::unsetenv(name_);
  }

 private:
  char const* name_;
  std::optional<std::string> old_;
};

// A fresh directory, removed with everything in it at the end.
class TempDir {
 public:
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "zet-config-XXXXXX").string();
    path_ = ::mkdtemp(pattern.data());
  }
  ~TempDir() { std::filesystem::remove_all(path_); }
  std::string const& path() const { return path_; }
  // Writes a file (creating directories on its way); returns its full path.
  std::string write(std::string const& name, std::string const& text) const {
    std::filesystem::path file = std::filesystem::path(path_) / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
    return file.string();
  }

 private:
  std::string path_;
};

// A parser over a fresh config directory, reading files from a temporary
// directory that is also AGENTENV_CONFIGS, so files are named without a
// path and diagnostics read "a.conf:3: error: ...".
class ConfigParserFixture : public ::testing::Test {
 protected:
  ConfigParserFixture() : searchPath_("AGENTENV_CONFIGS", files.path()) {
    parser->errorStreamIs(errors);
    parser->echoStreamIs(echoes);
  }

  // Writes `text` as file `name` and reads it (with whatever it includes).
  void read(std::string const& name, std::string const& text) {
    files.write(name, text);
    parser->configFileEnq(String8(name));
  }
  std::vector<std::string> errorLines() const {
    std::vector<std::string> lines;
    std::istringstream in(errors.str());
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
  }
  Ptr<AgentEnvConfig> config(char const* name) const { return dir->agentEnvConfig(Name(name)); }

  TempDir files;
  std::ostringstream errors;
  std::ostringstream echoes;
  Ptr<AgentEnvConfigDir> dir = agentEnvConfigDirFactory("AgentEnvConfigDir");
  Ptr<ConfigFileParser> parser = configFileParserFactory(dir);

 private:
  ScopedEnv searchPath_;
};

using Lines = std::vector<std::string>;

}  // namespace Zet::testing
