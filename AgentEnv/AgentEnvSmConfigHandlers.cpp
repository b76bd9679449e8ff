// AgentEnvSm: one handler per config attribute, and the consistency check
// that decides whether a change can be applied to what is already realised.

#include "AgentEnv/AgentEnvConsistency.h"
#include "AgentEnv/AgentEnvDirSm.h"
#include "AgentEnv/AgentEnvSm.h"
#include "AgentEnv/AgentEnvSmTrace.h"

namespace Zet {
// Runs apply(config, label) on the main mount configuration (traced under
// mainLabel) and then on the prefix mount's, each only when it exists.
template <class Apply>
void AgentEnvSm::forMountConfigs(char const* mainLabel, Apply&& apply) {
  if (mountConfig()) apply(*mountConfig(), mainLabel);
  if (prefixMountConfig()) apply(*prefixMountConfig(), "prefixMountConfig");
}

template <class TraceLine>
void AgentEnvSm::doRefuseChange(AgentEnvStatus::StatusCode code, TraceLine&& trace) {
  outcomeIs(code, AgentEnvStatus::unsupported);
  consistencyIs(inconsistent);
  trace();
}

void AgentEnvSm::handleConfigSource0() {
  EntityUri const& source0 = config_->source0();
  SM_TRACE(2) << ": Got source0 " << inQuotes(source0);
  handleConsistencyCheck();
  if (consistency_ == inconsistent) return;
  if (!(source0 == sourcePre0())) versionNumInc(1);
  sourcePre0Is(source0);
  if (isMountSource(source0) && !source0.isValid()) {
    doRefuseInvalidSource0();
    return;
  }
  doActionIfReady();
  if (!prefixMountConfig()) return;
  EntityUri name = sourceNameUri();
  SM_TRACE(2) << ": Calling sourcePre0Is(" << inQuotes(sourcePre0()) << ") on prefixMountConfig";
  prefixMountConfig()->sourcePre0Is(sourcePre0());
  SM_TRACE(2) << ": Calling sourceNameIs(" << inQuotes(name) << ") on prefixMountConfig";
  prefixMountConfig()->sourceNameIs(name);
  doActionIfReady();
}

void AgentEnvSm::handleConfigSource1() {
  EntityUri const& source1 = config_->source1();
  SM_TRACE(2) << ": Got source1 " << inQuotes(source1);
  handleConsistencyCheck();
  if (consistency_ == inconsistent) return;
  if (isMountSource(source1) && !source1.isValid()) {
    SM_TRACE(0) << ": Error: source1 is invalid URI.";
    outcomeIs(AgentEnvStatus::invalidUri, AgentEnvStatus::error);
    return;
  }
  sourcePre1Is(source1);
  if (!prefixMountConfig()) return;
  SM_TRACE(2) << ": Calling sourcePre1Is(" << inQuotes(sourcePre1()) << ") on prefixMountConfig";
  prefixMountConfig()->sourcePre1Is(sourcePre1());
}

void AgentEnvSm::handleConfigTarget() {
  SM_TRACE(2) << ": Got target " << inQuotes(config_->target());
  handleConsistencyCheck();
  if (consistency_ == inconsistent) return;
  versionNumInc(1);
  if (mountConfig()) {
    EntityUriPath target = configTarget();
    SM_TRACE(2) << ": Calling targetNameIs(" << inQuotes(target) << ") on MountConfig";
    mountConfig()->targetNameIs(target);
  }
  if (prefixMountConfig()) {
    EntityUriPath const& target = rootConfig()->target();
    SM_TRACE(2) << ": Calling targetNameIs(" << inQuotes(target) << ") on prefixMountConfig";
    prefixMountConfig()->targetNameIs(target);
  }
}

void AgentEnvSm::handleConfigPathSuffix() {
  SM_TRACE(2) << ": Got pathSuffix " << inQuotes(config_->pathSuffix());
  if (!mountConfig()) return;
  EntityUri source = mcSourceName();
  SM_TRACE(2) << ": Calling sourceNameIs(" << inQuotes(source) << ") on mountConfig";
  mountConfig()->sourceNameIs(source);
  EntityUriPath target = configTarget();
  SM_TRACE(2) << ": Calling targetNameIs(" << inQuotes(target) << ") on mountConfig";
  mountConfig()->targetNameIs(target);
}

void AgentEnvSm::handleConfigTypeName() {
  SM_TRACE(2) << ": Got typeName " << inQuotes(config_->typeName());
  EntityUri source = mcSourceName();
  forMountConfigs("mountConfig", [&](MountConfig& mc, char const* label) {
    SM_TRACE(2) << ": Calling sourceNameIs(" << inQuotes(source) << ") on " << label;
    mc.sourceNameIs(source);
  });
}

void AgentEnvSm::handleConfigTimeoutPeriod() {
  double timeout = config_->timeoutPeriod();
  SM_TRACE(2) << ": Got timeoutPeriod " << stringValue(timeout);
  forMountConfigs("MountConfig", [&](MountConfig& mc, char const* label) {
    SM_TRACE(2) << ": Calling timeoutPeriodIs(" << stringValue(timeout) << ") on " << label;
    mc.initTimeoutPeriodIs(timeout);
  });
}

void AgentEnvSm::handleConfigUnmountType() {
  auto type = static_cast<MountConfig::UnmountType>(config_->unmountType());
  SM_TRACE(2) << ": Got unmountType " << config_->unmountType();
  forMountConfigs("MountConfig", [&](MountConfig& mc, char const* label) {
    SM_TRACE(2) << ": Calling unmountTypeIs(" << type << ") on " << label;
    mc.unmountTypeIs(type);
  });
}

void AgentEnvSm::handleConfigAggConfig() {
  Ptr<AgentEnvConfig> const& aggregate = config_->aggConfig();
  SM_TRACE(2) << ": Got aggConfig " << (aggregate ? String8(aggregate->name()) : String8());
  AgentEnvSm* root = aggregate ? rootSm() : nullptr;
  if (root == this) root = nullptr;
  if (aggAgentSm() != root) {
    // Leaving the previous aggregate (or joining a first one): its sets and
    // group status follow at once.
    Ptr<AgentEnvSm const> previous = aggAgentSm();
    doClearStatusFromAggSm();
    aggAgentSmIs(root);
    if (previous) const_cast<AgentEnvSm*>(previous.ptr())->doComputeGroupStatus();
  }
  if (root) versionNumIs(std::max(versionNum_, root->versionNum()));
  if (mountConfig()) {
    SM_TRACE(2) << ": Calling aggConfigIs(" << stringValue(aggregate != nullptr) << ") on MountConfig";
    mountConfig()->aggMountIs(aggregate != nullptr);
  }
  handleIndividualStatus();
  if (root) root->doComputeGroupStatus();
  if (mode_ == init) doActionIfReady();
}

void AgentEnvSm::handleNestedConfig(Name const& name) {
  if (config_->nestedConfig(name)) return;  // a member joining adds itself
  for (unsigned s = AgentEnvStatus::notApplicable; s <= AgentEnvStatus::unsupported; ++s)
    statusSetMemberDel(static_cast<AgentEnvStatus::Status>(s), name);
  if (status_) doComputeGroupStatus();
}

void AgentEnvSm::doRetryAfterConfigChange() {
  if (consistency_ == inconsistent || mode_ == mount) return;
  bool realised = status_ && status_->individualStatus() == AgentEnvStatus::initialized;
  if (mode_ == exp || !realised) doActionIfReady();
}

void AgentEnvSm::handleConsistencyCheck() {
  if (consistency_ == inconsistent) {
    if (status_) status_->individualStatusIs(AgentEnvStatus::unsupported);
    return;
  }
  if (mode_ > exp) {
    SM_TRACE(0) << ": Bad mode: " << static_cast<unsigned>(mode_);
    return;
  }
  // The paths are compared only once something is realised, and the path
  // in effect is made only where the target could be its ancestor: nearly
  // every check finds the target where the entity is.
  EntityUriPath target = mode_ == init ? EntityUriPath() : configTarget();
  bool inEffectMatters =
      mode_ != init && targetDir_ && mayBeAncestorPath(target, targetDir_->fullNameSize(targetName_.view()));
  EntityUriPath inEffect = inEffectMatters ? targetInEffect() : EntityUriPath();
  auto refused = consistencyRefusal({mode_, *config_, rootConfig()->source0(), sourcePre0(), target, inEffect});
  if (refused) return doRefuseChange(refused->code, [&] { SM_TRACE(0) << refused->trace; });
  consistencyIs(consistent);
}

}  // namespace Zet
