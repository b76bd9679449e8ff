#include "AgentEnv/AgentEnvMonitorDirSm.h"

#include <string>
#include <unordered_map>

#include "Zet/ConstructorParameter.h"

namespace Zet {
namespace {

// The monitors made by the factory, by status directory; each leaves when
// it is destroyed.
std::unordered_map<AgentEnvStatusDir const*, AgentEnvMonitorDirSm*>& monitorsByStatusDir() {
  static std::unordered_map<AgentEnvStatusDir const*, AgentEnvMonitorDirSm*> monitors;
  return monitors;
}

// The activity a monitor runs under: an entry named e1 is monitored under e1Monitor.
std::string monitorActivityText(Name const& name) { return name.str() + "Monitor"; }
Name monitorActivityName(Name const& name) { return Name(monitorActivityText(name)); }

// How many statuses ahead of the one monitored a walk asks for the slots
// the monitoring will look up.
constexpr size_t kReadAhead = 8;

}  // namespace

AgentEnvMonitorDirSm::AgentEnvMonitorDirSm(Ptr<ActivityConfig> activity, Ptr<AgentEnvStatusDir const> statusDir,
                                           Ptr<AgentEnvConfigDir const> configDir)
    : activity_(std::move(activity)), configDir_(std::move(configDir)) {
  if (!statusDir || !configDir_) throwRangeException("null ValidPtr");
  notifierIs(statusDir);
  handleStatus();
}

AgentEnvMonitorDirSm::~AgentEnvMonitorDirSm() {
  auto& registry = monitorsByStatusDir();
  if (auto found = registry.find(statusDir().ptr()); found != registry.end() && found->second == this)
    registry.erase(found);
}

void AgentEnvMonitorDirSm::handleStatus() {
  // Each monitor to make has an activity to make too: their indexes are
  // sized for all of them at once rather than doubled on the way.
  size_t statuses = statusDir()->agentEnvStatusCount();
  size_t toMake = statuses > monitors_.size() ? statuses - monitors_.size() : 0;
  Ptr<ActivityManagerConfig> const& activities = ActivityFacility::activityManagerConfig();
  activities->activityConfigReserve(activities->activityConfigCount() + toMake);
  monitors_.reserve(monitors_.size() + toMake);
  for (auto it = statusDir()->agentEnvStatuses().begin(); it; ++it) {
    if (auto const* next = it.ahead(kReadAhead)) prefetchFor(next->key());
    monitor(Name(it->key()), it->value());
  }
}

void AgentEnvMonitorDirSm::prefetchFor(Name const& name) const {
  monitors_.prefetch(name);
  configDir_->agentEnvConfigs().prefetch(name);
  ActivityFacility::activityManagerConfig()->activityConfigs().prefetchText(monitorActivityText(name));
}

void AgentEnvMonitorDirSm::handleStatus(Name const& name) {
  prefetchFor(name);
  monitor(name, statusDir()->agentEnvStatus(name));
}

void AgentEnvMonitorDirSm::monitor(Name const& name, Ptr<AgentEnvStatus const> const& status) {
  Ptr<AgentEnvConfig const> config = status ? configDir_->agentEnvConfig(name) : nullptr;
  if (!config) return statusSmDel(name);
  // The activity is looked up only for a monitor still to be made.
  Ptr<ActivityConfig> activity;
  if (!monitors_.find(name))
    activity = ActivityFacility::activityManagerConfig()->activityConfigIs(monitorActivityName(name), 10);
  statusSmIs(std::move(activity), name, status, config);
}

Ptr<AgentEnvMonitorSm> AgentEnvMonitorDirSm::statusSmIs(Ptr<ActivityConfig> activity, Name const& name,
                                                        Ptr<AgentEnvStatus const> const& status,
                                                        Ptr<AgentEnvConfig const> const& config) {
  auto [slot, inserted] = monitors_.insertMade(
      name, [&] { return Ptr<AgentEnvMonitorSm>(new AgentEnvMonitorSm(std::move(activity), name, status, config)); });
  if (!inserted) {
    constructorParameterCheck("_status", (*slot)->status(), status);
    constructorParameterCheck("_config", (*slot)->config(), config);
  }
  return *slot;
}

Ptr<AgentEnvMonitorDirSm> agentEnvMonitorDirSmFactory(Ptr<ActivityConfig> activity,
                                                      Ptr<AgentEnvStatusDir const> statusDir,
                                                      Ptr<AgentEnvConfigDir const> configDir) {
  auto& registry = monitorsByStatusDir();
  if (auto found = registry.find(statusDir.ptr()); found != registry.end()) {
    constructorParameterCheck("_configDir", found->second->configDir(), configDir);
    return found->second;
  }
  Ptr<AgentEnvMonitorDirSm> made(new AgentEnvMonitorDirSm(std::move(activity), statusDir, std::move(configDir)));
  registry.emplace(statusDir.ptr(), made.ptr());
  return made;
}

}  // namespace Zet
