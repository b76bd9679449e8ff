#pragma once
// AgentEnvStatus: the outcome of one config (same name): its own status, the
// status of the config with its nested configs, the reason code, the entity
// brought in and the mount round it describes, and, where the code cannot
// say it, why a failure happened in the words of what failed. Written by the
// state machines, watched by the monitor. Not thread-safe.

#include <array>
#include <cstdint>
#include <string_view>

#include "Zet/Entity.h"
#include "Zet/EntityUri.h"

namespace Zet {

class AgentEnvStatusDir;
template <class T>
class MemberCollection;

class AgentEnvStatus : public Entity {
 public:
  enum Status : unsigned { notApplicable, inProgress, initialized, fail, error, unsupported };
  // Why a status is what it is; 1 to 7 are the mount facility's codes.
  enum StatusCode : unsigned {
    none,
    mountEntityNotFound,
    mountException,
    mountProtocolVersionMismatch,
    mountPermissionDenied,
    mountGroupCode,
    disconnected,
    timedOut,
    dependencyNotFound,
    targetPathNotAbsolute,
    instantiationError,
    switchedModes,
    badPath,
    entityShadowsPath,
    grandparent,
    sourceNameMismatch,
    flagsMismatch,
    overrideSource,
    overrideTarget,
    invalidUri,
    libraryLoadError,
    noMapFileEntry,
    noTypeNode,
    circularDependency,
    circularDependencyWithAggConfig,
  };

  class NotifieeConst : public TypedNotifiee<AgentEnvStatus> {
   public:
    virtual void onCurrentSource() {}
    virtual void onIndividualStatus() {}
    virtual void onGroupStatus() {}
    virtual void onStatusCode() {}
    virtual void onEntity() {}
    virtual void onRound() {}
    virtual void onReason() {}
  };

  // The directory holding this status: its parent, null once taken out.
  AgentEnvStatusDir* dir() const;
  EntityUri const& currentSource() const { return currentSource_; }
  void currentSourceIs(EntityUri const& v) { attributeIs(currentSource_, v, &NotifieeConst::onCurrentSource); }
  Status individualStatus() const { return individualStatus_; }
  // A status that is no failure (below fail) drops the reason.
  void individualStatusIs(Status v) {
    if (v < fail) reasonIs(String8());
    attributeIs(individualStatus_, v, &NotifieeConst::onIndividualStatus);
  }
  Status groupStatus() const { return groupStatus_; }
  void groupStatusIs(Status v) { attributeIs(groupStatus_, v, &NotifieeConst::onGroupStatus); }
  StatusCode statusCode() const { return statusCode_; }
  void statusCodeIs(StatusCode v) { attributeIs(statusCode_, v, &NotifieeConst::onStatusCode); }
  Ptr<Entity> const& entity() const { return entity_; }
  void entityIs(Ptr<Entity> const& v) { attributeIs(entity_, v, &NotifieeConst::onEntity); }
  uint64_t round() const { return round_; }
  void roundIs(uint64_t v) { attributeIs(round_, v, &NotifieeConst::onRound); }
  // Why the entry failed when the status code has no word for it (a
  // listener that cannot open, say); empty otherwise. Written before the
  // individual status it explains.
  String8 const& reason() const { return reason_; }
  void reasonIs(String8 const& v) { attributeIs(reason_, v, &NotifieeConst::onReason); }

  ZET_ENTITY_TYPE();

 private:
  friend class MemberCollection<AgentEnvStatus>;
  friend Ptr<AgentEnvStatus> agentEnvStatusFactory(Name const&, AgentEnvStatusDir*);
  AgentEnvStatus(Name name, AgentEnvStatusDir* dir);
  void removedFromOwner();

  Status individualStatus_ = notApplicable;
  EntityUri currentSource_;
  Status groupStatus_ = notApplicable;
  StatusCode statusCode_ = none;
  Ptr<Entity> entity_;
  uint64_t round_ = 0;
  String8 reason_;
};

Ptr<AgentEnvStatus> agentEnvStatusFactory(Name const& name, AgentEnvStatusDir* dir);

template <>
struct EnumTexts<AgentEnvStatus::Status> {
  static constexpr std::string_view typeName = "AgentEnvStatus::Status";
  static constexpr std::array<std::string_view, 6> texts = {"notApplicable", "inProgress", "initialized",
                                                            "fail",          "error",      "unsupported"};
};

template <>
struct EnumTexts<AgentEnvStatus::StatusCode> {
  static constexpr std::string_view typeName = "AgentEnvStatus::StatusCode";
  static constexpr std::array<std::string_view, 25> texts = {
      "none",
      "mountEntityNotFound",
      "mountException",
      "mountProtocolVersionMismatch",
      "mountPermissionDenied",
      "mountGroupCode",
      "disconnected",
      "timedOut",
      "dependencyNotFound",
      "targetPathNotAbsolute",
      "instantiationError",
      "switchedModes",
      "badPath",
      "entityShadowsPath",
      "grandparent",
      "sourceNameMismatch",
      "flagsMismatch",
      "overrideSource",
      "overrideTarget",
      "invalidUri",
      "libraryLoadError",
      "noMapFileEntry",
      "noTypeNode",
      "circularDependency",
      "circularDependencyWithAggConfig",
  };
};

}  // namespace Zet
