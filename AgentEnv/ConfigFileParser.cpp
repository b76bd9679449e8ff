#include "AgentEnv/ConfigFileParser.h"

#include <cstdlib>
#include <iostream>
#include <string>

#include "AgentEnv/ConfigEvents.h"
#include "AgentEnv/ConfigFileSearch.h"
#include "AgentEnv/ConfigReader.h"
#include "Zet/Trace.h"
#include "Zet/TypeMap.h"

namespace Zet {

// The state of one file being read: set up on construction, cleared on
// destruction however the read ends, so that a failed read leaves the parser
// ready for the next one. Scopes left open by a broken file do not reach
// into the next file.
class ConfigFileParser::FileRead {
 public:
  FileRead(ConfigFileParser& parser, String8 const& name, FILE* file) : parser_(parser) {
    parser_.currentFile_ = name;
    parser_.lastValues_.fill(Name());
    try {
      parser_.reader_->InitScanner(file);
      parser_.reader_->InitParser(&parser_);
    } catch (...) {
      end();
      throw;
    }
  }
  ~FileRead() { end(); }
  FileRead(FileRead const&) = delete;
  FileRead& operator=(FileRead const&) = delete;

 private:
  void end() noexcept {
    parser_.reader_->CleanupParser();
    parser_.currentFile_ = String8();
    parser_.currentEntity_ = nullptr;
    parser_.currentDependency_ = Name();
    parser_.scopes_.clear();
  }

  ConfigFileParser& parser_;
};

ConfigFileParser::ConfigFileParser(Ptr<AgentEnvConfigDir> configDir)
    : Entity(Name("ConfigFileParser"), nullptr),
      configDir_(std::move(configDir)),
      errorStream_(&std::cerr),
      echoStream_(&std::cout),
      reader_(std::make_unique<ConfigReader>()) {}

ConfigFileParser::~ConfigFileParser() = default;

Ptr<ConfigFileParser> configFileParserFactory(Ptr<AgentEnvConfigDir> const& configDir) {
  if (!configDir) throwRangeException("null ValidPtr");
  return Ptr<ConfigFileParser>(new ConfigFileParser(configDir));
}

void ConfigFileParser::configFileEnq(String8 const& name) {
  if (!currentFile_.isEmpty() && !includeSites_.find(name))
    includeSites_.insert(name, IncludeSite{currentFile_, lineOfEvent_});
  configFile_.configEnq(name);
  handleConfigFile();
}

ConfigFileParser::IncludeSite ConfigFileParser::includeSite(String8 const& name) const {
  IncludeSite const* site = includeSites_.find(name);
  return site ? *site : IncludeSite{};
}

void ConfigFileParser::handleConfigFile() {
  if (!currentFile_.isEmpty()) return;
  // A watcher of the config dir may drop the owner's last reference during
  // the read; the parser and its reader live until the read is over.
  Ptr<ConfigFileParser const> self(this);
  parsingErrorsCount_ = 0;
  attributeErrorsCount_ = 0;
  failedFile_ = String8();
  while (!configFile_.empty()) {
    String8 name = configFileDeq();
    if (!parsedConfigFile_.insert(name, true).second) continue;
    try {
      readConfigFile(name);
    } catch (...) {
      failedFile_ = name;
      throw;
    }
  }
}

void ConfigFileParser::readConfigFile(String8 const& name) {
  ConfigFileHandle file = openConfigFile(name);
  if (!file) throw AgentException(missingConfigFileReason(name));
  FileRead read(*this, name, file.get());
  reader_->parse();
}

// The entries' slots in the config dir are asked for this many entries
// ahead of the one being made, so that the waits for them overlap.
static constexpr size_t kEntriesAhead = 8;

void ConfigFileParser::handleConfigEvents(ConfigEventBatch const& batch) {
  std::vector<ConfigEvent> const& events = batch.events;
  auto const opens = [](ConfigEvent const& event) { return event.kind == ConfigEvent::Kind::entityOpens; };
  size_t ahead = 0, entriesAhead = 0;
  for (ConfigEvent const& event : events) {
    if (opens(event)) {
      for (; ahead < events.size() && entriesAhead <= kEntriesAhead; ++ahead)
        if (opens(events[ahead])) {
          configDir_->agentEnvConfigs().prefetchText(batch.text(events[ahead]));
          ++entriesAhead;
        }
      --entriesAhead;
    }
    handleConfigEvent(event, batch.text(event));
  }
}

void ConfigFileParser::handleConfigEvent(ConfigEvent const& event, std::string_view text) {
  lineOfEvent_ = event.line;
  switch (event.kind) {
    case ConfigEvent::Kind::entityOpens: return handleEntityScopeEnter(Name(text));
    case ConfigEvent::Kind::entityCloses: return handleEntityScopeExit();
    case ConfigEvent::Kind::attribute:
      lastValues_.at(unsigned(event.attribute)) = Name(text);
      [[fallthrough]];
    case ConfigEvent::Kind::attributeAgain: {
      Name const& value = lastValues_.at(unsigned(event.attribute));
      traceAttribute(event.attribute, value);
      return handleAttribute(event.attribute, value);
    }
    case ConfigEvent::Kind::include: return configFileEnq(String8(text));
    case ConfigEvent::Kind::error:
      errorStream_->write(text.data(), static_cast<std::streamsize>(text.size()));
      errorStream_->flush();
      ++parsingErrorsCount_;
      return;
    case ConfigEvent::Kind::echo:
      echoStream_->write(text.data(), static_cast<std::streamsize>(text.size()));
      return;
    case ConfigEvent::Kind::strayByte:
      if (remarks_) remarks_->onIgnoredByteBesideName(currentFile_, event.line, event.byte);
      return;
    case ConfigEvent::Kind::undefinedSubstitution:
      if (remarks_) remarks_->onUndefinedSubstitution(currentFile_, event.line, text);
      return;
  }
}

// An attribute with a text value is traced under the name the file gives
// it; dependencies and timeouts are not traced.
void ConfigFileParser::traceAttribute(AttributeType type, Name const& value) const {
  if (type == AttributeType::dependency || type == AttributeType::timeoutPeriod) return;
  std::string_view attribute = type == AttributeType::uType ? "typeName" : EnumTexts<AttributeType>::texts[unsigned(type)];
  ZET_TRACE_AT("ConfigFileParser", 3) << currentFile_ << ": " << attribute << " = " << value;
}

Name ConfigFileParser::parentDependency() const {
  return scopes_.empty() ? Name() : scopes_.back().enclosingDependency;
}

void ConfigFileParser::handleEntityScopeEnter(Name const& name) {
  scopes_.push_back(Scope{currentEntity_, std::exchange(currentDependency_, Name())});
  Ptr<AgentEnvConfig> entity = configDir_->agentEnvConfigIs(name);
  if (sourceLinesKept_) sourceLines_.insert(name, SourceLines{lineOfEvent_, {}});
  if (currentEntity_) entity->aggConfigIs(currentEntity_);
  entity->configFileIs(currentFile_);
  currentEntity_ = std::move(entity);
}

void ConfigFileParser::handleEntityScopeExit() {
  if (scopes_.empty()) return;
  currentEntity_->dependencyIs(currentDependency_);
  currentDependency_ = std::move(scopes_.back().enclosingDependency);
  currentEntity_ = std::move(scopes_.back().enclosing);
  scopes_.pop_back();
}

// The number at the start of a value's text, 0 when there is none; read
// the same way whatever locale the process set.
static double leadingNumber(std::string_view text) {
  double number = 0;
  try {
    sequenceToValue(text, number);
  } catch (RangeException const&) {
    number = 0;
  }
  return number;
}

bool ConfigFileParser::defineOnce(bool alreadySet, std::string_view attribute) {
  if (alreadySet) printError(String8(std::string(attribute) + " already defined"));
  return !alreadySet;
}

ConfigFileParser::SourceLines ConfigFileParser::sourceLines(Name const& entry) const {
  SourceLines const* lines = sourceLines_.find(entry);
  return lines ? *lines : SourceLines{};
}

void ConfigFileParser::handleAttribute(AttributeType type, Name const& value) {
  AgentEnvConfig* entity = currentEntity_.ptr();
  if (!entity) return;
  // The first value is the one that counts, as below.
  if (SourceLines* lines = sourceLinesKept_ ? sourceLines_.find(entity->name()) : nullptr;
      lines && unsigned(type) < lines->attribute.size())
    if (unsigned long& line = lines->attribute[unsigned(type)]; line == 0) line = lineOfEvent_;
  switch (type) {
    case AttributeType::source0:
      if (defineOnce(!entity->source0().isEmpty(), "source0")) entity->source0Is(EntityUri(value));
      break;
    case AttributeType::source1:
      if (defineOnce(!entity->source1().isEmpty(), "source1")) entity->source1Is(EntityUri(value));
      break;
    case AttributeType::pathSuffix:
      if (defineOnce(!entity->pathSuffix().isEmpty(), "pathSuffix")) entity->pathSuffixIs(EntityUri(value));
      break;
    case AttributeType::target:
      if (defineOnce(!entity->target().isEmpty(), "target")) entity->targetIs(EntityUriPath(value));
      break;
    case AttributeType::uType:
      if (defineOnce(!entity->typeName().isEmpty(), "typeName")) entity->typeNameIs(value);
      break;
    case AttributeType::dependency:
      if (defineOnce(!currentDependency_.isEmpty(), "dependency")) currentDependency_ = value;
      break;
    case AttributeType::timeoutPeriod:
      entity->timeoutPeriodIs(leadingNumber(value.view()));
      break;
    case AttributeType::unmountType:
      if (value == "statePreserving") entity->unmountTypeIs(AgentEnvConfig::statePreserving);
      if (value == "stateRemoving") entity->unmountTypeIs(AgentEnvConfig::stateRemoving);
      break;
  }
}

void ConfigFileParser::printError(String8 const& message) {
  std::string line;
  if (currentEntity_) {
    line += currentEntity_->configFile().view();
    line += ": ";
    line += currentEntity_->name().view();
    line += ": ";
  }
  line += message.view();
  line += '\n';
  errorStream_->write(line.data(), static_cast<std::streamsize>(line.size()));
  errorStream_->flush();
  ++attributeErrorsCount_;
}

namespace {

// Made through the type map, a parser fills the directory it is made in.
Ptr<Entity> makeFromTypeMap(Name const&, Entity* parent) {
  return configFileParserFactory(entityCast<AgentEnvConfigDir>(Ptr<Entity>(parent)));
}

using P = ConfigFileParser;
TypeDescriptor const descriptor{
    "Zet::ConfigFileParser",
    makeFromTypeMap,
    {
        {0x102, "configDir", readAs<&P::configDir>, nullptr},
        {0x103, "currentFile", readAs<&P::currentFile>, nullptr},
        {0x104, "currentEntity", readAs<&P::currentEntity>, nullptr},
        {0x105, "currentDependency", readAs<&P::currentDependency>, nullptr},
        {0x106, "parentDependency", readAs<&P::parentDependency>, nullptr},
        {0x107, "parsingErrorsCount", readAs<&P::parsingErrorsCount>, nullptr},
    },
    {},
};
}  // namespace

ZET_DEFINE_TYPE(ConfigFileParser, descriptor);

}  // namespace Zet
