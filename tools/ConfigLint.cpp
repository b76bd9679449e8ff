#include "ConfigLint.h"

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "AgentEnv/AgentEnvConsistency.h"
#include "AgentEnv/AgentEnvMode.h"
#include "DependencyCycles.h"
#include "Zet/TypeMap.h"

namespace Zet::Tool {
namespace {

using Type = ConfigFileParser::AttributeType;

class Lint {
 public:
  // The entries in the order the files declare them: by file, then by the
  // line that opens the entry, each looked up once before the sort.
  Lint(ConfigFileParser const& parser, Warnings& warnings) : parser_(parser), warnings_(warnings) {
    struct Declared {
      std::string_view file;
      unsigned long line;
      AgentEnvConfig const* entry;
    };
    std::vector<Declared> declared;
    declared.reserve(parser.configDir()->agentEnvConfigCount());
    for (auto const& member : parser.configDir()->agentEnvConfigs()) {
      AgentEnvConfig const* e = member.value().ptr();
      declared.push_back({e->configFile().view(), parser.sourceLines(e->name()).entry, e});
    }
    std::sort(declared.begin(), declared.end(), [](Declared const& a, Declared const& b) {
      if (a.file != b.file) return a.file < b.file;
      if (a.line != b.line) return a.line < b.line;
      return a.entry->name().view() < b.entry->name().view();
    });
    entries_.reserve(declared.size());
    for (Declared const& d : declared) entries_.push_back(d.entry);
  }

  void run() {
    for (AgentEnvConfig const* e : entries_) {
      checkDependency(*e);
      checkSources(*e);
      checkConsistency(*e);
      checkAction(*e);
      if (modeAskedFor(*e) == AgentEnvMode::exp && !e->aggConfig())
        checkExport(*e);
      else
        checkTarget(*e);
      checkType(*e);
    }
    checkCycles();
  }

 private:
  void warn(AgentEnvConfig const& e, Type attribute, std::string message) {
    auto lines = parser_.sourceLines(e.name());
    unsigned long line = lines.attribute[unsigned(attribute)] ? lines.attribute[unsigned(attribute)] : lines.entry;
    warnings_.add(e.configFile().str(), line, std::move(message));
  }
  AgentEnvConfig const* entry(Name const& name) const { return parser_.configDir()->agentEnvConfig(name).ptr(); }

  void checkDependency(AgentEnvConfig const& e) {
    Name const& dependency = e.dependency();
    if (!AgentEnvConfig::namesEntry(dependency)) return;
    if (!entry(dependency))
      warn(e, Type::dependency, "dependency '" + dependency.str() + "' names no entry");
    else if (e.aggConfig() && e.aggConfig()->name() == dependency)
      warn(e, Type::dependency,
           std::string(1, '\'')
                   .append(e.name().view())
                   .append("' depends on its own aggregate '")
                   .append(dependency.view()) +
               "'");
  }

  void checkSources(AgentEnvConfig const& e) {
    auto check = [&](EntityUri const& source, Type attribute, char const* label) {
      if (!isMountSource(source)) return;
      std::string quoted = std::string(label) + " '" + source.text().str() + "'";
      if (source.isValid() && source.scheme() == EntityUri::Scheme::none)
        warn(e, attribute, quoted + " has no scheme: a mount needs tcp://HOST:PORT/PATH, tls://HOST:PORT/PATH or unix://SOCKET/PATH");
      else if (!source.isValid() || !source.checkScheme())
        warn(e, attribute, quoted + " is not a valid source URI");
    };
    check(e.source0(), Type::source0, "source0");
    check(e.source1(), Type::source1, "source1");
  }

  // What the state machine would refuse however the entry is realised.
  void checkConsistency(AgentEnvConfig const& e) {
    if (!e.source0().isValid() || !e.source1().isValid()) return;  // said above
    EntityUri none;
    EntityUriPath nowhere;
    auto refused = consistencyRefusal({AgentEnvMode::init, e, modeConfig(e).source0(), none, e.target(), nowhere});
    if (!refused) return;
    warn(e, refusedAttribute(refused->code, e),
         "the entry would be refused: " + stringValue(refused->code).str() + refused->trace);
  }
  static Type refusedAttribute(AgentEnvStatus::StatusCode code, AgentEnvConfig const& e) {
    switch (code) {
      case AgentEnvStatus::overrideTarget:
        return Type::target;
      case AgentEnvStatus::overrideSource:
        return e.source0().isEmpty() ? Type::source1 : Type::source0;
      default:  // flags and last names: source1 is compared with source0
        return Type::source1;
    }
  }

  // What the entry would do: an entry must have something to make (or
  // mount) and a place for it; a member is realised as its aggregate is.
  void checkAction(AgentEnvConfig const& e) {
    AgentEnvConfig const* aggregate = e.aggConfig().ptr();
    std::string name = std::string(1, '\'').append(e.name().view()).append(1, '\'');
    switch (modeAskedFor(e)) {
      case AgentEnvMode::exp:
        if (aggregate)
          warn(e, Type::source0,
               name + " is a member of the export '" + aggregate->name().str() +
                   "': it does nothing, and holds its aggregate's group status back");
        else if (e.target().isEmpty())
          warn(e, Type::source0, "an export without a target listens nowhere");
        return;
      case AgentEnvMode::instantiate:
        if (aggregate && !e.source0().isEmpty())
          warn(e, Type::source0,
               "source0 is ignored: a member is made as its aggregate '" + aggregate->name().str() +
                   "' is, by instantiation");
        else if (e.typeName().isEmpty())
          warn(e, Type::uType, name + " has neither a source0 nor a typeName: there is nothing to make");
        break;
      default:
        break;
    }
    if (!aggregate && e.target().isEmpty())
      warn(e, Type::target, name + " has no target: there is nowhere to put what it makes");
  }

  void checkTarget(AgentEnvConfig const& e) {
    std::string target(e.target().text().view());
    if (!target.empty() && !e.target().isAbsolute())
      warn(e, Type::target, "target '" + target + "' is not an absolute path");
  }

  void checkExport(AgentEnvConfig const& e) {
    std::string target(e.target().text().view());
    ExportEndpoint endpoint = exportEndpoint(e.target().text());
    if (endpoint.isNowhere()) return;
    if (endpoint.isPort() && !endpoint.portAsWritten)
      warn(e, Type::target,
           "export target '" + target + "' is read as TCP port " + std::to_string(endpoint.port) +
               " (ports are 1-65535)");
    if (!endpoint.isPort() && !e.target().isAbsolute()) {
      bool number = target.find_first_not_of("0123456789") == std::string::npos;
      warn(e, Type::target,
           "export target '" + target + "' is neither a port (1-65535) nor an absolute socket path" +
               (number ? ": it would be a socket of that name in the agent's folder" : ""));
      return;
    }
    std::string where = endpoint.text().str();
    if (auto [first, inserted] = exports_.emplace(where, e.name().str()); !inserted) {
      warn(e, Type::target, "export target '" + target + "' is exported by '" + first->second + "' too");
      return;
    }
    auto [first, inserted] = firstOfKind_.emplace(endpoint.isPort(), e.name().str());
    if (!inserted)
      warn(e, Type::target,
           std::string("a second export on a ") + (endpoint.isPort() ? "TCP port" : "domain socket") +
               ": one listens per agent, so this one would replace the endpoint of '" + first->second + "'");
  }

  void checkType(AgentEnvConfig const& e) {
    std::string_view type = e.typeName().view();
    if (type.empty() || TypeMap::instance().type(type)) return;
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
  Warnings& warnings_;
  std::vector<AgentEnvConfig const*> entries_;
  std::map<std::string, std::string> exports_;  // endpoint -> first entry exporting it
  std::map<bool, std::string> firstOfKind_;     // on a port or not -> first entry
};

}  // namespace

void lintConfigs(ConfigFileParser const& parser, Warnings& warnings) { Lint(parser, warnings).run(); }

}  // namespace Zet::Tool
