#pragma once
// ConfigReader: the scanner of configuration files (ConfigScanner.cpp), and
// what it and the generated grammar (ConfigGrammar.y) share while they read
// one file, and what the grammar's actions call.
//
// Each ConfigFileParser owns one reader, so the scanner and grammar are
// reentrant and parsers share nothing. A read runs InitScanner(file),
// InitParser(parser), parse(), then CleanupParser(), which must run even when
// parse() throws: it releases the scanner's buffer and the reference to the
// parser.
//
// The scanner and the grammar never touch the parser: what they find goes
// to it as events (ConfigEvents.h), applied in batches on the caller's
// thread. A large file is scanned and parsed on a thread of its own
// meanwhile, so that reading the next entries overlaps filling the config
// dir with those before; a small one is read on the caller's thread, for a
// thread would cost more than it saves. Not thread-safe otherwise.

#include <array>
#include <cstdio>
#include <exception>
#include <memory>
#include <string_view>
#include <thread>
#include <vector>

#include "AgentEnv/ConfigEvents.h"
#include "AgentEnv/ConfigFileParser.h"
#include "AgentEnv/SubstitutionsCollection.h"

union AGENTENV_STYPE;

namespace Zet {

class ConfigText;

class ConfigReader {
 public:
  ConfigReader();
  ~ConfigReader();
  ConfigReader(ConfigReader const&) = delete;
  ConfigReader& operator=(ConfigReader const&) = delete;

  // ---- One read ------------------------------------------------------------

  // Starts a fresh scanner on `in` (not owned) at line 1.
  void InitScanner(FILE* in);
  // The parser that receives what the file holds, as events, and counts
  // its errors. The name of its current file, its substitutions and whether
  // it has an observer of remarks are taken now, for the whole read.
  void InitParser(Ptr<ConfigFileParser> parser);
  // Parses the whole file: 0 on success, 1 after a syntax error that no
  // error rule absorbed, 2 when the grammar's stack is exhausted. What the
  // parser throws while applying an event ends the read and is rethrown
  // here; what the scanner or the grammar throws ends the read after the
  // events before it are applied and is rethrown then: among it
  // AgentException "error: file 'NAME' could not be read" and "error: file
  // 'NAME' has a line longer than 64 MiB".
  int parse();
  void CleanupParser();

  // No token is longer than its line, so bounding lines bounds the scanner's
  // buffer.
  static constexpr size_t kMaxLineLength = size_t(64) << 20;
  // Files of at least this size are read on a thread of their own, which
  // runs at most this many batches of events ahead of the parser.
  static constexpr size_t kReadAheadBytes = size_t(256) << 10;
  static constexpr size_t kBatchesAhead = 4;
  // Read on the caller's thread, events are applied this many at a time,
  // while the batch is still in the first-level cache.
  static constexpr size_t kAppliedBatchEvents = 256;

  // ---- For the grammar -----------------------------------------------------

  // The next token (0 at the end of input), its value stored in *value.
  int nextToken(AGENTENV_STYPE* value) noexcept;
  // A text for the grammar's value stack, which hands it back to recycle():
  // texts are reused, so that a token costs no allocation.
  ConfigText* newText(std::string_view text);
  void recycle(ConfigText* text) noexcept;
  // Hands the parser an event found at the line of the most recently
  // scanned text.
  void found(ConfigEvent::Kind kind, std::string_view text = {}) { found(ConfigEvent{kind}, text); }
  void found(ConfigEvent event, std::string_view text);
  // Runs a grammar action. What it throws is kept for parse() to rethrow and
  // false is returned, upon which the action abandons the parse.
  template <class Action>
  bool guarded(Action&& action) noexcept {
    try {
      action();
      return true;
    } catch (...) {
      if (!failure_) failure_ = std::current_exception();
      return false;
    }
  }
  // Hands a value to the parser's handleAttribute. A value equal to the
  // previous one of the same attribute in the file goes as attributeAgain,
  // and the parser gives it the text it made of that one: files repeat type
  // names, timeouts and unmount types entry after entry, and each costs one
  // text then.
  void attribute(ConfigFileParser::AttributeType type, std::string_view value);
  // The same, except that an empty value is dropped.
  void defineAttribute(ConfigFileParser::AttributeType type, std::string_view value) {
    if (!value.empty()) attribute(type, value);
  }
  // Reports "file:line: error: message" at the line of the most recently
  // scanned text, or at that line plus lineDelta, and counts it.
  void displayError(std::string_view message) { displayAttributeError(message, 0); }
  void displayAttributeError(std::string_view message, long lineDelta);
  // The value of a substitution, as a string and as a number. A value that
  // does not read as a number is reported as "missing semi-colon" on the line
  // above and counts as 0.
  ConfigText* substitution(std::string_view name);
  double numericSubstitution(std::string_view name);
  // The language's '+': drops one trailing quote of `left` and one leading
  // quote of `right`, then puts `left` in front of `right`.
  static void concatenate(std::string_view left, ConfigText& right);
  // The default text of a double on an output stream: 5, 2.5, 1e+06.
  static std::string numberText(double value);

 private:
  // ---- The scanner (ConfigScanner.cpp) ---------------------------------------

  // Scans and parses the file, posting what it finds, then closes events_
  // if there is one; what ends the read early is kept in failure_.
  void produce() noexcept;
  // Hands the parser the events found since the last post, unless it has
  // stopped taking them: through events_, or at once without one.
  void postFound();
  // Applies what the reading thread posts to events until it is done.
  void applyPosted(ConfigEventQueue& events, std::thread& reading);
  static void traceOnThisThread(std::exception_ptr const& failure);
  // Whether the file is large enough to be read on a thread of its own.
  bool readsAhead() const;

  // The next token; throws what reading the file throws.
  int scan(AGENTENV_STYPE* value);
  // Makes [next_, linesEnd_) hold the next whole lines (or the file's last
  // bytes); false at the end of the file.
  bool refill();
  // Reads up to `size` bytes of the file; 0 at its end. Throws on a read
  // error and on a line longer than kMaxLineLength.
  size_t read(char* buffer, size_t size);
  size_t readSome(char* buffer, size_t size);
  // Every token and every text the language skips passes here first: it
  // lies on the current line.
  void textScanned(char const* text, size_t size) {
    lineOfText_ = line_;
    if (!remarking_) return;  // the common case costs one branch
    if (strayByte_ >= 0 && isNameByte(text[0])) remarkStrayByte();
    strayByte_ = -1;
    afterName_ = endsName_;
    endsName_ = isNameByte(text[size - 1]);
  }
  // Copies a character the language ignores to the parser's echo stream; one
  // that touches a name is a remark (ConfigFileParser::Remarks).
  void echo(char const* text, size_t size);
  static bool isNameByte(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
  }
  void remarkStrayByte();
  // The value of a substitution; one without a value is a remark.
  String8 substitutionValue(std::string_view name);
  void releaseScanner();
  [[noreturn]] void throwFileError(char const* what) const;

  FILE* in_ = nullptr;
  // The bytes read from in_: [next_, linesEnd_) are whole lines (or the
  // file's last bytes) not scanned yet, [linesEnd_, filled_) the start of
  // the next line.
  std::unique_ptr<char[]> buffer_;
  size_t capacity_ = 0;
  size_t next_ = 0;
  size_t linesEnd_ = 0;
  size_t filled_ = 0;
  bool fileEnded_ = false;
  std::vector<std::unique_ptr<ConfigText>> spareTexts_;
  Ptr<ConfigFileParser> parser_;  // touched by the caller's thread only
  // What the read sees of the parser, taken when it starts.
  String8 file_;
  SubstitutionsCollection substitutions_;
  // The events found and not posted yet, and where they are posted.
  ConfigEventQueue::Batch found_;
  ConfigEventQueue* events_ = nullptr;  // null when read on the caller's thread
  bool abandoned_ = false;        // the parser stopped taking events: the read ends
  int result_ = 0;                // what the grammar returned
  std::exception_ptr failure_;    // what ended the current parse early
  unsigned long line_ = 1;        // the line the scanner is on
  unsigned long lineOfText_ = 1;  // the line of the most recently scanned text
  size_t lineLength_ = 0;         // bytes read since the last newline
  // Around ignored bytes: whether the text before the latest ended a name,
  // whether the latest did, an ignored byte waiting to see whether a name
  // follows (-1: none), the last line remarked on.
  bool remarking_ = false;  // the parser has an observer of remarks
  bool afterName_ = false;
  bool endsName_ = false;
  int strayByte_ = -1;
  unsigned long remarkedLine_ = 0;
  std::array<std::string, 8> lastValues_;  // by attribute type, in the file being read
};

}  // namespace Zet

// The entry points of the scanner and the generated grammar.
int agentenv_lex(AGENTENV_STYPE* value, Zet::ConfigReader& reader);
int agentenv_parse(Zet::ConfigReader& reader);
void agentenv_error(Zet::ConfigReader& reader, char const* message);
