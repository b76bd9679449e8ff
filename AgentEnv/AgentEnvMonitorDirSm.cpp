#include "AgentEnv/AgentEnvMonitorDirSm.h"

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

Name monitorActivityName(Name const& name) {
  std::string text(name.view());
  text += "Monitor";
  return Name(String8(text));
}

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
  for (auto it = statusDir()->agentEnvStatuses().begin(); it; ++it) handleStatus(Name(it->key()));
}

void AgentEnvMonitorDirSm::handleStatus(Name const& name) {
  Ptr<AgentEnvStatus const> status = statusDir()->agentEnvStatus(name);
  Ptr<AgentEnvConfig const> config = configDir_->agentEnvConfig(name);
  if (!status || !config) return statusSmDel(name);
  Ptr<ActivityConfig> activity = ActivityFacility::activityManagerConfig()->activityConfigIs(monitorActivityName(name), 10);
  statusSmIs(activity, name, status, config);
}

Ptr<AgentEnvMonitorSm> AgentEnvMonitorDirSm::statusSmIs(Ptr<ActivityConfig> activity, Name const& name,
                                                        Ptr<AgentEnvStatus const> const& status,
                                                        Ptr<AgentEnvConfig const> const& config) {
  if (Ptr<AgentEnvMonitorSm> existing = monitors_.value(name)) {
    constructorParameterCheck("_status", existing->status(), status);
    constructorParameterCheck("_config", existing->config(), config);
    return existing;
  }
  Ptr<AgentEnvMonitorSm> made(new AgentEnvMonitorSm(std::move(activity), name, status, config));
  monitors_.assign(name, made);
  return made;
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
