#pragma once
// The entries a tool looks at: those of a running agent, mounted through its
// control socket (configs and statuses), or those configuration files
// declare (configs only: what would happen).

#include <string>

#include "AgentEnv/AgentEnvConfigDir.h"
#include "AgentEnv/AgentEnvStatusDir.h"
#include "AgentEnv/ConfigFileParser.h"
#include "ConfigReading.h"
#include "ControlSocket.h"
#include "Zet/MountStatus.h"

namespace Zet::Tool {

struct AgentView {
  Ptr<AgentEnvConfigDir const> configs;
  Ptr<AgentEnvStatusDir const> statuses;  // null for files
  Ptr<ConfigFileParser> parser;           // for files: where each entry was read
  Ptr<MountStatus const> connection;      // for an agent: how its statuses' mount goes

  // The running agent's; UsageError when no agent answers there.
  static AgentView ofAgent(ControlSocket const& control);
  // The files'; `findings` tells what reading them found.
  static AgentView ofFiles(ConfigFiles const& files, std::string const& who, Findings& findings);
  // The same, refused (UsageError) when a file cannot be read or has errors:
  // half a configuration would answer wrongly.
  static AgentView ofCleanFiles(ConfigFiles const& files, std::string const& who);

  Ptr<AgentEnvStatus const> status(Name const& name) const {
    return statuses ? statuses->agentEnvStatus(name) : nullptr;
  }
};

// Mounts the entity at `path` of the agent behind the control socket (at
// /agentenv-view/<last name>); its mount status tells how it goes.
Ptr<MountStatus> mountFromAgent(ControlSocket const& control, std::string const& path);
// The same, waited for: the mirror, or UsageError when no agent answers.
Ptr<Entity> reachAgent(ControlSocket const& control, std::string const& path);

}  // namespace Zet::Tool
