#pragma once
// agentenv check [-D NAME=VALUE]... [--dump] FILE...
//
// Reads configuration files the way an agent would — includes, the
// AGENTENV_CONFIGS search and substitutions — into a fresh config directory,
// without running anything, and prints the diagnostics. Exit status:
// kExitOk when there were none, kExitProblems after syntax or
// duplicate-attribute errors, kExitUsage for bad arguments and for files
// that cannot be found or read.

#include "Subcommand.h"

namespace Zet::Tool {

int runCheck(Arguments const& arguments);
extern Subcommand const kCheckCommand;

}  // namespace Zet::Tool
