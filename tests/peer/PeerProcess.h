#pragma once
// A serving peer for the mount tests: the attrlog_peer program run as a
// child process, told what to do one line at a time (see attrlog_peer.cpp).

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/peer/ChildProcess.h"

namespace Test {

class PeerProcess {
 public:
  // Starts the peer with these NAME=VALUE settings added to its environment.
  explicit PeerProcess(std::vector<std::string> environment = {})
      : child_(std::make_unique<ChildProcess>(std::vector<std::string>{ATTRLOG_PEER}, std::move(environment))) {}

  // Sends one command and returns the peer's answer ("" when none came in
  // timeoutMs or the peer is gone).
  std::string operator()(std::string const& command, int timeoutMs = 20000) {
    if (!child_->write(command + "\n")) return "";
    return child_->outLine([](std::string const&) { return true; }, timeoutMs);
  }

  // The next line of its standard error (its traces) that `wanted` accepts;
  // "" when none comes within timeoutMs.
  std::string errLine(std::function<bool(std::string const&)> const& wanted, int timeoutMs = 20000) {
    return child_->errLine(wanted, timeoutMs);
  }

  // Ends the peer at once, as a crash would.
  void kill() { child_->kill(); }

 private:
  std::unique_ptr<ChildProcess> child_;
};

}  // namespace Test
