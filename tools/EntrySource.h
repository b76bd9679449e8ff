#pragma once
// The options by which a tool is pointed at entries: a running agent
// (--control, --agent-name) or configuration files (-D, FILE...). With files
// given the files are read; otherwise the agent is asked.

#include <string>
#include <vector>

#include "AgentView.h"

namespace CLI {
class App;
}

namespace Zet::Tool {

struct EntrySource {
  ControlSocket control;
  ConfigFiles files;

  void addTo(CLI::App& subcommand);
  // The entries; UsageError when files cannot be read or no agent answers.
  AgentView view(std::string const& who) const;
};

}  // namespace Zet::Tool
