#pragma once
// Where a running agent host (agentenv run) lets the tools look at it: a
// domain socket, by default $XDG_RUNTIME_DIR/agentenv-NAME.sock (or
// /tmp/agentenv-UID-NAME.sock without XDG_RUNTIME_DIR), NAME being the
// agent's name (--agent-name, else AGENT_NAME, else "agent"). The socket
// serves the agent's tree, /AgentEnv included, to its own user only, whole:
// the bounds on what a peer watches and on snapshots waiting for it are for
// the agent's other peers.
//
// An agent on another machine is looked at through the port its export
// listens on (--remote tls://HOST:PORT), with this process's certificates
// (ZET_ATTRLOG_TLS_*): its statuses and configs are mounted as from the
// control socket, read-only like every mirror.

#include <string>

namespace CLI {
class App;
}

namespace Zet::Tool {

struct ControlSocket {
  std::string given;      // --control unix:PATH (or PATH), as given
  std::string agentName;  // for the default path
  std::string remote;     // --remote URI: the root of another machine's agent

  // Declares --control and, for the tools that look at an agent,
  // --agent-name (the agent host has its own, which names the agent), and
  // for those that only read, --remote.
  void addTo(CLI::App& subcommand, bool withAgentName = true, bool withRemote = false);
  // The socket's path.
  std::string path() const;
  // Where the agent is, for messages: the remote URI or the socket's path.
  std::string where() const { return remote.empty() ? path() : remote; }
  // Where the host writes its process id: the socket's path with ".pid".
  std::string pidFile() const { return path() + ".pid"; }
  // The URI of an entity of the agent's tree behind the socket.
  std::string uri(std::string const& entityPath) const;
};

}  // namespace Zet::Tool
