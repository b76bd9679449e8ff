// Creates the records an agent's environment is made of — an exported tree,
// a mounted store with a nested entry, a locally made cache — gives each a
// status, and prints every record through the generic attribute table.

#include <iostream>

#include "AgentEnv/AgentEnv.h"

using namespace Zet;

namespace {

void print(Entity const& e) {
  std::cout << e.fwkType().name << " " << e.name() << "\n";
  for (auto const& attribute : e.fwkType().attributes)
    std::cout << "  " << attribute.name << " = " << attribute.read(e) << "\n";
}

}  // namespace

int main() {
  Ptr<AgentEnvConfigDir> configs = agentEnvConfigDirFactory("AgentEnvConfigDir");
  Ptr<AgentEnvStatusDir> statuses = agentEnvStatusDirFactory("AgentEnvStatusDir");

  Ptr<AgentEnvConfig> exported = configs->agentEnvConfigIs("export");
  exported->source0Is(EntityUri::exportUri());
  exported->targetIs(EntityUriPath(String8("4000")));
  exported->dependencyIs(Name());

  Ptr<AgentEnvConfig> store = configs->agentEnvConfigIs("store");
  store->source0Is(EntityUri(String8("tcp://db.example:4000/store")));
  store->source1Is(EntityUri(String8("unix://%2Frun%2Fdb.sock/store")));
  store->targetIs(EntityUriPath(String8("/data/store")));
  store->dependencyIs("export");
  store->timeoutPeriodIs(30);

  Ptr<AgentEnvConfig> items = configs->agentEnvConfigIs("items");
  items->aggConfigIs(store);
  items->pathSuffixIs(EntityUri(String8("items")));

  Ptr<AgentEnvConfig> cache = configs->agentEnvConfigIs("cache");
  cache->typeNameIs("Zet::AgentEnvStatusDir");
  cache->targetIs(EntityUriPath(String8("/local/cache")));
  cache->unmountTypeIs(AgentEnvConfig::stateRemoving);

  for (auto const& m : configs->agentEnvConfigs()) statuses->agentEnvStatusIs(m.key());
  statuses->agentEnvStatus("export")->individualStatusIs(AgentEnvStatus::initialized);
  Ptr<AgentEnvStatus> storeStatus = statuses->agentEnvStatus("store");
  storeStatus->statusCodeIs(AgentEnvStatus::disconnected);
  storeStatus->individualStatusIs(AgentEnvStatus::fail);

  std::cout << "libzetAgentEnv " << AgentEnvVersion::string() << " (" << AgentEnvVersion::build() << ")\n\n";
  for (auto const& m : configs->agentEnvConfigs()) print(*m.value());
  for (auto const& m : statuses->agentEnvStatuses()) print(*m.value());
  return 0;
}
