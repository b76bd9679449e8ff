#pragma once
// agentenv status [--control unix:PATH] [--agent-name NAME] [--json]
//                 [--watch] [ENTRY...]
//
// Mounts the status and config directories of a running agent host through
// its control socket and prints the table of its entries (or, with --json,
// one JSON object per entry and line); --watch then prints each change until
// interrupted or until the agent goes away. Exit status: kExitOk when every
// entry shown is initialized, kExitProblems otherwise, kExitUsage for bad
// arguments or an agent that cannot be reached or went away.

#include <string>
#include <vector>

#include "AgentView.h"
#include "ControlSocket.h"
#include "Subcommand.h"

namespace Zet::Tool {

class StatusCommand : public Subcommand {
 public:
  CLI::App* addTo(CLI::App& app) override;
  int run() override;

 private:
  // Prints changes until interrupted (true) or until the agent goes (false).
  bool watch(AgentView const& view);

  ControlSocket control_;
  bool json_ = false;
  bool watch_ = false;
  std::vector<std::string> entries_;
};

}  // namespace Zet::Tool
