#include "DependencyCycles.h"

#include <algorithm>
#include <map>
#include <string>

namespace Zet::Tool {

std::vector<std::vector<AgentEnvConfig const*>> dependencyCycles(AgentEnvConfigDir const& configs) {
  std::vector<AgentEnvConfig const*> entries;
  for (auto const& member : configs.agentEnvConfigs()) entries.push_back(member.value().ptr());
  auto byName = [](AgentEnvConfig const* a, AgentEnvConfig const* b) { return a->name().view() < b->name().view(); };
  std::sort(entries.begin(), entries.end(), byName);
  std::vector<std::vector<AgentEnvConfig const*>> cycles;
  std::map<std::string, int> walkOf;  // the walk that first reached a name
  int walk = 0;
  for (AgentEnvConfig const* start : entries) {
    ++walk;
    std::vector<AgentEnvConfig const*> chain;
    for (AgentEnvConfig const* at = start; at; at = configs.agentEnvConfig(at->dependency()).ptr()) {
      auto [seen, fresh] = walkOf.emplace(at->name().str(), walk);
      if (!fresh) {
        // Reached again in the same walk: the chain from there is a cycle.
        if (seen->second == walk) {
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
