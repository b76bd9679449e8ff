#include "CheckCommand.h"

#include <CLI/CLI.hpp>
#include <iostream>

#include "ConfigDump.h"
#include "ConfigLint.h"
#include "Help.h"

namespace Zet::Tool {

CLI::App* CheckCommand::addTo(CLI::App& app) {
  CLI::App* check = app.add_subcommand("check", "read configuration files and report their errors");
  helpIs(*check, "usage: agentenv check [-D NAME=VALUE]... [--dump] [--strict] FILE...",
         "Reads agent-environment configuration files as an agent would (includes,\n"
         "the AGENTENV_CONFIGS search path, ${NAME} substitutions) and reports every\n"
         "error, then warns about what would fail at run time: dependencies naming no\n"
         "entry, dependency cycles, relative targets, bad, cut or doubled export targets\n"
         "and a second export of a kind, invalid sources and sources without a scheme,\n"
         "what the consistency rules would refuse, members depending on their\n"
         "aggregate, type names the type map cannot resolve, ${NAME} without a value\n"
         "and bytes the language ignores beside a name. Nothing is mounted, created or\n"
         "exported, and nothing of the files reaches standard output but --dump.\n");
  files_.addTo(*check);
  check->add_flag("--dump", dump_, "print the resulting entries, sorted by name");
  check->add_flag("--strict", strict_, "count warnings as errors");
  check->footer(
      "Exit status: 0 no errors, 1 errors in the files (or warnings, with --strict),\n"
      "2 bad arguments or a file that could not be found or read.");
  return check;
}

int CheckCommand::run() {
  if (files_.files.empty()) throw UsageError("no configuration file given");
  Ptr<AgentEnvConfigDir> dir = agentEnvConfigDirFactory("AgentEnvConfigDir");
  Ptr<ConfigFileParser> parser = configFileParserFactory(dir);
  Findings findings = readConfigFiles(*parser, files_, "check", true);
  lintConfigs(*parser, findings.warnings);
  findings.warnings.print(std::cerr);
  size_t warnings = findings.warnings.count();
  if (dump_) dumpConfigs(*dir, std::cout);
  std::cout.flush();
  if (findings.unreadableFile) return kExitUsage;
  return findings.errors > 0 || (strict_ && warnings > 0) ? kExitProblems : kExitOk;
}

}  // namespace Zet::Tool
