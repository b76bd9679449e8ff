#pragma once
// MountStatus: the mount facility's account of one mount, named after its
// MountConfig. `state` says where the mount stands and `code` why; `round`
// is the last round done (compare MountConfig::nextRound), `currentSource`
// the source in use and `mountedEntity` what was brought in. The facility
// writes it; the mount's requester watches it. Not thread-safe: used on the
// activity-loop thread.
//
// States:
//   notMounted   nothing is mounted and nothing is under way (the start)
//   inProgress   a round is under way; the entity is not there yet
//   complete     the entity is mounted: mountedEntity holds it
//   failed       the round did not succeed for a reason that may pass
//                (source unreachable, entity not there yet, timed out);
//                another round may succeed
//   error        the round cannot succeed as configured (protocol version,
//                permission, an exception in the facility)
// The code is `ok` while nothing went wrong; in `failed` and `error` it
// tells why.

#include <array>
#include <cstdint>
#include <string_view>

#include "Zet/Entity.h"
#include "Zet/EntityUri.h"
#include "Zet/MemberCollection.h"

namespace Zet {

class MountStatus : public Entity {
 public:
  enum State : unsigned { notMounted, inProgress, complete, failed, error };
  enum Code : unsigned {
    ok,
    entityNotFound,
    exception,
    disconnected,
    timedOut,
    protocolVersionMismatch,
    permissionDenied,
    groupCode,  // a member of an aggregate mount failed
  };

  class NotifieeConst : public TypedNotifiee<MountStatus> {
   public:
    virtual void onState() {}
    virtual void onCode() {}
    virtual void onRound() {}
    virtual void onCurrentSource() {}
    virtual void onMountedEntity() {}
    virtual void onReason() {}
  };

  State state() const { return state_; }
  void stateIs(State v) { attributeIs(state_, v, &NotifieeConst::onState); }
  Code code() const { return code_; }
  void codeIs(Code v) { attributeIs(code_, v, &NotifieeConst::onCode); }
  uint64_t round() const { return round_; }
  void roundIs(uint64_t v) { attributeIs(round_, v, &NotifieeConst::onRound); }
  EntityUri const& currentSource() const { return currentSource_; }
  void currentSourceIs(EntityUri const& v) { attributeIs(currentSource_, v, &NotifieeConst::onCurrentSource); }
  Ptr<Entity> const& mountedEntity() const { return mountedEntity_; }
  void mountedEntityIs(Ptr<Entity> const& v) { attributeIs(mountedEntity_, v, &NotifieeConst::onMountedEntity); }
  // Why the mount is failed or in error, in words ("cannot connect to
  // domain socket '/run/a.sock': No such file or directory"); empty
  // otherwise. Written before the state it explains.
  String8 const& reason() const { return reason_; }
  void reasonIs(String8 const& v) { attributeIs(reason_, v, &NotifieeConst::onReason); }

  ZET_ENTITY_TYPE();

 private:
  friend class MemberCollection<MountStatus>;
  friend Ptr<MountStatus> mountStatusFactory(Name const&, Entity*);
  MountStatus(Name name, Entity* parent) : Entity(std::move(name), parent) {}
  // Called by the directory once it has taken this status out.
  void removedFromOwner() { parentIs(nullptr); }

  State state_ = notMounted;
  Code code_ = ok;
  uint64_t round_ = 0;
  EntityUri currentSource_;
  Ptr<Entity> mountedEntity_;
  String8 reason_;
};

// A new status of that name in `parent` (which may be null).
Ptr<MountStatus> mountStatusFactory(Name const& name, Entity* parent);

template <>
struct EnumTexts<MountStatus::State> {
  static constexpr std::string_view typeName = "MountStatus::State";
  static constexpr std::array<std::string_view, 5> texts = {"notMounted", "inProgress", "complete", "failed",
                                                            "error"};
};

template <>
struct EnumTexts<MountStatus::Code> {
  static constexpr std::string_view typeName = "MountStatus::Code";
  static constexpr std::array<std::string_view, 8> texts = {
      "ok", "entityNotFound", "exception", "disconnected", "timedOut", "protocolVersionMismatch", "permissionDenied",
      "groupCode"};
};

}  // namespace Zet
