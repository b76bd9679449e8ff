#include "StatusWatch.h"

#include <ostream>
#include <utility>

#include "AgentEnv/AgentEnvRoot.h"
#include "StatusTable.h"
#include "Zet/Activity.h"

namespace Zet::Tool {

class StatusWatch::EntryWatch : public AgentEnvStatus::NotifieeConst {
 public:
  EntryWatch(StatusWatch& watch, Ptr<AgentEnvStatus const> const& status) : watch_(watch) { notifierIs(status); }
  void onIndividualStatus() override { watch_.changed(notifier()->name()); }
  void onGroupStatus() override { watch_.changed(notifier()->name()); }
  void onStatusCode() override { watch_.changed(notifier()->name()); }
  void onReason() override { watch_.changed(notifier()->name()); }

 private:
  StatusWatch& watch_;
};

StatusWatch::StatusWatch(Ptr<AgentEnvStatusDir const> const& statuses, Ptr<AgentEnvConfigDir const> configs,
                         std::ostream& out, WatchOptions options)
    : configs_(std::move(configs)), out_(out), options_(std::move(options)) {
  notifierIs(statuses);
  for (auto const& member : statuses->agentEnvStatuses()) onAgentEnvStatus(Name(member.key()));
  if (options_.printCurrent) return;
  for (Name const& name : std::exchange(changed_, {})) printed_[name.str()] = line(notifier()->agentEnvStatus(name));
}

StatusWatch::~StatusWatch() = default;

void StatusWatch::onAgentEnvStatus(Name const& name) {
  std::string key(name.view());
  if (!isNamed(options_.only, key)) return;
  if (Ptr<AgentEnvStatus const> status = notifier()->agentEnvStatus(name)) {
    entries_[key] = std::make_unique<EntryWatch>(*this, status);
    changed(name);
  } else {
    entries_.erase(key);
    printed_.erase(key);
  }
}

void StatusWatch::changed(Name const& name) {
  changed_.push_back(name);
  if (printQueued_) return;
  printQueued_ = true;
  ActivityFacility::loop().deferredCallIs(liveness_.guarded([this] { printChanges(); }));
}

void StatusWatch::printChanges() {
  printQueued_ = false;
  auto names = std::move(changed_);
  changed_.clear();
  for (Name const& name : names) {
    Ptr<AgentEnvStatus const> s = notifier()->agentEnvStatus(name);
    if (!s) continue;
    std::string line = this->line(s);
    std::string& last = printed_[name.str()];
    if (line == last) continue;
    last = line;
    out_ << line << std::endl;
  }
}

std::string StatusWatch::line(Ptr<AgentEnvStatus const> const& s) const {
  if (options_.json) return statusRow(*s, *notifier(), *configs_).json();
  std::string line = s->name().str() + ": " + stringValue(s->individualStatus()).str() + " " +
                     stringValue(s->groupStatus()).str() + " " + stringValue(s->statusCode()).str();
  if (showsReason(*s)) line += ": " + failureText(s, configs_->agentEnvConfig(s->name()));
  return line;
}

}  // namespace Zet::Tool
