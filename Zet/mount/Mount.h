#pragma once
// Mount: carries out one MountConfig and keeps its MountStatus.
//
// An attempt subscribes, over the link to the source's endpoint, to the
// source entity, and mirrors what comes at the target (MountMirror). The
// status says inProgress while the snapshot comes, complete (with
// mountedEntity and the round asked for) once it is there, and then the
// mirror follows the source's changes. What can pass ends the attempt in
// `failed` and is tried again after a pause that doubles up to a cap
// (entityNotFound, disconnected, timedOut), the status staying `failed`
// meanwhile; when the config has a second
// source, a lost or unreachable source makes the next attempt use the
// other one, so the mount moves over to the backup and back. What cannot
// succeed as configured ends in `error` and waits for the config to change
// (exception, groupCode, protocolVersionMismatch, permissionDenied). On a
// failure, statePreserving keeps the mirror (stale, still a mirror),
// stateRemoving takes it away. Raising nextRound asks for a new snapshot.
//
// The source of attempt N: its prefix (sourcePreN, or sourceN when that is
// empty) followed by the path of sourceName below the first prefix. A bare
// sourceName is that path; a full URI names the entity at the first source,
// and the part of its path below the first prefix's path is used, so the
// same entity is looked for below the second prefix.

#include <memory>
#include <string>

#include "Zet/ActivityLoop.h"
#include "Zet/Liveness.h"
#include "Zet/MountConfig.h"
#include "Zet/MountStatus.h"
#include "Zet/mount/MountLink.h"
#include "Zet/mount/MountMirror.h"

namespace Zet {

class MountMachinery;

class Mount : private MountConfig::NotifieeConst, private MountLink::Subscriber {
 public:
  // First retry pause and its cap, in seconds.
  static constexpr double kFirstRetryDelay = 0.1;
  static constexpr double kMaxRetryDelay = 5.0;

  Mount(MountMachinery& machinery, Ptr<MountConfig> const& config, Ptr<MountStatus> status);
  ~Mount() override;

  // Ends the mount for good, leaving the mirror as the unmount type says
  // (kept as ordinary local entities, or removed). Safe from any callback;
  // the owner destroys the mount later.
  void stop();

  // The source of attempts with index 0 or 1; empty when there is none.
  EntityUri source(int index) const;

 private:
  void onSourcePre0() override { restartSoon(); }
  void onSourcePre1() override { restartSoon(); }
  void onSourceName() override { restartSoon(); }
  void onTargetName() override;
  void onNextRound() override;

  void onFrame(NboAttrLog::Message const& frame) override;
  void onLinkDown(MountStatus::Code code, String8 const& reason) override;

  std::string pathBelowPrefix(EntityUri const& primary) const;
  void restartSoon();
  void attempt();
  void applyEntity(NboAttrLog::Message const& frame);
  void snapshotDone();
  // Ends the attempt: failed (tried again later) or error (not tried again).
  void fail(MountStatus::Code code, String8 const& reason, bool trySourceElsewhere);
  void error(MountStatus::Code code, String8 const& reason);
  void endAttempt();
  void endAttemptWith(MountStatus::State state, MountStatus::Code code, String8 const& reason);
  void leaveMirror();
  void unmount();
  void cancelTimers();

  MountMachinery& machinery_;
  Ptr<MountConfig> config_;
  Ptr<MountStatus> status_;
  MountMirror mirror_;
  Ptr<MountLink> link_;
  uint32_t subscription_ = 0;
  EntityUriPath mirroredTarget_;  // where the mirror was placed
  int sourceIndex_ = 0;
  double retryDelay_ = kFirstRetryDelay;
  uint64_t roundAsked_ = 0;
  ActivityLoop::TimerId retryTimer_ = 0;
  ActivityLoop::TimerId timeoutTimer_ = 0;
  bool restartQueued_ = false;
  bool stopped_ = false;
  Liveness liveness_;  // deferred calls and timers reach the mount only while it lives
};

}  // namespace Zet
