#include "AgentHost.h"

#include "Zet/TypeMap.h"

namespace Zet::Tool {

Ptr<Entity> agentHostFactory(Name const& name, Entity* parent) { return Ptr<Entity>(new AgentHost(name, parent)); }

// The outcome first: a watcher of the count finds the text of that reload.
void AgentHost::reloadDone(String8 const& outcome) {
  lastReloadIs(outcome);
  reloadsIs(reloads_ + 1);
}

namespace {

using H = AgentHost;
TypeDescriptor const descriptor{
    "Zet::AgentHost",
    agentHostFactory,
    {
        {0x102, "pid", readAs<&H::pid>, writeAs<&H::pidIs>},
        {0x103, "reloads", readAs<&H::reloads>, writeAs<&H::reloadsIs>},
        {0x104, "lastReload", readAs<&H::lastReload>, writeAs<&H::lastReloadIs>},
        {0x105, "reading", readAs<&H::reading>, writeAs<&H::readingIs>},
    },
    {},
};
}  // namespace

ZET_DEFINE_TYPE(AgentHost, descriptor);

}  // namespace Zet::Tool
