#include "AgentEnv/AgentEnvVersion.h"

#include "Zet/ScopedNameRegistry.h"

#ifndef AGENTENV_BUILD_ID
#error "the build defines AGENTENV_BUILD_ID"
#endif

namespace Zet {

String8 AgentEnvVersion::string() { return "2.1.0"; }
String8 AgentEnvVersion::patch() { return "PATCH"; }
String8 AgentEnvVersion::build() { return AGENTENV_BUILD_ID; }
String8 AgentEnvVersion::copyright() { return AGENTENV_COPYRIGHT; }
char const* AgentEnvVersion::options() { return AGENTENV_OPTIONS; }

namespace {

// Fills the cache on first use and returns its text; later calls return the
// same pointer. The cache lives until the process exits.
char const* cached(String8& cache, String8 (*make)()) {
  if (cache.isEmpty()) cache = make();
  return cache.charPtr();
}

// Makes the version type visible to generic tools as Zet::AgentEnvVersion.
struct AnnounceVersion {
  AnnounceVersion() {
    IntrospectionReactor& r = IntrospectionReactor::instance();
    r.handleNameSpace("Zet");
    r.handleNameSpace("AgentEnvVersion");
    r.handleScopeExit();
    r.handleScopeExit();
  }
} const announceVersion;

}  // namespace
}  // namespace Zet

extern "C" {
char const* zet_AgentEnvVersion_string() {
  static Zet::String8 cache;
  return Zet::cached(cache, &Zet::AgentEnvVersion::string);
}
char const* zet_AgentEnvVersion_build() {
  static Zet::String8 cache;
  return Zet::cached(cache, &Zet::AgentEnvVersion::build);
}
char const* zet_AgentEnvVersion_copyright() {
  static Zet::String8 cache;
  return Zet::cached(cache, &Zet::AgentEnvVersion::copyright);
}
char const* zet_AgentEnvVersion_options() { return Zet::AgentEnvVersion::options(); }
}
