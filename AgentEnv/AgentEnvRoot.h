#pragma once
// The agent environment's entry points: the "/AgentEnv" directory with its
// config dir, status dir and directory state machine, and the text that
// explains a status.

#include "AgentEnv/AgentEnvConfigDir.h"
#include "AgentEnv/AgentEnvStatusDir.h"
#include "Zet/Dir.h"

namespace Zet {
namespace AgentEnv {

// The "AgentEnv" directory of the global directory. The first call makes it
// with "AgentEnvConfigDir", "AgentEnvStatusDir" and "AgentEnvDirSm" (whose
// state machine then handles every config put into the config dir); later
// calls return it as it stands.
Ptr<Dir> dir();
// The config dir and the status dir of dir(); null when the entry holds
// another type.
Ptr<AgentEnvConfigDir> agentEnvConfigDir();
Ptr<AgentEnvStatusDir> agentEnvStatusDir();

// Why `status` is what it is, from its statusCode, in words; `config` (the
// config of the same name, may be null) fills in its dependency, target and
// type name.
String8 statusMessage(Ptr<AgentEnvStatus const> const& status, Ptr<AgentEnvConfig const> const& config);

}  // namespace AgentEnv
}  // namespace Zet
