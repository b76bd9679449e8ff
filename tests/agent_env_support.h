#pragma once
// Helpers of the state-machine tests: a config dir and a status dir of their
// own with an AgentEnvDirSm over them, entries made the way the parser makes
// them, the process's loop run until the entries have settled, and the
// state machines' trace lines captured.

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "AgentEnv/AgentEnv.h"

namespace Zet::testing {

// What an entry is given, attribute by attribute, in this order; unset
// fields are left alone. `dependency` defaults to none, so an entry acts.
struct EntryAttributes {
  std::string source0 = {};
  std::string source1 = {};
  std::string target = {};
  std::string typeName = {};
  std::string dependency = {};
  std::string pathSuffix = {};
  std::string aggConfig = {};
};

// Captures the lines of the "AgentEnvSm" facility at every level up to 2.
class TraceCapture {
 public:
  TraceCapture() {
    Trace::configIs("AgentEnvSm/2");
    previous_ = Trace::sinkIs([this](std::string_view, int level, std::string_view line) {
      lines.push_back(std::to_string(level) + " " + std::string(line));
    });
  }
  ~TraceCapture() {
    Trace::sinkIs(previous_);
    Trace::configIs("");
  }
  bool has(std::string const& line) const {
    for (auto const& l : lines)
      if (l == line) return true;
    return false;
  }
  std::vector<std::string> lines;

 private:
  Trace::Sink previous_;
};

// "e12" from ("e", 12).
inline std::string numbered(char const* prefix, int n) {
  std::string text(prefix);
  text += std::to_string(n);
  return text;
}

class AgentEnvFixture : public ::testing::Test {
 protected:
  AgentEnvFixture() : root(uniqueRoot()) {}
  ~AgentEnvFixture() override {
    dirSm = nullptr;
    configs->agentEnvConfigDelAll();
  }

  // A path below this test's own directory of the global tree.
  std::string path(std::string const& below) const { return root + "/" + below; }

  Ptr<AgentEnvConfig> entry(std::string const& name, EntryAttributes const& given) {
    Ptr<AgentEnvConfig> c = configs->agentEnvConfigIs(Name(name));
    if (!given.aggConfig.empty()) c->aggConfigIs(configs->agentEnvConfig(Name(given.aggConfig)));
    if (!given.source0.empty()) c->source0Is(EntityUri(String8(given.source0)));
    if (!given.source1.empty()) c->source1Is(EntityUri(String8(given.source1)));
    if (!given.target.empty()) c->targetIs(EntityUriPath(String8(given.target)));
    if (!given.pathSuffix.empty()) c->pathSuffixIs(EntityUri(String8(given.pathSuffix)));
    if (!given.typeName.empty()) c->typeNameIs(String8(given.typeName));
    c->dependencyIs(Name(given.dependency));
    return c;
  }

  // Runs the loop until no reaction is left.
  static void settle() { ActivityFacility::loop().runUntilIdle(); }

  // The entity at an absolute path of the global tree.
  static Ptr<Entity> at(std::string const& path) { return globalDir()->entityRef(std::string_view(path)); }

  Ptr<AgentEnvStatus> status(std::string const& name) const { return statuses->agentEnvStatus(Name(name)); }
  Ptr<AgentEnvSm> sm(std::string const& name) const { return dirSm->agentEnvSm(Name(name)); }
  AgentEnvStatus::Status individual(std::string const& name) const { return status(name)->individualStatus(); }
  AgentEnvStatus::Status group(std::string const& name) const { return status(name)->groupStatus(); }
  AgentEnvStatus::StatusCode code(std::string const& name) const { return status(name)->statusCode(); }
  std::string message(std::string const& name) const {
    return std::string(AgentEnv::statusMessage(status(name), configs->agentEnvConfig(Name(name))).view());
  }

  Ptr<AgentEnvConfigDir> configs = agentEnvConfigDirFactory("configs");
  Ptr<AgentEnvStatusDir> statuses = agentEnvStatusDirFactory("statuses");
  Ptr<AgentEnvDirSm> dirSm = agentEnvDirSmFactory(configs, statuses);
  std::string const root;

 private:
  static std::string uniqueRoot() {
    static std::atomic<int> count{0};
    return "/sm-test-" + std::to_string(++count);
  }
};

}  // namespace Zet::testing
