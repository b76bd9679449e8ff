#include "AgentEnv/AgentEnvStatusDir.h"

#include "Zet/TypeMap.h"

namespace Zet {

Ptr<AgentEnvStatusDir> agentEnvStatusDirFactory(Name const& name) {
  return Ptr<AgentEnvStatusDir>(new AgentEnvStatusDir(name));
}

Ptr<Entity> makeAgentEnvStatusDir(Name const& name, Entity* parent) {
  return Ptr<AgentEnvStatusDir>(new AgentEnvStatusDir(name, parent));
}

AgentEnvStatusDir::~AgentEnvStatusDir() { agentEnvStatusDelAll(); }

Ptr<AgentEnvStatus> AgentEnvStatusDir::newAgentEnvStatus(Name const& name) { return agentEnvStatusFactory(name, this); }

Ptr<AgentEnvStatus> AgentEnvStatusDir::agentEnvStatusIs(Name const& name) {
  return memberIs(name, [this](Name const& n) { return newAgentEnvStatus(n); });
}

void AgentEnvStatusDir::memberChanged(Name const& name) {
  notify<NotifieeConst>([&name](NotifieeConst& n) { n.onAgentEnvStatus(name); }, &name);
}

namespace {

using D = AgentEnvStatusDir;
TypeDescriptor const descriptor =
    memberDirDescriptor<&D::agentEnvStatuses, &D::agentEnvStatusIs, &D::agentEnvStatusDel>(
        "Zet::AgentEnvStatusDir", makeAgentEnvStatusDir, "agentEnvStatus", "agentEnvStatus-inverse-dir");
}  // namespace

ZET_DEFINE_TYPE(AgentEnvStatusDir, descriptor);

}  // namespace Zet
