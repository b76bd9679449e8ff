// Uses the installed headers and libraries: makes a config and reads it back.
#include <iostream>

#include "AgentEnv/AgentEnv.h"

int main() {
  auto dir = Zet::agentEnvConfigDirFactory("configs");
  auto config = dir->agentEnvConfigIs("store");
  config->targetIs(Zet::EntityUriPath(Zet::String8("/data/store")));
  bool ok = config->target().isAbsolute() && Zet::AgentEnvVersion::string() == "2.1.0";
  std::cout << "consumer: " << config->name() << " -> " << config->target() << " with libzetAgentEnv "
            << zet_AgentEnvVersion_string() << (ok ? "" : " (unexpected)") << "\n";
  return ok ? 0 : 1;
}
