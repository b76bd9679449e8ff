#pragma once
// Tracing: lines tagged with a facility and a level.
//
// The environment variable ZET_TRACE selects what is written: a comma-separated
// list of facility/level pairs, "*" standing for every other facility
// ("AgentEnvSm/2,*/0"). A line is written when its level is at most the level
// selected for its facility; with ZET_TRACE unset nothing is written. Lines go
// to standard error, one per trace, unless a sink is installed.

#include <atomic>
#include <functional>
#include <sstream>
#include <string_view>

#include "Zet/String8.h"

namespace Zet {

namespace detail {
// The highest level any facility selects (-1: none), or INT_MAX until
// ZET_TRACE has been read: a trace above it is refused inline.
extern std::atomic<int> traceHighestLevel;
}  // namespace detail

class Trace {
 public:
  using Sink = std::function<void(std::string_view facility, int level, std::string_view line)>;

  // Whether a line of this facility and level is written. Traces sit on
  // every path of the state machines: one that is not selected costs a
  // load and a comparison.
  static bool isEnabled(std::string_view facility, int level) {
    return level <= detail::traceHighestLevel.load(std::memory_order_relaxed) && isSelected(facility, level);
  }
  // Replaces the selection (same syntax as ZET_TRACE).
  static void configIs(std::string_view selection);
  // Installs a sink receiving every written line; an empty sink restores
  // standard error. Returns the previous sink.
  static Sink sinkIs(Sink sink);
  static void write(std::string_view facility, int level, std::string_view line);

 private:
  static bool isSelected(std::string_view facility, int level);
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
