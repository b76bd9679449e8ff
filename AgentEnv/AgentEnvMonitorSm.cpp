#include "AgentEnv/AgentEnvMonitorSm.h"

#include <cstdio>
#include <string>

#include "AgentEnv/AgentEnvRoot.h"
#include "Zet/System.h"

namespace Zet {

AgentEnvMonitorSm::AgentEnvMonitorSm(Ptr<ActivityConfig> activity, Name name, Ptr<AgentEnvStatus const> status,
                                     Ptr<AgentEnvConfig const> config)
    : Reactor(std::move(activity)), name_(std::move(name)), config_(std::move(config)) {
  if (!status || !config_) throwRangeException("null ValidPtr");
  notifierIs(status);
  activate();
  // A status that has failed already is reported too (from the loop, as a
  // change would be); one that has not is reported when it changes.
  if (status->individualStatus() >= AgentEnvStatus::fail) notificationDefer(0);
}

AgentEnvMonitorSm::~AgentEnvMonitorSm() = default;

void AgentEnvMonitorSm::handleStatus() {
  Ptr<AgentEnvStatus const> status = this->status();
  if (!status) return;
  AgentEnvStatus::Status individual = status->individualStatus();
  if (individual < AgentEnvStatus::fail) return;
  std::string line;
  String8 agent = System::getenv("AGENT_NAME");
  if (!agent.isEmpty()) line.append(agent.view()).append(" (host:").append(System::hostname().view()).append("): ");
  if (!config_->configFile().isEmpty()) line.append(config_->configFile().view()).append(": ");
  line.append(status->name().view()).append(": ");
  switch (individual) {
    case AgentEnvStatus::error: line += "error: "; break;
    case AgentEnvStatus::unsupported: line += "unsupported: "; break;
    case AgentEnvStatus::fail: line += "fail: "; break;
    default:
      line.append(status->name().view()).append(": monitor received unknown status ");
      line.append(stringValue(individual).view()).append("\n");
      break;
  }
  line.append(AgentEnv::statusMessage(status, config_).view()).append("\n");
  std::fputs(line.c_str(), stderr);
  std::fflush(stderr);
}

}  // namespace Zet
