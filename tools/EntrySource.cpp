#include "EntrySource.h"

#include <CLI/CLI.hpp>

#include "Subcommand.h"

namespace Zet::Tool {

void EntrySource::addTo(CLI::App& subcommand) {
  control.addTo(subcommand, true, true);
  files.addTo(subcommand);
}

AgentView EntrySource::view(std::string const& who) const {
  if (!control.remote.empty() && !files.files.empty())
    throw UsageError("--remote looks at a running agent: give it without files");
  return files.files.empty() ? AgentView::ofAgent(control) : AgentView::ofCleanFiles(files, who);
}

}  // namespace Zet::Tool
