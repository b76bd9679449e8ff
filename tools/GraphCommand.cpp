#include "GraphCommand.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <set>
#include <vector>

#include "DependencyCycles.h"
#include "Help.h"
#include "PrintableText.h"
#include "SortByKey.h"

namespace Zet::Tool {
namespace {

using St = AgentEnvStatus;

std::string quoted(std::string_view text) {
  std::string out = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return printable(out + '"');
}

char const* colour(St::Status s) {
  switch (s) {
    case St::initialized:
      return "palegreen";
    case St::inProgress:
      return "khaki";
    case St::fail:
    case St::error:
      return "salmon";
    case St::unsupported:
      return "lightgrey";
    default:
      return "white";
  }
}

// The names on dependency cycles.
std::set<std::string> namesOnCycles(AgentEnvConfigDir const& configs) {
  std::set<std::string> onCycle;
  for (auto const& cycle : dependencyCycles(configs))
    for (AgentEnvConfig const* e : cycle) onCycle.insert(e->name().str());
  return onCycle;
}

}  // namespace

CLI::App* GraphCommand::addTo(CLI::App& app) {
  CLI::App* graph = app.add_subcommand("graph", "draw the entries and their dependencies (Graphviz DOT)");
  helpIs(*graph,
         "usage: agentenv graph [--control unix:PATH | --agent-name NAME | --remote tls://HOST:PORT]\n"
         "       agentenv graph [-D NAME=VALUE]... FILE...",
         "Writes the entries of a running agent, or of configuration files, as a Graphviz\n"
         "DOT graph: an arrow from each entry to its dependency (red and bold on a\n"
         "cycle), a dashed arrow from each member to its aggregate, nodes coloured by\n"
         "group status for a running agent. For a picture: ... | dot -Tsvg -o entries.svg\n");
  source_.addTo(*graph);
  graph->footer("Exit status: 0, or 2 for bad arguments, an unreadable file or no agent.");
  return graph;
}

int GraphCommand::run() {
  AgentView view = source_.view("graph");
  std::set<std::string> onCycle = namesOnCycles(*view.configs);
  std::vector<AgentEnvConfig const*> entries;
  for (auto const& member : view.configs->agentEnvConfigs()) entries.push_back(member.value().ptr());
  entries = sortedByName(std::move(entries));
  std::ostream& out = std::cout;
  out << "digraph agentenv {\n  rankdir=LR;\n  node [shape=box, style=filled, fillcolor=white];\n";
  for (AgentEnvConfig const* e : entries) {
    out << "  " << quoted(e->name().view());
    if (Ptr<AgentEnvStatus const> s = view.status(e->name()))
      out << " [fillcolor=" << colour(s->groupStatus()) << ", tooltip=" << quoted(stringValue(s->groupStatus()).view())
          << "]";
    out << ";\n";
  }
  for (AgentEnvConfig const* e : entries) {
    if (AgentEnvConfig::namesEntry(e->dependency())) {
      bool cycle = onCycle.count(e->name().str()) && onCycle.count(e->dependency().str());
      out << "  " << quoted(e->name().view()) << " -> " << quoted(e->dependency().view())
          << (cycle ? " [color=red, penwidth=2, label=\"cycle\"]" : "") << ";\n";
    }
    if (e->aggConfig())
      out << "  " << quoted(e->name().view()) << " -> " << quoted(e->aggConfig()->name().view())
          << " [style=dashed, arrowhead=empty];\n";
  }
  out << "}\n";
  out.flush();
  return kExitOk;
}

}  // namespace Zet::Tool
