#pragma once
// AgentHost: what an agent host (agentenv run) says about itself on its
// control socket, at /AgentHost: its process id, how it reads its files, and
// how many reloads it has done with the outcome of the last. 'agentenv
// reload' mounts it, so that it signals the process that answers on the
// socket (never one a stale pid file names) and reports what the reload did;
// 'agentenv plan' reads the files as the host does.

#include <cstdint>

#include "Zet/Entity.h"

namespace Zet::Tool {

class AgentHost : public Entity {
 public:
  class NotifieeConst : public TypedNotifiee<AgentHost> {
   public:
    virtual void onPid() {}
    virtual void onReloads() {}
    virtual void onLastReload() {}
    virtual void onReading() {}
  };

  uint64_t pid() const { return pid_; }
  void pidIs(uint64_t v) { attributeIs(pid_, v, &NotifieeConst::onPid); }
  // Counts the reloads done; lastReload tells the outcome of the last:
  // "applied: ..." with the counts, or "refused: ..." with why.
  uint64_t reloads() const { return reloads_; }
  void reloadsIs(uint64_t v) { attributeIs(reloads_, v, &NotifieeConst::onReloads); }
  String8 const& lastReload() const { return lastReload_; }
  void lastReloadIs(String8 const& v) { attributeIs(lastReload_, v, &NotifieeConst::onLastReload); }
  // How the host reads its files: FilesReading (ConfigReading.h) as JSON.
  String8 const& reading() const { return reading_; }
  void readingIs(String8 const& v) { attributeIs(reading_, v, &NotifieeConst::onReading); }
  // Records the outcome of one more reload.
  void reloadDone(String8 const& outcome);

  ZET_ENTITY_TYPE();

 private:
  friend Ptr<Entity> agentHostFactory(Name const& name, Entity* parent);
  AgentHost(Name name, Entity* parent) : Entity(std::move(name), parent) {}

  uint64_t pid_ = 0;
  uint64_t reloads_ = 0;
  String8 lastReload_;
  String8 reading_;
};

Ptr<Entity> agentHostFactory(Name const& name, Entity* parent = nullptr);

}  // namespace Zet::Tool
