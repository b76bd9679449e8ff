#pragma once
// AgentEnvMonitorSm: reports one entry's own failure. It watches the
// entry's status and, each time its individual status changes to fail,
// error or unsupported (or to a value it does not know), writes one line on
// standard error:
//
//   [AGENT_NAME " (host:" host "): "][configFile ": "]name ": fail: " message
//
// It only reads the status and the config. Its reactions run on its
// activity, named after the entry with "Monitor" appended.

#include "AgentEnv/AgentEnvConfig.h"
#include "AgentEnv/AgentEnvStatus.h"
#include "Zet/Reactor.h"

namespace Zet {

class AgentEnvMonitorSm : public PtrInterface, public Reactor {
 public:
  AgentEnvMonitorSm(Ptr<ActivityConfig> activity, Name name, Ptr<AgentEnvStatus const> status,
                    Ptr<AgentEnvConfig const> config);
  ~AgentEnvMonitorSm() override;

  Name const& name() const { return name_; }
  Ptr<AgentEnvStatus const> status() const { return statusReactor_.notifier(); }
  Ptr<AgentEnvConfig const> const& config() const { return config_; }

  // Writes the report for the status as it stands, when it is a failure.
  void handleStatus();

 protected:
  void onNotification(int) override { handleStatus(); }

 private:
  class StatusReactor : public AgentEnvStatus::NotifieeConst {
   public:
    explicit StatusReactor(AgentEnvMonitorSm& sm) : sm_(sm) {}
    void onIndividualStatus() override { sm_.notificationDefer(0); }

   private:
    AgentEnvMonitorSm& sm_;
  };

  Name name_;
  Ptr<AgentEnvConfig const> config_;
  StatusReactor statusReactor_{*this};
};

}  // namespace Zet
