#include "StatusCommand.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <nlohmann/json.hpp>

#include "AgentEnv/AgentEnv.h"
#include "AgentView.h"
#include "Help.h"
#include "StatusTable.h"
#include "StatusWatch.h"
#include "SignalWatch.h"

namespace Zet::Tool {
namespace {

void printJson(AgentEnvStatusDir const& statuses, AgentEnvConfigDir const& configs,
               std::vector<std::string> const& only, std::ostream& out) {
  std::vector<std::string> names;
  for (auto const& member : statuses.agentEnvStatuses())
    if (only.empty() || std::find(only.begin(), only.end(), member.key().view()) != only.end())
      names.emplace_back(member.key().view());
  std::sort(names.begin(), names.end());
  for (std::string const& name : names) {
    Ptr<AgentEnvStatus const> s = statuses.agentEnvStatus(Name(String8(name)));
    Ptr<AgentEnvConfig const> config = configs.agentEnvConfig(s->name());
    nlohmann::json row{{"entry", name},
                       {"mode", modeFromConfig(config.ptr())},
                       {"status", stringValue(s->individualStatus()).str()},
                       {"group", stringValue(s->groupStatus()).str()},
                       {"code", showsReason(*s) ? stringValue(s->statusCode()).str() : ""},
                       {"message", showsReason(*s) ? AgentEnv::statusMessage(s, config).str() : ""},
                       {"reason", s->reason().str()},
                       {"currentSource", s->currentSource().text().str()}};
    out << row.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
  }
}

}  // namespace

CLI::App* StatusCommand::addTo(CLI::App& app) {
  CLI::App* status = app.add_subcommand("status", "show the statuses of a running agent");
  helpIs(*status,
         "usage: agentenv status [--control unix:PATH] [--agent-name NAME] [--json] [--watch]\n"
         "                       [ENTRY...]",
         "Reads the statuses of a running 'agentenv run' through its control socket and\n"
         "prints them: entry, mode, individual and group status, code and message of a\n"
         "failure, source in use, and the reason of a failure that its code cannot say\n"
         "(an export that cannot listen). --json prints one object per entry and line,\n"
         "with the keys entry, mode, status, group, code, message, reason, currentSource.\n");
  control_.addTo(*status);
  status->add_flag("--json", json_, "one JSON object per entry and line");
  status->add_flag("--watch", watch_, "then print each change until interrupted");
  status->add_option("ENTRY", entries_, "only these entries")->type_name("");
  status->footer(
      "Exit status: 0 every entry shown initialized, 1 otherwise (or an ENTRY the agent\n"
      "does not have), 2 bad arguments or no agent at the control socket.");
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
  if (json_)
    printJson(*statuses, *configs, entries_, std::cout);
  else
    printStatusTable(*statuses, *configs, [&](Name const& n) { return modeFromConfig(configs->agentEnvConfig(n).ptr()); },
                     std::cout, entries_);
  std::cout.flush();
  if (watch_) {
    bool stop = false;
    StopSignals signals(stop);
    StatusWatch watch(statuses, configs, std::cout);
    ActivityFacility::loop().runUntil([&] { return stop; }, ActivityLoop::kMaxDelaySeconds);
  }
  for (auto const& member : statuses->agentEnvStatuses())
    if ((entries_.empty() || std::find(entries_.begin(), entries_.end(), member.key().view()) != entries_.end()) &&
        member.value()->individualStatus() != AgentEnvStatus::initialized)
      return kExitProblems;
  return unknown ? kExitProblems : kExitOk;
}

}  // namespace Zet::Tool
