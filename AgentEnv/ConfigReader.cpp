#include "AgentEnv/ConfigReader.h"

#include <sys/stat.h>

#include <charconv>
#include <cstdio>
#include <locale>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>

#include "AgentEnv/ConfigText.h"

namespace Zet {

ConfigReader::ConfigReader() = default;
ConfigReader::~ConfigReader() { CleanupParser(); }

void ConfigReader::InitParser(Ptr<ConfigFileParser> parser) {
  parser_ = std::move(parser);
  remarking_ = parser_ && parser_->remarks();
  file_ = parser_ ? parser_->currentFile() : String8();
  substitutions_ = parser_ ? parser_->substitutions() : SubstitutionsCollection();
}

// A small file is read on the caller's thread, which applies the events
// each time a batch is full. A large one is read on a thread of its own,
// which posts its batches for the caller's thread to apply meanwhile.
int ConfigReader::parse() {
  std::optional<ConfigEventQueue> events;
  std::thread reading;
  events_ = nullptr;
  if (readsAhead()) {
    events_ = &events.emplace(kBatchesAhead);
    try {
      reading = std::thread([this] {
        Expect tracedByTheCaller(kException);
        produce();
      });
    } catch (std::system_error const&) {  // no thread to be had: read here
      events_ = nullptr;
    }
  }
  if (reading.joinable()) {
    applyPosted(*events, reading);
    traceOnThisThread(failure_);
  } else {
    produce();
  }
  if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
  return result_;
}

// What ended a read on its own thread is traced as if it had happened on
// the caller's, whose scopes say what it expects.
void ConfigReader::traceOnThisThread(std::exception_ptr const& failure) {
  if (!failure) return;
  try {
    std::rethrow_exception(failure);
  } catch (Exception const& e) {
    e.traceIfUnexpected();
  } catch (...) {
  }
}

// When applying an event throws, the reading thread is told to stop and is
// waited for before the exception goes on.
void ConfigReader::applyPosted(ConfigEventQueue& events, std::thread& reading) {
  ConfigEventQueue::Batch batch;
  try {
    while (events.take(batch)) parser_->handleConfigEvents(batch);
  } catch (...) {
    events.abandon();
    reading.join();
    failure_ = nullptr;
    throw;
  }
  reading.join();
}

bool ConfigReader::readsAhead() const {
  struct stat file {};
  return ::fstat(::fileno(in_), &file) == 0 && S_ISREG(file.st_mode) && size_t(file.st_size) >= kReadAheadBytes;
}

void ConfigReader::produce() noexcept {
  abandoned_ = false;
  result_ = 2;
  try {
    result_ = agentenv_parse(*this);
    postFound();
  } catch (...) {
    if (!failure_) failure_ = std::current_exception();
  }
  found_.clear();
  if (events_) events_->close();
}

// Read on the caller's thread, the events are applied at once. What that
// throws ends the read, and is what parse() throws: it comes before
// anything the reader met after these events, a read error say.
void ConfigReader::postFound() {
  if (abandoned_ || found_.empty()) return;
  if (events_) {
    abandoned_ = !events_->post(found_);
    return;
  }
  try {
    parser_->handleConfigEvents(found_);
  } catch (...) {
    abandoned_ = true;
    failure_ = std::current_exception();
  }
  found_.clear();
}

void ConfigReader::found(ConfigEvent event, std::string_view text) {
  if (abandoned_) return;
  event.line = lineOfText_;
  found_.add(event, text);
  size_t const full = events_ ? ConfigEventQueue::kBatchEvents : kAppliedBatchEvents;
  if (found_.events.size() == full || found_.texts.size() >= ConfigEventBatch::kFullTextBytes) postFound();
}

void ConfigReader::CleanupParser() {
  releaseScanner();
  parser_ = nullptr;
  file_ = String8();
  substitutions_.mapDelAll();
  failure_ = nullptr;
  events_ = nullptr;
}

void ConfigReader::throwFileError(char const* what) const {
  throw AgentException(format("error: file '%.*s' %s", int(file_.size()), file_.charPtr(), what));
}

void ConfigReader::echo(char const* text, size_t size) {
  found(ConfigEvent::Kind::echo, std::string_view(text, size));
  // Blanks other than the space separate names as a reader expects.
  char byte = text[0];
  if (!remarking_ || byte == '\t' || byte == '\r' || byte == '\v' || byte == '\f') return;
  strayByte_ = static_cast<unsigned char>(byte);
  if (afterName_) remarkStrayByte();
}

void ConfigReader::remarkStrayByte() {
  if (remarkedLine_ != lineOfText_)
    found(ConfigEvent{ConfigEvent::Kind::strayByte, static_cast<unsigned char>(strayByte_)}, {});
  remarkedLine_ = lineOfText_;
  strayByte_ = -1;
}

void ConfigReader::attribute(ConfigFileParser::AttributeType type, std::string_view value) {
  std::string& last = lastValues_.at(static_cast<size_t>(type));
  bool again = last == value && !last.empty();
  if (!again) last.assign(value);
  found(ConfigEvent{again ? ConfigEvent::Kind::attributeAgain : ConfigEvent::Kind::attribute, 0, type}, again ? "" : value);
}

void ConfigReader::displayAttributeError(std::string_view message, long lineDelta) {
  if (failure_) return;  // the parse is being abandoned; what follows is noise
  unsigned long line = lineOfText_ + static_cast<unsigned long>(lineDelta);
  std::string text(file_.view());
  text += ':';
  text += std::to_string(line);
  text += ": error: ";
  text += message;
  text += '\n';
  found(ConfigEvent::Kind::error, text);
}

String8 ConfigReader::substitutionValue(std::string_view name) {
  String8 key(name);
  if (remarking_ && !substitutions_.mapHas(key)) found(ConfigEvent::Kind::undefinedSubstitution, name);
  return substitutions_.map(key);
}

ConfigText* ConfigReader::substitution(std::string_view name) { return newText(substitutionValue(name).view()); }

double ConfigReader::numericSubstitution(std::string_view name) {
  std::istringstream in(substitutionValue(name).str());
  in.imbue(std::locale::classic());
  double value = 0;
  if (in >> value) return value;
  displayAttributeError("missing semi-colon", -1);
  return 0;
}

void ConfigReader::concatenate(std::string_view left, ConfigText& right) {
  if (left.ends_with('"')) left.remove_suffix(1);
  if (right.startsWith('"')) right.dropFirst();
  right.prepend(left);
}

std::string ConfigReader::numberText(double value) {
  // What "%g" writes in the "C" locale, whatever locale the process set: six
  // significant digits, no trailing zeros, an exponent when needed.
  char text[32];
  auto written = std::to_chars(text, text + sizeof text, value, std::chars_format::general, 6);
  return std::string(text, written.ptr);
}

}  // namespace Zet

void agentenv_error(Zet::ConfigReader& reader, char const* message) {
  reader.guarded([&] { reader.displayError(message); });
}
