#include "DependencyCycles.h"

#include <algorithm>

#include "SortByKey.h"
#include "Zet/HashMap.h"

namespace Zet::Tool {

std::vector<std::vector<AgentEnvConfig const*>> dependencyCycles(AgentEnvConfigDir const& configs) {
  std::vector<AgentEnvConfig const*> entries;
  entries.reserve(configs.agentEnvConfigCount());
  for (auto const& member : configs.agentEnvConfigs()) entries.push_back(member.value().ptr());
  entries = sortedByName(std::move(entries));
  auto byName = [](AgentEnvConfig const* a, AgentEnvConfig const* b) { return a->name().view() < b->name().view(); };
  std::vector<std::vector<AgentEnvConfig const*>> cycles;
  HashMap<int> walkOf;  // the walk that first reached a name
  walkOf.reserve(entries.size());
  int walk = 0;
  std::vector<AgentEnvConfig const*> chain;  // the walk's names so far
  for (AgentEnvConfig const* start : entries) {
    ++walk;
    chain.clear();
    for (AgentEnvConfig const* at = start; at; at = configs.agentEnvConfig(at->dependency()).ptr()) {
      auto [seen, fresh] = walkOf.insert(at->name(), walk);
      if (!fresh) {
        // Reached again in the same walk: the chain from there is a cycle.
        if (*seen == walk) {
          std::vector<AgentEnvConfig const*> cycle(std::find(chain.begin(), chain.end(), at), chain.end());
          std::rotate(cycle.begin(), std::min_element(cycle.begin(), cycle.end(), byName), cycle.end());
          cycles.push_back(std::move(cycle));
        }
        break;
      }
      chain.push_back(at);
      if (!AgentEnvConfig::namesEntry(at->dependency())) break;
    }
  }
  return cycles;
}

}  // namespace Zet::Tool
