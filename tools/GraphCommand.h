#pragma once
// agentenv graph [--control unix:PATH | --agent-name NAME]
// agentenv graph [-D NAME=VALUE]... FILE...
//
// Writes the entries as a Graphviz DOT graph on standard output: an arrow
// from each entry to the entry it depends on (solid, red and bold on a
// cycle), a dashed arrow from each member to its aggregate; with a running
// agent, nodes are coloured by group status. Render it with
// `dot -Tsvg -o entries.svg`.

#include "EntrySource.h"
#include "Subcommand.h"

namespace Zet::Tool {

class GraphCommand : public Subcommand {
 public:
  CLI::App* addTo(CLI::App& app) override;
  int run() override;

 private:
  EntrySource source_;
};

}  // namespace Zet::Tool
