// AgentEnvSm: export. An entry whose source is "*" makes this process's own
// entity tree available to other processes: its target is the TCP port or
// the domain socket the attribute-log service listens on. A listener that
// cannot open (a port another process holds, a socket path in a missing
// folder) fails the entry, with the listener's words as its reason, and the
// export is tried again after a pause that doubles up to a cap, so an
// endpoint that comes free is taken without outside help.

#include <algorithm>
#include <cstdlib>

#include "AgentEnv/AgentEnvSm.h"
#include "AgentEnv/AgentEnvSmReactors.h"
#include "AgentEnv/AgentEnvSmTrace.h"
#include "Zet/NboAttrLog.h"

namespace Zet {

bool AgentEnvSm::doExportAttemptOrReport() {
  try {
    Expect expected(kListenException);
    bool exported = doExportAttempt();
    if (exported) exportRetry_.reset();
    return exported;
  } catch (ListenException const& e) {
    return doReportExportFailure(e);
  }
}

// The retry runs on the loop; the state machine cancels it when it stops.
bool AgentEnvSm::doReportExportFailure(ListenException const& e) {
  SM_TRACE(0) << ": Fail: Export failed: " << e.text();
  outcomeIs(AgentEnvStatus::none, AgentEnvStatus::fail, e.text());
  if (!exportRetry_) exportRetry_ = std::make_unique<ExportRetry>();
  if (exportRetry_->timer) return false;
  exportRetry_->timer = ActivityFacility::loop().timerIs(exportRetry_->delay, [this] {
    exportRetry_->timer = 0;
    if (notificationActive_ && mode_ == exp) doActionIfReady();
  });
  exportRetry_->delay = std::min(exportRetry_->delay * 2, ExportRetry::kMaxDelay);
  return false;
}

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
