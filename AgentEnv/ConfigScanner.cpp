// The scanner of configuration files.
//
// The longest text a rule matches makes the token, and among texts equally
// long the keyword wins, so keywords are whole words only: "source0" is a
// keyword, "source0x" an identifier. The texts:
//   spaces                    skipped (only the space is a blank)
//   "//" to the line's end    a comment, skipped
//   a keyword                 source0 source1 target pathSuffix timeoutPeriod
//                             dependency typeName unmountType, true/false
//                             (BOOL_LITERAL), anyPort (ANY_PORT, 65535)
//   "#include"                INCLUDE
//   ! $ % ( ) * + , - . / ; < = > [ ] { }   the character itself
//   digits                    INT_LITERAL; digits "." digits: DOUBLE_LITERAL
//   "..." on one line         STRING_LITERAL (the text between the quotes);
//                             without its closing quote, "unterminated
//                             string" and the rest of the line is skipped
//   [A-Za-z][A-Za-z0-9_]*     IDENTIFIER
//   a newline                 ends the line
// Any other byte (tab, carriage return, '#' without "include", bytes above
// 126...) is copied to the echo stream and otherwise ignored.
//
// The file is read in blocks cut after their last newline. No text spans a
// newline, so every text lies whole in the bytes between next_ and
// linesEnd_, and the scanner looks at each byte once, in place: only the
// texts of identifiers and strings are copied, into recycled ConfigTexts.

#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstring>

#include "AgentEnv/ConfigReader.h"
#include "AgentEnv/ConfigText.h"
#include "ConfigGrammar.h"

namespace Zet {
namespace {

enum class ByteKind : uint8_t { other, space, newline, digit, letter, quote, hash, slash, punctuation };

constexpr std::array<ByteKind, 256> kByteKinds = [] {
  std::array<ByteKind, 256> kinds{};
  for (int c = '0'; c <= '9'; ++c) kinds[c] = ByteKind::digit;
  for (int c = 'a'; c <= 'z'; ++c) kinds[c] = kinds[c - 'a' + 'A'] = ByteKind::letter;
  for (char c : std::string_view("!$%()*+,-.;<=>[]{}")) kinds[static_cast<unsigned char>(c)] = ByteKind::punctuation;
  kinds[' '] = ByteKind::space;
  kinds['\n'] = ByteKind::newline;
  kinds['"'] = ByteKind::quote;
  kinds['#'] = ByteKind::hash;
  kinds['/'] = ByteKind::slash;
  return kinds;
}();

ByteKind kindOf(char c) { return kByteKinds[static_cast<unsigned char>(c)]; }

bool isIdentifierByte(char c) {
  ByteKind kind = kindOf(c);
  return kind == ByteKind::letter || kind == ByteKind::digit || c == '_';
}

struct Keyword {
  std::string_view text;
  int token;
};
constexpr std::array<Keyword, 11> kKeywords{{
    {"source0", SOURCE_0},
    {"source1", SOURCE_1},
    {"target", TARGET},
    {"pathSuffix", PATH_SUFFIX},
    {"timeoutPeriod", TIMEOUT_PERIOD},
    {"dependency", DEPENDENCY},
    {"typeName", TYPE_NAME},
    {"unmountType", UNMOUNT_TYPE},
    {"true", BOOL_LITERAL},
    {"false", BOOL_LITERAL},
    {"anyPort", ANY_PORT},
}};

constexpr std::string_view kInclude = "#include";

// The bytes of [p, end) while `accepts` holds.
template <class Accepts>
size_t runLength(char const* p, char const* end, Accepts accepts) {
  char const* q = p;
  while (q < end && accepts(*q)) ++q;
  return static_cast<size_t>(q - p);
}

// The distance from p to the first `c` in [p, end), or to end.
size_t distanceTo(char const* p, char const* end, char c) {
  auto const* found = static_cast<char const*>(std::memchr(p, c, static_cast<size_t>(end - p)));
  return static_cast<size_t>((found ? found : end) - p);
}

// Digits as a long; like strtol, a number too large for one reads LONG_MAX.
long integerOf(std::string_view digits) {
  long value = 0;
  auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  return error == std::errc::result_out_of_range ? LONG_MAX : value;
}

constexpr size_t kFirstBufferSize = size_t(64) << 10;

}  // namespace

void ConfigReader::InitScanner(FILE* in) {
  releaseScanner();
  in_ = in;
  line_ = lineOfText_ = 1;
  lineLength_ = 0;
  afterName_ = endsName_ = false;
  strayByte_ = -1;
  remarkedLine_ = 0;
  for (std::string& value : lastValues_) value.clear();
}

void ConfigReader::releaseScanner() {
  in_ = nullptr;
  buffer_.reset();
  capacity_ = next_ = linesEnd_ = filled_ = 0;
  fileEnded_ = false;
}

bool ConfigReader::refill() {
  // A parser that stopped taking events ends the read here, however few
  // events the lines left would make.
  if (events_ && events_->abandoned()) abandoned_ = true;
  if (abandoned_) return false;
  if (next_ != 0) std::memmove(buffer_.get(), buffer_.get() + next_, filled_ - next_);
  filled_ -= next_;
  next_ = linesEnd_ = 0;
  while (!fileEnded_) {
    if (filled_ == capacity_) {
      size_t grown = std::max(kFirstBufferSize, 2 * capacity_);
      auto larger = std::make_unique<char[]>(grown);
      if (filled_ != 0) std::memcpy(larger.get(), buffer_.get(), filled_);
      buffer_ = std::move(larger);
      capacity_ = grown;
    }
    size_t n = read(buffer_.get() + filled_, capacity_ - filled_);
    fileEnded_ = n == 0;
    auto const* newline = static_cast<char const*>(::memrchr(buffer_.get() + filled_, '\n', n));
    filled_ += n;
    if (newline) {
      linesEnd_ = static_cast<size_t>(newline - buffer_.get()) + 1;
      return true;
    }
  }
  linesEnd_ = filled_;
  return linesEnd_ > 0;
}

int ConfigReader::scan(AGENTENV_STYPE* value) {
  for (;;) {
    if (next_ == linesEnd_ && !refill()) return 0;
    char const* p = buffer_.get() + next_;
    char const* const end = buffer_.get() + linesEnd_;
    size_t size = 1;
    int token = 0;
    auto take = [&] {
      textScanned(p, size);
      next_ += size;
    };
    switch (kindOf(*p)) {
      case ByteKind::space:
        size = runLength(p, end, [](char c) { return c == ' '; });
        take();
        continue;
      case ByteKind::newline:
        take();
        ++line_;
        continue;
      case ByteKind::slash:
        if (end - p < 2 || p[1] != '/') {
          take();
          return '/';
        }
        size = distanceTo(p, end, '\n');  // a comment
        take();
        continue;
      case ByteKind::punctuation:
        take();
        return *p;
      case ByteKind::hash:
        if (std::string_view(p, static_cast<size_t>(end - p)).starts_with(kInclude)) {
          size = kInclude.size();
          take();
          return INCLUDE;
        }
        break;
      case ByteKind::quote: {
        // Each search stops at the closing quote: strings cost their length
        // even on a line of a million.
        size_t closing = 1 + distanceTo(p + 1, end, '"');
        if (p + closing == end || distanceTo(p, p + closing, '\n') < closing) {
          size = distanceTo(p, end, '\n');
          take();
          displayError("unterminated string");
          continue;
        }
        size = closing + 1;
        take();
        value->text = newText(std::string_view(p + 1, size - 2));
        return STRING_LITERAL;
      }
      case ByteKind::digit:
        size = runLength(p, end, [](char c) { return kindOf(c) == ByteKind::digit; });
        token = INT_LITERAL;
        if (p + size < end && p[size] == '.') {
          size += 1 + runLength(p + size + 1, end, [](char c) { return kindOf(c) == ByteKind::digit; });
          token = DOUBLE_LITERAL;
        }
        take();
        if (token == INT_LITERAL)
          value->integer = integerOf(std::string_view(p, size));
        else
          value->number = strepToValue<double>(std::string_view(p, size));
        return token;
      case ByteKind::letter: {
        size = runLength(p, end, isIdentifierByte);
        take();
        std::string_view text(p, size);
        for (Keyword const& keyword : kKeywords) {
          if (keyword.text != text) continue;
          if (keyword.token == BOOL_LITERAL) value->boolean = text[0] == 't';
          if (keyword.token == ANY_PORT) value->integer = 65535;
          return keyword.token;
        }
        value->text = newText(text);
        return IDENTIFIER;
      }
      case ByteKind::other:
        break;
    }
    take();
    echo(p, size);
  }
}

size_t ConfigReader::read(char* buffer, size_t size) {
  size_t n = readSome(buffer, size);
  char const* end = buffer + n;
  for (char const* p = buffer; p < end;) {
    auto const* newline = static_cast<char const*>(std::memchr(p, '\n', static_cast<size_t>(end - p)));
    lineLength_ += static_cast<size_t>((newline ? newline : end) - p);
    if (lineLength_ > kMaxLineLength) throwFileError("has a line longer than 64 MiB");
    if (!newline) break;
    lineLength_ = 0;
    p = newline + 1;
  }
  return n;
}

size_t ConfigReader::readSome(char* buffer, size_t size) {
  for (;;) {
    size_t n = std::fread(buffer, 1, size, in_);
    if (n > 0 || !std::ferror(in_)) return n;
    if (errno != EINTR) throwFileError("could not be read");
    std::clearerr(in_);
  }
}

int ConfigReader::nextToken(AGENTENV_STYPE* value) noexcept {
  if (failure_ || abandoned_) return 0;
  try {
    return scan(value);
  } catch (...) {
    failure_ = std::current_exception();
    return 0;
  }
}

ConfigText* ConfigReader::newText(std::string_view text) {
  if (spareTexts_.empty()) return new ConfigText(text);
  ConfigText* reused = spareTexts_.back().release();
  spareTexts_.pop_back();
  reused->assign(text);
  return reused;
}

void ConfigReader::recycle(ConfigText* text) noexcept {
  // A few texts are enough for the values on the grammar's stack; a large
  // one (a long concatenation) gives its memory back.
  constexpr size_t kSpareTexts = 64, kSpareCapacity = 4096;
  if (text && spareTexts_.size() < kSpareTexts && text->capacity() <= kSpareCapacity) {
    try {
      spareTexts_.emplace_back(text);
      return;
    } catch (...) {  // no room to keep it: let it go
    }
  }
  delete text;
}

}  // namespace Zet

int agentenv_lex(AGENTENV_STYPE* value, Zet::ConfigReader& reader) { return reader.nextToken(value); }
