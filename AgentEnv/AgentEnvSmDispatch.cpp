// AgentEnvSm: readiness, the dependency and its status, the cycle check,
// and the choice of the action an entry takes once it may act.

#include "AgentEnv/AgentEnvDirSm.h"
#include "AgentEnv/AgentEnvSm.h"
#include "AgentEnv/AgentEnvSmReactors.h"
#include "AgentEnv/AgentEnvSmTrace.h"

namespace Zet {

bool AgentEnvSm::dependencyReady() const {
  Name const& dependency = config_->dependency();
  if (dependency == AgentEnvConfig::notReady()) return false;
  if (dependency.isEmpty()) return true;
  Ptr<AgentEnvStatus const> status = this->dependency();
  return status && status->groupStatus() == AgentEnvStatus::initialized;
}

bool AgentEnvSm::doActionIfReady() {
  // An inconsistent entry stays unsupported: nothing may overwrite that.
  if (consistency_ == inconsistent) return false;
  Name const& dependency = config_->dependency();
  if (AgentEnvConfig::namesEntry(dependency) && !dirSm_->agentEnvStatusDir()->agentEnvStatus(dependency)) {
    return doReportMissingDependency();
  }
  if (!dependencyReady()) return false;
  if (config_->aggConfig()) {
    AgentEnvSm* root = rootSm();
    if (!root || !root->dependencyReady()) return false;
  }
  AgentEnvMode asked = modeAskedFor(*config_);
  if (asked == exp) return doExportAttemptOrReport();
  EntityUriPath target = configTarget();
  if (!target.isEmpty() && !target.isAbsolute()) {
    SM_TRACE(0) << ": Error: Target is not absolute:" << inQuotes(target);
    outcomeIs(AgentEnvStatus::targetPathNotAbsolute, AgentEnvStatus::error);
    return false;
  }
  if (asked == instantiate) {
    if (localInstantiationSuppressed()) return false;
    doInstantiationAttempt();
    return status_ && status_->individualStatus() == AgentEnvStatus::initialized;
  }
  // A source that is not a URI cannot be mounted (the error stands even when
  // a later change of the dependency cleared the status).
  if (!rootConfig()->source0().isValid()) return doRefuseInvalidSource0();
  return doMountingAttempt();
}

bool AgentEnvSm::doReportMissingDependency() {
  Name const& dependency = config_->dependency();
  SM_TRACE(0) << ": Error: Couldn't find dependency " << inQuotes(dependency);
  outcomeIs(AgentEnvStatus::dependencyNotFound, AgentEnvStatus::error);
  dirSm_->dependencyMissing(dependency, config_->name());
  return false;
}

void AgentEnvSm::handleConfigDependency() {
  SM_TRACE(2) << ": Got dependency " << inQuotes(rootConfig()->dependency());
  handleConsistencyCheck();
  if (consistency_ == inconsistent) return;
  // The graph changes where this entry had an edge to another entry.
  if (this->dependency()) dirSm_->dependencyGraphChanged();
  Name const& dependency = config_->dependency();
  bool namesEntry = AgentEnvConfig::namesEntry(dependency);
  Ptr<AgentEnvStatus> found = namesEntry ? dirSm_->agentEnvStatusDir()->agentEnvStatus(dependency) : nullptr;
  if (namesEntry && !found) {
    dependencyIs(nullptr);
    doReportMissingDependency();
    return;
  }
  Ptr<AgentEnvConfig> const& aggregate = config_->aggConfig();
  if (aggregate && dependency == aggregate->name()) {
    SM_TRACE(0) << ": Error: Circular dependency with aggConfig";
    outcomeIs(AgentEnvStatus::circularDependencyWithAggConfig, AgentEnvStatus::error);
    return;
  }
  if (mode_ == init && status_) status_->individualStatusIs(AgentEnvStatus::notApplicable);
  if (dependency.isEmpty()) {
    SM_TRACE(2) << ": No dependency, trying to act...";
    dependencyIs(nullptr);
    if (mode_ == init) doActionIfReady();
  } else if (dependency == AgentEnvConfig::notReady()) {
    SM_TRACE(2) << ": Dependency set to notReady, waiting...";
    dependencyIs(nullptr);
  } else {
    dependencyIs(found);
    SM_TRACE(2) << ": Depending on " << dependency;
  }
  doCircularDependencyCheck();
  if (!aggregate) versionNumInc(1);
}

void AgentEnvSm::handleDependencyStatus() {
  if (Ptr<AgentEnvStatus const> status = dependency()) {
    SM_TRACE(2) << ": Got dependency status " << status->groupStatus();
  }
  doCircularDependencyCheck();
  if (consistency_ == inconsistent) return;
  if (mode_ == init) doActionIfReady();
  if (!config_->aggConfig()) versionNumInc(1);
}

// The walk follows the dependency names through the config dir. An entry has
// at most one dependency, so the chain from an entry is a path; a chain found
// to end (at an entry without dependency or a name without config) is
// remembered on every state machine along it, and a later walk that reaches
// one of them stops there. The memo holds while the graph keeps its edges
// (the owner counts the changes that remove or redirect one) and the chain's
// last config still ends it, so a long chain settling costs one step per entry.
void AgentEnvSm::doCircularDependencyCheck() {
  if (!dependency() || !dirSm_->agentEnvConfigDir()) return;
  AgentEnvConfigDir const& configs = *dirSm_->agentEnvConfigDir();
  Name const& own = config_->name();
  std::vector<AgentEnvSm*> walked;
  Name last = own, current = config_->dependency();
  bool ended = false;
  for (size_t steps = 0; steps <= configs.agentEnvConfigCount(); ++steps) {
    Ptr<AgentEnvConfig> config = current.isEmpty() ? nullptr : configs.agentEnvConfig(current);
    if (!config) {
      ended = true;
      break;
    }
    if (config->dependency() == own) {
      SM_TRACE(0) << ": Error: Circular dependency";
      outcomeIs(AgentEnvStatus::circularDependency, AgentEnvStatus::error);
      return;
    }
    AgentEnvSm* sm = dirSm_->agentEnvSm(current).ptr();
    if (sm && sm->chainMemoHolds()) {
      last = sm->extras_->chainTerminal;
      ended = true;
      break;
    }
    if (sm) walked.push_back(sm);
    last = current;
    current = config->dependency();
  }
  if (!ended) return;  // the chain runs into a cycle that does not pass through this entry
  for (AgentEnvSm* sm : walked) sm->chainMemoIs(last);
  chainMemoIs(last);
  if (status_ && status_->statusCode() == AgentEnvStatus::circularDependency)
    outcomeIs(AgentEnvStatus::none, AgentEnvStatus::notApplicable);
}

// The chain still ends where it ended: its last config is gone, has no
// dependency, or depends on a name without config.
bool AgentEnvSm::chainMemoHolds() const {
  if (!extras_ || extras_->chainGeneration != dirSm_->dependencyGeneration()) return false;
  AgentEnvConfigDir const& configs = *dirSm_->agentEnvConfigDir();
  Ptr<AgentEnvConfig> last = configs.agentEnvConfig(extras_->chainTerminal);
  return !last || last->dependency().isEmpty() || !configs.agentEnvConfig(last->dependency());
}

void AgentEnvSm::chainMemoIs(Name const& terminal) {
  Extras& memo = extras();
  memo.chainGeneration = dirSm_->dependencyGeneration();
  memo.chainTerminal = terminal;
}

}  // namespace Zet
