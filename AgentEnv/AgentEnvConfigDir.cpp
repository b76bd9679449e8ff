#include "AgentEnv/AgentEnvConfigDir.h"

#include "Zet/TypeMap.h"

namespace Zet {

Ptr<AgentEnvConfigDir> agentEnvConfigDirFactory(Name const& name) {
  return Ptr<AgentEnvConfigDir>(new AgentEnvConfigDir(name));
}

Ptr<Entity> makeAgentEnvConfigDir(Name const& name, Entity* parent) {
  return Ptr<AgentEnvConfigDir>(new AgentEnvConfigDir(name, parent));
}

AgentEnvConfigDir::~AgentEnvConfigDir() { agentEnvConfigDelAll(); }

Ptr<AgentEnvConfig> AgentEnvConfigDir::newAgentEnvConfig(Name const& name) { return agentEnvConfigFactory(name, this); }

Ptr<AgentEnvConfig> AgentEnvConfigDir::agentEnvConfigIs(Name const& name) {
  return memberIs(name, [this](Name const& n) { return newAgentEnvConfig(n); });
}

void AgentEnvConfigDir::memberChanged(Name const& name) {
  notify<NotifieeConst>([&name](NotifieeConst& n) { n.onAgentEnvConfig(name); }, &name);
}

namespace {

using D = AgentEnvConfigDir;
TypeDescriptor const descriptor = memberDirDescriptor<&D::agentEnvConfigs, &D::agentEnvConfigIs, &D::agentEnvConfigDel>(
    "Zet::AgentEnvConfigDir", makeAgentEnvConfigDir, "agentEnvConfig", "agentEnvConfig-inverse-dir");
}  // namespace

ZET_DEFINE_TYPE(AgentEnvConfigDir, descriptor);

}  // namespace Zet
