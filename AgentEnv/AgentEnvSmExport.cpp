// AgentEnvSm: export. An entry whose source is "*" makes this process's own
// entity tree available to other processes.

#include "AgentEnv/AgentEnvSm.h"
#include "AgentEnv/AgentEnvSmTrace.h"

namespace Zet {

bool AgentEnvSm::doExportAttempt() {
  SM_TRACE(2) << ": Do Export Attempt " << inQuotes(config_->target());
  if (mode_ != init && mode_ != exp) return doRefuseSwitchedModes();
  modeIs(exp);
  return false;
}

}  // namespace Zet
