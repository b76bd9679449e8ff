#pragma once
// ConfigFileParser: reads agent-environment configuration files into the
// AgentEnvConfig entries of one AgentEnvConfigDir.
//
// Files are queued with configFileEnq and read in order. A file named by an
// include is appended to the queue and read after the file that named it; a
// name is read at most once per parser, so a file that includes itself is
// read once. A name that does not open as given is looked for in the
// directories of AGENTENV_CONFIGS (see ConfigFileSearch.h).
//
// Diagnostics go to the error stream (standard error by default) as single
// flushed lines. Syntax errors read "file:line: error: message" and are
// counted in parsingErrorsCount; a repeated attribute keeps its first value
// and is reported by printError as "file: entry: message", counted apart in
// attributeErrorsCount. Characters the language ignores are copied to the
// echo stream (standard output by default). What the language accepts
// silently but a reader of the file may not expect (a byte ignored beside a
// name, a substitution without a value) is told to an observer, if one is
// set; the read goes on unchanged.
//
// Each parser has its own scanner and grammar state, so parsers are
// independent of each other; one parser reads one file at a time. Not
// thread-safe: use a parser on one thread.

#include <array>
#include <iosfwd>
#include <memory>
#include <string_view>
#include <vector>

#include "AgentEnv/AgentEnvConfigDir.h"
#include "AgentEnv/ConfigCollection.h"
#include "AgentEnv/SubstitutionsCollection.h"
#include "Zet/Entity.h"
#include "Zet/HashMap.h"

namespace Zet {

class ConfigReader;
struct ConfigEvent;
struct ConfigEventBatch;

class ConfigFileParser : public Entity {
 public:
  // What an attribute value handed over by the grammar is for. The text of
  // typeName's value is "uType".
  enum class AttributeType : unsigned {
    source0 = 0,
    source1 = 1,
    pathSuffix = 2,
    target = 3,
    timeoutPeriod = 4,
    dependency = 5,
    uType = 6,
    unmountType = 7,
  };

  ~ConfigFileParser() override;

  // The directory that receives the entries.
  Ptr<AgentEnvConfigDir> const& configDir() const { return configDir_; }

  // ---- Files -------------------------------------------------------------

  // The names still to read, in order.
  ConfigCollection const& configFile() const { return configFile_; }
  // Appends a name to the queue, then reads the queue (handleConfigFile).
  // Throws what handleConfigFile throws.
  void configFileEnq(String8 const& name);
  // Removes and returns the first queued name; empty when there is none.
  String8 configFileDeq() { return configFile_.configDeq(); }

  // Reads every queued file, including those queued by includes while it
  // runs. Returns at once when called during a read (an include's name is
  // read later by the running loop). Resets both error counts first. A name
  // read before is skipped. Throws AgentException "error: file 'NAME' not
  // found" when no directory holds a file, "error: file 'NAME' could not be
  // read" when reading it fails and "error: file 'NAME' has a line longer
  // than 64 MiB"; what a file gave before the error stays, files read before
  // keep their entries, and the names after it stay queued for the next call.
  // Other exceptions (from the directory, say) leave the parser the same way.
  void handleConfigFile();

  // Where a file was first named by an include; empty for a file queued
  // otherwise.
  struct IncludeSite {
    String8 file;
    unsigned long line = 0;
  };
  IncludeSite includeSite(String8 const& name) const;
  // The file the last run of handleConfigFile threw about; empty when the
  // last run did not throw.
  String8 const& failedFile() const { return failedFile_; }

  // Whether a name has been taken off the queue (read or being read).
  bool parsedConfigFile(String8 const& name) const { return parsedConfigFile_.find(name) != nullptr; }
  size_t parsedConfigFileCount() const { return parsedConfigFile_.size(); }
  // The file being read; empty when no read is running.
  String8 const& currentFile() const { return currentFile_; }

  // ---- Substitutions ("${NAME}" in files) --------------------------------

  SubstitutionsCollection const& substitutions() const { return substitutions_; }
  // The value of a substitution; empty when it has none.
  String8 substitutions(String8 const& name) const { return substitutions_.map(name); }
  void substitutionsIs(String8 const& name, String8 const& value) { substitutions_.mapIs(name, value); }
  // Replaces every substitution by those of `all`.
  void substitutionsIs(SubstitutionsCollection const& all) { substitutions_ = all; }
  void substitutionsDel(String8 const& name) { substitutions_.mapDel(name); }
  void substitutionsDelAll() { substitutions_.mapDelAll(); }

  // ---- The entry being filled ----------------------------------------------

  // The entry whose braces are open; null outside any entity.
  Ptr<AgentEnvConfig> const& currentEntity() const { return currentEntity_; }
  // The dependency given so far inside the current entry; applied to the
  // entry when its braces close. Empty if none.
  Name const& currentDependency() const { return currentDependency_; }
  // The pending dependency of the enclosing entry, saved while a nested
  // entry is filled; empty at the outer level.
  Name parentDependency() const;

  // ---- Callbacks of the grammar --------------------------------------------

  // An entity opens: the entry of that name is created or taken, becomes a
  // member (aggConfig) of the enclosing entry if there is one, records the
  // current file as its configFile and becomes the current entity.
  void handleEntityScopeEnter(Name const& name);
  // The current entity closes: its pending dependency is applied and the
  // enclosing entry, with its own pending dependency, becomes current again.
  void handleEntityScopeExit();
  // Sets an attribute of the current entity from its text. The first value
  // of an attribute wins; a second one is reported through printError.
  // Types above unmountType, and calls outside any entity, are ignored.
  void handleAttribute(AttributeType type, Name const& value);
  // Writes "configFile: entry: message" for the current entity to the error
  // stream and flushes it; counted in attributeErrorsCount only.
  void printError(String8 const& message);

  // ---- Where entries were read ---------------------------------------------

  // The line of an entry's name in its configFile, and of the first value
  // of each attribute (indexed by AttributeType); 0 where nothing was read.
  // Lines are kept only while sourceLinesKept is set (it is not by default:
  // tools that point at lines ask for them, and reading costs less without).
  struct SourceLines {
    unsigned long entry = 0;
    std::array<unsigned long, 8> attribute{};
  };
  SourceLines sourceLines(Name const& entry) const;
  bool sourceLinesKept() const { return sourceLinesKept_; }
  void sourceLinesKeptIs(bool kept) { sourceLinesKept_ = kept; }

  // ---- Diagnostics ---------------------------------------------------------

  // Syntax errors of the current run (since handleConfigFile last started).
  unsigned parsingErrorsCount() const { return parsingErrorsCount_; }
  void parsingErrorsCountInc() { ++parsingErrorsCount_; }
  // printError reports of the current run.
  unsigned attributeErrorsCount() const { return attributeErrorsCount_; }

  // Where diagnostics and ignored characters go; the streams are not owned
  // and must outlive their use.
  std::ostream& errorStream() const { return *errorStream_; }
  void errorStreamIs(std::ostream& stream) { errorStream_ = &stream; }
  std::ostream& echoStream() const { return *echoStream_; }
  void echoStreamIs(std::ostream& stream) { echoStream_ = &stream; }

  // ---- Remarks -------------------------------------------------------------

  class Remarks {
   public:
    virtual ~Remarks() = default;
    // A byte the language ignores touches a name: "caf\xe9 {" declares "caf".
    // Told once per line.
    virtual void onIgnoredByteBesideName(String8 const& file, unsigned long line, unsigned char byte) = 0;
    // "${NAME}" where NAME has no substitution: the value is empty (or 0).
    virtual void onUndefinedSubstitution(String8 const& file, unsigned long line, std::string_view name) = 0;
  };
  // The observer, not owned; null (the default) for none.
  Remarks* remarks() const { return remarks_; }
  void remarksIs(Remarks* remarks) { remarks_ = remarks; }

  ZET_ENTITY_TYPE();

 private:
  friend Ptr<ConfigFileParser> configFileParserFactory(Ptr<AgentEnvConfigDir> const& configDir);
  friend class ConfigReader;
  class FileRead;
  // An open entity: the entry that encloses it and the enclosing entry's
  // pending dependency, restored when it closes.
  struct Scope {
    Ptr<AgentEnvConfig> enclosing;
    Name enclosingDependency;
  };

  explicit ConfigFileParser(Ptr<AgentEnvConfigDir> configDir);
  void readConfigFile(String8 const& name);
  bool defineOnce(bool alreadySet, std::string_view attribute);
  // Applies what the reader found in the file being read, in file order.
  void handleConfigEvents(ConfigEventBatch const& batch);
  void handleConfigEvent(ConfigEvent const& event, std::string_view text);
  void traceAttribute(AttributeType type, Name const& value) const;

  Ptr<AgentEnvConfigDir> configDir_;
  ConfigCollection configFile_;
  HashMap<bool, String8> parsedConfigFile_;
  String8 currentFile_;
  SubstitutionsCollection substitutions_;
  Ptr<AgentEnvConfig> currentEntity_;
  Name currentDependency_;
  std::vector<Scope> scopes_;
  unsigned parsingErrorsCount_ = 0;
  unsigned attributeErrorsCount_ = 0;
  std::ostream* errorStream_;
  std::ostream* echoStream_;
  Remarks* remarks_ = nullptr;
  HashMap<IncludeSite, String8> includeSites_;
  String8 failedFile_;
  std::unique_ptr<ConfigReader> reader_;
  unsigned long lineOfEvent_ = 0;  // where the event being applied was found
  std::array<Name, 8> lastValues_;  // by attribute type, in the file being read
  HashMap<SourceLines> sourceLines_;  // by entry name
  bool sourceLinesKept_ = false;
};

// A new parser filling configDir. RangeException "null ValidPtr" when
// configDir is null.
Ptr<ConfigFileParser> configFileParserFactory(Ptr<AgentEnvConfigDir> const& configDir);

template <>
struct EnumTexts<ConfigFileParser::AttributeType> {
  static constexpr std::string_view typeName = "ConfigFileParser::AttributeType";
  static constexpr std::array<std::string_view, 8> texts = {"source0",       "source1",    "pathSuffix", "target",
                                                            "timeoutPeriod", "dependency", "uType",      "unmountType"};
};

}  // namespace Zet
