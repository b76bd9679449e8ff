#pragma once
// agentenv run [-D NAME=VALUE]... [--agent-name NAME] [--control unix:PATH]
//              [--until-settled] [--watch] FILE...
//
// The agent host: builds the agent environment, reads the files into it,
// starts the status monitor (failures go to standard error) and runs the
// activity loop until SIGINT or SIGTERM, or, with --until-settled, until no
// entry can change any more without outside help. Its control socket
// (ControlSocket.h) serves its tree to the tools meanwhile, and SIGHUP
// reloads the files (ConfigPlan.h). Then it prints the table
// of every entry. Exit status: kExitOk when stopped by a signal or settled
// with every entry initialized, kExitProblems when settled otherwise,
// kExitUsage for bad arguments and unreadable files or files with errors.

#include <string>

#include "AgentEnv/AgentEnvConfigDir.h"
#include "AgentEnv/AgentEnvStatusDir.h"
#include "ConfigReading.h"
#include "ControlSocket.h"
#include "Subcommand.h"

namespace Zet::Tool {

class RunCommand : public Subcommand {
 public:
  CLI::App* addTo(CLI::App& app) override;
  int run() override;

 private:
  // Reads the files again and applies the changes (ConfigPlan.h); returns
  // the outcome, "applied: ..." or "refused: ...".
  std::string reload(AgentEnvConfigDir& configs, AgentEnvStatusDir const& statuses);

  ConfigFiles files_;
  ControlSocket control_;
  std::string agentName_;
  bool untilSettled_ = false;
  bool watch_ = false;
};

}  // namespace Zet::Tool
