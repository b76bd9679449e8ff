#pragma once
// agentenv reload [--control unix:PATH | --agent-name NAME]
//
// Tells a running agent host to read its files again (SIGHUP, to the
// process id it wrote beside its control socket). Exit status: kExitOk when
// told, kExitUsage when no host runs there.

#include "ControlSocket.h"
#include "Subcommand.h"

namespace Zet::Tool {

class ReloadCommand : public Subcommand {
 public:
  CLI::App* addTo(CLI::App& app) override;
  int run() override;

 private:
  ControlSocket control_;
};

}  // namespace Zet::Tool
