#pragma once
// AgentEnvStatusDir: the statuses of an agent's configs, keyed by name and
// owned here. Not thread-safe: used on the activity-loop thread.

#include "AgentEnv/AgentEnvStatus.h"
#include "Zet/MemberDir.h"

namespace Zet {

class AgentEnvStatusDir : public MemberDir<AgentEnvStatus> {
 public:
  class NotifieeConst : public TypedNotifiee<AgentEnvStatusDir> {
   public:
    // A status of that name was added or removed.
    virtual void onAgentEnvStatus(Name const&) {}
  };

  ~AgentEnvStatusDir() override;

  Ptr<AgentEnvStatus> agentEnvStatus(Name const& name) const { return member(name); }
  size_t agentEnvStatusCount() const { return memberCount(); }
  HashMap<Ptr<AgentEnvStatus>, KeyedByName> const& agentEnvStatuses() const { return members(); }
  // Room for that many statuses in all, made at once (see HashMap::reserve).
  void agentEnvStatusReserve(size_t statuses) { memberReserve(statuses); }

  // The status of that name; a new one (notifying onAgentEnvStatus) when
  // there is none. RangeException "null ValidPtr" if none could be made.
  Ptr<AgentEnvStatus> agentEnvStatusIs(Name const& name);
  // Removes the status (notifying onAgentEnvStatus); absent names are ignored.
  void agentEnvStatusDel(Name const& name) { memberDel(name); }
  void agentEnvStatusDelAll() { memberDelAll(); }

  ZET_ENTITY_TYPE();

 protected:
  explicit AgentEnvStatusDir(Name name, Entity* parent = nullptr) : MemberDir(std::move(name), parent) {}
  // Makes the member; the default is agentEnvStatusFactory.
  virtual Ptr<AgentEnvStatus> newAgentEnvStatus(Name const& name);

 private:
  void memberChanged(Name const& name) override;
  friend Ptr<AgentEnvStatusDir> agentEnvStatusDirFactory(Name const&);
  friend Ptr<Entity> makeAgentEnvStatusDir(Name const&, Entity*);
};

Ptr<AgentEnvStatusDir> agentEnvStatusDirFactory(Name const& name);

}  // namespace Zet
