#pragma once
// agentenv why [--control unix:PATH | --agent-name NAME] ENTRY
// agentenv why [-D NAME=VALUE]... ENTRY FILE...
//
// Says what holds an entry back, hop by hop to the root cause, on one line:
//
//   cache waits on store (inProgress) → store: fail: disconnected
//
// Of a running agent: dependencies that are not ready, aggregates waiting on
// a member, failures with their message, cycles named in full. Of files:
// what the entry would wait on and what it would do. Exit status: kExitOk
// when nothing holds the entry back, kExitProblems when something does,
// kExitUsage for bad arguments, unreadable files or no agent.

#include "EntrySource.h"
#include "Subcommand.h"

namespace Zet::Tool {

class WhyCommand : public Subcommand {
 public:
  CLI::App* addTo(CLI::App& app) override;
  int run() override;

 private:
  EntrySource source_;
  std::string entry_;
};

// The explanation of one entry, and whether anything holds it back.
struct Explanation {
  std::string text;
  bool heldBack = false;
};
Explanation explain(AgentView const& view, Name const& entry);

}  // namespace Zet::Tool
