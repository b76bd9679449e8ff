#include "StatusCommand.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <nlohmann/json.hpp>

#include "AgentEnv/AgentEnv.h"
#include "AgentView.h"
#include "Help.h"
#include "SignalWatch.h"
#include "StatusTable.h"
#include "StatusWatch.h"

namespace Zet::Tool {
CLI::App* StatusCommand::addTo(CLI::App& app) {
  CLI::App* status = app.add_subcommand("status", "show the statuses of a running agent");
  helpIs(*status,
         "usage: agentenv status [--control unix:PATH | --agent-name NAME | --remote tls://HOST:PORT]\n"
         "                       [--json] [--watch] [ENTRY...]",
         "Reads the statuses of a running 'agentenv run' through its control socket (or,\n"
         "with --remote, the port its export listens on) and prints them: entry, mode, individual and group status, code and message of a\n"
         "failure, source in use, and the reason of a failure that its code cannot say\n"
         "(an export that cannot listen). An export shows where it listens; an entry\n"
         "that has not acted, what it waits for.\n"
         "\n"
         "--json writes JSON Lines: one object per entry and line, with the keys entry,\n"
         "mode, status, group, code, message, reason, currentSource, listensOn and\n"
         "waitingFor (\"\" where empty). --watch then prints a line per change, as text or\n"
         "JSON, for the entries named (every entry without ENTRY; one the agent does not\n"
         "have yet is watched for), until interrupted or until the agent goes away.\n");
  control_.addTo(*status, true, true);
  status->add_flag("--json", json_, "JSON Lines: one object per entry and line");
  status->add_flag("--watch", watch_, "then print each change until interrupted");
  status->add_option("ENTRY", entries_, "only these entries")->type_name("");
  status->footer(
      "Exit status: 0 every entry shown initialized, 1 otherwise (or an ENTRY the agent\n"
      "does not have), 2 bad arguments, no agent at the control socket, or (with\n"
      "--watch) the agent went away.");
  return status;
}

int StatusCommand::run() {
  AgentView view = AgentView::ofAgent(control_);
  auto const& statuses = view.statuses;
  auto const& configs = view.configs;
  bool unknown = false;
  for (std::string const& entry : entries_)
    if (!statuses->agentEnvStatus(Name(String8(entry)))) {
      std::cerr << "agentenv status: no entry named '" << entry << "'" << std::endl;
      unknown = true;
    }
  if (json_ && !watch_)
    printStatusJson(StatusRows(*statuses, *configs, entries_), std::cout);  // a watch's first lines are these rows
  else if (!json_)
    printStatusTable(StatusRows(*statuses, *configs, entries_), std::cout);
  std::cout.flush();
  if (watch_ && !watch(view)) return kExitUsage;
  return unknown || !StatusRows(*statuses, *configs, entries_).allInitialized() ? kExitProblems : kExitOk;
}

bool StatusCommand::watch(AgentView const& view) {
  bool stop = false;
  StopSignals signals(stop);
  // The table has shown the current statuses; JSON shows them as its first lines.
  StatusWatch watch(view.statuses, view.configs, std::cout, {.only = entries_, .json = json_, .printCurrent = json_});
  auto gone = [&] { return view.connection->state() != MountStatus::complete; };
  ActivityFacility::loop().runUntil([&] { return stop || gone(); }, ActivityLoop::kMaxDelaySeconds);
  if (!gone()) return true;
  std::cout.flush();
  std::cerr << "agentenv status: the agent at " << control_.where() << " has gone away ("
            << stringValue(view.connection->code()) << ")" << std::endl;
  return false;
}

}  // namespace Zet::Tool
