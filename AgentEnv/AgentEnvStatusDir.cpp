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
  bool created = false;
  Ptr<AgentEnvStatus> status =
      statuses_.memberIs(name, [this](Name const& n) { return newAgentEnvStatus(n); }, created);
  if (created) notify<NotifieeConst>([&name](NotifieeConst& n) { n.onAgentEnvStatus(name); });
  return status;
}

void AgentEnvStatusDir::agentEnvStatusDel(Name const& name) {
  Ptr<AgentEnvStatus> status = statuses_.memberDel(name);
  if (!status) return;
  notify<NotifieeConst>([&name](NotifieeConst& n) { n.onAgentEnvStatus(name); });
  status->removedFromDir();
}

void AgentEnvStatusDir::agentEnvStatusDelAll() {
  for (auto it = statuses_.members().begin(); it;) agentEnvStatusDel(Name(it->key()));
}

namespace {

using D = AgentEnvStatusDir;
TypeDescriptor const descriptor{
    "Zet::AgentEnvStatusDir",
    makeAgentEnvStatusDir,
    {{0x102, "agentEnvStatus", readKeys<&D::agentEnvStatuses>, nullptr}},
    {
        {"agentEnvStatus-inverse-dir", membersPointBack<&D::agentEnvStatuses>},
        {"count is members count", membersCounted<&D::agentEnvStatuses>},
    },
};
ZET_REGISTER_TYPE(descriptor);

}  // namespace

TypeDescriptor const& AgentEnvStatusDir::type() { return descriptor; }
TypeDescriptor const& AgentEnvStatusDir::fwkType() const { return descriptor; }

}  // namespace Zet
