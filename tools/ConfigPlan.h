#pragma once
// What reading configuration files again would change in a running agent,
// entry by entry, and applying it. An entry is added, removed, unchanged,
// updated (these attributes, old and new text), or refused: the consistency
// rules (AgentEnvConsistency.h) would refuse the change, which would leave
// the entry unsupported for good; a refused change is not applied.
//
// The attributes compared are those the configuration language sets (and
// the aggregate, by name); where an entry was read from is not one.

#include <string>
#include <vector>

#include "AgentEnv/AgentEnvConfigDir.h"
#include "AgentEnv/AgentEnvStatusDir.h"

namespace Zet::Tool {

struct EntryChange {
  enum Kind { added, removed, unchanged, updated, refused };
  std::string entry;
  Kind kind;
  std::vector<std::string> details;  // "target: \"/a\" → \"/b\"", or the refusal's code and reason
};

// The changes from `running` (whose entries have `statuses`, when known) to
// `wanted`, sorted by entry name.
std::vector<EntryChange> planChanges(AgentEnvConfigDir const& running, AgentEnvStatusDir const* statuses,
                                     AgentEnvConfigDir const& wanted);
// Applies the changes that are not refused: entries added (aggregates
// before their members), attributes written, entries removed.
void applyPlan(AgentEnvConfigDir& running, AgentEnvConfigDir const& wanted, std::vector<EntryChange> const& plan);

std::string kindText(EntryChange::Kind kind);

}  // namespace Zet::Tool
