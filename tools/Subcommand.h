#pragma once
// The subcommands of the agentenv command. Each adds itself to the command
// line (its options and its help) and runs when it was the one named,
// returning the process's exit status.

#include <stdexcept>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Zet::Tool {

// Exit statuses shared by every subcommand.
enum ExitStatus : int {
  kExitOk = 0,        // nothing to report
  kExitProblems = 1,  // the subcommand ran and found problems
  kExitUsage = 2,     // bad arguments, or a file that could not be found or read
};

class Subcommand {
 public:
  virtual ~Subcommand() = default;
  // Declares the subcommand and its options on the command line.
  virtual CLI::App* addTo(CLI::App& app) = 0;
  // Runs with the options as parsed.
  virtual int run() = 0;
};

// A bad argument; what() is the one-line explanation shown to the user.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace Zet::Tool
