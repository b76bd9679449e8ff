// AgentEnvSm: mounting. An entry whose source names a remote entity has it
// mounted at its target by the framework's mount facility.

#include "AgentEnv/AgentEnvSm.h"
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
  if (mountConfig_) {
    SM_TRACE(2) << ": Deleting mountConfig";
    MountFacility::mountConfigDir()->mountConfigDel(name());
    mountConfig_ = nullptr;
    mountStatusIs(nullptr);
  }
  if (prefixMountConfig_) {
    SM_TRACE(2) << ": Deleting prefixMountConfig";
    MountFacility::mountConfigDir()->mountConfigDel(prefixMountConfig_->name());
    prefixMountConfig_ = nullptr;
    prefixMountStatusIs(nullptr);
  }
}

}  // namespace Zet
