#pragma once
// AgentEnvConfigDir: the configs of an agent, keyed by name and owned here.
// The configuration-file parser fills it; the state machines watch it.
// Not thread-safe: used on the activity-loop thread.

#include "AgentEnv/AgentEnvConfig.h"
#include "Zet/MemberDir.h"

namespace Zet {

class AgentEnvConfigDir : public MemberDir<AgentEnvConfig> {
 public:
  class NotifieeConst : public TypedNotifiee<AgentEnvConfigDir> {
   public:
    // A config of that name was added or removed.
    virtual void onAgentEnvConfig(Name const&) {}
  };

  ~AgentEnvConfigDir() override;

  Ptr<AgentEnvConfig> agentEnvConfig(Name const& name) const { return member(name); }
  size_t agentEnvConfigCount() const { return memberCount(); }
  HashMap<Ptr<AgentEnvConfig>, KeyedByName> const& agentEnvConfigs() const { return members(); }

  // The config of that name; a new one (notifying onAgentEnvConfig) when
  // there is none. RangeException "null ValidPtr" if none could be made.
  Ptr<AgentEnvConfig> agentEnvConfigIs(Name const& name);
  // Removes the config (notifying onAgentEnvConfig) and takes it out of its
  // aggregate; absent names are ignored.
  void agentEnvConfigDel(Name const& name) { memberDel(name); }
  void agentEnvConfigDelAll() { memberDelAll(); }

  ZET_ENTITY_TYPE();

 protected:
  explicit AgentEnvConfigDir(Name name, Entity* parent = nullptr) : MemberDir(std::move(name), parent) {}
  // Makes the member; the default is agentEnvConfigFactory.
  virtual Ptr<AgentEnvConfig> newAgentEnvConfig(Name const& name);

 private:
  void memberChanged(Name const& name) override;
  friend Ptr<AgentEnvConfigDir> agentEnvConfigDirFactory(Name const&);
  friend Ptr<Entity> makeAgentEnvConfigDir(Name const&, Entity*);
};

Ptr<AgentEnvConfigDir> agentEnvConfigDirFactory(Name const& name);

}  // namespace Zet
