#pragma once
// Reading configuration files as an agent does, for the subcommands: the
// -D substitutions given on the command line, then each file with what it
// includes, counting what went wrong.

#include <cstdint>
#include <string>
#include <vector>

#include "AgentEnv/ConfigFileParser.h"
#include "Warnings.h"

namespace CLI {
class App;
}

namespace Zet::Tool {

struct ConfigFiles {
  std::vector<std::string> definitions;  // -D NAME=VALUE, as given
  std::vector<std::string> files;

  // Declares -D and the FILE arguments on a subcommand.
  void addTo(CLI::App& subcommand);
  // The substitutions of the definitions; UsageError for a malformed one.
  SubstitutionsCollection substitutions() const;
};

// How a process reads its files: what it was given, in which working
// directory, with which search path (AGENTENV_CONFIGS as it uses it, the
// folders of the files included). An agent host publishes it so that a tool
// elsewhere can read the files exactly as a reload of the host would.
struct FilesReading {
  ConfigFiles given;
  std::string workingDir;
  std::string searchPath;

  // This process's, once it has read `given`.
  static FilesReading ofThisProcess(ConfigFiles const& given);
  std::string json() const;
  // UsageError when the text is not one.
  static FilesReading fromJson(std::string const& text);
  // Makes this process read as the process `pid` (on this machine) does: its
  // working directory (the very folder, even one moved or deleted since,
  // when /proc shows it; else the folder by name) and search path become
  // those of the reading. UsageError when neither can be entered.
  void adopt(uint64_t pid) const;
};

// What reading the files found.
struct Findings {
  unsigned errors = 0;          // diagnostics printed about the files' contents
  bool unreadableFile = false;  // a file could not be found or read
  Warnings warnings;            // what the language accepted silently, when asked
};

// Reads every file into the parser's config directory; diagnostics go to
// standard error, at the include that named a file that cannot be read, or
// with `who` naming the subcommand for a file given on the command line. The
// characters the language ignores are dropped (they would corrupt what the
// command prints). With `remarks`, those beside a name and substitutions
// without a value are warnings, and the parser keeps the line of each entry
// and attribute for further warnings (both cost a little per token).
Findings readConfigFiles(ConfigFileParser& parser, ConfigFiles const& given, std::string const& who,
                         bool remarks = false);

}  // namespace Zet::Tool
