#pragma once
// Helpers of the configuration tests: a temporary directory of files, a
// scoped environment variable, and a parser over a fresh directory whose
// diagnostics and echoed characters are captured. The fixture's directory is
// also AGENTENV_CONFIGS, so files are named bare: "a.conf:3: error: ...".

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

using Lines = std::vector<std::string>;

// Sets (or, given nullopt, unsets) a variable until the end of the scope.
class ScopedEnv {
 public:
  ScopedEnv(char const* name, std::optional<std::string> const& value) : name_(name) {
    if (char const* old = std::getenv(name)) old_ = old;
    value ? ::setenv(name, value->c_str(), 1) : ::unsetenv(name);
  }
  ~ScopedEnv() { old_ ? ::setenv(name_, old_->c_str(), 1) : ::unsetenv(name_); }

 private:
  char const* name_;
  std::optional<std::string> old_;
};

class TempDir {
 public:
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "zet-config-XXXXXX").string();
    path_ = ::mkdtemp(pattern.data());
  }
  ~TempDir() { std::filesystem::remove_all(path_); }
  std::string const& path() const { return path_; }
  // Writes a file; returns its full path.
  std::string write(std::string const& name, std::string const& text) const {
    std::string file = path_ + "/" + name;
    std::ofstream(file, std::ios::binary) << text;
    return file;
  }

 private:
  std::string path_;
};

class ConfigParserFixture : public ::testing::Test {
 protected:
  ConfigParserFixture() : searchPath_("AGENTENV_CONFIGS", files.path()) {
    parser->errorStreamIs(errors);
    parser->echoStreamIs(echoes);
  }
  // Writes `text` as file `name` and reads it, with whatever it includes.
  void read(std::string const& name, std::string const& text) {
    files.write(name, text);
    parser->configFileEnq(String8(name));
  }
  Lines errorLines() const {
    Lines lines;
    std::istringstream in(errors.str());
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
  }
  Ptr<AgentEnvConfig> config(std::string const& name) const { return dir->agentEnvConfig(Name(name)); }

  TempDir files;
  std::ostringstream errors, echoes;
  Ptr<AgentEnvConfigDir> dir = agentEnvConfigDirFactory("AgentEnvConfigDir");
  Ptr<ConfigFileParser> parser = configFileParserFactory(dir);

 private:
  ScopedEnv searchPath_;
};

}  // namespace Zet::testing
