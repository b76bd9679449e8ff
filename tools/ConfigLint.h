#pragma once
// What configuration files would get wrong at run time, found without
// running anything: each finding is a warning at the line of the attribute
// (or entry) concerned.
//
//   - a dependency that names no entry
//   - a dependency cycle, named in full in the order of its dependencies
//   - a target that is not an absolute path (outside exports)
//   - an export target that is neither a port (1-65535) nor an absolute
//     socket path, or a number that is cut to 16 bits; two exports of the
//     same port or socket; a second export on a TCP port, or on a socket
//     (one of each listens: the later replaces the earlier)
//   - a source that is not a valid URI, or that has no scheme (what a
//     substitution without a value leaves); a source1 whose last name
//     differs from source0's
//   - a member that depends on its own aggregate
//   - a typeName the type map cannot resolve (resolving may load plugin
//     libraries)

#include "AgentEnv/ConfigFileParser.h"
#include "Warnings.h"

namespace Zet::Tool {

// Adds the findings about the parser's entries.
void lintConfigs(ConfigFileParser const& parser, Warnings& warnings);

}  // namespace Zet::Tool
