#pragma once
// Trace lines of the environment state machines: facility "AgentEnvSm",
// level 0 for errors and 2 for progress, each beginning with the entry's name.

#include <ostream>

#include "Zet/Trace.h"

namespace Zet {

// Writes a value between double-quote characters, as trace lines quote names
// and paths (nothing inside is escaped).
template <class T>
struct InQuotes {
  T const& value;
};
template <class T>
std::ostream& operator<<(std::ostream& out, InQuotes<T> const& q) {
  return out << '"' << q.value << '"';
}
template <class T>
InQuotes<T> inQuotes(T const& value) {
  return {value};
}

}  // namespace Zet

// SM_TRACE(2) << ": Trying to mount."; inside an AgentEnvSm member.
#define SM_TRACE(level) ZET_TRACE_AT("AgentEnvSm", (level)) << this->name()
