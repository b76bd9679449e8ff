#pragma once
// The library's version, build identifier, copyright line and the compiler
// options it was built with. The build fixes the last three.

#include "Zet/String8.h"
#include "Zet/Version.h"

namespace Zet {

class AgentEnvVersion {
 public:
  static unsigned versionMajor() { return 2; }
  static unsigned versionMinor() { return 1; }
  static unsigned versionChange() { return 0; }
  static String8 string();
  // A placeholder no release fills in: "PATCH".
  static String8 patch();
  static String8 build();
  static String8 copyright();
  static char const* options();

  static decltype(Version::v_2_1_0()) v_2_1_0() { return Version::v_2_1_0(); }
  static int v_2_1() { return 1; }
  static int v_2() { return 1; }
};

}  // namespace Zet

// C entry points for tools that only load the library and look up symbols.
// Each returns a NUL-terminated string valid for the life of the process.
extern "C" {
char const* zet_AgentEnvVersion_string();
char const* zet_AgentEnvVersion_build();
char const* zet_AgentEnvVersion_copyright();
char const* zet_AgentEnvVersion_options();
}
