#include "AgentEnv/ConfigReader.h"

#include <charconv>
#include <cstdio>
#include <locale>
#include <ostream>
#include <sstream>
#include <string>

#include "AgentEnv/ConfigText.h"
#include "Zet/Trace.h"

namespace Zet {

ConfigReader::ConfigReader() = default;
ConfigReader::~ConfigReader() { CleanupParser(); }

void ConfigReader::InitParser(Ptr<ConfigFileParser> parser) {
  parser_ = std::move(parser);
  remarking_ = parser_ && parser_->remarks();
}

int ConfigReader::parse() {
  int result = agentenv_parse(*this);
  if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
  return result;
}

void ConfigReader::CleanupParser() {
  releaseScanner();
  parser_ = nullptr;
  failure_ = nullptr;
}

void ConfigReader::throwFileError(char const* what) const {
  String8 const& file = parser_->currentFile();
  throw AgentException(format("error: file '%.*s' %s", int(file.size()), file.charPtr(), what));
}

void ConfigReader::echo(char const* text, size_t size) {
  parser_->echoStream().write(text, static_cast<std::streamsize>(size));
  // Blanks other than the space separate names as a reader expects.
  char byte = text[0];
  if (!remarking_ || byte == '\t' || byte == '\r' || byte == '\v' || byte == '\f') return;
  strayByte_ = static_cast<unsigned char>(byte);
  if (afterName_) remarkStrayByte();
}

void ConfigReader::remarkStrayByte() {
  if (remarkedLine_ != lineOfText_)
    parser_->remarks()->onIgnoredByteBesideName(parser_->currentFile(), lineOfText_,
                                                static_cast<unsigned char>(strayByte_));
  remarkedLine_ = lineOfText_;
  strayByte_ = -1;
}

void ConfigReader::defineAttribute(std::string_view attribute, std::string_view value,
                                   ConfigFileParser::AttributeType type) {
  if (value.empty()) return;
  ZET_TRACE_AT("ConfigFileParser", 3) << parser_->currentFile() << ": " << attribute << " = " << value;
  parser_->handleAttribute(type, valueName(type, value));
}

Name const& ConfigReader::valueName(ConfigFileParser::AttributeType type, std::string_view value) {
  Name& last = lastValues_.at(static_cast<size_t>(type));
  if (last.view() != value) last = Name(value);
  return last;
}

void ConfigReader::displayAttributeError(std::string_view message, long lineDelta) {
  if (failure_) return;  // the parse is being abandoned; what follows is noise
  unsigned long line = lineOfText_ + static_cast<unsigned long>(lineDelta);
  std::string text(parser_->currentFile().view());
  text += ':';
  text += std::to_string(line);
  text += ": error: ";
  text += message;
  text += '\n';
  std::ostream& out = parser_->errorStream();
  out.write(text.data(), static_cast<std::streamsize>(text.size()));
  out.flush();
  parser_->parsingErrorsCountInc();
}

String8 ConfigReader::substitutionValue(std::string_view name) const {
  String8 key(name);
  if (parser_->remarks() && !parser_->substitutions().mapHas(key))
    parser_->remarks()->onUndefinedSubstitution(parser_->currentFile(), lineOfText_, name);
  return parser_->substitutions(key);
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
