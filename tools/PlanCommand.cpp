#include "PlanCommand.h"

#include <CLI/CLI.hpp>
#include <iostream>

#include "ConfigPlan.h"
#include "Help.h"

namespace Zet::Tool {

CLI::App* PlanCommand::addTo(CLI::App& app) {
  CLI::App* plan = app.add_subcommand("plan", "show what reloading files would change in a running agent");
  helpIs(*plan,
         "usage: agentenv plan [--control unix:PATH | --agent-name NAME] [-D NAME=VALUE]... FILE...",
         "Compares the files with the entries of a running agent and prints what a reload\n"
         "(SIGHUP to 'agentenv run', or 'agentenv reload') would do to each entry: added,\n"
         "removed, unchanged, updated (attribute: old → new), or refused, when the change\n"
         "could not be applied to what the entry has realised (code and reason); refused\n"
         "changes are not applied.\n");
  control_.addTo(*plan);
  files_.addTo(*plan);
  plan->footer(
      "Exit status: 0 nothing would be refused, 1 something would, 2 bad arguments,\n"
      "files that cannot be read or have errors, or no agent.");
  return plan;
}

int PlanCommand::run() {
  if (files_.files.empty()) throw UsageError("no configuration file given");
  Findings findings;
  AgentView wanted = AgentView::ofFiles(files_, "plan", findings);
  if (findings.unreadableFile || findings.errors) throw UsageError("the files have errors; there is no plan");
  AgentView agent = AgentView::ofAgent(control_);
  bool refused = false;
  for (EntryChange const& change : planChanges(*agent.configs, agent.statuses.ptr(), *wanted.configs)) {
    std::string kind = kindText(change.kind);
    std::cout << kind << std::string(10 - kind.size(), ' ') << change.entry;
    for (size_t i = 0; i < change.details.size(); ++i) std::cout << (i ? "; " : ": ") << change.details[i];
    std::cout << "\n";
    refused = refused || change.kind == EntryChange::refused;
  }
  std::cout.flush();
  return refused ? kExitProblems : kExitOk;
}

}  // namespace Zet::Tool
