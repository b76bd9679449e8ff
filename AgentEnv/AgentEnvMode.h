#pragma once
// What an entry's config asks for, decided here once: the state machines, the
// consistency rules and the agentenv command all ask these functions, so that
// what is shown, planned and done cannot disagree.
//
//   - The mode: an entry whose root config (its aggregate's, for a member;
//     its own otherwise) has source0 "*" exports, one with another source0
//     mounts, one without source0 instantiates.
//   - Where an export listens: its target's leading decimal digits make a TCP
//     port, cut to 16 bits; a target without them is a domain socket path.
//
// Pure functions of the values given; safe on any thread.

#include <array>
#include <string_view>

#include "AgentEnv/AgentEnvConfig.h"
#include "Zet/EntityUri.h"
#include "Zet/String8.h"
#include "Zet/Value.h"

namespace Zet {

// How an entry is realised. init: not yet (nothing has acted).
enum class AgentEnvMode : uint8_t { init, instantiate, mount, exp };

// The config whose source0 decides an entry's mode.
AgentEnvConfig const& modeConfig(AgentEnvConfig const& config);
// The mode a root source0 asks for (never init).
AgentEnvMode modeOfSource(EntityUri const& rootSource0);
// The mode an entry's config asks for: modeOfSource of its root config.
AgentEnvMode modeAskedFor(AgentEnvConfig const& config);
// Whether a source names a remote entity to mount (neither empty nor "*").
bool isMountSource(EntityUri const& uri);

// Where an export with this target listens.
struct ExportEndpoint {
  unsigned short port = 0;  // the TCP port; 0 for a domain socket
  String8 socketPath;       // the domain socket's path; empty for a port
  // For a port: whether the target is exactly the port's digits (not a
  // larger number cut to 16 bits, nor digits followed by other text).
  bool portAsWritten = true;

  bool isPort() const { return port != 0; }
  bool isNowhere() const { return port == 0 && socketPath.isEmpty(); }
  // "TCP port 7001", "domain socket '/run/a.sock'", "nowhere".
  String8 text() const;
};
ExportEndpoint exportEndpoint(String8 const& target);

template <>
struct EnumTexts<AgentEnvMode> {
  static constexpr std::string_view typeName = "AgentEnvSm::Mode";
  static constexpr std::array<std::string_view, 4> texts = {"init", "instantiate", "mount", "exp"};
};

}  // namespace Zet
