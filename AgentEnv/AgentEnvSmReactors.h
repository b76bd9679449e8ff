#pragma once
// The nested reactors of AgentEnvSm that watch other entries: their
// reactions are deferred to the state machine's activity (Reactor),
// coalesced until they run.

#include <array>
#include <memory>
#include <utility>

#include "AgentEnv/AgentEnvSm.h"
#include "Zet/BlockPool.h"
#include "Zet/NboAttrLog.h"

namespace Zet {

// A reactor of another entity of type T: its notifications become one
// deferred call of the state machine's reaction on the state machine's
// activity. Reactors are made by the million in a large agent's
// aggregates: they come from the block pool, like the machines.
template <class Notifiee>
class AgentEnvSmReactor : public Notifiee, public Reactor, public BlockAllocated {
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

// A framework mount status: its source, its state (with code and mounted
// entity) and the round it has completed, each handed to its reaction; the
// source reaction covers the state as well.
class AgentEnvSm::MountStatusReactor : public AgentEnvSmReactor<MountStatus::NotifieeConst> {
 public:
  struct Reactions {
    void (AgentEnvSm::*source)();
    void (AgentEnvSm::*state)();
    void (AgentEnvSm::*round)();
  };
  MountStatusReactor(AgentEnvSm& sm, Reactions reactions)
      : AgentEnvSmReactor(sm, reactions.state), sm_(sm), reactions_(reactions) {}
  void onCurrentSource() override { changed(kSource); }
  void onState() override { changed(kState); }
  void onCode() override { changed(kState); }
  void onMountedEntity() override { changed(kState); }
  void onReason() override { changed(kState); }
  void onRound() override { changed(kRound); }

 private:
  enum : unsigned { kSource = 1, kState = 2, kRound = 4 };
  void changed(unsigned what) {
    pending_ |= what;
    AgentEnvSmReactor::changed();
  }
  void onNotification(int) override {
    unsigned what = std::exchange(pending_, 0);
    if (what & kSource)
      (sm_.*reactions_.source)();
    else if (what & kState)
      (sm_.*reactions_.state)();
    if (what & kRound) (sm_.*reactions_.round)();
  }

  AgentEnvSm& sm_;
  Reactions reactions_;
  unsigned pending_ = 0;
};

struct AgentEnvSm::Mounting {
  Ptr<MountConfig> config;
  Ptr<MountConfig> prefixConfig;
  std::unique_ptr<MountStatusReactor> statusReactor;
  std::unique_ptr<MountStatusReactor> prefixStatusReactor;
};

struct AgentEnvSm::StatusSets {
  std::array<StatusSet, 6> sets;
};

// The process's listening endpoints: each change of the port or the socket.
class AgentEnvSm::EndpointReactor : public AgentEnvSmReactor<NboAttrLog::ConnectionDir::NotifieeConst> {
 public:
  explicit EndpointReactor(AgentEnvSm& sm) : AgentEnvSmReactor(sm, &AgentEnvSm::handleExportEndpoint) {}
  void onListenPort() override { changed(); }
  void onListenDomainSock() override { changed(); }
};

// The framework's side of an export: the endpoint it listens on, watched
// while it does, and the timer of an export that waits to try again (the
// pause doubles from try to try up to a cap). Going away cancels the timer.
struct AgentEnvSm::Exporting {
  static constexpr double kFirstDelay = 0.1;
  static constexpr double kMaxDelay = 5.0;

  Exporting() = default;
  Exporting(Exporting const&) = delete;
  Exporting& operator=(Exporting const&) = delete;
  ~Exporting() {
    if (timer) ActivityFacility::loop().timerDel(timer);
  }

  std::unique_ptr<EndpointReactor> endpoint;  // null while not listening
  ExportEndpoint listening;                   // what this entry listens on
  bool replaced = false;                      // another export has taken the endpoint
  ActivityLoop::TimerId timer = 0;
  double delay = kFirstDelay;
};

struct AgentEnvSm::Extras : BlockAllocated {
  // Drops every reactor on other entities and what a mount or an export holds.
  void stopWatching() {
    aggAgentSmReactor.reset();
    dependencyReactor.reset();
    dirEntryReactor.reset();
    mounting.reset();
    exporting.reset();
  }

  std::unique_ptr<DirEntryReactor> dirEntryReactor;
  std::unique_ptr<ZetDependency> dependencyReactor;
  std::unique_ptr<ZetAggAgentSm> aggAgentSmReactor;
  std::unique_ptr<Mounting> mounting;      // made when a mount needs it
  std::unique_ptr<Exporting> exporting;    // made by the first export attempt
  std::unique_ptr<StatusSets> statusSets;  // made on first use: only aggregates need them
  Name sourceName;
  EntityUri sourcePre0;
  EntityUri sourcePre1;
  // The dependency-chain memo of doCircularDependencyCheck: the chain from
  // this entry ended at the config chainTerminal under this generation of
  // the owner's dependency graph (0: nothing known).
  Name chainTerminal;
  uint32_t chainGeneration = 0;
};

// Points a nested reactor at `notifier`: made on first use, dropped with a
// null notifier. Returns whether the watched entity changed.
template <class R, class T, class... Args>
inline bool watch(std::unique_ptr<R>& slot, Ptr<T const> const& notifier, Args&&... makeArgs) {
  if (!notifier) {
    bool had = slot != nullptr;
    slot.reset();
    return had;
  }
  if (slot && slot->notifier() == notifier) return false;
  if (!slot) slot = std::make_unique<R>(std::forward<Args>(makeArgs)...);
  slot->notifierIs(notifier);
  return true;
}

}  // namespace Zet
