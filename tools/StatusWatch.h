#pragma once
// Prints one line for each change of an entry's status (its individual and
// group status, code and reason), once the change is complete: a code and a
// status written as a pair make one line. As text:
//
//   store: inProgress inProgress none
//   store: fail fail disconnected: disconnected
//
// or, as JSON, the entry's status row (StatusTable.h) on one line.

#include <iosfwd>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "AgentEnv/AgentEnvConfigDir.h"
#include "AgentEnv/AgentEnvStatusDir.h"
#include "Zet/Liveness.h"

namespace Zet::Tool {

struct WatchOptions {
  std::vector<std::string> only;  // the entries to watch; every one when empty
  bool json = false;
  bool printCurrent = true;  // false: the current statuses were shown already
};

class StatusWatch : private AgentEnvStatusDir::NotifieeConst {
 public:
  StatusWatch(Ptr<AgentEnvStatusDir const> const& statuses, Ptr<AgentEnvConfigDir const> configs, std::ostream& out,
              WatchOptions options = {});
  ~StatusWatch() override;

 private:
  class EntryWatch;
  void onAgentEnvStatus(Name const& name) override;
  void changed(Name const& name);
  void printChanges();
  std::string line(Ptr<AgentEnvStatus const> const& status) const;

  Ptr<AgentEnvConfigDir const> configs_;
  std::ostream& out_;
  WatchOptions options_;
  std::unordered_map<std::string, std::unique_ptr<EntryWatch>> entries_;
  std::unordered_map<std::string, std::string> printed_;  // the last line of each entry
  std::vector<Name> changed_;
  bool printQueued_ = false;
  Liveness liveness_;
};

}  // namespace Zet::Tool
