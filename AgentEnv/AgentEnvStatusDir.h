#pragma once
// AgentEnvStatusDir: the statuses of an agent's configs, keyed by name and
// owned here. Not thread-safe: used on the activity-loop thread.

#include "AgentEnv/AgentEnvStatus.h"
#include "Zet/MemberCollection.h"

namespace Zet {

class AgentEnvStatusDir : public Entity {
 public:
  class NotifieeConst : public TypedNotifiee<AgentEnvStatusDir> {
   public:
    // A status of that name was added or removed.
    virtual void onAgentEnvStatus(Name const&) {}
  };

  ~AgentEnvStatusDir() override;

  Ptr<AgentEnvStatus> agentEnvStatus(Name const& name) const { return statuses_.member(name); }
  size_t agentEnvStatusCount() const { return statuses_.size(); }
  HashMap<Ptr<AgentEnvStatus>> const& agentEnvStatuses() const { return statuses_.members(); }

  // The status of that name; a new one (notifying onAgentEnvStatus) when
  // there is none. RangeException "null ValidPtr" if none could be made.
  Ptr<AgentEnvStatus> agentEnvStatusIs(Name const& name);
  // Removes the status (notifying onAgentEnvStatus); absent names are ignored.
  void agentEnvStatusDel(Name const& name);
  void agentEnvStatusDelAll();

  ZET_ENTITY_TYPE();

 protected:
  explicit AgentEnvStatusDir(Name name, Entity* parent = nullptr) : Entity(std::move(name), parent) {}
  // Makes the member; the default is agentEnvStatusFactory.
  virtual Ptr<AgentEnvStatus> newAgentEnvStatus(Name const& name);

 private:
  // Notifies the change of one member.
  void memberChanged(Name const& name);
  friend Ptr<AgentEnvStatusDir> agentEnvStatusDirFactory(Name const&);
  friend Ptr<Entity> makeAgentEnvStatusDir(Name const&, Entity*);

  MemberCollection<AgentEnvStatus> statuses_;
};

Ptr<AgentEnvStatusDir> agentEnvStatusDirFactory(Name const& name);

}  // namespace Zet
