// AgentEnvSm: local instantiation. An entry without source makes an entity
// of its typeName at its target through the type map; the members of an
// instantiated aggregate are made under the aggregate's target.

#include "AgentEnv/AgentEnvDirSm.h"
#include "AgentEnv/AgentEnvSm.h"
#include "AgentEnv/AgentEnvSmTrace.h"

namespace Zet {

void AgentEnvSm::doInstantiationAttempt() {
  if (mode_ == init && doTargetInstantiationAttempt()) return;
  // Already made: a late request to act (an aggregate asked by several
  // members, say) has nothing left to do.
  if (mode_ == instantiate && status_ && status_->individualStatus() == AgentEnvStatus::initialized) return;
  if (mode_ == mount ? configTarget() == targetInEffect() : !mayActIn(instantiate)) {
    doRefuseSwitchedModes();
    return;
  }
  if (!rootConfig()->source0().isEmpty()) {
    if (status_) status_->individualStatusIs(AgentEnvStatus::notApplicable);
    return;
  }
  EntityUriPath path = configTarget();
  path += config_->source0().entityPath();
  doInstantiate(path, ": Trying to instantiate.");
}

// A member of an aggregate is made once its aggregate has been: an aggregate
// still undecided is asked to act first, from the loop (so that aggregates
// nested a million deep do not recurse), and its new version number brings
// the member back; a member of an instantiated aggregate is made under it.
bool AgentEnvSm::doTargetInstantiationAttempt() {
  if (!config_->aggConfig()) return false;
  AgentEnvSm* root = rootSm();
  if (!root || root == this) return false;
  if (root->mode() == init) {
    root->notificationDefer(kActIfReady);
    return true;
  }
  if (root->mode() != instantiate) return false;
  Ptr<AgentEnvStatus> const& rootStatus = root->status();
  if (!rootStatus || rootStatus->individualStatus() != AgentEnvStatus::initialized) return true;
  doInstantiate(configTarget(), ": Trying to instantiate target.");
  return true;
}

void AgentEnvSm::doInstantiate(EntityUriPath const& path, std::string_view attemptTrace) {
  if (!setupTargetPath(globalDir(), path, true)) return;
  modeIs(instantiate);
  SM_TRACE(2) << attemptTrace;
  SM_TRACE(2) << ": Instantiating a " << config_->typeName() << " in " << targetDir_->fullName();
  try {
    Expect expected(kUnknownTypeException | kDirInstantiationException | kNameInUseException | kRangeException);
    targetDir_->entityIs(targetName_, config_->typeName().view());
  } catch (Exception const& e) {
    if (!e.isKind(kNameInUseException) || !doTakeOverLeftEntity()) {
      SM_TRACE(0) << ": Error: Instantiation of target threw exception " << e.text();
      outcomeIs(instantiationCode(e), AgentEnvStatus::error);
      return;
    }
  }
  Ptr<Entity> entity = targetDir_->entityRef(targetName_);
  if (!entity) {
    SM_TRACE(0) << ": Error: Failed to instantiate " << inQuotes(targetName_) << " in " << targetDir_->fullName();
    outcomeIs(AgentEnvStatus::instantiationError, AgentEnvStatus::error);
    return;
  }
  SM_TRACE(2) << ": Now " << targetDir_->fullName() << " has " << entity->fwkType().name << " at " << targetName_;
  status_->entityIs(entity);
  status_->individualStatusIs(AgentEnvStatus::initialized);
  if (!config_->nestedConfigs().empty()) doAggregateInstantiated();
}

bool AgentEnvSm::doTakeOverLeftEntity() {
  Ptr<Entity> left = dirSm_->leftBehind().taken(name(), targetDir_->entry(targetName_), config_->typeName().view());
  if (!left) return false;
  SM_TRACE(2) << ": Taking over " << left->fullName() << ", left there by this entry before";
  return true;
}

void AgentEnvSm::maybeLeaveEntity() {
  Ptr<Entity> entity = mode_ == instantiate && status_ ? status_->entity() : nullptr;
  Ptr<Dir::Entry> entry = entity && targetDir_ ? targetDir_->entry(targetName_) : nullptr;
  if (!entry || entry->entity() != entity) return;
  if (config_->unmountType() == AgentEnvConfig::stateRemoving) {
    SM_TRACE(2) << ": Removing " << entity->fullName();
    targetDir_->entryDel(targetName_);
  } else {
    dirSm_->leftBehind().leftIs(name(), entry);
  }
}

// Each failure of the type map has a code of its own, so that the message
// says what went wrong; a name already taken is an entity on the path.
AgentEnvStatus::StatusCode AgentEnvSm::instantiationCode(Exception const& e) const {
  if (e.isKind(kNoMapFileEntryException)) return AgentEnvStatus::noMapFileEntry;
  if (e.isKind(kLibraryLoadException)) return AgentEnvStatus::libraryLoadError;
  if (e.isKind(kNoTypeNodeException)) return AgentEnvStatus::noTypeNode;
  if (e.isKind(kNameInUseException)) return AgentEnvStatus::entityShadowsPath;
  return AgentEnvStatus::instantiationError;
}

// The aggregate's entity is there: its members' statuses are placed in the
// sets afresh and its new version number sends the members to act.
void AgentEnvSm::doAggregateInstantiated() {
  for (auto const& member : config_->nestedConfigs())
    if (Ptr<AgentEnvSm> sm = dirSm_->agentEnvSm(member.key())) sm->handleIndividualStatus();
  doComputeGroupStatus();
  versionNumInc(1);
}

bool AgentEnvSm::setupTargetPath(Ptr<Dir> const& dir, EntityUriPath const& path, bool createParentDirs) {
  targetDirIs(nullptr);
  targetNameIs(Name());
  if (!dir || !path.isAbsolute() || !path.hasNames()) {
    SM_TRACE(0) << ": Error: Bad path " << inQuotes(path);
    outcomeIs(AgentEnvStatus::badPath, AgentEnvStatus::error);
    return false;
  }
  EntityUriPath target = path.removeTrailingSlash();
  Ptr<Dir> at = dir;
  for (std::string_view parent : target.parentNameTexts()) {
    at = stepDown(at, parent, createParentDirs);
    if (!at) return false;
  }
  SM_TRACE(2) << ": Parsed target is " << target;
  dirEntryIs(nullptr);
  targetDirIs(at);
  targetNameIs(lastNameOf(target));
  return true;
}

Name AgentEnvSm::lastNameOf(EntityUriPath const& target) const {
  std::string_view last = target.lastNameText();
  return last == name().view() ? name() : Name(last);
}

// One step of the target walk: the directory `name` in `dir`, made when
// missing and allowed. Null when the walk cannot go on, with the status
// written, or while the entry waits to become current (watched meanwhile).
// The name is made only for a directory still to be made.
Ptr<Dir> AgentEnvSm::stepDown(Ptr<Dir> const& dir, std::string_view name, bool createParentDirs) {
  auto const* member = dir->entries().memberByText(name);
  Ptr<Dir::Entry> entry = member ? member->value() : nullptr;
  if (entry && entry->status() != Dir::Entry::Status::current) {
    SM_TRACE(2) << ": Directory entry '" << name << "' is not 'current'";
    dirEntryIs(entry);
    return nullptr;
  }
  if (entry) {
    if (Ptr<Dir> next = ptr_cast<Dir>(entry->entity())) return next;
    SM_TRACE(0) << ": Error: Could not create path because " << entry->entity()->fullName() << " shadows path.";
    outcomeIs(AgentEnvStatus::entityShadowsPath, AgentEnvStatus::error);
    return nullptr;
  }
  try {
    if (!createParentDirs) {
      SM_TRACE(0) << ": Error: Remote ancestor dir " << dir->fullName() << " has no entry";
      outcomeIs(AgentEnvStatus::mountEntityNotFound, AgentEnvStatus::error);
      return nullptr;
    }
    Expect expected(kNameInUseException | kPermissionException);
    return dir->dirIs(Name(name));
  } catch (PermissionException const&) {
    SM_TRACE(0) << ": Error: Permission exception because remote ancestor dir " << dir->fullName() << " has no entry";
    outcomeIs(AgentEnvStatus::mountEntityNotFound, AgentEnvStatus::error);
  } catch (Exception const& e) {
    SM_TRACE(0) << ": Error: Bad path " << inQuotes(e.text());
    outcomeIs(AgentEnvStatus::badPath, AgentEnvStatus::error);
  }
  return nullptr;
}

void AgentEnvSm::handleDirEntryStatus() {
  Ptr<Dir::Entry const> entry = dirEntry();
  if (!entry || entry->status() == Dir::Entry::Status::notCurrent) return;
  dirEntryIs(nullptr);
  if (mayActIn(instantiate)) doActionIfReady();
}

}  // namespace Zet
