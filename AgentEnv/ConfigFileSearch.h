#pragma once
// Finding and opening configuration files.
//
// A name is opened as given (relative names against the working directory);
// when that fails, it is looked for in each directory of the environment
// variable AGENTENV_CONFIGS, in order ("DIR/NAME"), or of
// "/usr/etc:/etc:/usr/etc/zetc:/etc/zetc" when the variable is unset or
// empty. Only regular files open: a directory, device or pipe of that name is
// passed over as if absent, so that reading a configuration never blocks and
// always ends. Thread-safe.

#include <cstdio>
#include <memory>

#include "Zet/String8.h"

namespace Zet {

struct ConfigFileCloser {
  void operator()(FILE* file) const { std::fclose(file); }
};
using ConfigFileHandle = std::unique_ptr<FILE, ConfigFileCloser>;

// The directories searched, ':'-separated.
String8 configSearchPath();
// The first candidate that opens, for reading; null when none does.
ConfigFileHandle openConfigFile(String8 const& name);
// Why openConfigFile found nothing, as a diagnostic: "error: file 'NAME' not
// found", or what the first candidate that exists is instead of a regular
// file ("error: 'PATH' is a directory, not a configuration file").
String8 missingConfigFileReason(String8 const& name);

}  // namespace Zet
