#pragma once
// The nested reactors of AgentEnvSm, each watching one entity for the state
// machine. Reactions to the own config and the own status run at once;
// reactions to other entries are deferred to the state machine's activity
// (Reactor), coalesced until they run.

#include <utility>

#include "AgentEnv/AgentEnvSm.h"

namespace Zet {

// Calls the state machine's config handlers as the config changes.
class AgentEnvSm::ConfigReactor : public AgentEnvConfig::NotifieeConst {
 public:
  explicit ConfigReactor(AgentEnvSm& sm) : sm_(sm) {}
  void onSource0() override { sm_.onConfigAttribute(&AgentEnvSm::handleConfigSource0); }
  void onSource1() override { sm_.onConfigAttribute(&AgentEnvSm::handleConfigSource1); }
  void onTarget() override { sm_.onConfigAttribute(&AgentEnvSm::handleConfigTarget, true); }
  void onPathSuffix() override { sm_.onConfigAttribute(&AgentEnvSm::handleConfigPathSuffix, true); }
  void onTypeName() override { sm_.onConfigAttribute(&AgentEnvSm::handleConfigTypeName, true); }
  void onDependency() override { sm_.onConfigAttribute(&AgentEnvSm::handleConfigDependency); }
  void onTimeoutPeriod() override { sm_.onConfigAttribute(&AgentEnvSm::handleConfigTimeoutPeriod); }
  void onUnmountType() override { sm_.onConfigAttribute(&AgentEnvSm::handleConfigUnmountType); }
  void onAggConfig() override { sm_.onConfigAttribute(&AgentEnvSm::handleConfigAggConfig); }
  void onNextRound() override { sm_.onConfigAttribute(&AgentEnvSm::handleConfigNextRound); }
  void onNestedConfig(Name const& name) override {
    if (sm_.notificationActive_) sm_.handleNestedConfig(name);
  }

 private:
  AgentEnvSm& sm_;
};

// A reactor of another entity of type T: its notifications become one
// deferred call of the state machine's reaction on the state machine's
// activity.
template <class Notifiee>
class AgentEnvSmReactor : public Notifiee, public Reactor {
 public:
  AgentEnvSmReactor(AgentEnvSm& sm, void (AgentEnvSm::*reaction)())
      : Reactor(sm.zetFwkActivity()), sm_(sm), reaction_(reaction) {
    activate();
  }

 protected:
  void changed() { notificationDefer(0); }
  void onNotification(int) override { (sm_.*reaction_)(); }

 private:
  AgentEnvSm& sm_;
  void (AgentEnvSm::*reaction_)();
};

// The own status: its individual status drives the group statuses.
class AgentEnvSm::ZetStatus : public AgentEnvStatus::NotifieeConst, public Reactor {
 public:
  explicit ZetStatus(AgentEnvSm& sm) : Reactor(nullptr), sm_(sm) {}
  void onIndividualStatus() override { sm_.handleStatusReaction(); }

 protected:
  void onNotification(int) override { sm_.handleStatusReaction(); }

 private:
  AgentEnvSm& sm_;
};

// The dependency's status: each change of its group status.
class AgentEnvSm::ZetDependency : public AgentEnvSmReactor<AgentEnvStatus::NotifieeConst> {
 public:
  explicit ZetDependency(AgentEnvSm& sm) : AgentEnvSmReactor(sm, &AgentEnvSm::handleDependencyStatus) {}
  void onGroupStatus() override { changed(); }
};

// The aggregate's state machine: each change of its version number.
class AgentEnvSm::ZetAggAgentSm : public AgentEnvSmReactor<AgentEnvSm::NotifieeConst> {
 public:
  explicit ZetAggAgentSm(AgentEnvSm& sm) : AgentEnvSmReactor(sm, &AgentEnvSm::handleParentVersionNumber) {}
  void onVersionNum() override { changed(); }
};

// A directory entry on the target path that is not yet current.
class AgentEnvSm::DirEntryReactor : public AgentEnvSmReactor<Dir::Entry::NotifieeConst> {
 public:
  explicit DirEntryReactor(AgentEnvSm& sm) : AgentEnvSmReactor(sm, &AgentEnvSm::handleDirEntryStatus) {}
  void onStatus() override { changed(); }
};

// A framework mount status: the round it has completed.
class AgentEnvSm::MountStatusReactor : public AgentEnvSmReactor<MountStatus::NotifieeConst> {
 public:
  MountStatusReactor(AgentEnvSm& sm, void (AgentEnvSm::*onRoundReaction)())
      : AgentEnvSmReactor(sm, onRoundReaction) {}
  void onRound() override { changed(); }
};

}  // namespace Zet
