// AgentEnvSm: export. An entry whose source is "*" makes this process's own
// entity tree available to other processes: its target is the TCP port or
// the domain socket the attribute-log service listens on.

#include <cstdlib>

#include "AgentEnv/AgentEnvSm.h"
#include "AgentEnv/AgentEnvSmTrace.h"
#include "Zet/NboAttrLog.h"

namespace Zet {

bool AgentEnvSm::doExportAttempt() {
  SM_TRACE(2) << ": Do Export Attempt " << inQuotes(config_->target());
  if (mode_ != init && mode_ != exp) return doRefuseSwitchedModes();
  modeIs(exp);
  String8 const& target = config_->target().text();
  // Leading decimal digits make a port, cut to 16 bits; anything else is a
  // socket path (even "0": port 0 would listen nowhere).
  auto port = static_cast<unsigned short>(std::strtol(target.charPtr(), nullptr, 10));
  Ptr<NboAttrLog::ConnectionDir> connections = NboAttrLog::connectionDir();
  if (connections->listenPort() != 0 && port == 65535) return false;
  if (port == 0) {
    if (target.isEmpty()) return false;
    SM_TRACE(2) << ": Exporting on domain socket " << target;
    connections->listenDomainSockIs(target);
    SM_TRACE(2) << ": Exported on domain socket " << target;
  } else {
    SM_TRACE(2) << ": Exporting on port " << port;
    connections->listenPortIs(port);
    SM_TRACE(2) << ": Exported on port " << port;
  }
  status_->currentSourceIs(config_->source0());
  status_->individualStatusIs(AgentEnvStatus::initialized);
  return true;
}

}  // namespace Zet
