#include "AgentEnv/AgentEnvMode.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "Zet/Format.h"

namespace Zet {

AgentEnvConfig const& modeConfig(AgentEnvConfig const& config) {
  AgentEnvConfig const* aggregate = config.aggConfig().ptr();
  return aggregate ? *aggregate : config;
}

AgentEnvMode modeOfSource(EntityUri const& rootSource0) {
  if (rootSource0.isExport()) return AgentEnvMode::exp;
  return rootSource0.isEmpty() ? AgentEnvMode::instantiate : AgentEnvMode::mount;
}

AgentEnvMode modeAskedFor(AgentEnvConfig const& config) { return modeOfSource(modeConfig(config).source0()); }

bool isMountSource(EntityUri const& uri) { return !uri.isEmpty() && !uri.isExport(); }

ExportEndpoint exportEndpoint(String8 const& target) {
  ExportEndpoint endpoint;
  errno = 0;
  long number = std::strtol(target.charPtr(), nullptr, 10);
  endpoint.port = static_cast<unsigned short>(number);
  // Port 0 would listen nowhere: "0" and "65536" are socket paths.
  if (endpoint.port == 0) {
    endpoint.socketPath = target;
    return endpoint;
  }
  std::string_view text = target.view();
  bool digitsOnly = std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
  endpoint.portAsWritten = digitsOnly && errno == 0 && number == endpoint.port;
  return endpoint;
}

String8 ExportEndpoint::text() const {
  if (isPort()) return format("TCP port %u", unsigned(port));
  if (isNowhere()) return String8("nowhere");
  return format("domain socket '%s'", socketPath.charPtr());
}

}  // namespace Zet
