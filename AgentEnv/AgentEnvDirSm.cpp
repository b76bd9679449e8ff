#include "AgentEnv/AgentEnvDirSm.h"

#include <vector>

#include "Zet/Activity.h"
#include "Zet/ConstructorParameter.h"
#include "Zet/Trace.h"

namespace Zet {
namespace {

// The hint every state machine's activity is made with (the loop keeps it
// for tools and does not act on it).
constexpr unsigned kActivityPriorityHint = 10;
// How many configs ahead of the one reconciled a walk asks for the slots
// the reconciliation will look up.
constexpr size_t kReadAhead = 8;

}  // namespace

AgentEnvDirSm::AgentEnvDirSm(Ptr<AgentEnvConfigDir const> configDir, Ptr<AgentEnvStatusDir> statusDir)
    : Reactor(nullptr), configDir_(std::move(configDir)), statusDir_(std::move(statusDir)) {
  if (configDir_) handleConfig();
  AgentEnvConfigDir::NotifieeConst::notifierIs(configDir_);
  activate();
}

AgentEnvDirSm::~AgentEnvDirSm() {
  AgentEnvConfigDir::NotifieeConst::notifierIs(nullptr);
  agentEnvSmDelAll();
}

Ptr<AgentEnvDirSm> agentEnvDirSmFactory(Ptr<AgentEnvConfigDir const> configDir, Ptr<AgentEnvStatusDir> statusDir) {
  Ptr<AgentEnvDirSm> sm(new AgentEnvDirSm(std::move(configDir), std::move(statusDir)));
  if (!sm) throwRangeException("null ValidPtr");
  return sm;
}

void AgentEnvDirSm::notifierIs(Ptr<Entity const> const& dir) {
  Ptr<AgentEnvConfigDir const> configDir = ptr_cast<AgentEnvConfigDir const>(dir);
  if (configDir != configDir_) {
    configDir_ = configDir;
    AgentEnvConfigDir::NotifieeConst::notifierIs(configDir_);
    if (configDir_) handleConfig();
  }
  hasNotificationActiveIs(true);
}

void AgentEnvDirSm::handleConfig() {
  if (!configDir_) return;
  reserveFor(configDir_->agentEnvConfigCount());
  Ptr<Dir> root = globalDir();
  for (auto it = configDir_->agentEnvConfigs().begin(); it; ++it) {
    if (auto const* next = it.ahead(kReadAhead)) {
      prefetchFor(next->key());
      // Where an entry to instantiate puts its entity, guessed from its own
      // target (a member of an aggregate puts it elsewhere).
      AgentEnvConfig const& config = *next->value();
      if (config.source0().isEmpty() && !config.aggConfig()) root->prefetchEntry(config.target());
    }
    handleConfig(it->key(), it->value());
  }
}

// A machine to make has a status and an activity to make too; their
// indexes are sized for all of them at once rather than doubled on the way.
void AgentEnvDirSm::reserveFor(size_t configs) {
  size_t toMake = configs > sms_.size() ? configs - sms_.size() : 0;
  Ptr<ActivityManagerConfig> const& activities = ActivityFacility::activityManagerConfig();
  activities->activityConfigReserve(activities->activityConfigCount() + toMake);
  sms_.reserve(sms_.size() + toMake);
  statusDir_->agentEnvStatusReserve(statusDir_->agentEnvStatusCount() + toMake);
}

void AgentEnvDirSm::prefetchFor(Name const& name) const {
  ActivityFacility::activityManagerConfig()->activityConfigs().prefetch(name);
  sms_.prefetch(name);
  statusDir_->agentEnvStatuses().prefetch(name);
}

void AgentEnvDirSm::onAgentEnvConfig(Name const& name) {
  if (hasNotificationActive()) handleConfig(name);
}

void AgentEnvDirSm::handleConfig(Name const& name) {
  if (configDir_) handleConfig(name, configDir_->agentEnvConfig(name));
}

// Prerequisites are made first, without recursion: a name whose dependency
// or aggregate still lacks a state machine waits on a stack until that one
// is made. A name already on the stack is not pushed again, so a cycle of
// configs that name each other ends; it is reported by the state machines.
// `config` is the config of the name when the call begins (null when it has
// none); those of the names on the stack are looked up when their turn
// comes, as the prerequisites made meanwhile may have changed them.
void AgentEnvDirSm::handleConfig(Name const& name, Ptr<AgentEnvConfig> config) {
  ZET_TRACE_AT("AgentEnvSm", 1) << "Got AgentEnvConfig: " << name;
  std::vector<Name> waiting;  // innermost last
  HashMap<bool> visiting;
  Name current = name;
  for (;;) {
    Name prerequisite = config ? missingPrerequisite(*config, visiting) : Name();
    if (prerequisite.isEmpty()) {
      reconcile(current, config);
      if (waiting.empty()) return;
      current = std::move(waiting.back());
      waiting.pop_back();
    } else {
      if (waiting.empty()) visiting.insert(current, true);
      visiting.insert(prerequisite, true);
      waiting.push_back(std::move(current));
      current = std::move(prerequisite);
      ZET_TRACE_AT("AgentEnvSm", 1) << "Got AgentEnvConfig: " << current;
    }
    config = configDir_->agentEnvConfig(current);
  }
}

Name AgentEnvDirSm::missingPrerequisite(AgentEnvConfig const& config, HashMap<bool>& visiting) {
  Name const& name = config.name();
  auto lacking = [&](Name const& other) {
    if (!configDir_->agentEnvConfig(other) || sms_.find(other)) return false;
    // Already being made further down the stack: a cycle. Its status is made
    // now, so that the configs on the cycle find each other's statuses.
    if (visiting.find(other) || other == name) {
      statusDir_->agentEnvStatusIs(other);
      return false;
    }
    return true;
  };
  Name const& dependency = config.dependency();
  if (AgentEnvConfig::namesEntry(dependency) && lacking(dependency)) return dependency;
  if (Ptr<AgentEnvConfig> const& aggregate = config.aggConfig())
    if (lacking(aggregate->name())) return aggregate->name();
  return Name();
}

void AgentEnvDirSm::reconcile(Name const& name, Ptr<AgentEnvConfig> const& config) {
  if (!config) return remove(name);
  prefetchFor(name);
  Ptr<ActivityManagerConfig> const& activities = ActivityFacility::activityManagerConfig();
  Ptr<AgentEnvStatus> status = statusDir_->agentEnvStatusIs(name);
  Ptr<ActivityConfig> activity = activities->activityConfigIs(name, kActivityPriorityHint);
  Ptr<AgentEnvSm> sm = agentEnvSmIs(activity, config, status);
  if (sm->agentEnvConfig() != config) sm->agentEnvConfigIs(config);
  wakeDependents(name);
}

void AgentEnvDirSm::dependencyMissing(Name const& dependency, Name const& dependent) {
  if (Name* waiting = waitsFor_.find(dependent)) {
    if (*waiting == dependency) return;
    forgetMissingDependency(dependent);
  }
  waitsFor_.insert(dependent, dependency);
  std::unique_ptr<HashMap<bool>>& dependents = *dependentsOf_.insert(dependency, nullptr).first;
  if (!dependents) dependents = std::make_unique<HashMap<bool>>();
  dependents->insert(dependent, true);
}

void AgentEnvDirSm::forgetMissingDependency(Name const& dependent) {
  Name* waiting = waitsFor_.find(dependent);
  if (!waiting) return;
  Name dependency = *waiting;
  waitsFor_.erase(dependent);
  std::unique_ptr<HashMap<bool>>* dependents = dependentsOf_.find(dependency);
  if (!dependents) return;
  (*dependents)->erase(dependent);
  if ((*dependents)->empty()) dependentsOf_.erase(dependency);
}

void AgentEnvDirSm::wakeDependents(Name const& name) {
  std::unique_ptr<HashMap<bool>>* waiting = dependentsOf_.find(name);
  if (!waiting) return;
  std::unique_ptr<HashMap<bool>> dependents = std::move(*waiting);
  dependentsOf_.erase(name);
  for (auto const& dependent : *dependents) {
    waitsFor_.erase(dependent.key());
    if (Ptr<AgentEnvSm> sm = agentEnvSm(dependent.key())) sm->notificationDefer(AgentEnvSm::kRedispatch);
  }
}

void AgentEnvDirSm::remove(Name const& name) {
  ZET_TRACE_AT("AgentEnvSm", 1) << "AgentEnvConfig deleted: " << name;
  forgetMissingDependency(name);
  if (Ptr<AgentEnvSm> sm = agentEnvSm(name)) {
    sm->maybeDeleteMountConfig();
    sm->maybeLeaveEntity();
  }
  agentEnvSmDel(name);
  statusDir_->agentEnvStatusDel(name);
  ActivityFacility::activityManagerConfig()->activityConfigDel(name);
  dependencyGraphChanged();
}

Ptr<AgentEnvSm> AgentEnvDirSm::agentEnvSmIs(Ptr<ActivityConfig> activity, Ptr<AgentEnvConfig const> config,
                                            Ptr<AgentEnvStatus> status) {
  if (!config) throwRangeException("null ValidPtr");
  auto [sm, made] = sms_.insertMade(config->name(), [&] {
    Ptr<AgentEnvSm> sm = newAgentEnvSm(std::move(activity), config, status);
    if (!sm) throwRangeException("null ValidPtr");
    return sm;
  });
  if (!made) {
    constructorParameterCheck("_status", (*sm)->status(), status);
    return *sm;
  }
  if (!hasNotificationActive()) (*sm)->hasNotificationActiveIs(false);
  return *sm;
}

Ptr<AgentEnvSm> AgentEnvDirSm::newAgentEnvSm(Ptr<ActivityConfig> activity, Ptr<AgentEnvConfig const> config,
                                             Ptr<AgentEnvStatus> status) {
  return Ptr<AgentEnvSm>(new AgentEnvSm(std::move(activity), std::move(config), std::move(status), this));
}

// A removed state machine stops at once, even while members of its
// aggregate still hold it.
void AgentEnvDirSm::agentEnvSmDel(Name const& name) {
  Ptr<AgentEnvSm> const* found = sms_.find(name);
  if (!found) return;
  Ptr<AgentEnvSm> sm = *found;
  sms_.erase(name);
  sm->doShutdown();
}

void AgentEnvDirSm::agentEnvSmDelAll() {
  for (auto it = sms_.begin(); it;) agentEnvSmDel(Name(it->key()));
}

void AgentEnvDirSm::hasNotificationActiveIs(bool active) {
  if (active == hasNotificationActive()) return;
  AgentEnvConfigDir::NotifieeConst::hasNotificationActiveIs(active);
  for (auto const& member : sms_) member.value()->hasNotificationActiveIs(active);
}

}  // namespace Zet
