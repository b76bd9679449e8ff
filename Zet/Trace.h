#pragma once
// Tracing: lines tagged with a facility and a level.
//
// The environment variable ZET_TRACE selects what is written: a comma-separated
// list of facility/level pairs, "*" standing for every other facility
// ("AgentEnvSm/2,*/0"). A line is written when its level is at most the level
// selected for its facility; with ZET_TRACE unset nothing is written. Lines go
// to standard error, one per trace, unless a sink is installed.

#include <functional>
#include <sstream>
#include <string_view>

#include "Zet/String8.h"

namespace Zet {

class Trace {
 public:
  using Sink = std::function<void(std::string_view facility, int level, std::string_view line)>;

  static bool isEnabled(std::string_view facility, int level);
  // Replaces the selection (same syntax as ZET_TRACE).
  static void configIs(std::string_view selection);
  // Installs a sink receiving every written line; an empty sink restores
  // standard error. Returns the previous sink.
  static Sink sinkIs(Sink sink);
  static void write(std::string_view facility, int level, std::string_view line);
};

// One trace line, written when the object goes out of scope.
class TraceLine {
 public:
  TraceLine(std::string_view facility, int level) : facility_(facility), level_(level) {}
  ~TraceLine() { Trace::write(facility_, level_, text_.view()); }
  TraceLine(TraceLine const&) = delete;
  TraceLine& operator=(TraceLine const&) = delete;

  template <class T>
  TraceLine& operator<<(T const& v) {
    text_ << v;
    return *this;
  }

 private:
  std::string_view facility_;
  int level_;
  std::ostringstream text_;
};

}  // namespace Zet

// Usage: ZET_TRACE_AT("AgentEnvSm", 2) << name << ": Trying to mount.";
// The arguments are not evaluated when the level is not selected.
#define ZET_TRACE_AT(facility, level)                     \
  if (!::Zet::Trace::isEnabled((facility), (level))) { \
  } else                                                  \
    ::Zet::TraceLine((facility), (level))
