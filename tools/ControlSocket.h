#pragma once
// Where a running agent host (agentenv run) lets the tools look at it: a
// domain socket, by default $XDG_RUNTIME_DIR/agentenv-NAME.sock (or
// /tmp/agentenv-UID-NAME.sock without XDG_RUNTIME_DIR), NAME being the
// agent's name (--agent-name, else AGENT_NAME, else "agent"). The socket
// serves the agent's tree, /AgentEnv included, to its own user only.

#include <string>

namespace CLI {
class App;
}

namespace Zet::Tool {

struct ControlSocket {
  std::string given;      // --control unix:PATH (or PATH), as given
  std::string agentName;  // for the default path

  // Declares --control and, for the tools that look at an agent,
  // --agent-name (the agent host has its own, which names the agent).
  void addTo(CLI::App& subcommand, bool withAgentName = true);
  // The socket's path.
  std::string path() const;
  // Where the host writes its process id: the socket's path with ".pid".
  std::string pidFile() const { return path() + ".pid"; }
  // The URI of an entity of the agent's tree behind the socket.
  std::string uri(std::string const& entityPath) const;
};

}  // namespace Zet::Tool
