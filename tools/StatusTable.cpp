#include "StatusTable.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <ostream>
#include <vector>

#include "AgentEnv/AgentEnvMode.h"
#include "AgentEnv/AgentEnvRoot.h"
#include "PrintableText.h"
#include "Zet/System.h"

namespace Zet::Tool {

namespace {

// The text of an enumeration value; a named value's without making a String8
// (rows are made by the million).
template <TextEnum E>
std::string text(E value) {
  auto const& texts = EnumTexts<E>::texts;
  size_t i = static_cast<size_t>(value);
  return i < texts.size() ? std::string(texts[i]) : stringValue(value).str();
}

// Colour only for a person at a terminal, and never when NO_COLOR is set.
bool colourWanted() { return ::isatty(STDOUT_FILENO) && System::getenv("NO_COLOR").isEmpty(); }

std::string coloured(std::string const& status) {
  char const* code = status == "initialized"                 ? "32"
                     : status == "fail" || status == "error" ? "31"
                     : status == "inProgress"                ? "33"
                     : status == "unsupported"               ? "35"
                                                             : nullptr;
  return code ? std::string("\033[") + code + "m" + status + "\033[0m" : status;
}

// A message on one line: "a\nb" reads "a; b", "a:\n\tb" reads "a: b".
std::string oneLine(std::string const& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\n') {
      out += text[i];
      continue;
    }
    out += !out.empty() && out.back() == ':' ? " " : "; ";
    while (i + 1 < text.size() && text[i + 1] == '\t') ++i;
  }
  return out;
}

// What an entry that has not acted waits for: a dependency (its own, then its
// aggregate's) that is not initialized, or its aggregate, failed.
std::string waitingFor(AgentEnvConfig const& config, AgentEnvStatusDir const& statuses) {
  for (AgentEnvConfig const* c = &config; c; c = c == &config ? c->aggConfig().ptr() : nullptr) {
    Name const& dependency = c->dependency();
    if (!AgentEnvConfig::namesEntry(dependency)) continue;
    Ptr<AgentEnvStatus const> s = statuses.agentEnvStatus(dependency);
    if (!s || s->groupStatus() != AgentEnvStatus::initialized) return dependency.str();
  }
  AgentEnvConfig const* aggregate = config.aggConfig().ptr();
  Ptr<AgentEnvStatus const> s = aggregate ? statuses.agentEnvStatus(aggregate->name()) : nullptr;
  return s && showsReason(*s) ? aggregate->name().str() : "";
}

std::string endpointText(AgentEnvConfig const& config) {
  ExportEndpoint endpoint = exportEndpoint(config.target().text());
  if (endpoint.isPort()) return "port " + std::to_string(endpoint.port);
  return endpoint.isNowhere() ? "" : "socket " + endpoint.socketPath.str();
}

}  // namespace

bool showsReason(AgentEnvStatus const& status) {
  auto s = status.individualStatus();
  return s == AgentEnvStatus::fail || s == AgentEnvStatus::error || s == AgentEnvStatus::unsupported;
}

std::string failureText(Ptr<AgentEnvStatus const> const& status, Ptr<AgentEnvConfig const> const& config) {
  std::string text = AgentEnv::statusMessage(status, config).str();
  if (!status->reason().isEmpty()) text += ": " + status->reason().str();
  return printable(oneLine(text));
}

bool isNamed(std::vector<std::string> const& only, std::string_view entry) {
  return only.empty() || std::find(only.begin(), only.end(), entry) != only.end();
}

StatusRow statusRow(AgentEnvStatus const& s, AgentEnvStatusDir const& statuses, AgentEnvConfigDir const& configs) {
  return statusRow(s, configs.agentEnvConfig(s.name()).ptr(), statuses);
}

StatusRow statusRow(AgentEnvStatus const& s, AgentEnvConfig const* config, AgentEnvStatusDir const& statuses) {
  bool failed = showsReason(s);
  StatusRow row;
  row.entry = s.name().str();
  row.mode = config ? text(modeAskedFor(*config)) : "";
  row.status = text(s.individualStatus());
  row.group = text(s.groupStatus());
  row.code = failed ? text(s.statusCode()) : "";
  row.message = failed ? AgentEnv::statusMessage(&s, config).str() : "";
  row.currentSource = s.currentSource().text().str();
  row.reason = s.reason().str();
  if (config && modeAskedFor(*config) == AgentEnvMode::exp && !config->aggConfig())
    row.listensOn = endpointText(*config);
  if (config && s.individualStatus() == AgentEnvStatus::notApplicable) row.waitingFor = waitingFor(*config, statuses);
  return row;
}

// How many rows or members ahead of the one being read their memory is
// asked for.
constexpr size_t kReadAhead = 8;

StatusRows::StatusRows(AgentEnvStatusDir const& statuses, AgentEnvConfigDir const& configs,
                       std::vector<std::string> const& only)
    : statuses_(statuses) {
  order_.reserve(only.empty() ? statuses.agentEnvStatusCount() : only.size());
  for (auto const& member : statuses.agentEnvStatuses())
    if (isNamed(only, member.key().view()))
      order_.push_back({sortKey(member.key().view()), member.value().ptr(), nullptr});
  // The configs are looked up while the entries are still in the order of
  // the statuses in memory, which is (nearly always) the configs' own.
  auto const& index = configs.agentEnvConfigs();
  for (size_t i = 0; i < order_.size(); ++i) {
    if (i + kReadAhead < order_.size()) index.prefetch(order_[i + kReadAhead].status->name());
    order_[i].config = configs.agentEnvConfig(order_[i].status->name()).ptr();
  }
  // Most comparisons are decided by the first eight bytes, kept in the
  // entry: the names themselves are read only on a tie.
  std::sort(order_.begin(), order_.end(),
            [](Entry const& a, Entry const& b) {
              return a.key != b.key ? a.key < b.key : a.status->name().view() < b.status->name().view();
            });
}

void StatusRows::prefetch(size_t i) const {
  if (i >= order_.size()) return;
  __builtin_prefetch(order_[i].status);
  __builtin_prefetch(order_[i].config);
}

uint64_t StatusRows::sortKey(std::string_view name) {
  uint64_t key = 0;
  for (size_t i = 0; i < sizeof key; ++i) key = key << 8 | (i < name.size() ? uint8_t(name[i]) : 0);
  return key;
}

bool StatusRows::allInitialized() const {
  return std::all_of(order_.begin(), order_.end(),
                     [](Entry const& e) { return e.status->individualStatus() == AgentEnvStatus::initialized; });
}

std::string StatusRow::json() const {
  nlohmann::json row{{"entry", entry},         {"mode", mode},
                     {"status", status},       {"group", group},
                     {"code", code},           {"message", message},
                     {"reason", reason},       {"currentSource", currentSource},
                     {"listensOn", listensOn}, {"waitingFor", waitingFor}};
  return row.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void printStatusJson(StatusRows const& rows, std::ostream& out) {
  for (size_t i = 0; i < rows.size(); ++i) {
    rows.prefetch(i + kReadAhead);
    out << rows[i].json() << "\n";
  }
}

namespace {

using Cells = std::array<std::string, 8>;
Cells const kHeading{"ENTRY", "MODE", "STATUS", "GROUP", "CODE", "MESSAGE", "SOURCE", "REASON"};

Cells cells(StatusRow const& r) {
  std::string message = r.waitingFor.empty() ? oneLine(r.message) : "waiting for '" + r.waitingFor + "'";
  return {r.entry,
          r.mode,
          r.status,
          r.group,
          r.code,
          printable(message),
          printable(r.listensOn.empty() ? r.currentSource : r.listensOn),
          printable(oneLine(r.reason))};
}

}  // namespace

// Two passes over the rows, the first for the widths of the columns, so
// that no more than a row is held at a time.
void printStatusTable(StatusRows const& rows, std::ostream& out) {
  std::array<size_t, 8> width{};
  bool anyReason = false;
  auto widen = [&](Cells const& row) {
    for (size_t i = 0; i < row.size(); ++i) width[i] = std::max(width[i], row[i].size());
  };
  widen(kHeading);
  for (size_t r = 0; r < rows.size(); ++r) {
    rows.prefetch(r + kReadAhead);
    Cells row = cells(rows[r]);
    anyReason = anyReason || !row.back().empty();
    widen(row);
  }
  // REASON is shown only when an entry has one.
  size_t columns = anyReason ? kHeading.size() : kHeading.size() - 1;
  bool colour = colourWanted();
  std::string line;
  auto print = [&](Cells const& row) {
    line.clear();
    for (size_t i = 0; i < columns; ++i) {
      line += colour && (i == 2 || i == 3) ? coloured(row[i]) : row[i];
      if (i + 1 < columns) line.append(width[i] - row[i].size() + 2, ' ');
    }
    while (!line.empty() && line.back() == ' ') line.pop_back();
    line += '\n';
    out << line;
  };
  print(kHeading);
  for (size_t r = 0; r < rows.size(); ++r) {
    rows.prefetch(r + kReadAhead);
    print(cells(rows[r]));
  }
}

}  // namespace Zet::Tool
