#include "WhyCommand.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <vector>

#include "AgentEnv/AgentEnvMode.h"
#include "AgentEnv/AgentEnvRoot.h"
#include "Help.h"
#include "PrintableText.h"
#include "StatusTable.h"

namespace Zet::Tool {
namespace {

using St = AgentEnvStatus;

// What an entry does once it is ready.
std::string action(AgentEnvConfig const& config) {
  std::string target = config.target().text().str();
  switch (modeAskedFor(config)) {
    case AgentEnvMode::exp:
      return "export on " + exportEndpoint(config.target().text()).text().str();
    case AgentEnvMode::mount:
      if (config.aggConfig()) return "be mounted with its aggregate '" + config.aggConfig()->name().str() + "'";
      return "mount " + config.source0().text().str() + " at " + target;
    default:
      if (config.typeName().isEmpty()) return "do nothing (no source, no type name)";
      return "instantiate " + config.typeName().str() + " at " + target;
  }
}

bool failed(St::Status s) { return s == St::fail || s == St::error || s == St::unsupported; }

// A member of the aggregate whose group status is not initialized, first by
// name; empty when there is none.
std::string memberHoldingBack(AgentView const& view, AgentEnvConfig const& aggregate) {
  std::vector<std::string> names;
  for (auto const& member : aggregate.nestedConfigs()) {
    Ptr<AgentEnvStatus const> s = view.status(Name(member.key()));
    if (s && s->groupStatus() != St::initialized) names.emplace_back(member.key().view());
  }
  if (names.empty()) return "";
  return *std::min_element(names.begin(), names.end());
}

}  // namespace

Explanation explain(AgentView const& view, Name const& entry) {
  std::vector<std::string> hops, path;
  Explanation out{"", true};
  for (Name at = entry;;) {
    Ptr<AgentEnvConfig const> config = view.configs->agentEnvConfig(at);
    std::string name = at.str();
    if (!config) {
      hops.push_back(name + ": no such entry");
      break;
    }
    if (auto seen = std::find(path.begin(), path.end(), name); seen != path.end()) {
      std::string cycle = "cycle: ";
      for (auto it = seen; it != path.end(); ++it) cycle += *it + " -> ";
      hops.push_back(cycle + name);
      break;
    }
    path.push_back(name);
    Ptr<AgentEnvStatus const> status = view.status(at);
    if (status && failed(status->individualStatus())) {
      hops.push_back(name + ": " + stringValue(status->individualStatus()).str() + ": " + failureText(status, config));
      break;
    }
    if (status && status->individualStatus() == St::initialized) {
      std::string member = memberHoldingBack(view, *config);
      if (!member.empty()) {
        hops.push_back(name + " waits on its member " + member + " (" +
                       stringValue(view.status(Name(String8(member)))->groupStatus()).str() + ")");
        at = Name(String8(member));
        continue;
      }
      hops.push_back(name + " is initialized");
      out.heldBack = hops.size() > 1;
      break;
    }
    Name const& dependency = config->dependency();
    if (dependency == AgentEnvConfig::notReady()) {
      hops.push_back(name + " waits: its dependency is not set (\"_NOT READY_\")");
      break;
    }
    if (AgentEnvConfig::namesEntry(dependency)) {
      Ptr<AgentEnvStatus const> depends = view.status(dependency);
      if (!depends || depends->groupStatus() != St::initialized) {
        hops.push_back(name + " waits on " + dependency.str() +
                       (depends ? " (" + stringValue(depends->groupStatus()).str() + ")" : ""));
        at = dependency;
        continue;
      }
    }
    if (!status) {
      hops.push_back(name + " would " + action(*config));
      out.heldBack = hops.size() > 1;
    } else if (status->individualStatus() == St::inProgress) {
      std::string source = status->currentSource().text().str();
      hops.push_back(name + ": " + action(*config) + " in progress" + (source.empty() ? "" : " (from " + source + ")"));
    } else {
      hops.push_back(name + " has not acted yet: it would " + action(*config));
    }
    break;
  }
  for (size_t i = 0; i < hops.size(); ++i) out.text += (i ? " → " : "") + hops[i];
  return out;
}

CLI::App* WhyCommand::addTo(CLI::App& app) {
  CLI::App* why = app.add_subcommand("why", "say what holds an entry back");
  helpIs(*why,
         "usage: agentenv why [--control unix:PATH | --agent-name NAME | --remote tls://HOST:PORT] ENTRY\n"
         "       agentenv why [-D NAME=VALUE]... ENTRY FILE...",
         "Follows what holds ENTRY back, hop by hop, to the root cause: dependencies\n"
         "not ready, aggregates waiting on a member, a failure and its message, a cycle.\n"
         "Of a running agent (through its control socket), or of configuration files:\n"
         "then what the entry would wait on and what it would do.\n");
  why->add_option("ENTRY", entry_, "the entry")->required()->type_name("");
  source_.addTo(*why);
  why->footer(
      "Exit status: 0 nothing holds the entry back, 1 something does, 2 bad arguments,\n"
      "an unreadable file or no agent.");
  return why;
}

int WhyCommand::run() {
  AgentView view = source_.view("why");
  Explanation e = explain(view, Name(String8(entry_)));
  std::cout << printable(e.text) << std::endl;
  return e.heldBack ? kExitProblems : kExitOk;
}

}  // namespace Zet::Tool
