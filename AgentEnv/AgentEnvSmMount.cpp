// AgentEnvSm: mounting. An entry whose source names a remote entity has it
// mounted at its target by the framework's mount facility.

#include "AgentEnv/AgentEnvSm.h"
#include "AgentEnv/AgentEnvSmReactors.h"
#include "AgentEnv/AgentEnvSmTrace.h"
#include "Zet/MountFacility.h"

namespace Zet {

bool AgentEnvSm::doMountingAttempt() {
  if (mode_ != init && mode_ != mount) return doRefuseSwitchedModes();
  modeIs(mount);
  SM_TRACE(2) << ": Trying to mount.";
  return false;
}

void AgentEnvSm::maybeDeleteMountConfig() {
  if (mountConfig()) {
    SM_TRACE(2) << ": Deleting mountConfig";
    MountFacility::mountConfigDir()->mountConfigDel(name());
    mounting_->config = nullptr;
    mountStatusIs(nullptr);
  }
  if (prefixMountConfig()) {
    SM_TRACE(2) << ": Deleting prefixMountConfig";
    MountFacility::mountConfigDir()->mountConfigDel(prefixMountConfig()->name());
    mounting_->prefixConfig = nullptr;
    prefixMountStatusIs(nullptr);
  }
}

}  // namespace Zet
