#include "AgentEnv/AgentEnvStatus.h"

#include "AgentEnv/AgentEnvStatusDir.h"
#include "Zet/TypeMap.h"

namespace Zet {

AgentEnvStatus::AgentEnvStatus(Name name, AgentEnvStatusDir* dir) : Entity(std::move(name), dir) {}

AgentEnvStatusDir* AgentEnvStatus::dir() const { return static_cast<AgentEnvStatusDir*>(parent()); }

Ptr<AgentEnvStatus> agentEnvStatusFactory(Name const& name, AgentEnvStatusDir* dir) {
  return Ptr<AgentEnvStatus>(new AgentEnvStatus(name, dir));
}

void AgentEnvStatus::removedFromOwner() {
  parentIs(nullptr);
}

namespace {

Ptr<Entity> makeFromTypeMap(Name const& name, Entity* parent) {
  return agentEnvStatusFactory(name, dynamic_cast<AgentEnvStatusDir*>(parent));
}

String8 readDir(Entity const& e) {
  auto const* dir = static_cast<AgentEnvStatus const&>(e).dir();
  return dir ? dir->fullName() : String8();
}

using S = AgentEnvStatus;
TypeDescriptor const descriptor{
    "Zet::AgentEnvStatus",
    makeFromTypeMap,
    {
        {0x102, "currentSource", readAs<&S::currentSource>, writeAs<&S::currentSourceIs>},
        {0x103, "dir", readDir, nullptr},
        {0x104, "individualStatus", readAs<&S::individualStatus>, writeAs<&S::individualStatusIs>},
        {0x105, "groupStatus", readAs<&S::groupStatus>, writeAs<&S::groupStatusIs>},
        {0x106, "statusCode", readAs<&S::statusCode>, writeAs<&S::statusCodeIs>},
        {0x107, "entity", readAs<&S::entity>, nullptr},
        {0x108, "round", readAs<&S::round>, writeAs<&S::roundIs>},
        {0x109, "reason", readAs<&S::reason>, writeAs<&S::reasonIs>},
    },
    {},
};
}  // namespace

ZET_DEFINE_TYPE(AgentEnvStatus, descriptor);

}  // namespace Zet
