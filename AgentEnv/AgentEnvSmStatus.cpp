// AgentEnvSm: individual and group statuses, the status sets of an
// aggregate's state machine, and the outcomes the other parts write.

#include "AgentEnv/AgentEnvSm.h"
#include "AgentEnv/AgentEnvSmReactors.h"
#include "AgentEnv/AgentEnvSmTrace.h"

namespace Zet {

void AgentEnvSm::handleStatusReaction() {
  if (!notificationActive_) return;
  handleIndividualStatus();
  if (status_) doComputeGroupStatus();
  if (Ptr<AgentEnvSm const> agg = aggAgentSm()) const_cast<AgentEnvSm*>(agg.ptr())->doComputeGroupStatus();
}

void AgentEnvSm::handleIndividualStatus() {
  if (!status_) return;
  AgentEnvStatus::Status s = status_->individualStatus();
  doComputeGroupStatus();
  ZET_TRACE_AT("AgentEnvSm", 2) << name() << ": Status is " << s;
  Ptr<AgentEnvSm const> agg = aggAgentSm();
  if (!agg) return;
  doClearStatusFromAggSm();
  if (s <= AgentEnvStatus::unsupported) const_cast<AgentEnvSm*>(agg.ptr())->statusSetMemberIs(s, status_);
}

void AgentEnvSm::doClearStatusFromAggSm() {
  Ptr<AgentEnvSm const> agg = aggAgentSm();
  if (!agg || !status_) return;
  auto* aggregate = const_cast<AgentEnvSm*>(agg.ptr());
  for (AgentEnvStatus::Status s : {AgentEnvStatus::notApplicable, AgentEnvStatus::inProgress, AgentEnvStatus::initialized,
                                   AgentEnvStatus::fail, AgentEnvStatus::error, AgentEnvStatus::unsupported})
    aggregate->statusSetMemberDel(s, status_->name());
}

void AgentEnvSm::doComputeGroupStatus() {
  if (!status_) return;
  using St = AgentEnvStatus;
  St::Status s = status_->individualStatus();
  // Most entries have no nested configs, and so no sets.
  StatusSets const* sets = extras_ ? extras_->statusSets.get() : nullptr;
  auto count = [sets](St::Status set) { return sets ? sets->sets[set].size() : 0; };
  size_t nested = config_ ? config_->nestedConfigs().size() : 0;
  St::Status group;
  if (count(St::unsupported) > 0 || s == St::unsupported)
    group = St::unsupported;
  else if (count(St::error) > 0 || s == St::error)
    group = St::error;
  else if (count(St::fail) > 0 || s == St::fail)
    group = St::fail;
  else if (count(St::notApplicable) > 0 || (s == St::notApplicable && nested == 0))
    group = St::notApplicable;
  else if (count(St::inProgress) > 0 || s == St::inProgress)
    group = St::inProgress;
  else if (count(St::initialized) == nested && (s == St::initialized || s == St::notApplicable))
    group = St::initialized;
  else
    group = St::notApplicable;
  ZET_TRACE_AT("AgentEnvSm", 2) << name() << ": Setting group status to " << group;
  status_->groupStatusIs(group);
}

// ---- Outcomes: a code, then the status it goes with -------------------------

void AgentEnvSm::outcomeIs(AgentEnvStatus::StatusCode code, AgentEnvStatus::Status s, String8 const& reason) {
  if (!status_) return;
  status_->reasonIs(reason);
  status_->statusCodeIs(code);
  status_->individualStatusIs(s);
}

bool AgentEnvSm::doRefuseInvalidSource0() {
  SM_TRACE(0) << ": Error: source0 is invalid URI.";
  outcomeIs(AgentEnvStatus::invalidUri, AgentEnvStatus::error);
  return false;
}

bool AgentEnvSm::doRefuseSwitchedModes() {
  SM_TRACE(0) << ": Unsupported: Tried to switch modes.";
  outcomeIs(AgentEnvStatus::switchedModes, AgentEnvStatus::unsupported);
  return false;
}

}  // namespace Zet
