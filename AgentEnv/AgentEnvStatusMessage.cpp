// The human-readable reason of a status, as the monitor prints it.

#include <sstream>

#include "AgentEnv/AgentEnvRoot.h"
#include "Zet/TypeMap.h"

namespace Zet {
namespace AgentEnv {

String8 statusMessage(Ptr<AgentEnvStatus const> const& status, Ptr<AgentEnvConfig const> const& config) {
  if (!status) return String8();
  String8 dependency = config ? String8(config->dependency()) : String8();
  String8 target = config ? config->target().text() : String8();
  String8 typeName = config ? config->typeName() : String8();
  std::ostringstream text;
  switch (AgentEnvStatus::StatusCode code = status->statusCode()) {
    case AgentEnvStatus::mountEntityNotFound: text << "entity not found on server: " << status->currentSource(); break;
    case AgentEnvStatus::mountException: text << "mount exception"; break;
    case AgentEnvStatus::mountProtocolVersionMismatch: text << "protocol version mismatch"; break;
    case AgentEnvStatus::mountPermissionDenied: text << "mount permission denied"; break;
    case AgentEnvStatus::dependencyNotFound: text << "dependency '" << dependency << "' not found"; break;
    case AgentEnvStatus::targetPathNotAbsolute: text << "target is not absolute: '" << target; break;
    case AgentEnvStatus::instantiationError:
      text << "directory instantiation is not enabled for type '" << typeName << "'";
      break;
    case AgentEnvStatus::badPath: text << "invalid target path: '" << target; break;
    case AgentEnvStatus::entityShadowsPath: text << "an entity already exists at this path: '" << target; break;
    case AgentEnvStatus::grandparent: text << "tried to create a grandparent"; break;
    case AgentEnvStatus::sourceNameMismatch:
      text << "last component of 'source0' does not match the last component of 'source1'";
      break;
    case AgentEnvStatus::flagsMismatch: text << "flags for 'source0' do not match the flags for 'source1'"; break;
    case AgentEnvStatus::overrideSource: text << "tried to override 'source0' in nested config"; break;
    case AgentEnvStatus::overrideTarget: text << "tried to override 'target' in nested config"; break;
    case AgentEnvStatus::invalidUri: text << "invalid source URI"; break;
    case AgentEnvStatus::libraryLoadError:
      text << "library for type '" << typeName << "' failed to load: \n"
           << TypeMap::instance().loadReport(typeName.view());
      break;
    case AgentEnvStatus::noMapFileEntry: text << "library containing type '" << typeName << "' was not found"; break;
    case AgentEnvStatus::noTypeNode:
      text << "no type node for type '" << typeName << "'\npossible reasons for this include:\n"
           << "\t1. Typo in type name\n\t2. Missing map file\n\t3. LD_LIBRARY_PATH set incorrectly";
      break;
    case AgentEnvStatus::circularDependency: text << "circular dependency with '" << dependency << "'"; break;
    case AgentEnvStatus::circularDependencyWithAggConfig: text << "circular dependency with aggConfig"; break;
    default: text << code; break;  // none, mountGroupCode, disconnected, timedOut, switchedModes, unknown numbers
  }
  return String8(text.str());
}

}  // namespace AgentEnv
}  // namespace Zet
