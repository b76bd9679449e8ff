#pragma once
// MountConfig: one request to the mount facility to bring an entity of
// another process into this one. It names the two candidate sources it was
// made with (source0 tried first, source1 the alternative), how the source
// is split into a prefix and a name, the absolute path at which the entity is
// to appear, and how the mount behaves (rounds, timeout, unmounting,
// aggregate mounts). The facility answers in the MountStatus of the same
// name. Not thread-safe: used on the activity-loop thread.

#include <array>
#include <cstdint>
#include <string_view>

#include "Zet/Entity.h"
#include "Zet/EntityUri.h"
#include "Zet/MemberCollection.h"

namespace Zet {

class MountConfigDir;

class MountConfig : public Entity {
 public:
  // What unmounting leaves behind: the mounted entities as they were, or
  // nothing.
  enum UnmountType : unsigned { statePreserving, stateRemoving };

  class NotifieeConst : public TypedNotifiee<MountConfig> {
   public:
    virtual void onSourcePre0() {}
    virtual void onSourcePre1() {}
    virtual void onSourceName() {}
    virtual void onTargetName() {}
    virtual void onNextRound() {}
    virtual void onInitTimeoutPeriod() {}
    virtual void onUnmountType() {}
    virtual void onAggMount() {}
  };

  // The sources the config was made with; fixed for its lifetime.
  EntityUri const& source0() const { return source0_; }
  EntityUri const& source1() const { return source1_; }

  // The part of each source above the mounted entity (for prefix mounts).
  EntityUri const& sourcePre0() const { return sourcePre0_; }
  void sourcePre0Is(EntityUri const& v) { attributeIs(sourcePre0_, v, &NotifieeConst::onSourcePre0); }
  EntityUri const& sourcePre1() const { return sourcePre1_; }
  void sourcePre1Is(EntityUri const& v) { attributeIs(sourcePre1_, v, &NotifieeConst::onSourcePre1); }
  // The name of the source entity below the prefix.
  EntityUri const& sourceName() const { return sourceName_; }
  void sourceNameIs(EntityUri const& v) { attributeIs(sourceName_, v, &NotifieeConst::onSourceName); }
  // Where the mounted entity appears in this process's tree.
  EntityUriPath const& targetName() const { return targetName_; }
  void targetNameIs(EntityUriPath const& v) { attributeIs(targetName_, v, &NotifieeConst::onTargetName); }
  // Raising it asks for a new mount round; the status reports the round done.
  uint64_t nextRound() const { return nextRound_; }
  void nextRoundIs(uint64_t v) { attributeIs(nextRound_, v, &NotifieeConst::onNextRound); }
  // Seconds the first round may take before it counts as timed out.
  double initTimeoutPeriod() const { return initTimeoutPeriod_; }
  void initTimeoutPeriodIs(double v) { attributeIs(initTimeoutPeriod_, v, &NotifieeConst::onInitTimeoutPeriod); }
  UnmountType unmountType() const { return unmountType_; }
  void unmountTypeIs(UnmountType v) { attributeIs(unmountType_, v, &NotifieeConst::onUnmountType); }
  // Whether this mount brings in an aggregate's members under one prefix.
  bool aggMount() const { return aggMount_; }
  void aggMountIs(bool v) { attributeIs(aggMount_, v, &NotifieeConst::onAggMount); }

  ZET_ENTITY_TYPE();

 private:
  friend class MemberCollection<MountConfig>;
  friend Ptr<MountConfig> mountConfigFactory(Name const&, Entity*, EntityUri const&, EntityUri const&);
  MountConfig(Name name, Entity* parent, EntityUri source0, EntityUri source1);
  // Called by the directory once it has taken this config out.
  void removedFromOwner() { parentIs(nullptr); }

  EntityUri source0_;
  EntityUri source1_;
  EntityUri sourcePre0_;
  EntityUri sourcePre1_;
  EntityUri sourceName_;
  EntityUriPath targetName_;
  uint64_t nextRound_ = 0;
  double initTimeoutPeriod_ = 600.0;
  UnmountType unmountType_ = statePreserving;
  bool aggMount_ = false;
};

// A new mount config of that name in `parent` (which may be null).
Ptr<MountConfig> mountConfigFactory(Name const& name, Entity* parent, EntityUri const& source0,
                                    EntityUri const& source1);

template <>
struct EnumTexts<MountConfig::UnmountType> {
  static constexpr std::string_view typeName = "MountConfig::UnmountType";
  static constexpr std::array<std::string_view, 2> texts = {"statePreserving", "stateRemoving"};
};

}  // namespace Zet
