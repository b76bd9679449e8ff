#pragma once
// The dependency cycles among the entries of a config directory, each named
// in the order of its dependencies from its first name in sorted order. Each
// entry has one dependency at most, so every name is walked once.

#include <vector>

#include "AgentEnv/AgentEnvConfigDir.h"

namespace Zet::Tool {

std::vector<std::vector<AgentEnvConfig const*>> dependencyCycles(AgentEnvConfigDir const& configs);

}  // namespace Zet::Tool
