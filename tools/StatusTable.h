#pragma once
// The statuses of an agent's entries as people read them: one aligned row
// per entry, sorted by name, with its mode, individual and group status, and
// the code and message where the entry failed, erred or is unsupported.

#include <functional>
#include <iosfwd>
#include <string>

#include "AgentEnv/AgentEnvConfigDir.h"
#include "AgentEnv/AgentEnvStatusDir.h"

namespace Zet::Tool {

// The mode of an entry, as text ("" when not known).
using ModeOf = std::function<std::string(Name const&)>;

void printStatusTable(AgentEnvStatusDir const& statuses, AgentEnvConfigDir const& configs, ModeOf const& modeOf,
                      std::ostream& out);

// Whether the status shows its code and message.
bool showsReason(AgentEnvStatus const& status);

}  // namespace Zet::Tool
