#pragma once
// agentenv plan [--control unix:PATH | --agent-name NAME] [-D NAME=VALUE]...
//               [FILE...]
//
// Compares configuration files, read with the agent's own -D values, with a
// running agent's entries and prints, per entry, what applying them would do
// (ConfigPlan.h): added, removed, unchanged, updated (attribute: old → new)
// or refused (the code and why). Without FILE, the agent's own files are
// read as the agent reads them: what a reload would do now.
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
  ConfigFiles filesAsTheAgentReads() const;

  ControlSocket control_;
  ConfigFiles files_;
};

}  // namespace Zet::Tool
