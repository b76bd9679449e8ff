#include "ConfigPlan.h"

#include <algorithm>
#include <map>

#include "AgentEnv/AgentEnvConsistency.h"
#include "AgentEnv/AgentEnvMode.h"

namespace Zet::Tool {
namespace {

using St = AgentEnvStatus;

// The attributes the language sets, as the descriptor has them; the
// aggregate is compared by name apart (its text is a full name, which
// differs between directories).
bool compared(AttributeDescriptor const& a) {
  return a.write && a.name != "configFile" && a.name != "nextRound" && a.name != "aggConfig";
}

std::string aggregateName(AgentEnvConfig const& c) { return c.aggConfig() ? c.aggConfig()->name().str() : ""; }

std::vector<std::string> differences(AgentEnvConfig const& was, AgentEnvConfig const& wanted) {
  std::vector<std::string> out;
  for (auto const& a : AgentEnvConfig::type().attributes) {
    if (!compared(a)) continue;
    String8 before = a.read(was), after = a.read(wanted);
    if (!(before == after)) out.push_back(std::string(a.name) + ": \"" + before.str() + "\" → \"" + after.str() + "\"");
  }
  if (aggregateName(was) != aggregateName(wanted))
    out.push_back("aggConfig: \"" + aggregateName(was) + "\" → \"" + aggregateName(wanted) + "\"");
  return out;
}

// The mode an entry is realised in, as far as its config and status tell:
// none until it has acted.
AgentEnvMode realisedMode(AgentEnvConfig const& config, AgentEnvStatus const* status) {
  if (!status || status->individualStatus() == St::notApplicable) return AgentEnvMode::init;
  return modeAskedFor(config);
}

}  // namespace

std::string kindText(EntryChange::Kind kind) {
  static char const* const texts[] = {"added", "removed", "unchanged", "updated", "refused"};
  return texts[kind];
}

std::vector<EntryChange> planChanges(AgentEnvConfigDir const& running, AgentEnvStatusDir const* statuses,
                                     AgentEnvConfigDir const& wanted) {
  std::vector<EntryChange> plan;
  for (auto const& member : wanted.agentEnvConfigs()) {
    AgentEnvConfig const& next = *member.value();
    Ptr<AgentEnvConfig> was = running.agentEnvConfig(next.name());
    if (!was) {
      plan.push_back({next.name().str(), EntryChange::added, {}});
      continue;
    }
    std::vector<std::string> details = differences(*was, next);
    if (details.empty()) {
      plan.push_back({next.name().str(), EntryChange::unchanged, {}});
      continue;
    }
    Ptr<AgentEnvStatus> status = statuses ? statuses->agentEnvStatus(next.name()) : nullptr;
    AgentEnvMode mode = realisedMode(*was, status.ptr());
    EntityUriPath inEffect = mode == AgentEnvMode::init ? EntityUriPath() : was->target();
    auto refused =
        consistencyRefusal({mode, next, modeConfig(next).source0(), was->source0(), next.target(), inEffect});
    if (refused)
      plan.push_back({next.name().str(), EntryChange::refused, {stringValue(refused->code).str() + refused->trace}});
    else
      plan.push_back({next.name().str(), EntryChange::updated, std::move(details)});
  }
  for (auto const& member : running.agentEnvConfigs())
    if (!wanted.agentEnvConfig(Name(member.key()))) plan.push_back({member.key().str(), EntryChange::removed, {}});
  std::sort(plan.begin(), plan.end(), [](auto const& a, auto const& b) { return a.entry < b.entry; });
  return plan;
}

void applyPlan(AgentEnvConfigDir& running, AgentEnvConfigDir const& wanted, std::vector<EntryChange> const& plan) {
  // Removed entries go first, so that an entry replacing one at its target
  // finds the place free (or taken over, as its unmount type says).
  for (auto const& change : plan)
    if (change.kind == EntryChange::removed) running.agentEnvConfigDel(Name(String8(change.entry)));
  // Every added entry exists before any attribute is written, so that an
  // aggregate named by a member is there.
  for (auto const& change : plan)
    if (change.kind == EntryChange::added) running.agentEnvConfigIs(Name(String8(change.entry)));
  for (auto const& change : plan) {
    if (change.kind != EntryChange::added && change.kind != EntryChange::updated) continue;
    Name name(String8(change.entry));
    AgentEnvConfig const& next = *wanted.agentEnvConfig(name);
    Ptr<AgentEnvConfig> config = running.agentEnvConfig(name);
    config->configFileIs(next.configFile());
    std::string aggregate = aggregateName(next);
    config->aggConfigIs(aggregate.empty() ? nullptr : running.agentEnvConfig(Name(String8(aggregate))));
    for (auto const& a : AgentEnvConfig::type().attributes)
      if (compared(a)) a.write(*config, a.read(next).view());
  }
}

}  // namespace Zet::Tool
