#pragma once
// AgentEnvConfig: one configured environment entry — what to mount,
// instantiate or export, where, and on what entry it depends.
//
// Configs are owned by their AgentEnvConfigDir and share their name with the
// AgentEnvStatus that reports on them. A config may be nested in an
// aggregate config (aggConfig); the aggregate lists its members in
// nestedConfig, which this class keeps as the inverse of aggConfig. Every
// mutator stores the value and notifies only when it changes. Not
// thread-safe: used on the activity-loop thread.

#include <array>
#include <cstdint>
#include <memory>
#include <string_view>

#include "Zet/Entity.h"
#include "Zet/EntityUri.h"
#include "Zet/HashMap.h"

namespace Zet {

class AgentEnvConfigDir;
template <class T>
class MemberCollection;

class AgentEnvConfig : public Entity {
 public:
  // How an entry is torn down when its config goes away.
  enum UnmountType : unsigned { statePreserving = 0, stateRemoving = 1 };

  class NotifieeConst : public TypedNotifiee<AgentEnvConfig> {
   public:
    virtual void onSource0() {}
    virtual void onSource1() {}
    virtual void onTarget() {}
    virtual void onPathSuffix() {}
    virtual void onTypeName() {}
    virtual void onDependency() {}
    virtual void onTimeoutPeriod() {}
    virtual void onAggConfig() {}
    virtual void onNestedConfig(Name const&) {}
    virtual void onUnmountType() {}
    virtual void onConfigFile() {}
    virtual void onNextRound() {}
  };

  // The ids of the attributes in the type descriptor; a state machine's
  // deferred notification of a config change carries the attribute's id.
  enum Attribute : AttributeId {
    source0Id = 0x102,
    dirId,
    source1Id,
    targetId,
    pathSuffixId,
    typeNameId,
    notReadyId,
    dependencyId,
    timeoutPeriodId,
    aggConfigId,
    nestedConfigId,
    unmountTypeId,
    configFileId,
    nextRoundId,
  };

  // The dependency value meaning "a dependency exists but is not yet known".
  static Name const& notReady();
  // Whether a dependency value names another entry ("" and notReady() do not).
  static bool namesEntry(Name const& dependency) { return !dependency.isEmpty() && !(dependency == notReady()); }

  // The directory holding this config: its parent, null once taken out.
  AgentEnvConfigDir* dir() const;
  EntityUri const& source0() const { return source0_; }
  void source0Is(EntityUri const& v) { attributeIs(source0_, v, &NotifieeConst::onSource0); }
  EntityUri const& source1() const { return source1_; }
  void source1Is(EntityUri const& v) { attributeIs(source1_, v, &NotifieeConst::onSource1); }
  EntityUriPath const& target() const { return target_; }
  void targetIs(EntityUriPath const& v) { attributeIs(target_, v, &NotifieeConst::onTarget); }
  EntityUri const& pathSuffix() const { return pathSuffix_; }
  void pathSuffixIs(EntityUri const& v) { attributeIs(pathSuffix_, v, &NotifieeConst::onPathSuffix); }
  String8 const& typeName() const { return typeName_; }
  void typeNameIs(String8 const& v) { attributeIs(typeName_, v, &NotifieeConst::onTypeName); }
  Name const& dependency() const { return dependency_; }
  void dependencyIs(Name const& v) { attributeIs(dependency_, v, &NotifieeConst::onDependency); }
  double timeoutPeriod() const { return timeoutPeriod_; }
  void timeoutPeriodIs(double v) { attributeIs(timeoutPeriod_, v, &NotifieeConst::onTimeoutPeriod); }
  UnmountType unmountType() const { return unmountType_; }
  void unmountTypeIs(UnmountType v) { attributeIs(unmountType_, v, &NotifieeConst::onUnmountType); }
  String8 const& configFile() const { return configFile_; }
  void configFileIs(String8 const& v) { attributeIs(configFile_, v, &NotifieeConst::onConfigFile); }
  uint64_t nextRound() const { return nextRound_; }
  void nextRoundIs(uint64_t v) { attributeIs(nextRound_, v, &NotifieeConst::onNextRound); }
  void nextRoundInc(uint64_t increment) { nextRoundIs(nextRound_ + increment); }

  // The aggregate this config is nested in; null at the outer level.
  Ptr<AgentEnvConfig> const& aggConfig() const { return aggConfig_; }
  // Moves this config to another aggregate: leaves the old one's
  // nestedConfig, joins the new one's, then notifies onAggConfig.
  void aggConfigIs(Ptr<AgentEnvConfig> const& aggregate);

  // The configs nested in this one, keyed by name (not owned).
  HashMap<AgentEnvConfig*> const& nestedConfigs() const;
  AgentEnvConfig* nestedConfig(Name const& name) const { return nestedConfig_ ? nestedConfig_->value(name) : nullptr; }
  // Null is RangeException. Notifies onNestedConfig(name) unless the entry
  // already holds this very config.
  void nestedConfigIs(AgentEnvConfig* config);
  void nestedConfigDel(Name const& name);
  void nestedConfigDelAll();

  ZET_ENTITY_TYPE();

 protected:
  // Leaves its aggregate's nestedConfig: the aggregate keeps raw pointers.
  ~AgentEnvConfig() override;

 private:
  friend class MemberCollection<AgentEnvConfig>;
  friend Ptr<AgentEnvConfig> agentEnvConfigFactory(Name const&, AgentEnvConfigDir*);
  AgentEnvConfig(Name name, AgentEnvConfigDir* dir);
  // Called by the directory once it has taken this config out.
  void removedFromOwner();

  UnmountType unmountType_ = statePreserving;
  EntityUri source0_;
  EntityUri source1_;
  EntityUriPath target_;
  EntityUri pathSuffix_;
  String8 typeName_;
  Name dependency_;
  double timeoutPeriod_ = 600.0;
  Ptr<AgentEnvConfig> aggConfig_;
  std::unique_ptr<HashMap<AgentEnvConfig*>> nestedConfig_;  // made for the first nested config: most have none
  String8 configFile_;
  uint64_t nextRound_ = 0;
};

// A new config of that name in dir (which may be null).
Ptr<AgentEnvConfig> agentEnvConfigFactory(Name const& name, AgentEnvConfigDir* dir);

template <>
struct EnumTexts<AgentEnvConfig::UnmountType> {
  static constexpr std::string_view typeName = "AgentEnvConfig::UnmountType";
  static constexpr std::array<std::string_view, 2> texts = {"statePreserving", "stateRemoving"};
};

}  // namespace Zet
