#pragma once
// The subcommands of the agentenv command. Each one reads its own arguments
// (everything after its name) and returns the process's exit status. Adding
// a subcommand means writing its run function and listing it in agentenv.cpp.

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Zet::Tool {

// Exit statuses shared by every subcommand.
enum ExitStatus : int {
  kExitOk = 0,        // nothing to report
  kExitProblems = 1,  // the subcommand ran and found problems
  kExitUsage = 2,     // bad arguments, or a file that could not be found or read
};

using Arguments = std::vector<std::string_view>;

struct Subcommand {
  std::string_view name;
  std::string_view summary;  // one line, for the command's own help
  int (*run)(Arguments const& arguments);
};

// A bad argument; what() is the one-line explanation shown to the user.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace Zet::Tool
