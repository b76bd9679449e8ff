#include "ControlSocket.h"

#include <unistd.h>

#include <cctype>

#include <CLI/CLI.hpp>

#include "Zet/System.h"

namespace Zet::Tool {

void ControlSocket::addTo(CLI::App& subcommand, bool withAgentName) {
  subcommand.add_option("--control", given, "the agent's control socket (default: named after the agent)")
      ->type_name("unix:PATH");
  if (withAgentName)
    subcommand.add_option("--agent-name", agentName, "the agent whose default control socket to use")
        ->type_name("NAME");
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
