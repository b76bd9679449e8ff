#pragma once
// agentenv plan [--control unix:PATH | --agent-name NAME] [-D NAME=VALUE]...
//               FILE...
//
// Compares configuration files with a running agent's entries and prints,
// per entry, what a reload would do (ConfigPlan.h): added, removed,
// unchanged, updated (attribute: old → new) or refused (the code and why).
// Exit status: kExitOk when nothing would be refused, kExitProblems when
// something would, kExitUsage for bad arguments, unreadable files, files
// with errors, or no agent.

#include "AgentView.h"
#include "Subcommand.h"

namespace Zet::Tool {

class PlanCommand : public Subcommand {
 public:
  CLI::App* addTo(CLI::App& app) override;
  int run() override;

 private:
  ControlSocket control_;
  ConfigFiles files_;
};

}  // namespace Zet::Tool
