#include "StatusTable.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <ostream>
#include <string_view>
#include <vector>

#include "AgentEnv/AgentEnvMode.h"
#include "AgentEnv/AgentEnvRoot.h"
#include "PrintableText.h"
#include "SortByKey.h"
#include "Zet/System.h"

namespace Zet::Tool {

namespace {

// The text of an enumeration value: a named value's is viewed where the
// enumeration keeps it; another's is made in `made`.
template <TextEnum E>
std::string_view text(E value, std::string& made) {
  auto const& texts = EnumTexts<E>::texts;
  size_t i = static_cast<size_t>(value);
  if (i < texts.size()) return texts[i];
  made = stringValue(value).str();
  return made;
}

// Colour only for a person at a terminal, and never when NO_COLOR is set.
bool colourWanted() { return ::isatty(STDOUT_FILENO) && System::getenv("NO_COLOR").isEmpty(); }

std::string coloured(std::string_view status) {
  char const* code = status == "initialized"                 ? "32"
                     : status == "fail" || status == "error" ? "31"
                     : status == "inProgress"                ? "33"
                     : status == "unsupported"               ? "35"
                                                             : nullptr;
  return code ? std::string("\033[") + code + "m" + std::string(status) + "\033[0m" : std::string(status);
}

// A message on one line: "a\nb" reads "a; b", "a:\n\tb" reads "a: b".
std::string oneLine(std::string_view text) {
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
std::string awaitedEntry(AgentEnvConfig const& config, AgentEnvStatusDir const& statuses) {
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
  return StatusRowView(s, config, statuses).row();
}

StatusRowView::StatusRowView(AgentEnvStatus const& s, AgentEnvConfig const* config,
                             AgentEnvStatusDir const& statuses)
    : entry(s.name().view()),
      status(text(s.individualStatus(), statusMade_)),
      group(text(s.groupStatus(), groupMade_)),
      currentSource(s.currentSource().text().view()),
      reason(s.reason().view()) {
  if (showsReason(s)) {
    code = text(s.statusCode(), codeMade_);
    messageMade_ = AgentEnv::statusMessage(&s, config);
    message = messageMade_.view();
  }
  if (!config) return;
  AgentEnvMode asked = modeAskedFor(*config);
  mode = text(asked, modeMade_);
  if (asked == AgentEnvMode::exp && !config->aggConfig()) {
    listensOnMade_ = endpointText(*config);
    listensOn = listensOnMade_;
  }
  if (s.individualStatus() == AgentEnvStatus::notApplicable) {
    waitingForMade_ = awaitedEntry(*config, statuses);
    waitingFor = waitingForMade_;
  }
}

StatusRow StatusRowView::row() const {
  return StatusRow{
      .entry = std::string(entry),
      .mode = std::string(mode),
      .status = std::string(status),
      .group = std::string(group),
      .code = std::string(code),
      .message = std::string(message),
      .currentSource = std::string(currentSource),
      .reason = std::string(reason),
      .listensOn = std::string(listensOn),
      .waitingFor = std::string(waitingFor),
  };
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
      order_.push_back({nameKey(member.key().view()), member.value().ptr(), nullptr});
  // The configs are looked up while the entries are still in the order of
  // the statuses in memory, which is (nearly always) the configs' own.
  auto const& index = configs.agentEnvConfigs();
  for (size_t i = 0; i < order_.size(); ++i) {
    if (i + kReadAhead < order_.size()) index.prefetch(order_[i + kReadAhead].status->name());
    order_[i].config = configs.agentEnvConfig(order_[i].status->name()).ptr();
  }
  // The entries are ordered by the first eight bytes of their names, kept
  // in the entry: the names themselves are read only on a tie.
  sortByKey(
      order_.data(), order_.data() + order_.size(), [](Entry const& e) { return e.key; },
      [](Entry const& a, Entry const& b) {
        return a.key != b.key ? a.key < b.key : a.status->name().view() < b.status->name().view();
      });
}

// A row's status and config are asked for kReadAhead rows ahead, and the
// text of its name, which is found through its status, half as far ahead:
// the status has come by then.
void StatusRows::readAhead(size_t i) const {
  if (size_t far = i + kReadAhead; far < order_.size()) {
    __builtin_prefetch(order_[far].status);
    __builtin_prefetch(order_[far].config);
  }
  if (size_t near = i + kReadAhead / 2; near < order_.size())
    __builtin_prefetch(order_[near].status->name().charPtr());
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
    rows.readAhead(i);
    out << rows[i].json() << "\n";
  }
}

namespace {

constexpr size_t kColumns = 8;
using Texts = std::array<std::string_view, kColumns>;
Texts const kHeading{"ENTRY", "MODE", "STATUS", "GROUP", "CODE", "MESSAGE", "SOURCE", "REASON"};

bool hasControlByte(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; });
}

// One row as the table shows it. A cell views the row's own text, which is
// fit to show as it stands nearly always; a text with control bytes (a
// message on several lines, say) is shown through a changed copy.
class Cells {
 public:
  Cells(StatusRows const& rows, size_t i) : row_(rows.view(i)) {
    if (!row_.waitingFor.empty()) message_ = "waiting for '" + std::string(row_.waitingFor) + "'";
    std::string_view message = row_.waitingFor.empty() ? row_.message : message_;
    std::string_view source = row_.listensOn.empty() ? row_.currentSource : row_.listensOn;
    texts_ = {row_.entry,
              row_.mode,
              row_.status,
              row_.group,
              row_.code,
              shown(message, message_, kOnOneLine),
              shown(source, source_, kAsItStands),
              shown(row_.reason, reason_, kOnOneLine)};
  }
  Cells(Cells const&) = delete;
  Cells& operator=(Cells const&) = delete;

  Texts const& texts() const { return texts_; }

 private:
  enum Lines { kAsItStands, kOnOneLine };
  static std::string_view shown(std::string_view text, std::string& copy, Lines lines) {
    if (!hasControlByte(text)) return text;
    copy = printable(lines == kOnOneLine ? oneLine(text) : text);
    return copy;
  }

  StatusRowView row_;
  std::string message_, source_, reason_;  // the copies shown instead, when made
  Texts texts_;
};

// Lines are gathered in a buffer and written to the stream a block at a
// time: a table of a million rows is one write call per block, not per row.
class TableWriter {
 public:
  TableWriter(std::ostream& out, std::array<size_t, kColumns> const& width, size_t columns)
      : out_(out), width_(width), columns_(columns), colour_(colourWanted()) {}
  ~TableWriter() { flush(); }

  // The cells of one line, each padded to its column's width; the line ends
  // with its last cell that has text, trailing spaces trimmed.
  void line(Texts const& cells) {
    size_t last = columns_;
    while (last > 0 && cells[last - 1].empty()) --last;
    size_t start = buffer_.size();
    for (size_t i = 0; i < last; ++i) {
      if (colour_ && (i == 2 || i == 3))
        buffer_ += coloured(cells[i]);
      else
        buffer_ += cells[i];
      if (i + 1 < last) buffer_.append(width_[i] - cells[i].size() + 2, ' ');
    }
    while (buffer_.size() > start && buffer_.back() == ' ') buffer_.pop_back();
    buffer_ += '\n';
    if (buffer_.size() >= kBlockBytes) flush();
  }

 private:
  static constexpr size_t kBlockBytes = 64 * 1024;
  void flush() {
    out_.write(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
    buffer_.clear();
  }

  std::ostream& out_;
  std::array<size_t, kColumns> const& width_;
  size_t columns_;
  bool colour_;
  std::string buffer_;
};

}  // namespace

// Two passes over the rows, the first for the widths of the columns, so
// that no more than a row is held at a time.
void printStatusTable(StatusRows const& rows, std::ostream& out) {
  std::array<size_t, kColumns> width{};
  bool anyReason = false;
  auto widen = [&](Texts const& cells) {
    for (size_t i = 0; i < kColumns; ++i) width[i] = std::max(width[i], cells[i].size());
  };
  widen(kHeading);
  for (size_t r = 0; r < rows.size(); ++r) {
    rows.readAhead(r);
    Cells row(rows, r);
    anyReason = anyReason || !row.texts().back().empty();
    widen(row.texts());
  }
  // REASON is shown only when an entry has one.
  TableWriter writer(out, width, anyReason ? kColumns : kColumns - 1);
  writer.line(kHeading);
  for (size_t r = 0; r < rows.size(); ++r) {
    rows.readAhead(r);
    writer.line(Cells(rows, r).texts());
  }
}

}  // namespace Zet::Tool
