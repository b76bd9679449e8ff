#include "EntrySource.h"

#include <CLI/CLI.hpp>

#include "Subcommand.h"

namespace Zet::Tool {

void EntrySource::addTo(CLI::App& subcommand) {
  control.addTo(subcommand);
  files.addTo(subcommand);
}

AgentView EntrySource::view(std::string const& who) const {
  if (files.files.empty()) return AgentView::ofAgent(control);
  Findings findings;
  AgentView view = AgentView::ofFiles(files, who, findings);
  if (findings.unreadableFile) throw UsageError("a configuration file could not be read");
  return view;
}

}  // namespace Zet::Tool
