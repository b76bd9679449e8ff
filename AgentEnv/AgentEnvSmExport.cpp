// AgentEnvSm: export. An entry whose source is "*" makes this process's own
// entity tree available to other processes: its target is the TCP port or
// the domain socket the attribute-log service listens on. A listener that
// cannot open (a port another process holds, a socket path in a missing
// folder) fails the entry, with the listener's words as its reason, and the
// export is tried again after a pause that doubles up to a cap, so an
// endpoint that comes free is taken without outside help.

#include <algorithm>

#include "AgentEnv/AgentEnvMode.h"
#include "AgentEnv/AgentEnvSm.h"
#include "AgentEnv/AgentEnvSmReactors.h"
#include "AgentEnv/AgentEnvSmTrace.h"
#include "Zet/Format.h"
#include "Zet/NboAttrLog.h"

namespace Zet {

AgentEnvSm::Exporting& AgentEnvSm::exporting() {
  std::unique_ptr<Exporting>& exporting = extras().exporting;
  if (!exporting) exporting = std::make_unique<Exporting>();
  return *exporting;
}

AgentEnvSm::EndpointReactor* AgentEnvSm::endpointReactor() const {
  return extras_ && extras_->exporting ? extras_->exporting->endpoint.get() : nullptr;
}

bool AgentEnvSm::doExportAttemptOrReport() {
  try {
    Expect expected(kListenException);
    if (!doExportAttempt()) return false;
  } catch (ListenException const& e) {
    return doReportExportFailure(e);
  }
  // Listening: the endpoint is watched from now on, the pause starts afresh.
  Exporting& e = exporting();
  auto connections = NboAttrLog::connectionDir();
  e.listening = exportEndpoint(config_->target().text());
  e.delay = Exporting::kFirstDelay;
  e.replaced = false;
  if (!e.endpoint) {
    e.endpoint = std::make_unique<EndpointReactor>(*this);
    e.endpoint->notifierIs(connections);
  }
  return true;
}

void AgentEnvSm::handleExportEndpoint() {
  if (!endpointReactor() || consistency_ == inconsistent || mode_ != exp || !status_) return;
  auto connections = NboAttrLog::connectionDir();
  Exporting& e = exporting();
  ExportEndpoint const& ours = e.listening;
  ExportEndpoint now = ours.isPort() ? ExportEndpoint{connections->listenPort(), {}}
                                     : ExportEndpoint{0, connections->listenDomainSock()};
  bool held = ours.isPort() ? now.port == ours.port : now.socketPath == ours.socketPath;
  if (held == !e.replaced) return;
  e.replaced = !held;
  if (held) return status_->individualStatusIs(AgentEnvStatus::initialized);
  SM_TRACE(0) << ": Error: Export replaced: the process now listens on " << now.text();
  outcomeIs(AgentEnvStatus::none, AgentEnvStatus::error,
            format("replaced by another export: this process listens on one %s only, now %s",
                   ours.isPort() ? "TCP port" : "domain socket", now.text().charPtr()));
}

// The retry runs on the loop; the state machine cancels it when it stops.
bool AgentEnvSm::doReportExportFailure(ListenException const& e) {
  SM_TRACE(0) << ": Fail: Export failed: " << e.text();
  outcomeIs(AgentEnvStatus::none, AgentEnvStatus::fail, e.text());
  Exporting& exporting = this->exporting();
  if (exporting.timer) return false;
  exporting.timer = ActivityFacility::loop().timerIs(exporting.delay, [this] {
    this->exporting().timer = 0;
    if (notificationActive_ && mode_ == exp) doActionIfReady();
  });
  exporting.delay = std::min(exporting.delay * 2, Exporting::kMaxDelay);
  return false;
}

bool AgentEnvSm::doExportAttempt() {
  SM_TRACE(2) << ": Do Export Attempt " << inQuotes(config_->target());
  if (!mayActIn(exp)) return doRefuseSwitchedModes();
  modeIs(exp);
  ExportEndpoint endpoint = exportEndpoint(config_->target().text());
  Ptr<NboAttrLog::ConnectionDir> connections = NboAttrLog::connectionDir();
  if (connections->listenPort() != 0 && endpoint.port == 65535) return false;
  if (endpoint.isNowhere()) return false;
  if (!endpoint.isPort()) {
    SM_TRACE(2) << ": Exporting on domain socket " << endpoint.socketPath;
    connections->listenDomainSockIs(endpoint.socketPath);
    SM_TRACE(2) << ": Exported on domain socket " << endpoint.socketPath;
  } else {
    SM_TRACE(2) << ": Exporting on port " << endpoint.port;
    connections->listenPortIs(endpoint.port);
    SM_TRACE(2) << ": Exported on port " << endpoint.port;
  }
  status_->currentSourceIs(config_->source0());
  status_->individualStatusIs(AgentEnvStatus::initialized);
  return true;
}

}  // namespace Zet
