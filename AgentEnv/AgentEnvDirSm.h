#pragma once
// AgentEnvDirSm: makes and removes the state machine and the status of every
// config of an AgentEnvConfigDir.
//
// When a config appears, the state machines of the config it depends on and
// of its aggregate are made first (when those configs exist), then its
// status, its activity and its AgentEnvSm; when it goes, its mount
// configuration, its state machine, its status and its activity go, in that
// order. Not thread-safe: runs on the activity-loop thread.

#include <cstdint>
#include <memory>

#include "AgentEnv/AgentEnvConfigDir.h"
#include "AgentEnv/AgentEnvSm.h"
#include "AgentEnv/AgentEnvStatusDir.h"
#include "Zet/HashMap.h"
#include "Zet/LeftBehind.h"
#include "Zet/Reactor.h"

namespace Zet {

class AgentEnvDirSm : public PtrInterface, public AgentEnvConfigDir::NotifieeConst, public Reactor {
 public:
  // Watches configDir (may be null) and writes statuses into statusDir.
  // Configs already in configDir get their state machines here.
  AgentEnvDirSm(Ptr<AgentEnvConfigDir const> configDir, Ptr<AgentEnvStatusDir> statusDir);
  ~AgentEnvDirSm() override;

  Ptr<AgentEnvConfigDir const> const& agentEnvConfigDir() const { return configDir_; }
  Ptr<AgentEnvStatusDir> const& agentEnvStatusDir() const { return statusDir_; }

  // Watches another config dir (anything but an AgentEnvConfigDir counts as
  // null) and reconciles its configs; switches notification on.
  void notifierIs(Ptr<Entity const> const& configDir);

  // Reconciles every config of the config dir, in its iteration order.
  void handleConfig();
  // Reconciles one name: makes what a present config lacks (prerequisites
  // first) or removes what a deleted one left.
  void handleConfig(Name const& name);
  void onAgentEnvConfig(Name const& name) override;

  // The state machine of the config, made when absent. NameInUseException
  // when one exists with another status; RangeException "null ValidPtr"
  // for a null config.
  Ptr<AgentEnvSm> agentEnvSmIs(Ptr<ActivityConfig> activity, Ptr<AgentEnvConfig const> config,
                               Ptr<AgentEnvStatus> status);
  Ptr<AgentEnvSm> agentEnvSm(Name const& name) const { return sms_.value(name); }
  HashMap<Ptr<AgentEnvSm>, KeyedByName> const& agentEnvSms() const { return sms_; }
  size_t agentEnvSmCount() const { return sms_.size(); }
  void agentEnvSmDel(Name const& name);
  void agentEnvSmDelAll();

  // Switches this reactor and every state machine it owns off or on.
  void hasNotificationActiveIs(bool active) override;

  // Counts the changes that remove or redirect an edge of the dependency
  // graph; the state machines' cycle checks remember chains under it.
  uint32_t dependencyGeneration() const { return dependencyGeneration_; }
  // Skips 0, which stands for no memo (a wrap after 4 billion changes only
  // makes an old memo look fresh when its last config still ends a chain).
  void dependencyGraphChanged() { dependencyGeneration_ = dependencyGeneration_ + 1 ? dependencyGeneration_ + 1 : 1; }

  // Remembers that `dependent` found no entry named `dependency`; when such
  // an entry appears, the dependent's dependency handler runs again (from
  // the loop), so entries may name entries that come later in a file. A
  // dependent waits for one name at a time and is forgotten when it goes.
  void dependencyMissing(Name const& dependency, Name const& dependent);
  // How many entries wait so for a name no entry has.
  size_t waitingDependentCount() const { return waitsFor_.size(); }

  // Entities that removed entries left in place (statePreserving), by the
  // entry's name: an entry of that name coming back takes its over.
  LeftBehind& leftBehind() { return leftBehind_; }

 protected:
  virtual Ptr<AgentEnvSm> newAgentEnvSm(Ptr<ActivityConfig> activity, Ptr<AgentEnvConfig const> config,
                                        Ptr<AgentEnvStatus> status);
  // A deferred delivery reconciles every config.
  void onNotification(int) override { handleConfig(); }

 private:
  void handleConfig(Name const& name, Ptr<AgentEnvConfig> config);
  // The name whose state machine must exist before the config's (its
  // dependency or its aggregate), or empty. Names in `visiting` are being
  // made already.
  Name missingPrerequisite(AgentEnvConfig const& config, HashMap<bool>& visiting);
  // Makes what the config of `name` lacks, or removes what a deleted one
  // (null) left.
  void reconcile(Name const& name, Ptr<AgentEnvConfig> const& config);
  // Starts reading the index slots that reconciling `name` looks up: in a
  // large agent each lookup misses the cache, and asked for together (or
  // ahead, in a walk) the misses overlap.
  void prefetchFor(Name const& name) const;
  // Sizes the indexes a walk over `configs` configs fills.
  void reserveFor(size_t configs);
  void remove(Name const& name);
  void wakeDependents(Name const& name);
  void forgetMissingDependency(Name const& dependent);

  Ptr<AgentEnvConfigDir const> configDir_;
  Ptr<AgentEnvStatusDir> statusDir_;
  HashMap<Ptr<AgentEnvSm>, KeyedByName> sms_;
  uint32_t dependencyGeneration_ = 1;
  // Entries waiting for a name no entry has: by that name, and the name
  // each of them waits for.
  HashMap<std::unique_ptr<HashMap<bool>>> dependentsOf_;
  HashMap<Name> waitsFor_;
  LeftBehind leftBehind_;
};

// A new AgentEnvDirSm over the two directories.
Ptr<AgentEnvDirSm> agentEnvDirSmFactory(Ptr<AgentEnvConfigDir const> configDir, Ptr<AgentEnvStatusDir> statusDir);

}  // namespace Zet
