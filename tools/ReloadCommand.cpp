#include "ReloadCommand.h"

#include <signal.h>

#include <CLI/CLI.hpp>
#include <fstream>

#include "Help.h"

namespace Zet::Tool {

CLI::App* ReloadCommand::addTo(CLI::App& app) {
  CLI::App* reload = app.add_subcommand("reload", "make a running agent read its files again");
  helpIs(*reload, "usage: agentenv reload [--control unix:PATH | --agent-name NAME]",
         "Sends SIGHUP to the 'agentenv run' behind the control socket: it reads its files\n"
         "again and applies what 'agentenv plan' shows.\n");
  control_.addTo(*reload);
  reload->footer("Exit status: 0 the agent was told, 2 bad arguments or no agent there.");
  return reload;
}

int ReloadCommand::run() {
  pid_t pid = 0;
  std::ifstream(control_.pidFile()) >> pid;
  if (pid <= 0 || ::kill(pid, SIGHUP) != 0) throw UsageError("no agent host runs at " + control_.path());
  return kExitOk;
}

}  // namespace Zet::Tool
