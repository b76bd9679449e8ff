#include "Zet/Trace.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <string>
#include <vector>

namespace Zet {
namespace {

struct Selection {
  std::vector<std::pair<std::string, int>> facilities;
  int otherLevel = -1;  // level for "*"; -1 writes nothing
};

struct TraceState {
  std::mutex mutex;
  Selection selection;
  Trace::Sink sink;

  void selectionIs(Selection s) {
    int highest = s.otherLevel;
    for (auto const& f : s.facilities) highest = std::max(highest, f.second);
    selection = std::move(s);
    detail::traceHighestLevel.store(highest, std::memory_order_relaxed);
  }
};

Selection parse(std::string_view text) {
  Selection s;
  while (!text.empty()) {
    size_t comma = text.find(',');
    std::string_view item = text.substr(0, comma);
    text = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
    size_t slash = item.find('/');
    std::string_view facility = item.substr(0, slash);
    int level = slash == std::string_view::npos ? 0 : std::atoi(std::string(item.substr(slash + 1)).c_str());
    if (facility == "*") {
      s.otherLevel = level;
    } else if (!facility.empty()) {
      s.facilities.emplace_back(std::string(facility), level);
    }
  }
  return s;
}

TraceState& state() {
  static TraceState* s = [] {
    auto* t = new TraceState;
    char const* env = std::getenv("ZET_TRACE");
    t->selectionIs(env ? parse(env) : Selection());
    return t;
  }();
  return *s;
}

}  // namespace

constinit std::atomic<int> detail::traceHighestLevel{INT_MAX};

bool Trace::isSelected(std::string_view facility, int level) {
  TraceState& s = state();
  if (level > detail::traceHighestLevel.load(std::memory_order_relaxed)) return false;
  std::lock_guard lock(s.mutex);
  for (auto const& [name, selected] : s.selection.facilities)
    if (name == facility) return level <= selected;
  return level <= s.selection.otherLevel;
}

void Trace::configIs(std::string_view selection) {
  TraceState& s = state();
  std::lock_guard lock(s.mutex);
  s.selectionIs(parse(selection));
}

Trace::Sink Trace::sinkIs(Sink sink) {
  TraceState& s = state();
  std::lock_guard lock(s.mutex);
  std::swap(s.sink, sink);
  return sink;
}

void Trace::write(std::string_view facility, int level, std::string_view line) {
  TraceState& s = state();
  Sink sink;
  {
    std::lock_guard lock(s.mutex);
    sink = s.sink;
  }
  if (sink) {
    sink(facility, level, line);
    return;
  }
  std::string out;
  out.reserve(facility.size() + line.size() + 8);
  out.append(facility).append("/").append(std::to_string(level)).append(" ").append(line).append("\n");
  std::cerr << out << std::flush;
}

}  // namespace Zet
