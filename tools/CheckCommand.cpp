#include "CheckCommand.h"

#include <iostream>

#include "AgentEnv/ConfigFileParser.h"
#include "ConfigDump.h"

namespace Zet::Tool {
namespace {

constexpr char kUsage[] =
    "usage: agentenv check [-D NAME=VALUE]... [--dump] FILE...\n"
    "\n"
    "Reads agent-environment configuration files as an agent would (includes,\n"
    "the AGENTENV_CONFIGS search path, ${NAME} substitutions) and reports every\n"
    "error. Nothing is mounted, created or exported.\n"
    "\n"
    "  -D NAME=VALUE   substitute VALUE for ${NAME} (repeatable; also -DNAME=VALUE)\n"
    "  --dump          print the resulting entries, sorted by name\n"
    "  --help          show this help\n"
    "\n"
    "Exit status: 0 no errors, 1 errors in the files, 2 bad arguments or a file\n"
    "that could not be found or read.\n";

struct CheckOptions {
  SubstitutionsCollection substitutions;
  std::vector<String8> files;
  bool dump = false;
  bool help = false;
};

bool isIdentifier(std::string_view name) {
  auto letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
  auto digit = [](char c) { return c >= '0' && c <= '9'; };
  if (name.empty() || !letter(name[0])) return false;
  for (char c : name)
    if (!letter(c) && !digit(c) && c != '_') return false;
  return true;
}

void addSubstitution(std::string_view definition, SubstitutionsCollection& substitutions) {
  size_t equals = definition.find('=');
  std::string_view name = definition.substr(0, equals);
  if (equals == std::string_view::npos || !isIdentifier(name))
    throw UsageError("-D takes NAME=VALUE with NAME a letter followed by letters, digits or '_', not '" +
                     std::string(definition) + "'");
  substitutions.mapIs(String8(name), String8(definition.substr(equals + 1)));
}

CheckOptions parseArguments(Arguments const& arguments) {
  CheckOptions options;
  bool optionsEnded = false;
  for (size_t i = 0; i < arguments.size(); ++i) {
    std::string_view a = arguments[i];
    if (optionsEnded || a == "-" || !a.starts_with('-')) {
      options.files.emplace_back(a);
    } else if (a == "--") {
      optionsEnded = true;
    } else if (a == "--help" || a == "-h") {
      options.help = true;
    } else if (a == "--dump") {
      options.dump = true;
    } else if (a == "-D") {
      if (++i == arguments.size()) throw UsageError("-D needs NAME=VALUE");
      addSubstitution(arguments[i], options.substitutions);
    } else if (a.starts_with("-D")) {
      addSubstitution(a.substr(2), options.substitutions);
    } else {
      throw UsageError("unknown option '" + std::string(a) + "'");
    }
  }
  if (options.files.empty() && !options.help) throw UsageError("no configuration file given");
  return options;
}

// What reading the files found.
struct Findings {
  unsigned errors = 0;          // diagnostics printed about the files' contents
  bool unreadableFile = false;  // a file could not be found or read
};

// Reads a file and everything it includes. A file that cannot be found or
// read stops a run of the parser with the names after it still queued, so
// runs repeat until the queue is empty.
void readFile(ConfigFileParser& parser, String8 const& file, Findings& findings) {
  bool first = true;
  do {
    try {
      if (first) parser.configFileEnq(file);
      else parser.handleConfigFile();
    } catch (Exception const& e) {
      std::cerr << "agentenv check: " << e.what() << std::endl;
      findings.unreadableFile = true;
    }
    findings.errors += parser.parsingErrorsCount() + parser.attributeErrorsCount();
    first = false;
  } while (!parser.configFile().empty());
}

}  // namespace

int runCheck(Arguments const& arguments) {
  CheckOptions options = parseArguments(arguments);
  if (options.help) {
    std::cout << kUsage;
    return kExitOk;
  }
  Ptr<AgentEnvConfigDir> dir = agentEnvConfigDirFactory("AgentEnvConfigDir");
  Ptr<ConfigFileParser> parser = configFileParserFactory(dir);
  parser->substitutionsIs(options.substitutions);
  Findings findings;
  for (String8 const& file : options.files) readFile(*parser, file, findings);
  if (options.dump) dumpConfigs(*dir, std::cout);
  std::cout.flush();
  if (findings.unreadableFile) return kExitUsage;
  return findings.errors > 0 ? kExitProblems : kExitOk;
}

Subcommand const kCheckCommand{"check", "read configuration files and report their errors", runCheck};

}  // namespace Zet::Tool
