#include "ConfigDump.h"

#include <algorithm>
#include <ostream>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "PrintableText.h"
#include "SortByKey.h"

namespace Zet::Tool {
namespace {

// Deeper levels print at this indentation, so that output stays linear in
// the number of entries however deep the nesting; aggConfig still tells the
// structure.
constexpr size_t kMaxIndentLevels = 16;

AgentEnvConfig* raw(Ptr<AgentEnvConfig> const& config) { return config.ptr(); }
AgentEnvConfig* raw(AgentEnvConfig* config) { return config; }

template <class Map>
std::vector<AgentEnvConfig*> membersByName(Map const& configs) {
  std::vector<AgentEnvConfig*> members;
  for (auto const& m : configs) members.push_back(raw(m.value()));
  return sortedByName(std::move(members));
}

std::string quoted(std::string_view text) {
  std::string q = "\"";
  for (char const& c : text) {
    if (c == '"' || c == '\\') q += '\\';
    q += printable(std::string_view(&c, 1), true);
  }
  return q + '"';
}

// Names from configuration files are identifiers and print as they are.
std::string nameText(std::string_view name) {
  bool plain = !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
  });
  return plain ? std::string(name) : quoted(name);
}

void printEntry(AgentEnvConfig const& c, size_t depth, std::ostream& out) {
  std::string indent(2 * std::min(depth, kMaxIndentLevels), ' ');
  std::string const field = indent + "  ";
  out << indent << nameText(c.name()) << "\n"
      << field << "configFile: " << quoted(c.configFile()) << "\n"
      << field << "source0: " << quoted(stringValue(c.source0())) << "\n"
      << field << "source1: " << quoted(stringValue(c.source1())) << "\n"
      << field << "pathSuffix: " << quoted(stringValue(c.pathSuffix())) << "\n"
      << field << "target: " << quoted(stringValue(c.target())) << "\n"
      << field << "typeName: " << quoted(c.typeName()) << "\n"
      << field << "dependency: " << quoted(c.dependency()) << "\n"
      << field << "timeoutPeriod: " << stringValue(c.timeoutPeriod()) << "\n"
      << field << "unmountType: " << stringValue(c.unmountType()) << "\n"
      << field << "aggConfig: " << (c.aggConfig() ? nameText(c.aggConfig()->name()) : "(none)") << "\n";
}

}  // namespace

void dumpConfigs(AgentEnvConfigDir const& dir, std::ostream& out) {
  std::vector<AgentEnvConfig*> const all = membersByName(dir.agentEnvConfigs());
  std::unordered_set<AgentEnvConfig const*> printed;
  auto printTree = [&](AgentEnvConfig* root) {
    std::vector<std::pair<AgentEnvConfig*, size_t>> pending{{root, 0}};
    while (!pending.empty()) {
      auto [config, depth] = pending.back();
      pending.pop_back();
      if (!printed.insert(config).second) continue;
      printEntry(*config, depth, out);
      std::vector<AgentEnvConfig*> const members = membersByName(config->nestedConfigs());
      for (auto m = members.rbegin(); m != members.rend(); ++m) pending.emplace_back(*m, depth + 1);
    }
  };
  for (AgentEnvConfig* c : all)
    if (!c->aggConfig()) printTree(c);
  // Entries whose aggregates form a cycle have no root above them.
  for (AgentEnvConfig* c : all)
    if (!printed.contains(c)) printTree(c);
}

}  // namespace Zet::Tool
