// agentenv: the command a person runs to work with agent environments.
//
//   agentenv SUBCOMMAND [ARGUMENTS...]
//   agentenv --help | --version

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "AgentEnv/AgentEnvVersion.h"
#include "CheckCommand.h"
#include "RunCommand.h"
#include "StatusCommand.h"
#include "GraphCommand.h"
#include "PlanCommand.h"
#include "ReloadCommand.h"
#include "WhyCommand.h"

namespace Zet::Tool {
namespace {

struct Listed {
  std::unique_ptr<Subcommand> command;
  CLI::App* app;
};

void printUsage(std::ostream& out, std::vector<Listed> const& commands) {
  out << "usage: agentenv SUBCOMMAND [ARGUMENTS...]\n"
         "       agentenv --help | --version\n"
         "\n"
         "Subcommands:\n";
  size_t width = 0;
  for (auto const& c : commands) width = std::max(width, c.app->get_name().size());
  for (auto const& c : commands)
    out << "  " << c.app->get_name() << std::string(width - c.app->get_name().size() + 2, ' ')
        << c.app->get_description() << "\n";
  out << "\nRun 'agentenv SUBCOMMAND --help' for the subcommand's arguments.\n";
}

// The number of one-letter edits that turn a into b.
size_t editDistance(std::string const& a, std::string const& b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j)
      diagonal = std::exchange(row[j], std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] != b[j - 1])}));
  }
  return row[b.size()];
}

// A first word that names no subcommand is said to be one, with the nearest.
void checkSubcommand(std::string const& word, std::vector<Listed> const& commands) {
  if (word.empty() || word[0] == '-') return;
  std::string nearest;
  size_t best = std::string::npos;
  for (auto const& c : commands) {
    if (c.app->get_name() == word) return;
    if (size_t d = editDistance(word, c.app->get_name()); d < best) best = d, nearest = c.app->get_name();
  }
  std::string hint = best <= 2 ? "; did you mean '" + nearest + "'?" : " (see agentenv --help)";
  throw UsageError("'" + word + "' is not a subcommand" + hint);
}

int run(int argc, char** argv) {
  CLI::App app("agentenv", "agentenv");
  app.set_help_flag();  // the top level prints its own usage
  bool help = false, version = false;
  app.add_flag("-h,--help", help);
  app.add_flag("--version", version);
  app.require_subcommand(0, 1);
  std::vector<Listed> commands;
  for (auto* made : std::initializer_list<Subcommand*>{new CheckCommand, new RunCommand, new StatusCommand, new WhyCommand, new GraphCommand, new PlanCommand, new ReloadCommand}) {
    std::unique_ptr<Subcommand> command(made);
    CLI::App* sub = command->addTo(app);
    commands.push_back({std::move(command), sub});
  }
  if (argc > 1) checkSubcommand(argv[1], commands);
  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& e) {
    if (e.get_exit_code() == 0) return app.exit(e);  // a subcommand's --help
    throw UsageError(e.what());
  }
  if (help) {
    printUsage(std::cout, commands);
    return kExitOk;
  }
  if (version) {
    std::cout << "agentenv " << AgentEnvVersion::string() << "\n";
    return kExitOk;
  }
  for (auto const& c : commands)
    if (c.app->parsed()) return c.command->run();
  throw UsageError("no subcommand given (see agentenv --help)");
}

}  // namespace
}  // namespace Zet::Tool

int main(int argc, char** argv) {
  using namespace Zet::Tool;
  try {
    return run(argc, argv);
  } catch (UsageError const& e) {
    std::cerr << "agentenv: " << e.what() << std::endl;
    return kExitUsage;
  } catch (std::exception const& e) {
    std::cerr << "agentenv: error: " << e.what() << std::endl;
    return kExitUsage;
  }
}
