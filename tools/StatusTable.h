#pragma once
// The statuses of an agent's entries as people read them: one aligned row
// per entry, sorted by name, with its mode, individual and group status, the
// code and message where the entry failed, erred or is unsupported, the
// source in use, and the reason of a failure where its code does not say it.

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "AgentEnv/AgentEnvConfigDir.h"
#include "AgentEnv/AgentEnvStatusDir.h"

namespace Zet::Tool {

// The mode of an entry, as text ("" when not known).
using ModeOf = std::function<std::string(Name const&)>;

// The mode an entry's config asks for: exp for "*", mount for another
// source, instantiate for a type name, init for none of them.
std::string modeFromConfig(AgentEnvConfig const* config);

// Prints the rows of the entries named in `only` (every entry when empty).
void printStatusTable(AgentEnvStatusDir const& statuses, AgentEnvConfigDir const& configs, ModeOf const& modeOf,
                      std::ostream& out, std::vector<std::string> const& only = {});

// Whether the status shows its code and message.
bool showsReason(AgentEnvStatus const& status);

// A failure in one line: the status message, then the reason when there is one.
std::string failureText(Ptr<AgentEnvStatus const> const& status, Ptr<AgentEnvConfig const> const& config);

}  // namespace Zet::Tool
