#pragma once
// What configuration files would get wrong at run time, found without
// running anything: each finding is one line "file:line: warning: message"
// at the line of the attribute (or entry) concerned.
//
//   - a dependency that names no entry
//   - a dependency cycle, named in full in the order of its dependencies
//   - a target that is not an absolute path (outside exports)
//   - an export target that is neither a port (1-65535) nor an absolute
//     socket path; two exports of the same port or socket
//   - a source that is not a valid URI
//   - a member that depends on its own aggregate
//   - a typeName the type map cannot resolve (only when map files are
//     found on ZET_TYPE_MAP_PATH; resolving may load plugin libraries)

#include <iosfwd>

#include "AgentEnv/ConfigFileParser.h"

namespace Zet::Tool {

// Writes the findings about the parser's entries; returns how many.
unsigned lintConfigs(ConfigFileParser const& parser, std::ostream& out);

}  // namespace Zet::Tool
