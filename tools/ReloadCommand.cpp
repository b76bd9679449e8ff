#include "ReloadCommand.h"

#include <signal.h>

#include <CLI/CLI.hpp>
#include <iostream>

#include "AgentHost.h"
#include "AgentView.h"
#include "Help.h"
#include "PrintableText.h"
#include "Zet/Activity.h"

namespace Zet::Tool {
namespace {

// Seconds a reload may take to be answered (a large file is read at once).
constexpr double kAnswerTimeout = 60;

}  // namespace


CLI::App* ReloadCommand::addTo(CLI::App& app) {
  CLI::App* reload = app.add_subcommand("reload", "make a running agent read its files again");
  helpIs(*reload, "usage: agentenv reload [--control unix:PATH | --agent-name NAME]",
         "Asks the 'agentenv run' behind the control socket to read its files again and\n"
         "apply what 'agentenv plan' shows: the process that answers there is sent SIGHUP,\n"
         "and its answer is printed, \"applied:\" with the counts or \"refused:\" with why.\n");
  control_.addTo(*reload);
  reload->footer(
      "Exit status: 0 applied, 1 refused (the files have errors; nothing changed), 2 bad\n"
      "arguments, no agent there, or no answer within a minute.");
  return reload;
}

int ReloadCommand::run() {
  Ptr<AgentHost const> host = ptr_cast<AgentHost const>(reachAgent(control_, "/AgentHost"));
  if (!host || host->pid() == 0) throw UsageError("no agent host answers at " + control_.path());
  uint64_t before = host->reloads();
  if (::kill(pid_t(host->pid()), SIGHUP) != 0) throw UsageError("the agent host at " + control_.path() + " is gone");
  bool answered = ActivityFacility::loop().runUntil([&] { return host->reloads() > before; }, kAnswerTimeout);
  if (!answered) throw UsageError("the agent host at " + control_.path() + " did not answer the reload");
  std::cout << printable(host->lastReload().view()) << std::endl;
  return host->lastReload().view().starts_with("applied") ? kExitOk : kExitProblems;
}

}  // namespace Zet::Tool
