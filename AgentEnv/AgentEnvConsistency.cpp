#include "AgentEnv/AgentEnvConsistency.h"

namespace Zet {
namespace {

using Sc = AgentEnvStatus::StatusCode;

// The last name of a URI's entity path; empty when it has none.
std::string_view lastName(EntityUri const& uri) {
  return uri.entityPath().lastNameText();
}

// The text a path is compared by as an ancestor.
std::string_view ancestorText(EntityUriPath const& ancestor) { return ancestor.textWithoutTrailingSlash(); }

// Whether `ancestor` is a proper ancestor path of `path`.
bool isAncestorPath(EntityUriPath const& ancestor, EntityUriPath const& path) {
  std::string_view a = ancestorText(ancestor);
  std::string_view p = path.text().view();
  if (a.empty() || a.size() >= p.size() || !p.starts_with(a)) return false;
  return a == "/" || p[a.size()] == '/';
}

std::string quoted(std::string_view text) {
  std::string out(1, '"');
  out.append(text).push_back('"');
  return out;
}

ConsistencyRefusal refusal(Sc code, std::string trace) { return {code, std::move(trace)}; }

}  // namespace

bool mayBeAncestorPath(EntityUriPath const& ancestor, size_t pathSize) {
  return ancestorText(ancestor).size() < pathSize;
}

std::optional<ConsistencyRefusal> consistencyRefusal(ConsistencyCase const& c) {
  EntityUri const& source0 = c.config.source0();
  EntityUri const& source1 = c.config.source1();
  Ptr<AgentEnvConfig> const& aggregate = c.config.aggConfig();
  if (c.mode != AgentEnvMode::init) {
    if (modeOfSource(c.rootSource0) != c.mode)
      return refusal(AgentEnvStatus::switchedModes, ": Unsupported: Tried to switch modes");
    if (isAncestorPath(c.target, c.inEffect))
      return refusal(AgentEnvStatus::grandparent, ": Unsupported: Tried to create grandparent");
  }
  if (c.mode == AgentEnvMode::mount && isMountSource(c.realisedSource0) && !(source0 == c.realisedSource0) &&
      lastName(source0) != lastName(c.realisedSource0))
    return refusal(AgentEnvStatus::sourceNameMismatch,
                   ": Unsupported: Last component of path in new source0 is " + quoted(lastName(source0)) +
                       ". Does not match last component of old source0: " + quoted(lastName(c.realisedSource0)));
  if (isMountSource(source0) && isMountSource(source1) && !(source0.query() == source1.query()))
    return refusal(AgentEnvStatus::flagsMismatch, ": Unsupported: Source1 flags don't match those of source0.");
  if (aggregate && !source0.isEmpty() && !aggregate->source0().isEmpty())
    return refusal(AgentEnvStatus::overrideSource, ": Unsupported: Tried to override source0 in nested config.");
  if (aggregate && !source1.isEmpty() && !aggregate->source1().isEmpty())
    return refusal(AgentEnvStatus::overrideSource, ": Unsupported: Tried to override source1 in nested config.");
  if (aggregate && isMountSource(aggregate->source0()) && !c.config.target().isEmpty())
    return refusal(AgentEnvStatus::overrideTarget, ": Unsupported: Tried to override target in nested mount config.");
  if (isMountSource(source0) && isMountSource(source1) && lastName(source0) != lastName(source1))
    return refusal(AgentEnvStatus::sourceNameMismatch,
                   ": Unsupported: Last component of path in source1 is " + quoted(lastName(source1)) +
                       ". Does not match last component of source0: " + quoted(lastName(source0)));
  return std::nullopt;
}

}  // namespace Zet
