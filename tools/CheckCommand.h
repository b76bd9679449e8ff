#pragma once
// agentenv check [-D NAME=VALUE]... [--dump] [--strict] FILE...
//
// Reads configuration files the way an agent would — includes, the
// AGENTENV_CONFIGS search and substitutions — into a fresh config directory,
// without running anything, and prints the diagnostics, then the warnings
// about what would fail at run time (ConfigLint.h). Exit status: kExitOk
// when there were no errors, kExitProblems after syntax or
// duplicate-attribute errors (and, with --strict, warnings), kExitUsage for
// bad arguments and for files that cannot be found or read.

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
  bool strict_ = false;
};

}  // namespace Zet::Tool
