#include "ControlSocket.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cctype>

#include "Zet/EntityUri.h"
#include "Zet/System.h"

namespace Zet::Tool {

namespace {

// The path a remote URI may name besides the agent's root: its status
// directory, whose sibling holds the configs.
constexpr std::string_view kStatusDir = "/AgentEnv/AgentEnvStatusDir";

std::string remoteProblem(std::string const& text) {
  EntityUri uri{String8(text)};
  if (uri.isValid() && uri.scheme() != EntityUri::Scheme::none && text.find('?') == std::string::npos) return "";
  return "'" + text + "' is not tls://HOST:PORT (or tcp://, unix://), optionally with the agent's path";
}

}  // namespace

void ControlSocket::addTo(CLI::App& subcommand, bool withAgentName, bool withRemote) {
  CLI::Option* control =
      subcommand.add_option("--control", given, "the agent's control socket (default: named after the agent)")
          ->type_name("unix:PATH");
  CLI::Option* name = nullptr;
  if (withAgentName)
    name = subcommand.add_option("--agent-name", agentName, "the agent whose default control socket to use")
               ->type_name("NAME");
  if (!withRemote) return;
  CLI::Option* remoteOption =
      subcommand
          .add_option("--remote", remote,
                      "an agent on another machine, through its exported port, with the certificates of "
                      "ZET_ATTRLOG_TLS_CERT, ZET_ATTRLOG_TLS_KEY and ZET_ATTRLOG_TLS_CA")
          ->type_name("tls://HOST:PORT")
          ->check(remoteProblem)
          ->excludes(control);
  if (name) remoteOption->excludes(name);
}

std::string ControlSocket::path() const {
  if (!given.empty()) return given.starts_with("unix:") ? given.substr(5) : given;
  std::string name = agentName;
  if (name.empty()) name = System::getenv("AGENT_NAME").str();
  if (name.empty()) name = "agent";
  std::string runtime = System::getenv("XDG_RUNTIME_DIR").str();
  if (!runtime.empty()) return runtime + "/agentenv-" + name + ".sock";
  return "/tmp/agentenv-" + std::to_string(::getuid()) + "-" + name + ".sock";
}

std::string ControlSocket::uri(std::string const& entityPath) const {
  if (!remote.empty()) {
    std::string_view root = remote;
    while (root.ends_with('/')) root.remove_suffix(1);
    if (root.ends_with(kStatusDir)) root.remove_suffix(kStatusDir.size());
    while (root.ends_with('/')) root.remove_suffix(1);
    return std::string(root) + entityPath;
  }
  std::string out = "unix://";
  for (char c : path()) {
    static char const hex[] = "0123456789ABCDEF";
    bool plain = std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_' || c == '.' || c == '~';
    if (plain) {
      out += c;
    } else {
      out += '%';
      out += hex[static_cast<unsigned char>(c) >> 4];
      out += hex[static_cast<unsigned char>(c) & 15];
    }
  }
  return out + entityPath;
}

}  // namespace Zet::Tool
