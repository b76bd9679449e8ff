#pragma once
// AgentEnvDirSmWrapper: the entity through which the directory tree holds an
// AgentEnvDirSm ("/AgentEnv/AgentEnvDirSm"). Not thread-safe.

#include "AgentEnv/AgentEnvDirSm.h"
#include "Zet/Entity.h"

namespace Zet {

class AgentEnvDirSmWrapper : public Entity {
 public:
  class NotifieeConst : public TypedNotifiee<AgentEnvDirSmWrapper> {
   public:
    virtual void onAdsm() {}
  };

  Ptr<AgentEnvDirSm> const& adsm() const { return adsm_; }
  // The state machine over these two directories: the one held when it
  // already watches and writes them, else a new one (notifying onAdsm).
  // RangeException "null ValidPtr" when none could be made.
  Ptr<AgentEnvDirSm> adsmIs(Ptr<AgentEnvConfigDir const> const& configDir, Ptr<AgentEnvStatusDir> const& statusDir);
  // Drops the state machine (notifying onAdsm when there was one), which
  // drops every AgentEnvSm it owns; returns it.
  Ptr<AgentEnvDirSm> adsmDel();

  // "adsm" for its one attribute, "unknown" for any other identifier.
  String8 attributeString(AttributeId id) const override;

  ZET_ENTITY_TYPE();

 protected:
  virtual Ptr<AgentEnvDirSm> newAdsm(Ptr<AgentEnvConfigDir const> const& configDir,
                                     Ptr<AgentEnvStatusDir> const& statusDir);

 private:
  friend Ptr<AgentEnvDirSmWrapper> agentEnvDirSmWrapperFactory(Name const&);
  friend Ptr<Entity> makeAgentEnvDirSmWrapper(Name const&, Entity*);
  AgentEnvDirSmWrapper(Name name, Entity* parent) : Entity(std::move(name), parent) {}

  Ptr<AgentEnvDirSm> adsm_;
};

Ptr<AgentEnvDirSmWrapper> agentEnvDirSmWrapperFactory(Name const& name);

}  // namespace Zet
