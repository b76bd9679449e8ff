#pragma once
// Prints the entries of a config directory for people to read: each entry
// with every attribute the configuration language sets (plus the file it
// came from and its aggregate), members indented under their aggregate,
// siblings sorted by name. Texts are quoted, with '"', '\' and unprintable
// bytes escaped (names only when they are not plain identifiers), so the
// output is stable and one attribute is one line.
// Works without recursion, however deep the nesting.

#include <iosfwd>

#include "AgentEnv/AgentEnvConfigDir.h"

namespace Zet::Tool {

void dumpConfigs(AgentEnvConfigDir const& dir, std::ostream& out);

}  // namespace Zet::Tool
