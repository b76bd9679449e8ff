// AgentEnvSm: mounting. An entry whose source names a remote entity has it
// mounted at its target by the framework's mount facility, and its status
// follows the facility's mount status.
//
// An aggregate's members below its target are delivered by the aggregate's
// own mount (the prefix mount, named after the aggregate), which brings the
// whole tree below the aggregate's source: a member only waits for it and
// then finds its entity at its place. A member with a target of its own
// mounts on its own.
//
// Here too: the mount configurations the state machine holds, the reactors on
// their statuses, and the rounds they report.

#include "AgentEnv/AgentEnvSm.h"
#include "AgentEnv/AgentEnvSmReactors.h"
#include "AgentEnv/AgentEnvSmTrace.h"
#include "Zet/MountFacility.h"

namespace Zet {

using Sc = AgentEnvStatus::StatusCode;

Sc AgentEnvSm::mountScToAgentEnvSc(unsigned code) const {
  // The two lists are in different orders: 3 is disconnected, 5 a protocol
  // version mismatch.
  static constexpr Sc table[] = {AgentEnvStatus::none,
                                 AgentEnvStatus::mountEntityNotFound,
                                 AgentEnvStatus::mountException,
                                 AgentEnvStatus::disconnected,
                                 AgentEnvStatus::timedOut,
                                 AgentEnvStatus::mountProtocolVersionMismatch,
                                 AgentEnvStatus::mountPermissionDenied,
                                 AgentEnvStatus::mountGroupCode};
  if (code < std::size(table)) return table[code];
  SM_TRACE(0) << ": Got bad mount status code " << code;
  return AgentEnvStatus::none;
}

bool AgentEnvSm::doMountingAttempt() {
  if (!mayActIn(mount)) return doRefuseSwitchedModes();
  modeIs(mount);
  SM_TRACE(2) << ": Trying to mount.";
  EntityUriPath const& rootTarget = rootConfig()->target();
  if (!rootTarget.isAbsolute()) {
    SM_TRACE(0) << ": Error: Target is not absolute path: " << inQuotes(rootTarget);
    outcomeIs(AgentEnvStatus::targetPathNotAbsolute, AgentEnvStatus::error);
    return false;
  }
  EntityUriPath target = configTarget();
  targetNameIs(lastNameOf(target));
  if (config_->aggConfig() && config_->target().isEmpty()) return doMemberMountingAttempt();
  Ptr<MountConfigDir> configs = MountFacility::mountConfigDir();
  SM_TRACE(2) << ": Calling mountConfigIs(" << inQuotes(name()) << ",\n\t" << inQuotes(config_->source0()) << ",\n\t"
              << inQuotes(config_->source1()) << ")";
  // A config of this name keeps the sources it was made with; later sources
  // reach it as its prefixes.
  Ptr<MountConfig> mc = configs->mountConfig(name());
  if (!mc) mc = configs->mountConfigIs(name(), config_->source0(), config_->source1());
  mounting().config = mc;
  mc->sourcePre0Is(sourcePre0());
  mc->sourcePre1Is(sourcePre1());
  mc->sourceNameIs(mcSourceName());
  mc->targetNameIs(target);
  mc->nextRoundIs(config_->nextRound());
  mc->aggMountIs(config_->nestedConfigs().size() > 0);
  mountStatusIs(MountFacility::mountStatusDir()->mountStatus(name()));
  handleMountSource();
  handleConfigUnmountType();
  handleConfigTimeoutPeriod();
  versionNumInc(1);
  return true;
}

bool AgentEnvSm::doMemberMountingAttempt() {
  AgentEnvSm* root = rootSm();
  if (!root) return false;  // the aggregate's state machine comes later and asks again
  if (!root->mountStatus()) root->doPrefixMountingAttempt();
  if (!root->mountStatus()) return false;
  prefixMountStatusIs(root->mountStatus());
  handlePrefixMountStatus();
  return true;
}

bool AgentEnvSm::doPrefixMountingAttempt() {
  if (mountStatus()) return true;
  if (!mayActIn(mount)) return false;  // the aggregate itself is not mounted
  return doMountingAttempt();
}

void AgentEnvSm::handleMountSource() {
  Ptr<MountStatus const> ms = mountStatus();
  if (!ms || !status_) return;
  SM_TRACE(2) << ": Got source from MountStatus " << inQuotes(ms->currentSource());
  status_->currentSourceIs(ms->currentSource());
  handleMountStatus();
}

void AgentEnvSm::handleMountStatus() {
  if (!status_) return;
  Ptr<MountStatus const> ms = mountStatus();
  followMount(ms, ms ? ms->mountedEntity() : nullptr, ": Received mount status");
}

void AgentEnvSm::handlePrefixMountStatus() {
  if (!status_) return;
  Ptr<MountStatus const> ms = prefixMountStatus();
  if (ms && !ms->currentSource().isEmpty())
    status_->currentSourceIs(ms->currentSource().below(config_->pathSuffix().entityPath()));
  // The prefix mount delivers this entry's entity when it is at its place.
  Ptr<Entity> delivered = ms && ms->state() == MountStatus::complete ? globalDir()->entityRef(configTarget()) : nullptr;
  if (ms && ms->state() == MountStatus::complete && !delivered) {
    SM_TRACE(0) << ": Fail: Mount failure";
    status_->entityIs(nullptr);
    outcomeIs(AgentEnvStatus::mountEntityNotFound, AgentEnvStatus::fail);
    return;
  }
  followMount(ms, delivered, ": Got prefix mount status");
}

void AgentEnvSm::followMount(Ptr<MountStatus const> const& ms, Ptr<Entity> const& entity, char const* trace) {
  Sc code = ms ? mountScToAgentEnvSc(ms->code()) : AgentEnvStatus::none;
  SM_TRACE(2) << trace << " " << code;
  status_->entityIs(entity);
  switch (ms ? ms->state() : MountStatus::notMounted) {
    case MountStatus::failed:
      SM_TRACE(0) << ": Fail: Mount failure";
      return outcomeIs(code, AgentEnvStatus::fail, ms->reason());
    case MountStatus::error:
      SM_TRACE(0) << ": Error: Mount error";
      return outcomeIs(code, AgentEnvStatus::error, ms->reason());
    case MountStatus::complete:
      return outcomeIs(code, AgentEnvStatus::initialized);
    case MountStatus::inProgress:
      return outcomeIs(code, AgentEnvStatus::inProgress);
    case MountStatus::notMounted:
      return outcomeIs(code, AgentEnvStatus::notApplicable);
  }
  SM_TRACE(0) << ": Got bad mount status";
}

void AgentEnvSm::maybeDeleteMountConfig() {
  if (mountConfig()) {
    SM_TRACE(2) << ": Deleting mountConfig";
    MountFacility::mountConfigDir()->mountConfigDel(name());
    mountingIf()->config = nullptr;
    mountStatusIs(nullptr);
  }
  if (prefixMountConfig()) {
    SM_TRACE(2) << ": Deleting prefixMountConfig";
    MountFacility::mountConfigDir()->mountConfigDel(prefixMountConfig()->name());
    mountingIf()->prefixConfig = nullptr;
    prefixMountStatusIs(nullptr);
  }
}

// ---- The mount configurations, their status reactors and rounds ----------

AgentEnvSm::Mounting& AgentEnvSm::mounting() {
  std::unique_ptr<Mounting>& mounting = extras().mounting;
  if (!mounting) mounting = std::make_unique<Mounting>();
  return *mounting;
}

AgentEnvSm::Mounting* AgentEnvSm::mountingIf() const { return extras_ ? extras_->mounting.get() : nullptr; }

Ptr<MountConfig> const& AgentEnvSm::mountConfig() const {
  static Ptr<MountConfig> const none;
  return mountingIf() ? mountingIf()->config : none;
}

Ptr<MountConfig> const& AgentEnvSm::prefixMountConfig() const {
  static Ptr<MountConfig> const none;
  return mountingIf() ? mountingIf()->prefixConfig : none;
}

AgentEnvSm::MountStatusReactor* AgentEnvSm::mountStatusReactor() const {
  return mountingIf() ? mountingIf()->statusReactor.get() : nullptr;
}

AgentEnvSm::MountStatusReactor* AgentEnvSm::prefixMountStatusReactor() const {
  return mountingIf() ? mountingIf()->prefixStatusReactor.get() : nullptr;
}

Ptr<MountStatus const> AgentEnvSm::mountStatus() const {
  return mountStatusReactor() ? mountStatusReactor()->notifier() : nullptr;
}

void AgentEnvSm::mountStatusIs(Ptr<MountStatus const> status) {
  MountStatusReactor::Reactions reactions{&AgentEnvSm::handleMountSource, &AgentEnvSm::handleMountStatus,
                                          &AgentEnvSm::handleMountRound};
  if (status || mountingIf()) watch(mounting().statusReactor, status, *this, reactions);
}

Ptr<MountStatus const> AgentEnvSm::prefixMountStatus() const {
  return prefixMountStatusReactor() ? prefixMountStatusReactor()->notifier() : nullptr;
}

void AgentEnvSm::prefixMountStatusIs(Ptr<MountStatus const> status) {
  MountStatusReactor::Reactions reactions{&AgentEnvSm::handlePrefixMountStatus, &AgentEnvSm::handlePrefixMountStatus,
                                          &AgentEnvSm::handlePrefixMountRound};
  if (status || mountingIf()) watch(mounting().prefixStatusReactor, status, *this, reactions);
}

void AgentEnvSm::handleConfigNextRound() {
  uint64_t round = config_ ? config_->nextRound() : 0;
  if (mountConfig()) mountConfig()->nextRoundIs(round);
  if (prefixMountConfig()) prefixMountConfig()->nextRoundIs(round);
}

void AgentEnvSm::handleMountRound() {
  if (!status_) return;
  Ptr<MountStatus const> ms = mountStatus();
  status_->roundIs(ms ? ms->round() : 0);
}

void AgentEnvSm::handlePrefixMountRound() {
  if (!status_) return;
  Ptr<MountStatus const> ms = prefixMountStatus();
  status_->roundIs(ms ? ms->round() : 0);
}

Name AgentEnvSm::prefixMountName() const {
  Ptr<AgentEnvConfig const> root = rootConfig();
  return root ? root->name() : Name();
}

}  // namespace Zet
