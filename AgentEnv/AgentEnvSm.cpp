// AgentEnvSm: construction and tear-down, the nested reactors, version
// numbers, the status sets, derived values and introspection.
// The handlers live beside this file, one file per concern.

#include "AgentEnv/AgentEnvSm.h"

#include <atomic>
#include <string>

#include "AgentEnv/AgentEnvDirSm.h"
#include "AgentEnv/AgentEnvSmReactors.h"
#include "AgentEnv/AgentEnvSmTrace.h"
#include "Zet/TypeMap.h"

namespace Zet {
namespace {

std::atomic<bool> localInstantiationSuppressedFlag{false};

constexpr int kRedispatchAll = -2;
constexpr int kRegistrationCheck = 265;

}  // namespace

AgentEnvSm::AgentEnvSm(Ptr<ActivityConfig> activity, Ptr<AgentEnvConfig const> config, Ptr<AgentEnvStatus> status,
                       AgentEnvDirSm* dirSm)
    : Entity(config ? config->name() : Name(), nullptr), Reactor(std::move(activity)), dirSm_(dirSm) {
  if (!config) throwRangeException("null ValidPtr");
  statusIs(std::move(status));
  config_ = std::move(config);
  try {
    runConfigHandlers();
    configReactor_.notifierIs(config_);
    activate();
    handleStatusReaction();
  } catch (...) {
    doShutdown();
    throw;
  }
}

AgentEnvSm::~AgentEnvSm() { doShutdown(); }

void AgentEnvSm::doShutdown() {
  deactivate();
  if (extras_) extras_->stopWatching();
  statusReactor_.notifierIs(nullptr);
  configReactor_.notifierIs(nullptr);
}

void AgentEnvSm::runConfigHandlers() {
  handleConfigSource0();
  handleConfigSource1();
  handleConfigTarget();
  handleConfigPathSuffix();
  handleConfigTypeName();
  handleConfigDependency();
  handleConfigTimeoutPeriod();
  handleConfigAggConfig();
  handleConfigUnmountType();
}

void AgentEnvSm::onConfigAttribute(void (AgentEnvSm::*handler)(), bool retryAttempt) {
  if (!notificationActive_) return;
  (this->*handler)();
  if (retryAttempt) doRetryAfterConfigChange();
}

void AgentEnvSm::ConfigReactor::onSource0() { sm_.onConfigAttribute(&AgentEnvSm::handleConfigSource0); }
void AgentEnvSm::ConfigReactor::onSource1() { sm_.onConfigAttribute(&AgentEnvSm::handleConfigSource1); }
void AgentEnvSm::ConfigReactor::onTarget() { sm_.onConfigAttribute(&AgentEnvSm::handleConfigTarget, true); }
void AgentEnvSm::ConfigReactor::onPathSuffix() { sm_.onConfigAttribute(&AgentEnvSm::handleConfigPathSuffix, true); }
void AgentEnvSm::ConfigReactor::onTypeName() { sm_.onConfigAttribute(&AgentEnvSm::handleConfigTypeName, true); }
void AgentEnvSm::ConfigReactor::onDependency() { sm_.onConfigAttribute(&AgentEnvSm::handleConfigDependency); }
void AgentEnvSm::ConfigReactor::onTimeoutPeriod() { sm_.onConfigAttribute(&AgentEnvSm::handleConfigTimeoutPeriod); }
void AgentEnvSm::ConfigReactor::onUnmountType() { sm_.onConfigAttribute(&AgentEnvSm::handleConfigUnmountType); }
void AgentEnvSm::ConfigReactor::onAggConfig() { sm_.onConfigAttribute(&AgentEnvSm::handleConfigAggConfig); }
void AgentEnvSm::ConfigReactor::onNextRound() { sm_.onConfigAttribute(&AgentEnvSm::handleConfigNextRound); }
void AgentEnvSm::ConfigReactor::onNestedConfig(Name const& name) {
  if (sm_.notificationActive_) sm_.handleNestedConfig(name);
}
void AgentEnvSm::ZetStatus::onIndividualStatus() { sm_.handleStatusReaction(); }

void AgentEnvSm::agentEnvConfigIs(Ptr<AgentEnvConfig const> config) {
  if (!config) throwRangeException("null ValidPtr");
  if (config == config_) return;
  config_ = std::move(config);
  registrationCheck();
  runConfigHandlers();
}

AgentEnvSm::Extras& AgentEnvSm::extras() {
  if (!extras_) extras_ = std::make_unique<Extras>();
  return *extras_;
}

void AgentEnvSm::registrationCheck() {
  bool registered = notificationActive_ && !isZombie();
  configReactor_.notifierIs(registered ? config_ : nullptr);
}

void AgentEnvSm::statusIs(Ptr<AgentEnvStatus> status) {
  status_ = std::move(status);
  statusReactor_.notifierIs(status_);
}

// The nested reactors on other entities and on mounts, those that exist, in
// the order a zombie mark reaches them.
template <class Apply>
void AgentEnvSm::forEachNestedReactor(Apply&& apply) const {
  if (!extras_) return;
  auto each = [&apply](auto* reactor) {
    if (reactor) apply(*reactor);
  };
  each(prefixMountStatusReactor());
  each(mountStatusReactor());
  each(extras_->dirEntryReactor.get());
  each(extras_->dependencyReactor.get());
  each(extras_->aggAgentSmReactor.get());
  each(endpointReactor());
}

void AgentEnvSm::zetFwkActivityIs(Ptr<ActivityConfig> activity) {
  activityConfigIs(activity);
  forEachNestedReactor([&activity](Reactor& r) { r.activityConfigIs(activity); });
}

Ptr<AgentEnvStatus const> AgentEnvSm::dependency() const {
  return extras_ && extras_->dependencyReactor ? extras_->dependencyReactor->notifier() : nullptr;
}

void AgentEnvSm::dependencyIs(Ptr<AgentEnvStatus const> status) {
  if ((status || extras_) && watch(extras().dependencyReactor, status, *this) && status) handleDependencyStatus();
}

Ptr<AgentEnvSm const> AgentEnvSm::aggAgentSm() const {
  return extras_ && extras_->aggAgentSmReactor ? extras_->aggAgentSmReactor->notifier() : nullptr;
}

void AgentEnvSm::aggAgentSmIs(Ptr<AgentEnvSm const> sm) {
  if (sm == this) sm = nullptr;  // a config that is its own aggregate follows nobody
  // The first number is taken over from the loop, like every later one.
  if ((sm || extras_) && watch(extras().aggAgentSmReactor, sm, *this) && sm)
    extras_->aggAgentSmReactor->notificationDefer(0);
}

Ptr<Dir::Entry const> AgentEnvSm::dirEntry() const {
  return extras_ && extras_->dirEntryReactor ? extras_->dirEntryReactor->notifier() : nullptr;
}

void AgentEnvSm::dirEntryIs(Ptr<Dir::Entry const> entry) {
  if (entry || extras_) watch(extras().dirEntryReactor, entry, *this);
}

Name const& AgentEnvSm::sourceName() const {
  static Name const none;
  return extras_ ? extras_->sourceName : none;
}

void AgentEnvSm::sourceNameIs(Name const& n) {
  if (!n.isEmpty() || extras_) extras().sourceName = n;
}

EntityUri const& AgentEnvSm::sourcePre0() const {
  static EntityUri const none;
  return extras_ ? extras_->sourcePre0 : none;
}

EntityUri const& AgentEnvSm::sourcePre1() const {
  static EntityUri const none;
  return extras_ ? extras_->sourcePre1 : none;
}

// An entry that has only ever had empty sources makes no extras for them.
void AgentEnvSm::sourcePre0Is(EntityUri const& source) {
  if (!(source == EntityUri()) || extras_) extras().sourcePre0 = source;
}

void AgentEnvSm::sourcePre1Is(EntityUri const& source) {
  if (!(source == EntityUri()) || extras_) extras().sourcePre1 = source;
}

void AgentEnvSm::versionNumIs(uint32_t n) { attributeIs(versionNum_, n, &NotifieeConst::onVersionNum); }

uint32_t AgentEnvSm::versionNumInc(uint32_t n) {
  versionNumIs(versionNum_ + n);
  return versionNum_;
}

void AgentEnvSm::handleParentVersionNumber() {
  Ptr<AgentEnvSm const> agg = aggAgentSm();
  uint32_t parentVersion = agg ? agg->versionNum() : 0;
  if (parentVersion <= versionNum_) return;
  handleConfigAggConfig();
  versionNumIs(std::max(parentVersion, versionNum_));
}

// The six sets are indexed by Status; they exist only once something is
// added, so that entries without nested configs carry one null pointer.
AgentEnvSm::StatusSet const& AgentEnvSm::statusSet(AgentEnvStatus::Status s) const {
  static StatusSet const empty;
  return extras_ && extras_->statusSets && s <= AgentEnvStatus::unsupported ? extras_->statusSets->sets[s] : empty;
}

Ptr<AgentEnvStatus const> AgentEnvSm::statusSetMember(AgentEnvStatus::Status s, Name const& name) const {
  return statusSet(s).value(name);
}

void AgentEnvSm::statusSetMemberIs(AgentEnvStatus::Status s, Ptr<AgentEnvStatus const> const& status) {
  if (s > AgentEnvStatus::unsupported) throwRangeException(format("no status set for %s", stringValue(s).charPtr()));
  if (!status) {
    String8 set = stringValue(s);
    throwRangeException(format("null _%s parameter to mutator for Zet::AgentEnvSm::%s not allowed\"", set.charPtr(),
                               set.charPtr()));
  }
  std::unique_ptr<StatusSets>& sets = extras().statusSets;
  if (!sets) sets = std::make_unique<StatusSets>();
  sets->sets[s].assign(status->name(), status);
}

void AgentEnvSm::statusSetMemberDel(AgentEnvStatus::Status s, Name const& name) {
  if (s <= AgentEnvStatus::unsupported && !statusSet(s).empty()) extras_->statusSets->sets[s].erase(name);
}

void AgentEnvSm::statusSetDelAll(AgentEnvStatus::Status s) {
  if (s <= AgentEnvStatus::unsupported && !statusSet(s).empty()) extras_->statusSets->sets[s].clear();
}

Ptr<AgentEnvConfig const> AgentEnvSm::rootConfig() const {
  if (!config_) return nullptr;
  if (Ptr<AgentEnvConfig> const& agg = config_->aggConfig()) return agg;
  return config_;
}

AgentEnvSm* AgentEnvSm::rootSm() const {
  if (!config_ || !config_->aggConfig()) return const_cast<AgentEnvSm*>(this);
  return dirSm_ ? dirSm_->agentEnvSm(config_->aggConfig()->name()).ptr() : nullptr;
}

EntityUri AgentEnvSm::sourceNameUri() const {
  Ptr<AgentEnvConfig const> root = rootConfig();
  if (!root) return EntityUri();
  EntityUri const& source = root->source0();
  if (root == config_ || !isMountSource(source) || config_->pathSuffix().isEmpty()) return source;
  return source.below(config_->pathSuffix().entityPath());
}

EntityUri AgentEnvSm::mcSourceName() const { return sourceNameUri(); }

// The nearest config up the aggregate chain that has a target of its own,
// extended by the path of each nested config below it (its pathSuffix, or
// its name without one). The walk is bounded by the number of configs, so
// that aggregates naming each other in a cycle end.
EntityUriPath AgentEnvSm::configTarget() const {
  if (!config_) return EntityUriPath();
  size_t bound = dirSm_ && dirSm_->agentEnvConfigDir() ? dirSm_->agentEnvConfigDir()->agentEnvConfigCount() : 0;
  std::vector<AgentEnvConfig const*> below;
  AgentEnvConfig const* at = config_.ptr();
  while (at->target().isEmpty() && at->aggConfig() && below.size() <= bound) {
    below.push_back(at);
    at = at->aggConfig().ptr();
  }
  if (below.empty()) return at->target();
  // The nested configs' names are appended to the target's text, and the
  // path is made once: a chain of a million members costs the length of its
  // path, not its square, and a member the one text.
  std::string joined(at->target().text().view());
  for (auto it = below.rbegin(); it != below.rend(); ++it) {
    AgentEnvConfig const& nested = **it;
    EntityUriPath::appendNames(
        joined, nested.pathSuffix().isEmpty() ? nested.name().view() : nested.pathSuffix().entityPath().text().view());
  }
  return EntityUriPath(String8(joined));
}

EntityUriPath AgentEnvSm::targetInEffect() const {
  return targetDir_ ? EntityUriPath(targetDir_->fullName(targetName_.view())) : EntityUriPath();
}

void AgentEnvSm::hasNotificationActiveIs(bool active) {
  if (active == notificationActive_) return;
  notificationActive_ = active;
  configReactor_.hasNotificationActiveIs(active);
  statusReactor_.hasNotificationActiveIs(active);
  forEachNestedReactor([active](auto& r) { r.hasNotificationActiveIs(active); });
}

void AgentEnvSm::handleNotification(ActivityConfig*) {
  std::optional<int> code = notificationTake();
  if (!code) return;
  if (*code == kRedispatch || *code == kRedispatchAll) {
    registrationCheck();
    runConfigHandlers();
  } else if (*code == kRegistrationCheck) {
    registrationCheck();
  } else {
    onNotification(*code);
  }
}

void AgentEnvSm::onNotification(int code) {
  switch (static_cast<AttributeId>(code)) {
    case kActIfReady: doActionIfReady(); return;
    case AgentEnvConfig::source0Id: return handleConfigSource0();
    case AgentEnvConfig::source1Id: return handleConfigSource1();
    case AgentEnvConfig::targetId: return handleConfigTarget();
    case AgentEnvConfig::pathSuffixId: return handleConfigPathSuffix();
    case AgentEnvConfig::typeNameId: return handleConfigTypeName();
    case AgentEnvConfig::timeoutPeriodId: return handleConfigTimeoutPeriod();
    case AgentEnvConfig::aggConfigId: return handleConfigAggConfig();
    case AgentEnvConfig::unmountTypeId: return handleConfigUnmountType();
    case AgentEnvConfig::nextRoundId: return handleConfigNextRound();
    default: return;
  }
}

void AgentEnvSm::onZombie(bool zombie) {
  registrationCheck();
  forEachNestedReactor([zombie](Reactor& r) { r.zetDoZombieReactors(zombie); });
}

bool AgentEnvSm::localInstantiationSuppressed() {
  return localInstantiationSuppressedFlag.load(std::memory_order_relaxed);
}

void AgentEnvSm::localInstantiationSuppressedIs(bool suppressed) {
  localInstantiationSuppressedFlag.store(suppressed, std::memory_order_relaxed);
}

namespace {

using S = AgentEnvSm;

template <auto Getter>
String8 readEntity(Entity const& e) {
  auto const& p = (static_cast<S const&>(e).*Getter)();
  return p ? p->fullName() : String8();
}

String8 readDirSm(Entity const& e) {
  AgentEnvDirSm const* d = static_cast<S const&>(e).dirSm();
  return d ? String8("AgentEnvDirSm") : String8();
}

String8 readRootSm(Entity const& e) {
  AgentEnvSm const* root = static_cast<S const&>(e).rootSm();
  return root ? String8(root->name()) : String8();
}

String8 readAggAgentSm(Entity const& e) {
  Ptr<AgentEnvSm const> agg = static_cast<S const&>(e).aggAgentSm();
  return agg ? String8(agg->name()) : String8();
}

String8 readStatusSetFor(Entity const& e, AgentEnvStatus::Status s) {
  std::string text;
  for (auto const& m : static_cast<S const&>(e).statusSet(s)) {
    if (!text.empty()) text += ", ";
    text += m.key().view();
  }
  return String8(text);
}

template <AgentEnvStatus::Status Set>
String8 readStatusSet(Entity const& e) {
  return readStatusSetFor(e, Set);
}

TypeDescriptor const descriptor{
    "Zet::AgentEnvSm",
    nullptr,
    {
        {0x102, "zetFwkActivity", readAs<&S::zetFwkActivity>, nullptr},
        {0x103, "notifier", readEntity<&S::agentEnvConfig>, nullptr},
        {0x104, "dirSm", readDirSm, nullptr},
        {0x105, "prefixMountStatus", readEntity<&S::prefixMountStatus>, nullptr},
        {0x106, "mountStatus", readEntity<&S::mountStatus>, nullptr},
        {0x107, "dirEntry", [](Entity const& e) -> String8 {
           Ptr<Dir::Entry const> entry = static_cast<S const&>(e).dirEntry();
           return entry ? String8(entry->name()) : String8();
         },
         nullptr},
        {0x108, "aggAgentSm", readAggAgentSm, nullptr},
        {0x109, "versionNum", readAs<&S::versionNum>, nullptr},
        {0x10a, "rootSm", readRootSm, nullptr},
        {0x10b, "rootConfig", readEntity<&S::rootConfig>, nullptr},
        {0x10c, "targetDir", readEntity<&S::targetDir>, nullptr},
        {0x10d, "targetName", readAs<&S::targetName>, nullptr},
        {0x10e, "mode", readAs<&S::mode>, nullptr},
        {0x10f, "consistency", readAs<&S::consistency>, nullptr},
        {0x110, "prefixMountName", readAs<&S::prefixMountName>, nullptr},
        {0x111, "sourcePre0", readAs<&S::sourcePre0>, nullptr},
        {0x112, "sourcePre1", readAs<&S::sourcePre1>, nullptr},
        {0x113, "sourceNameUri", readAs<&S::sourceNameUri>, nullptr},
        {0x114, "sourceName", readAs<&S::sourceName>, nullptr},
        {0x115, "mcSourceName", readAs<&S::mcSourceName>, nullptr},
        {0x116, "configTarget", readAs<&S::configTarget>, nullptr},
        {0x117, "initialized", readStatusSet<AgentEnvStatus::initialized>, nullptr},
        {0x118, "inProgress", readStatusSet<AgentEnvStatus::inProgress>, nullptr},
        {0x119, "fail", readStatusSet<AgentEnvStatus::fail>, nullptr},
        {0x11a, "error", readStatusSet<AgentEnvStatus::error>, nullptr},
        {0x11b, "unsupported", readStatusSet<AgentEnvStatus::unsupported>, nullptr},
        {0x11c, "notApplicable", readStatusSet<AgentEnvStatus::notApplicable>, nullptr},
    },
    {},
};

}  // namespace

// Not registered with the type map: state machines are made by their
// directory only.
TypeDescriptor const& AgentEnvSm::type() { return descriptor; }
TypeDescriptor const& AgentEnvSm::fwkType() const { return descriptor; }

}  // namespace Zet
