#pragma once
// AgentEnvMonitorDirSm: keeps one AgentEnvMonitorSm for every status of a
// status directory that has a config of the same name, checked on the
// directory's notifications and on the first scan (the config directory
// tells it nothing): a config added after its status gets its monitor at the
// next notification for that name. It only reads both directories.

#include "AgentEnv/AgentEnvConfigDir.h"
#include "AgentEnv/AgentEnvMonitorSm.h"
#include "AgentEnv/AgentEnvStatusDir.h"
#include "Zet/HashMap.h"

namespace Zet {

class AgentEnvMonitorDirSm : public PtrInterface, public AgentEnvStatusDir::NotifieeConst {
 public:
  AgentEnvMonitorDirSm(Ptr<ActivityConfig> activity, Ptr<AgentEnvStatusDir const> statusDir,
                       Ptr<AgentEnvConfigDir const> configDir);
  ~AgentEnvMonitorDirSm() override;

  Ptr<ActivityConfig> const& activity() const { return activity_; }
  Ptr<AgentEnvStatusDir const> statusDir() const { return notifier(); }
  Ptr<AgentEnvConfigDir const> const& configDir() const { return configDir_; }

  // Reconciles every status, in the directory's order, or one name.
  void handleStatus();
  void handleStatus(Name const& name);
  void onAgentEnvStatus(Name const& name) override { handleStatus(name); }

  // The monitor of that name, made when absent. NameInUseException when one
  // exists with another status or config.
  Ptr<AgentEnvMonitorSm> statusSmIs(Ptr<ActivityConfig> activity, Name const& name,
                                    Ptr<AgentEnvStatus const> const& status, Ptr<AgentEnvConfig const> const& config);
  Ptr<AgentEnvMonitorSm> statusSm(Name const& name) const { return monitors_.value(name); }
  size_t statusSmCount() const { return monitors_.size(); }
  void statusSmDel(Name const& name) { monitors_.erase(name); }
  void statusSmDelAll() { monitors_.clear(); }

 private:
  // Makes or checks the monitor of the status of that name; a status or a
  // config that is gone removes it.
  void monitor(Name const& name, Ptr<AgentEnvStatus const> const& status);
  // Starts reading the index slots that monitoring `name` looks up (see
  // AgentEnvDirSm::prefetchFor).
  void prefetchFor(Name const& name) const;

  Ptr<ActivityConfig> activity_;
  Ptr<AgentEnvConfigDir const> configDir_;
  HashMap<Ptr<AgentEnvMonitorSm>, KeyedByName> monitors_;
};

// The monitor of statusDir: made with these arguments when the directory has
// none, the existing one when it has one with the same config directory.
// NameInUseException when it has one over another config directory.
Ptr<AgentEnvMonitorDirSm> agentEnvMonitorDirSmFactory(Ptr<ActivityConfig> activity,
                                                      Ptr<AgentEnvStatusDir const> statusDir,
                                                      Ptr<AgentEnvConfigDir const> configDir);

}  // namespace Zet
