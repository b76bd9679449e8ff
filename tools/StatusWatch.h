#pragma once
// Prints one line for each change of an entry's status (its individual and
// group status and code), once the change is complete: a code and a status
// written as a pair make one line.
//
//   store: inProgress inProgress none
//   store: fail fail disconnected: disconnected

#include <iosfwd>
#include <memory>
#include <string>
#include <unordered_map>

#include "AgentEnv/AgentEnvConfigDir.h"
#include "AgentEnv/AgentEnvStatusDir.h"

namespace Zet::Tool {

class StatusWatch : private AgentEnvStatusDir::NotifieeConst {
 public:
  StatusWatch(Ptr<AgentEnvStatusDir const> const& statuses, Ptr<AgentEnvConfigDir const> configs, std::ostream& out);
  ~StatusWatch() override;

 private:
  class EntryWatch;
  void onAgentEnvStatus(Name const& name) override;
  void changed(Name const& name);
  void printChanges();

  Ptr<AgentEnvConfigDir const> configs_;
  std::ostream& out_;
  std::unordered_map<std::string, std::unique_ptr<EntryWatch>> entries_;
  std::unordered_map<std::string, std::string> printed_;  // the last line of each entry
  std::vector<Name> changed_;
  bool printQueued_ = false;
  std::shared_ptr<StatusWatch*> alive_;
};

}  // namespace Zet::Tool
