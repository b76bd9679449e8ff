#pragma once
// The statuses of an agent's entries as people and scripts read them: one
// row per entry with its mode, individual and group status, the code and
// message where the entry failed, erred or is unsupported, the source in use
// (for an export, where it listens), the reason of a failure where its code
// does not say it, and what an entry that has not acted waits for. The
// table aligns the rows; JSON gives one object per row and line.

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "AgentEnv/AgentEnvConfigDir.h"
#include "AgentEnv/AgentEnvStatusDir.h"
#include "Zet/BlockPool.h"

namespace Zet::Tool {

struct StatusRow {
  std::string entry;
  std::string mode;  // what the entry's config asks for; empty without a config
  std::string status;
  std::string group;
  std::string code;     // a failure's only
  std::string message;  // a failure's only
  std::string currentSource;
  std::string reason;
  std::string listensOn;   // an export's endpoint: "port 7001", "socket /run/a.sock"
  std::string waitingFor;  // the entry that one which has not acted waits for

  // The row as one line of JSON, every key present ("" where empty).
  std::string json() const;
};

// One entry's row as views: the texts that the status, its config and the
// enumerations keep are viewed where they are kept, and the few the row
// makes (a failure's message, an endpoint, what the entry waits for) are
// held here. A table reads a million rows: most make no text at all. Valid
// while the status and the config do not change; it stays where it is made.
class StatusRowView {
  // What the row makes, declared first so that it is there before the views
  // of it. A value an enumeration has no text for is shown by its number.
  std::string modeMade_, statusMade_, groupMade_, codeMade_;
  String8 messageMade_;
  std::string listensOnMade_, waitingForMade_;

 public:
  StatusRowView(AgentEnvStatus const& status, AgentEnvConfig const* config, AgentEnvStatusDir const& statuses);
  StatusRowView(StatusRowView const&) = delete;
  StatusRowView& operator=(StatusRowView const&) = delete;

  // The same texts, owned.
  StatusRow row() const;

  std::string_view entry, mode, status, group, code, message, currentSource, reason, listensOn, waitingFor;
};

// Whether `entry` is among the entries named; every entry is when none is.
bool isNamed(std::vector<std::string> const& only, std::string_view entry);

// The row of one entry, whose config is given or looked up.
StatusRow statusRow(AgentEnvStatus const& status, AgentEnvConfig const* config, AgentEnvStatusDir const& statuses);
StatusRow statusRow(AgentEnvStatus const& status, AgentEnvStatusDir const& statuses, AgentEnvConfigDir const& configs);

// The rows of the entries named in `only` (every entry when empty), by name.
// A row is made each time it is asked for: an agent of a million entries
// costs a sort key and two pointers per entry here, not a row. The
// directories must not change while the rows are read.
class StatusRows {
 public:
  StatusRows(AgentEnvStatusDir const& statuses, AgentEnvConfigDir const& configs,
             std::vector<std::string> const& only = {});
  size_t size() const { return order_.size(); }
  StatusRow operator[](size_t i) const { return view(i).row(); }
  StatusRowView view(size_t i) const { return StatusRowView(*order_[i].status, order_[i].config, statuses_); }
  // Starts reading what the rows after row i are made of. Rows come by
  // name, in no order in memory: a reader calls this before it makes row i,
  // so that the waits for memory overlap.
  void readAhead(size_t i) const;
  bool allInitialized() const;

 private:
  struct Entry {
    uint64_t key;  // nameKey of the entry's name (SortByKey.h)
    AgentEnvStatus const* status;
    AgentEnvConfig const* config;  // null when the entry has none
  };

  AgentEnvStatusDir const& statuses_;
  std::vector<Entry, ArrayAllocator<Entry>> order_;  // by name
};

void printStatusTable(StatusRows const& rows, std::ostream& out);
// JSON Lines: one object per row.
void printStatusJson(StatusRows const& rows, std::ostream& out);

// Whether the status shows its code and message.
bool showsReason(AgentEnvStatus const& status);

// A failure in one line: the status message, then the reason when there is one.
std::string failureText(Ptr<AgentEnvStatus const> const& status, Ptr<AgentEnvConfig const> const& config);

}  // namespace Zet::Tool
