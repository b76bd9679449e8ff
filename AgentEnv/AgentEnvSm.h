#pragma once
// AgentEnvSm: the state machine of one AgentEnvConfig.
//
// One exists for every config of the config dir, made and owned by
// AgentEnvDirSm under the config's name. It reacts to every attribute of its
// config, waits for the entry the config depends on, decides how the entry is
// realised (its mode: instantiate, mount or export), carries out that action
// and keeps the config's AgentEnvStatus current, group status included.
//
// Reactions to the own config and the own status run at once, inside their
// notification. Reactions to other entries (the dependency's group status,
// the aggregate's version number, mount statuses, a directory entry on the
// target path) are handed to the state machine's activity and run from its
// loop, coalesced, so a chain of dependent entries settles one step after
// another instead of by recursion as deep as the chain.
//
// Trace lines (facility "AgentEnvSm", level 0 for errors and 2 for progress)
// begin with the entry's name. Not thread-safe: runs on the activity-loop
// thread.

#include <array>
#include <cstdint>
#include <memory>
#include <string_view>

#include "AgentEnv/AgentEnvConfig.h"
#include "AgentEnv/AgentEnvMode.h"
#include "AgentEnv/AgentEnvStatus.h"
#include "Zet/Activity.h"
#include "Zet/Dir.h"
#include "Zet/HashMap.h"
#include "Zet/MountConfig.h"
#include "Zet/MountStatus.h"
#include "Zet/Reactor.h"

namespace Zet {

class AgentEnvDirSm;

class AgentEnvSm : public Entity, public Reactor {
 public:
  // How the entry is realised; decided by its first attempt.
  using Mode = AgentEnvMode;
  using enum AgentEnvMode;
  // Whether the config as it stands can be applied to what is realised.
  enum Consistency : uint8_t { consistent, inconsistent };
  // The status sets of an aggregate's state machine, one per Status value.
  using StatusSet = HashMap<Ptr<AgentEnvStatus const>, KeyedByName>;

  class NotifieeConst : public TypedNotifiee<AgentEnvSm> {
   public:
    virtual void onVersionNum() {}
    virtual void onMode() {}
    virtual void onConsistency() {}
  };

  // Only AgentEnvDirSm::newAgentEnvSm makes state machines. Runs the config
  // handlers once, in their fixed order, then registers with the config and
  // runs the status reaction. If a step throws, what was built is torn down
  // and the exception propagates.
  AgentEnvSm(Ptr<ActivityConfig> activity, Ptr<AgentEnvConfig const> config, Ptr<AgentEnvStatus> status,
             AgentEnvDirSm* dirSm);
  ~AgentEnvSm() override;

  // Identity and owners.
  Ptr<AgentEnvConfig const> const& agentEnvConfig() const { return config_; }
  void agentEnvConfigIs(Ptr<AgentEnvConfig const> config);
  Ptr<AgentEnvStatus> const& status() const { return status_; }
  void statusIs(Ptr<AgentEnvStatus> status);
  void statusDel() { statusIs(nullptr); }
  AgentEnvDirSm* dirSm() const { return dirSm_; }
  Ptr<ActivityConfig> const& zetFwkActivity() const { return activityConfig(); }
  void zetFwkActivityIs(Ptr<ActivityConfig> activity);

  // The watched entities of the nested reactors; null when not watching.
  Ptr<AgentEnvStatus const> dependency() const;
  void dependencyIs(Ptr<AgentEnvStatus const> status);
  void dependencyDel() { dependencyIs(nullptr); }
  Ptr<AgentEnvSm const> aggAgentSm() const;
  void aggAgentSmIs(Ptr<AgentEnvSm const> sm);
  void aggAgentSmDel() { aggAgentSmIs(nullptr); }
  Ptr<Dir::Entry const> dirEntry() const;
  void dirEntryIs(Ptr<Dir::Entry const> entry);
  Ptr<MountStatus const> mountStatus() const;
  void mountStatusIs(Ptr<MountStatus const> status);
  Ptr<MountStatus const> prefixMountStatus() const;
  void prefixMountStatusIs(Ptr<MountStatus const> status);

  // The framework mount configurations realising a mount; null when none.
  Ptr<MountConfig> const& mountConfig() const;
  Ptr<MountConfig> const& prefixMountConfig() const;

  // The generation of this state machine's work; never goes down through
  // the aggregate rule. Both notify onVersionNum on a change.
  uint32_t versionNum() const { return versionNum_; }
  void versionNumIs(uint32_t n);
  uint32_t versionNumInc(uint32_t n);

  Mode mode() const { return mode_; }
  // Whether an attempt of mode `m` may run: nothing is realised yet, or it
  // is realised in that mode.
  bool mayActIn(Mode m) const { return mode_ == init || mode_ == m; }
  void modeIs(Mode m) { attributeIs(mode_, m, &NotifieeConst::onMode); }
  Consistency consistency() const { return consistency_; }
  void consistencyIs(Consistency c) { attributeIs(consistency_, c, &NotifieeConst::onConsistency); }
  Name const& sourceName() const;
  void sourceNameIs(Name const& n);
  Name const& targetName() const { return targetName_; }
  void targetNameIs(Name const& n) { targetName_ = n; }
  Ptr<Dir> const& targetDir() const { return targetDir_; }
  void targetDirIs(Ptr<Dir> d) { targetDir_ = std::move(d); }
  EntityUri const& sourcePre0() const;
  EntityUri const& sourcePre1() const;

  // The six status sets, used on an aggregate's state machine: each nested
  // config's status stands in the one matching its individual status.
  // Adding null is RangeException "null _<set> parameter to mutator for
  // Zet::AgentEnvSm::<set> not allowed"".
  StatusSet const& statusSet(AgentEnvStatus::Status s) const;
  Ptr<AgentEnvStatus const> statusSetMember(AgentEnvStatus::Status s, Name const& name) const;
  void statusSetMemberIs(AgentEnvStatus::Status s, Ptr<AgentEnvStatus const> const& status);
  void statusSetMemberDel(AgentEnvStatus::Status s, Name const& name);
  void statusSetDelAll(AgentEnvStatus::Status s);
  Ptr<AgentEnvStatus const> initialized(Name const& n) const { return statusSetMember(AgentEnvStatus::initialized, n); }
  void initializedIs(Ptr<AgentEnvStatus const> const& s) { statusSetMemberIs(AgentEnvStatus::initialized, s); }
  Ptr<AgentEnvStatus const> inProgress(Name const& n) const { return statusSetMember(AgentEnvStatus::inProgress, n); }
  void inProgressIs(Ptr<AgentEnvStatus const> const& s) { statusSetMemberIs(AgentEnvStatus::inProgress, s); }
  Ptr<AgentEnvStatus const> fail(Name const& n) const { return statusSetMember(AgentEnvStatus::fail, n); }
  void failIs(Ptr<AgentEnvStatus const> const& s) { statusSetMemberIs(AgentEnvStatus::fail, s); }
  Ptr<AgentEnvStatus const> error(Name const& n) const { return statusSetMember(AgentEnvStatus::error, n); }
  void errorIs(Ptr<AgentEnvStatus const> const& s) { statusSetMemberIs(AgentEnvStatus::error, s); }
  Ptr<AgentEnvStatus const> unsupported(Name const& n) const { return statusSetMember(AgentEnvStatus::unsupported, n); }
  void unsupportedIs(Ptr<AgentEnvStatus const> const& s) { statusSetMemberIs(AgentEnvStatus::unsupported, s); }
  Ptr<AgentEnvStatus const> notApplicable(Name const& n) const {
    return statusSetMember(AgentEnvStatus::notApplicable, n);
  }
  void notApplicableIs(Ptr<AgentEnvStatus const> const& s) { statusSetMemberIs(AgentEnvStatus::notApplicable, s); }

  // Derived values, computed on every call.
  // The aggregate config when there is one, else the own config.
  Ptr<AgentEnvConfig const> rootConfig() const;
  // The aggregate's state machine (null while it has none), else this one.
  AgentEnvSm* rootSm() const;
  // Where the entity comes from: the root's source0, extended by the
  // config's pathSuffix for a nested config.
  EntityUri sourceNameUri() const;
  // The source name handed to the mount configuration: sourceNameUri with
  // the typeName as query "type=<typeName>" when one is set.
  EntityUri mcSourceName() const;
  // The full path of the entry's entity (see docs/ARCHITECTURE.md).
  EntityUriPath configTarget() const;
  // The name of the prefix mount owned by the root: the root config's name.
  Name prefixMountName() const;

  // Configuration handlers, one per config attribute.
  void handleConfigSource0();
  void handleConfigSource1();
  void handleConfigTarget();
  void handleConfigPathSuffix();
  void handleConfigTypeName();
  void handleConfigDependency();
  void handleConfigTimeoutPeriod();
  void handleConfigUnmountType();
  void handleConfigAggConfig();
  void handleConsistencyCheck();

  // Readiness and dispatch.
  bool dependencyReady() const;
  bool doActionIfReady();
  void handleDependencyStatus();
  void doCircularDependencyCheck();
  void handleParentVersionNumber();

  // Actions.
  bool doExportAttempt();
  // The export attempt, with a listener that cannot open reported as the
  // entry's failure (its reason the listener's) and tried again later.
  bool doExportAttemptOrReport();
  // Reaction to the process's endpoints: an export whose endpoint another
  // export replaced no longer listens, and says so (error, with a reason)
  // until the endpoint is its own again.
  void handleExportEndpoint();
  bool doMountingAttempt();
  // Run on an aggregate's state machine for its members: makes sure the
  // aggregate's own mount, which delivers them, is under way.
  bool doPrefixMountingAttempt();
  // Reactions to the mount status of the own mount and of the aggregate's
  // mount that delivers this member.
  void handleMountStatus();
  void handlePrefixMountStatus();
  void handleMountSource();
  // The entry's status code for a mount status code (traced and none for a
  // code the facility does not have).
  AgentEnvStatus::StatusCode mountScToAgentEnvSc(unsigned code) const;
  void doInstantiationAttempt();
  bool doTargetInstantiationAttempt();
  bool setupTargetPath(Ptr<Dir> const& dir, EntityUriPath const& path, bool createParentDirs);
  // The last name of `target`, sharing the text of the entry's own name when
  // they are the same: generated configurations name entries after their
  // targets, and the entity made there takes this name as well.
  Name lastNameOf(EntityUriPath const& target) const;
  void handleDirEntryStatus();
  void maybeDeleteMountConfig();
  // When the config is gone: the entity an instantiation made is removed
  // (stateRemoving) or left in place for an entry of the same name to take
  // over (statePreserving).
  void maybeLeaveEntity();

  // Round hand-over between the config and the mount facility.
  void handleConfigNextRound();
  void handleMountRound();
  void handlePrefixMountRound();

  // Statuses.
  void handleIndividualStatus();
  void doClearStatusFromAggSm();
  void doComputeGroupStatus();

  // Switches every reaction of this state machine off or on.
  void hasNotificationActiveIs(bool active);
  bool hasNotificationActive() const { return notificationActive_; }
  // Deferred delivery: -1 (kRedispatch) and -2 re-check the registration
  // with the config and run the config handlers again; 265 only re-checks
  // the registration; 0 (kActIfReady) runs doActionIfReady; any other code
  // is a config attribute identifier whose handler runs.
  static constexpr int kRedispatch = -1;
  static constexpr int kActIfReady = 0;
  void handleNotification(ActivityConfig* activity) override;
  // Stops every reaction and lets go of what the state machine watches;
  // its owner calls this when the config is gone.
  void doShutdown();

  ZET_ENTITY_TYPE();

  // Whether local instantiation is suppressed for the whole process (off by
  // default): entries that would instantiate then attempt nothing.
  static bool localInstantiationSuppressed();
  static void localInstantiationSuppressedIs(bool suppressed);

 protected:
  void onNotification(int code) override;
  // Passes a zombie mark on: the own registration with the config, then the
  // nested reactors (status, prefix mount status, mount status, directory
  // entry, dependency, aggregate state machine).
  void onZombie(bool zombie) override;

 private:
  // Calls the config handlers as the config changes, at once.
  class ConfigReactor : public AgentEnvConfig::NotifieeConst {
   public:
    explicit ConfigReactor(AgentEnvSm& sm) : sm_(sm) {}
    void onSource0() override;
    void onSource1() override;
    void onTarget() override;
    void onPathSuffix() override;
    void onTypeName() override;
    void onDependency() override;
    void onTimeoutPeriod() override;
    void onUnmountType() override;
    void onAggConfig() override;
    void onNextRound() override;
    void onNestedConfig(Name const& name) override;

   private:
    AgentEnvSm& sm_;
  };
  // The own status: its individual status drives the group statuses, at once.
  class ZetStatus : public AgentEnvStatus::NotifieeConst {
   public:
    explicit ZetStatus(AgentEnvSm& sm) : sm_(sm) {}
    void onIndividualStatus() override;

   private:
    AgentEnvSm& sm_;
  };
  class ZetDependency;
  class ZetAggAgentSm;
  class DirEntryReactor;
  class MountStatusReactor;
  struct StatusSets;
  // The framework's side of a mount: the mount configurations and the
  // reactors on their statuses.
  struct Mounting;
  Mounting& mounting();
  Mounting* mountingIf() const;
  struct Exporting;
  class EndpointReactor;
  Exporting& exporting();
  // What only some entries need, made on first use, so that an entry that
  // instantiates without depending on another carries one null pointer:
  // the reactors on other entries, the mount and export parts, the status
  // sets of an aggregate, the sources in effect and the chain memo.
  struct Extras;
  Extras& extras();
  EndpointReactor* endpointReactor() const;
  bool doReportExportFailure(ListenException const& e);
  MountStatusReactor* mountStatusReactor() const;
  MountStatusReactor* prefixMountStatusReactor() const;
  template <class Apply>
  void forEachNestedReactor(Apply&& apply) const;

  void sourcePre0Is(EntityUri const& source);
  void sourcePre1Is(EntityUri const& source);
  void runConfigHandlers();
  void registrationCheck();
  // A config reaction: the handler, then, for attributes that say where or
  // what the entity is, another attempt of an entry still waiting for one.
  void onConfigAttribute(void (AgentEnvSm::*handler)(), bool retryAttempt = false);
  void handleStatusReaction();
  void handleNestedConfig(Name const& name);
  void doRetryAfterConfigChange();
  // Writes an outcome as a pair: the code first, then the individual status
  // (with the reason, when one is given, before both).
  void outcomeIs(AgentEnvStatus::StatusCode code, AgentEnvStatus::Status s, String8 const& reason = {});
  // Prepares `path` and makes the entity there; attemptTrace is the
  // progress line written once the path is ready.
  void doInstantiate(EntityUriPath const& path, std::string_view attemptTrace);
  // Whether the entity at the target is one an earlier entry of this name
  // left there (of the config's type, untouched since): then it is taken over.
  bool doTakeOverLeftEntity();
  void doAggregateInstantiated();
  Ptr<Dir> stepDown(Ptr<Dir> const& dir, std::string_view name, bool createParentDirs);
  bool doMemberMountingAttempt();
  // The status follows a mount status: its entity and the outcome its state
  // and code mean.
  void followMount(Ptr<MountStatus const> const& ms, Ptr<Entity> const& entity, char const* trace);
  // Refuses an attempt of another mode: switchedModes with unsupported.
  bool doRefuseSwitchedModes();
  // Reports a dependency naming no entry: dependencyNotFound with error,
  // and asks the owner to tell this entry when one of that name appears.
  bool doReportMissingDependency();
  // Reports a source0 that is not a valid URI: invalidUri with error.
  bool doRefuseInvalidSource0();
  // Refuses a config change: the code with unsupported, the state machine
  // inconsistent for good, then the trace written by `trace`.
  template <class TraceLine>
  void doRefuseChange(AgentEnvStatus::StatusCode code, TraceLine&& trace);
  template <class Apply>
  void forMountConfigs(char const* mainLabel, Apply&& apply);
  EntityUriPath targetInEffect() const;
  bool chainMemoHolds() const;
  void chainMemoIs(Name const& terminal);
  AgentEnvStatus::StatusCode instantiationCode(Exception const& e) const;

  Ptr<AgentEnvConfig const> config_;
  Ptr<AgentEnvStatus> status_;
  AgentEnvDirSm* dirSm_;
  ConfigReactor configReactor_{*this};
  ZetStatus statusReactor_{*this};
  std::unique_ptr<Extras> extras_;
  Name targetName_;
  Ptr<Dir> targetDir_;
  uint32_t versionNum_ = 0;
  Mode mode_ = init;
  Consistency consistency_ = consistent;
  bool notificationActive_ = true;
};

template <>
struct EnumTexts<AgentEnvSm::Consistency> {
  static constexpr std::string_view typeName = "AgentEnvSm::Consistency";
  static constexpr std::array<std::string_view, 2> texts = {"consistent", "inconsistent"};
};

}  // namespace Zet
