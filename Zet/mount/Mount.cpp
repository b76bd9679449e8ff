#include "Zet/mount/Mount.h"

#include <algorithm>

#include "Zet/Activity.h"
#include "Zet/Format.h"
#include "Zet/Trace.h"
#include "Zet/mount/MountMachinery.h"

namespace Zet {
namespace {

ActivityLoop& loop() { return ActivityFacility::loop(); }

// The text of a URI up to its path: "tcp://host:port", "unix://%2Fsock".
std::string_view endpointText(EntityUri const& uri) {
  std::string_view text = uri.text().view();
  size_t authority = text.find("://");
  size_t path = authority == std::string_view::npos ? 0 : text.find_first_of("/?", authority + 3);
  return text.substr(0, path == std::string_view::npos ? text.size() : path);
}

std::string_view withoutTrailingSlash(std::string_view path) {
  while (!path.empty() && path.back() == '/') path.remove_suffix(1);
  return path;
}

// The endpoint of prefix with the path `path` (absolute) below it.
EntityUri atPath(EntityUri const& prefix, std::string_view path) {
  std::string text(endpointText(prefix));
  text += withoutTrailingSlash(prefix.entityPath().text().view());
  if (!path.empty() && path.front() != '/') text += '/';
  text += path;
  return EntityUri(String8(text));
}

}  // namespace

// The path of the source entity below the primary prefix: a bare name is
// that path; a full URI names the entity at the primary source, and its path
// below the primary prefix's path is taken.
std::string Mount::pathBelowPrefix(EntityUri const& primary) const {
  EntityUri const& name = config_->sourceName();
  if (name.isEmpty()) return {};
  if (name.scheme() == EntityUri::Scheme::none) return std::string(name.text().view());
  std::string_view path = name.entityPath().text().view();
  std::string_view base = withoutTrailingSlash(primary.entityPath().text().view());
  if (path.starts_with(base) && (path.size() == base.size() || path[base.size()] == '/'))
    return std::string(path.substr(base.size()));
  return std::string(path);
}

Mount::Mount(MountMachinery& machinery, Ptr<MountConfig> const& config, Ptr<MountStatus> status)
    : machinery_(machinery), config_(config), status_(std::move(status)) {
  notifierIs(config);
  restartSoon();
}

Mount::~Mount() { stop(); }

EntityUri Mount::source(int index) const {
  auto prefixOf = [&](int i) -> EntityUri const& {
    EntityUri const& pre = i == 0 ? config_->sourcePre0() : config_->sourcePre1();
    return !pre.isEmpty() ? pre : i == 0 ? config_->source0() : config_->source1();
  };
  EntityUri const& prefix = prefixOf(index);
  if (prefix.isEmpty()) return prefix;
  std::string below = pathBelowPrefix(prefixOf(0));
  return below.empty() ? prefix : atPath(prefix, below);
}

void Mount::stop() {
  if (stopped_) return;
  stopped_ = true;
  notifierIs(nullptr);
  cancelTimers();
  endAttempt();
  unmount();
}

void Mount::unmount() {
  if (config_->unmountType() == MountConfig::stateRemoving) return mirror_.removeAll();
  Ptr<Dir::Entry> entry = LeftBehind::entryAt(mirroredTarget_);
  if (entry && mirror_.root() && entry->entity() == mirror_.root()) machinery_.leftBehind().leftIs(config_->name(), entry);
  mirror_.release();
}

void Mount::restartSoon() {
  if (restartQueued_ || stopped_) return;
  restartQueued_ = true;
  loop().deferredCallIs(liveness_.guarded([this] {
    restartQueued_ = false;
    if (!stopped_) attempt();
  }));
}

void Mount::onTargetName() {
  // The mirror moves: what is at the old target goes.
  if (!(config_->targetName() == mirroredTarget_)) mirror_.removeAll();
  restartSoon();
}

void Mount::onNextRound() {
  if (config_->nextRound() > status_->round() || status_->state() != MountStatus::complete) {
    sourceIndex_ = 0;
    restartSoon();
  }
}

void Mount::cancelTimers() {
  if (retryTimer_) loop().timerDel(retryTimer_);
  if (timeoutTimer_) loop().timerDel(timeoutTimer_);
  retryTimer_ = timeoutTimer_ = 0;
}

void Mount::endAttempt() {
  if (!link_) return;
  Ptr<MountLink> link = std::move(link_);
  link->unsubscribe(subscription_);
}

void Mount::attempt() {
  cancelTimers();
  if (source(1).isEmpty()) sourceIndex_ = 0;
  EntityUri source = this->source(sourceIndex_);
  EntityUriPath const& target = config_->targetName();
  status_->currentSourceIs(source);
  if (stopped_) return;  // a watcher of the status ended the mount
  if (source.scheme() == EntityUri::Scheme::none || !source.isValid())
    return error(MountStatus::exception, format("source '%s' is not a tcp://, tls:// or unix:// URI", source.text().charPtr()));
  if (!target.isAbsolute() || !target.hasNames())
    return error(MountStatus::exception, format("target '%s' is not an absolute path below the root",
                                                target.text().charPtr()));
  // The new subscription is made before the old one goes, so a link both
  // use stays up.
  Ptr<MountLink> previous = std::move(link_);
  uint32_t previousSubscription = subscription_;
  link_ = machinery_.link(source);
  subscription_ = link_->subscribe(this, source.entityPath().text().view());
  if (previous) previous->unsubscribe(previousSubscription);
  roundAsked_ = config_->nextRound();
  mirroredTarget_ = target;
  mirror_.roundBegin();
  if (!mirror_.root())
    if (Ptr<Entity> left = machinery_.leftBehind().taken(config_->name(), LeftBehind::entryAt(target)))
      mirror_.adopt(left);
  timeoutTimer_ = loop().timerIs(config_->initTimeoutPeriod(), liveness_.guarded([this] {
    timeoutTimer_ = 0;
    fail(MountStatus::timedOut, format("no snapshot within %g s", config_->initTimeoutPeriod()), true);
  }));
  // A retry after a failure leaves the status as the failure left it until
  // it succeeds or fails otherwise: a source that stays away is one
  // failure, not a failure each pause. Last: a watcher of the status may
  // end the mount, which undoes the above.
  if (status_->state() == MountStatus::failed) return;
  status_->reasonIs(String8());
  status_->codeIs(MountStatus::ok);
  status_->stateIs(MountStatus::inProgress);
}

void Mount::onFrame(NboAttrLog::Message const& frame) {
  using NboAttrLog::Kind;
  try {
    switch (frame.kind) {
      case Kind::notFound:
        return fail(MountStatus::entityNotFound,
                    format("nothing at '%s'", status_->currentSource().text().charPtr()), false);
      case Kind::entity:
        return applyEntity(frame);
      case Kind::update:
        return mirror_.update(frame);
      case Kind::remove:
        if (mirror_.remove(frame.id))
          fail(MountStatus::entityNotFound,
               format("'%s' left its source", status_->currentSource().text().charPtr()), false);
        return;
      case Kind::snapshotEnd:
        return snapshotDone();
      default:
        return error(MountStatus::exception, format("unexpected frame of kind %u", unsigned(frame.kind)));
    }
  } catch (std::exception const& e) {
    error(MountStatus::exception, e.what());
  }
}

void Mount::applyEntity(NboAttrLog::Message const& frame) {
  try {
    mirror_.entityIs(frame, config_->targetName());
  } catch (UnknownTypeException const& e) {
    // A member of an aggregate that cannot be made fails its group.
    bool member = config_->aggMount() && frame.parent != 0;
    error(member ? MountStatus::groupCode : MountStatus::exception, e.what());
  }
  // A watcher of the mirror may have ended the mount meanwhile, before the
  // entity was remembered.
  if (stopped_) unmount();
}

void Mount::snapshotDone() {
  mirror_.roundEnd();
  if (timeoutTimer_) loop().timerDel(timeoutTimer_);
  timeoutTimer_ = 0;
  retryDelay_ = kFirstRetryDelay;
  status_->mountedEntityIs(mirror_.root());
  status_->roundIs(std::max(roundAsked_, status_->round()));
  status_->reasonIs(String8());
  status_->codeIs(MountStatus::ok);
  status_->stateIs(MountStatus::complete);
}

void Mount::onLinkDown(MountStatus::Code code, String8 const& reason) {
  link_ = nullptr;
  if (stopped_) return;
  if (code == MountStatus::disconnected) return fail(code, reason, true);
  error(code, reason);
}

void Mount::leaveMirror() {
  if (config_->unmountType() == MountConfig::stateRemoving) mirror_.removeAll();
  status_->mountedEntityIs(mirror_.root());
}

void Mount::endAttemptWith(MountStatus::State state, MountStatus::Code code, String8 const& reason) {
  cancelTimers();
  endAttempt();
  leaveMirror();
  status_->reasonIs(reason);
  status_->codeIs(code);
  status_->stateIs(state);
}

void Mount::fail(MountStatus::Code code, String8 const& reason, bool trySourceElsewhere) {
  if (stopped_) return;
  ZET_TRACE_AT("MountFacility", 1) << config_->name() << ": failed: " << reason;
  endAttemptWith(MountStatus::failed, code, reason);
  if (stopped_) return;  // a watcher of the status ended the mount
  if (trySourceElsewhere && !source(1).isEmpty()) sourceIndex_ ^= 1;
  double delay = retryDelay_;
  retryDelay_ = std::min(retryDelay_ * 2, kMaxRetryDelay);
  retryTimer_ = loop().timerIs(delay, liveness_.guarded([this] {
    retryTimer_ = 0;
    attempt();
  }));
}

void Mount::error(MountStatus::Code code, String8 const& reason) {
  if (stopped_) return;
  ZET_TRACE_AT("MountFacility", 0) << config_->name() << ": error: " << reason;
  endAttemptWith(MountStatus::error, code, reason);
}

}  // namespace Zet
