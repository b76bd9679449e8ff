// agentenv: the command a person runs to work with agent environments.
//
//   agentenv SUBCOMMAND [ARGUMENTS...]
//   agentenv --help | --version

#include <array>
#include <iostream>

#include "AgentEnv/AgentEnvVersion.h"
#include "CheckCommand.h"

namespace Zet::Tool {
namespace {

std::array<Subcommand const*, 1> const kSubcommands = {&kCheckCommand};

void printUsage(std::ostream& out) {
  out << "usage: agentenv SUBCOMMAND [ARGUMENTS...]\n"
         "       agentenv --help | --version\n"
         "\n"
         "Subcommands:\n";
  for (Subcommand const* s : kSubcommands) out << "  " << s->name << "  " << s->summary << "\n";
  out << "\nRun 'agentenv SUBCOMMAND --help' for the subcommand's arguments.\n";
}

Subcommand const* subcommand(std::string_view name) {
  for (Subcommand const* s : kSubcommands)
    if (s->name == name) return s;
  return nullptr;
}

int run(Arguments const& arguments) {
  if (arguments.empty()) throw UsageError("no subcommand given (see agentenv --help)");
  std::string_view first = arguments.front();
  if (first == "--help" || first == "-h") {
    printUsage(std::cout);
    return kExitOk;
  }
  if (first == "--version") {
    std::cout << "agentenv " << AgentEnvVersion::string() << "\n";
    return kExitOk;
  }
  Subcommand const* s = subcommand(first);
  if (!s) throw UsageError("unknown subcommand '" + std::string(first) + "' (see agentenv --help)");
  return s->run(Arguments(arguments.begin() + 1, arguments.end()));
}

}  // namespace
}  // namespace Zet::Tool

int main(int argc, char** argv) {
  using namespace Zet::Tool;
  try {
    return run(Arguments(argv + 1, argv + argc));
  } catch (UsageError const& e) {
    std::cerr << "agentenv: " << e.what() << std::endl;
    return kExitUsage;
  } catch (std::exception const& e) {
    std::cerr << "agentenv: error: " << e.what() << std::endl;
    return kExitUsage;
  }
}
