#include "StatusTable.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <ostream>
#include <vector>

#include "AgentEnv/AgentEnvRoot.h"
#include "Zet/System.h"

namespace Zet::Tool {

namespace {

// Colour only for a person at a terminal, and never when NO_COLOR is set.
bool colourWanted() { return ::isatty(STDOUT_FILENO) && System::getenv("NO_COLOR").isEmpty(); }

std::string coloured(std::string const& status) {
  char const* code = status == "initialized"                                              ? "32"
                     : status == "fail" || status == "error"                              ? "31"
                     : status == "inProgress"                                             ? "33"
                     : status == "unsupported"                                            ? "35"
                                                                                          : nullptr;
  return code ? std::string("\033[") + code + "m" + status + "\033[0m" : status;
}

}  // namespace

bool showsReason(AgentEnvStatus const& status) {
  auto s = status.individualStatus();
  return s == AgentEnvStatus::fail || s == AgentEnvStatus::error || s == AgentEnvStatus::unsupported;
}

std::string failureText(Ptr<AgentEnvStatus const> const& status, Ptr<AgentEnvConfig const> const& config) {
  std::string text = AgentEnv::statusMessage(status, config).str();
  if (!status->reason().isEmpty()) text += ": " + status->reason().str();
  return text;
}

std::string modeFromConfig(AgentEnvConfig const* config) {
  if (!config) return "";
  if (config->source0().isExport()) return "exp";
  if (!config->source0().isEmpty()) return "mount";
  return config->typeName().isEmpty() ? "init" : "instantiate";
}

void printStatusTable(AgentEnvStatusDir const& statuses, AgentEnvConfigDir const& configs, ModeOf const& modeOf,
                      std::ostream& out, std::vector<std::string> const& only) {
  using Row = std::array<std::string, 8>;
  std::vector<Row> rows{{"ENTRY", "MODE", "STATUS", "GROUP", "CODE", "MESSAGE", "SOURCE", "REASON"}};
  for (auto const& member : statuses.agentEnvStatuses()) {
    AgentEnvStatus const& s = *member.value();
    if (!only.empty() && std::find(only.begin(), only.end(), s.name().view()) == only.end()) continue;
    bool reason = showsReason(s);
    Ptr<AgentEnvConfig const> config = configs.agentEnvConfig(s.name());
    rows.push_back({s.name().str(), modeOf(s.name()), stringValue(s.individualStatus()).str(),
                    stringValue(s.groupStatus()).str(), reason ? stringValue(s.statusCode()).str() : "",
                    reason ? AgentEnv::statusMessage(member.value(), config).str() : "",
                    s.currentSource().text().str(), s.reason().str()});
  }
  std::sort(rows.begin() + 1, rows.end());
  // REASON is shown only when an entry has one.
  bool anyReason = std::any_of(rows.begin() + 1, rows.end(), [](Row const& row) { return !row.back().empty(); });
  size_t columns = anyReason ? rows[0].size() : rows[0].size() - 1;
  std::array<size_t, 8> width{};
  for (Row const& row : rows)
    for (size_t i = 0; i < row.size(); ++i) width[i] = std::max(width[i], row[i].size());
  bool colour = colourWanted();
  for (Row const& row : rows) {
    std::string line;
    for (size_t i = 0; i < columns; ++i) {
      line += colour && (i == 2 || i == 3) ? coloured(row[i]) : row[i];
      if (i + 1 < columns) line.append(width[i] - row[i].size() + 2, ' ');
    }
    while (!line.empty() && line.back() == ' ') line.pop_back();
    out << line << "\n";
  }
}

}  // namespace Zet::Tool
