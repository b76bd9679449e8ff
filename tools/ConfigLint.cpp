#include "ConfigLint.h"

#include <algorithm>
#include <map>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include "DependencyCycles.h"
#include "Zet/TypeMap.h"

namespace Zet::Tool {
namespace {

using Type = ConfigFileParser::AttributeType;

class Lint {
 public:
  Lint(ConfigFileParser const& parser, std::ostream& out) : parser_(parser), out_(out) {
    for (auto const& member : parser.configDir()->agentEnvConfigs()) entries_.push_back(member.value().ptr());
    std::sort(entries_.begin(), entries_.end(),
              [](AgentEnvConfig const* a, AgentEnvConfig const* b) { return a->name().view() < b->name().view(); });
  }

  unsigned run() {
    for (AgentEnvConfig const* e : entries_) {
      checkDependency(*e);
      checkSources(*e);
      checkTarget(*e);
      checkType(*e);
    }
    checkCycles();
    std::stable_sort(findings_.begin(), findings_.end());
    for (auto const& f : findings_) out_ << f.file << ':' << f.line << ": warning: " << f.message << "\n";
    return unsigned(findings_.size());
  }

 private:
  struct Finding {
    std::string file;
    unsigned long line;
    std::string message;
    bool operator<(Finding const& o) const { return std::tie(file, line) < std::tie(o.file, o.line); }
  };

  void warn(AgentEnvConfig const& e, Type attribute, std::string message) {
    auto lines = parser_.sourceLines(e.name());
    unsigned long line = lines.attribute[unsigned(attribute)] ? lines.attribute[unsigned(attribute)] : lines.entry;
    findings_.push_back({e.configFile().str(), line, std::move(message)});
  }
  AgentEnvConfig const* entry(Name const& name) const { return parser_.configDir()->agentEnvConfig(name).ptr(); }

  void checkDependency(AgentEnvConfig const& e) {
    Name const& dependency = e.dependency();
    if (!AgentEnvConfig::namesEntry(dependency)) return;
    if (!entry(dependency))
      warn(e, Type::dependency, "dependency '" + dependency.str() + "' names no entry");
    else if (e.aggConfig() && e.aggConfig()->name() == dependency)
      warn(e, Type::dependency,
           std::string(1, '\'').append(e.name().view()).append("' depends on its own aggregate '").append(dependency.view()) +
               "'");
  }

  void checkSources(AgentEnvConfig const& e) {
    auto check = [&](EntityUri const& source, Type attribute, char const* label) {
      if (source.isEmpty() || source.isExport() || (source.isValid() && source.checkScheme())) return;
      warn(e, attribute, std::string(label) + " '" + source.text().str() + "' is not a valid source URI");
    };
    check(e.source0(), Type::source0, "source0");
    check(e.source1(), Type::source1, "source1");
  }

  void checkTarget(AgentEnvConfig const& e) {
    std::string target(e.target().text().view());
    if (target.empty()) return;
    if (!e.source0().isExport()) {
      if (!e.target().isAbsolute()) warn(e, Type::target, "target '" + target + "' is not an absolute path");
      return;
    }
    bool digits = std::all_of(target.begin(), target.end(), [](char c) { return c >= '0' && c <= '9'; });
    bool port = digits && target.size() <= 5 && std::stoul(target) >= 1 && std::stoul(target) <= 65535;
    if (!port && !e.target().isAbsolute()) {
      warn(e, Type::target,
           "export target '" + target + "' is neither a port (1-65535) nor an absolute socket path");
      return;
    }
    auto [first, inserted] = exports_.emplace(target, e.name().str());
    if (!inserted) warn(e, Type::target, "export target '" + target + "' is exported by '" + first->second + "' too");
  }

  void checkType(AgentEnvConfig const& e) {
    std::string_view type = e.typeName().view();
    if (type.empty() || TypeMap::instance().type(type) || !TypeMap::mapFilesFound()) return;
    try {
      TypeMap::instance().typeResolved(type);
    } catch (Exception const& failure) {
      warn(e, Type::uType, "typeName '" + std::string(type) + "' cannot be resolved: " + failure.what());
    }
  }

  void checkCycles() {
    for (auto const& cycle : dependencyCycles(*parser_.configDir())) {
      std::string names;
      for (AgentEnvConfig const* e : cycle) names += e->name().str() + " -> ";
      warn(*cycle.front(), Type::dependency, "dependency cycle: " + names + cycle.front()->name().str());
    }
  }

  ConfigFileParser const& parser_;
  std::ostream& out_;
  std::vector<AgentEnvConfig const*> entries_;
  std::map<std::string, std::string> exports_;  // export target -> first entry
  std::vector<Finding> findings_;
};

}  // namespace

unsigned lintConfigs(ConfigFileParser const& parser, std::ostream& out) {
  unsigned findings = Lint(parser, out).run();
  out.flush();
  return findings;
}

}  // namespace Zet::Tool
