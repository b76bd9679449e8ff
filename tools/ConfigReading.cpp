#include "ConfigReading.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <nlohmann/json.hpp>

#include "AgentEnv/ConfigFileSearch.h"
#include "PrintableText.h"
#include "Subcommand.h"

namespace Zet::Tool {
namespace {

bool isIdentifier(std::string_view name) {
  auto letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
  auto digit = [](char c) { return c >= '0' && c <= '9'; };
  if (name.empty() || !letter(name[0])) return false;
  for (char c : name)
    if (!letter(c) && !digit(c) && c != '_') return false;
  return true;
}

// What the language accepts silently, as warnings.
class RemarksAsWarnings : public ConfigFileParser::Remarks {
 public:
  explicit RemarksAsWarnings(Warnings& warnings) : warnings_(warnings) {}

  void onIgnoredByteBesideName(String8 const& file, unsigned long line, unsigned char byte) override {
    char text[16];
    if (byte > ' ' && byte < 127)
      std::snprintf(text, sizeof text, "'%c'", byte);
    else
      std::snprintf(text, sizeof text, "byte 0x%02x", byte);
    warnings_.add(file.str(), line, std::string(text) + " beside a name is ignored: the name ends or begins there");
  }
  void onUndefinedSubstitution(String8 const& file, unsigned long line, std::string_view name) override {
    std::string n(name);
    warnings_.add(file.str(), line,
                  "${" + n + "} has no value (-D " + n + "=VALUE): it reads as empty, or 0 as a number");
  }

 private:
  Warnings& warnings_;
};

// Reads a file and everything it includes. A file that cannot be found or
// read stops a run of the parser with the names after it still queued, so
// runs repeat until the queue is empty.
void readFile(ConfigFileParser& parser, String8 const& file, Findings& findings, std::string const& who) {
  bool first = true;
  do {
    try {
      if (first)
        parser.configFileEnq(file);
      else
        parser.handleConfigFile();
    } catch (Exception const& e) {
      ConfigFileParser::IncludeSite site = parser.includeSite(parser.failedFile());
      std::string where = site.file.isEmpty() ? "agentenv " + who : site.file.str() + ':' + std::to_string(site.line);
      std::cerr << printable(where + ": " + e.what()) << std::endl;
      findings.unreadableFile = true;
    }
    findings.errors += parser.parsingErrorsCount() + parser.attributeErrorsCount();
    first = false;
  } while (!parser.configFile().empty());
}

// The folders of the files given go to the end of the search path (after
// AGENTENV_CONFIGS or its default), so that a file and what it includes can
// be named from anywhere. The lookup itself stays the library's.
void searchBesideTheFiles(ConfigFiles const& given) {
  static std::string const searched = configSearchPath().str();
  std::string path = searched;
  for (std::string const& file : given.files) {
    size_t slash = file.rfind('/');
    if (slash == std::string::npos) continue;  // beside the working directory, looked in first anyway
    std::string folder = slash == 0 ? "/" : file.substr(0, slash);
    if (((":" + path + ":").find(":" + folder + ":")) == std::string::npos) path += ":" + folder;
  }
  ::setenv("AGENTENV_CONFIGS", path.c_str(), 1);
}

}  // namespace

void ConfigFiles::addTo(CLI::App& subcommand) {
  subcommand.add_option("-D", definitions, "substitute VALUE for ${NAME} (repeatable; also -DNAME=VALUE)")
      ->type_name("NAME=VALUE")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->allow_extra_args(false);
  subcommand.add_option("FILE", files, "configuration files")->type_name("");
}

SubstitutionsCollection ConfigFiles::substitutions() const {
  SubstitutionsCollection substitutions;
  for (std::string const& definition : definitions) {
    size_t equals = definition.find('=');
    std::string_view name = std::string_view(definition).substr(0, equals);
    if (equals == std::string::npos || !isIdentifier(name))
      throw UsageError("-D takes NAME=VALUE with NAME a letter followed by letters, digits or '_', not '" + definition +
                       "'");
    substitutions.mapIs(String8(name), String8(std::string_view(definition).substr(equals + 1)));
  }
  return substitutions;
}

FilesReading FilesReading::ofThisProcess(ConfigFiles const& given) {
  char folder[PATH_MAX];
  return FilesReading{given, ::getcwd(folder, sizeof folder) ? folder : "", configSearchPath().str()};
}

std::string FilesReading::json() const {
  nlohmann::json out{{"definitions", given.definitions},
                     {"files", given.files},
                     {"workingDir", workingDir},
                     {"searchPath", searchPath}};
  return out.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

FilesReading FilesReading::fromJson(std::string const& text) {
  try {
    nlohmann::json in = nlohmann::json::parse(text);
    FilesReading reading;
    reading.given.definitions = in.at("definitions").get<std::vector<std::string>>();
    reading.given.files = in.at("files").get<std::vector<std::string>>();
    reading.workingDir = in.at("workingDir").get<std::string>();
    reading.searchPath = in.at("searchPath").get<std::string>();
    return reading;
  } catch (nlohmann::json::exception const&) {
    throw UsageError("the agent does not say how it reads its files");
  }
}

void FilesReading::adopt(uint64_t pid) const {
  std::string folder = "/proc/" + std::to_string(pid) + "/cwd";
  if (::chdir(folder.c_str()) != 0 && ::chdir(workingDir.c_str()) != 0)
    throw UsageError("cannot read the files as the agent does: its folder '" + workingDir + "' is gone");
  ::setenv("AGENTENV_CONFIGS", searchPath.c_str(), 1);
}

Findings readConfigFiles(ConfigFileParser& parser, ConfigFiles const& given, std::string const& who,
                         bool remarks) {
  static std::ostream discarded(nullptr);
  parser.substitutionsIs(given.substitutions());
  searchBesideTheFiles(given);
  Findings findings;
  RemarksAsWarnings asWarnings(findings.warnings);
  parser.echoStreamIs(discarded);
  parser.remarksIs(remarks ? &asWarnings : nullptr);
  parser.sourceLinesKeptIs(remarks);  // the warnings name lines
  for (std::string const& file : given.files) readFile(parser, String8(file), findings, who);
  parser.remarksIs(nullptr);
  return findings;
}

}  // namespace Zet::Tool
