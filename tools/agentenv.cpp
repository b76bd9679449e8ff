// agentenv: the command a person runs to work with agent environments.
//
//   agentenv SUBCOMMAND [ARGUMENTS...]
//   agentenv --help | --version

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>
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
