#pragma once
// The consistency rules: whether a config, as it now stands, can be applied
// to an entry already realised in a mode. The state machines check every
// config change against them (a refused change leaves the entry
// unsupported for good); `agentenv plan` asks them before a reload.

#include <optional>
#include <string>

#include "AgentEnv/AgentEnvConfig.h"
#include "AgentEnv/AgentEnvMode.h"
#include "AgentEnv/AgentEnvStatus.h"

namespace Zet {

struct ConsistencyRefusal {
  AgentEnvStatus::StatusCode code;
  std::string trace;  // what the state machine traces, after the entry's name
};

struct ConsistencyCase {
  AgentEnvMode mode;                 // the mode the entry is in (init: nothing realised yet)
  AgentEnvConfig const& config;      // the config as it now stands
  EntityUri const& rootSource0;      // source0 of the config's root (itself, or its aggregate)
  EntityUri const& realisedSource0;  // the source0 the entry was realised from (empty when none)
  EntityUriPath const& target;       // where the config now puts the entity (read unless init)
  EntityUriPath const& inEffect;     // where the realised entity is (empty when none; read unless init)
};

// The first rule the case breaks, or none.
std::optional<ConsistencyRefusal> consistencyRefusal(ConsistencyCase const& c);

// Whether `ancestor` can be a proper ancestor of a path `pathSize`
// characters long: where it cannot, the rules pass whatever path is in
// effect, and a caller may leave that path unmade (empty).
bool mayBeAncestorPath(EntityUriPath const& ancestor, size_t pathSize);

}  // namespace Zet
