#include "PlanCommand.h"

#include <CLI/CLI.hpp>
#include <iostream>

#include "AgentHost.h"
#include "AgentView.h"
#include "ConfigPlan.h"
#include "Help.h"
#include "PrintableText.h"

namespace Zet::Tool {

CLI::App* PlanCommand::addTo(CLI::App& app) {
  CLI::App* plan = app.add_subcommand("plan", "show what reloading files would change in a running agent");
  helpIs(*plan, "usage: agentenv plan [--control unix:PATH | --agent-name NAME] [-D NAME=VALUE]... [FILE...]",
         "Compares files with the entries of a running agent and prints what applying them\n"
         "would do to each entry: added, removed, unchanged, updated (attribute: old →\n"
         "new), or refused, when the change could not be applied to what the entry has\n"
         "realised (code and reason); refused changes are not applied. The files are read\n"
         "with the agent's own -D values (those given here win). Without FILE, the agent's\n"
         "own files are read from its folder and search path: what a reload (SIGHUP to\n"
         "'agentenv run', or 'agentenv reload') would do now.\n");
  control_.addTo(*plan);
  files_.addTo(*plan);
  plan->footer(
      "Exit status: 0 nothing would be refused, 1 something would, 2 bad arguments,\n"
      "files that cannot be read or have errors, or no agent.");
  return plan;
}

// The files read as the agent reads its own: with its definitions (those
// given here win) and, when no file is given, its files, from its folder
// and search path.
ConfigFiles PlanCommand::filesAsTheAgentReads() const {
  Ptr<AgentHost const> host = ptr_cast<AgentHost const>(reachAgent(control_, "/AgentHost"));
  if (!host) throw UsageError("no agent host answers at " + control_.path());
  FilesReading reading = FilesReading::fromJson(host->reading().str());
  ConfigFiles files = files_;
  files.definitions.insert(files.definitions.begin(), reading.given.definitions.begin(),
                           reading.given.definitions.end());
  if (files_.files.empty()) {
    reading.adopt(host->pid());
    files.files = reading.given.files;
  }
  return files;
}

int PlanCommand::run() {
  AgentView agent = AgentView::ofAgent(control_);
  AgentView wanted = AgentView::ofCleanFiles(filesAsTheAgentReads(), "plan");
  bool refused = false;
  for (EntryChange const& change : planChanges(*agent.configs, agent.statuses.ptr(), *wanted.configs)) {
    std::string kind = kindText(change.kind);
    std::string line = kind + std::string(10 - kind.size(), ' ') + change.entry;
    for (size_t i = 0; i < change.details.size(); ++i) line += (i ? "; " : ": ") + change.details[i];
    std::cout << printable(line) << "\n";
    refused = refused || change.kind == EntryChange::refused;
  }
  std::cout.flush();
  return refused ? kExitProblems : kExitOk;
}

}  // namespace Zet::Tool
