#pragma once
// AgentEnvMonitorSm: reports one entry's own failure. It watches the
// entry's status and, each time its individual status changes to fail,
// error or unsupported (or to a value it does not know), writes one line on
// standard error:
//
//   [AGENT_NAME " (host:" host "): "][configFile ": "]name ": fail: " message
//
// It only reads the status and the config. Its reactions run on its
// activity, named after the entry with "Monitor" appended. It is itself the
// status's notifiee (privately: nobody else binds it), so that a monitor made
// for every entry of a large agent carries no separate reactor.

#include "AgentEnv/AgentEnvConfig.h"
#include "AgentEnv/AgentEnvStatus.h"
#include "Zet/Reactor.h"

namespace Zet {

class AgentEnvMonitorSm : public PtrInterface, public Reactor, private AgentEnvStatus::NotifieeConst {
 public:
  AgentEnvMonitorSm(Ptr<ActivityConfig> activity, Name name, Ptr<AgentEnvStatus const> status,
                    Ptr<AgentEnvConfig const> config);
  ~AgentEnvMonitorSm() override;

  Name const& name() const { return name_; }
  Ptr<AgentEnvStatus const> status() const { return notifier(); }
  Ptr<AgentEnvConfig const> const& config() const { return config_; }

  // Writes the report for the status as it stands, when it is a failure.
  void handleStatus();

 protected:
  void onNotification(int) override { handleStatus(); }

 private:
  void onIndividualStatus() override { notificationDefer(0); }

  Name name_;
  Ptr<AgentEnvConfig const> config_;
};

}  // namespace Zet
