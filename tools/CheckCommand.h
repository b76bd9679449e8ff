#pragma once
// agentenv check [-D NAME=VALUE]... [--dump] FILE...
//
// Reads configuration files the way an agent would — includes, the
// AGENTENV_CONFIGS search and substitutions — into a fresh config directory,
// without running anything, and prints the diagnostics. Exit status:
// kExitOk when there were none, kExitProblems after syntax or
// duplicate-attribute errors, kExitUsage for bad arguments and for files
// that cannot be found or read.

#include "ConfigReading.h"
#include "Subcommand.h"

namespace Zet::Tool {

class CheckCommand : public Subcommand {
 public:
  CLI::App* addTo(CLI::App& app) override;
  int run() override;

 private:
  ConfigFiles files_;
  bool dump_ = false;
};

}  // namespace Zet::Tool
