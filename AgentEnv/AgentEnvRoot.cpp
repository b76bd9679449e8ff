#include "AgentEnv/AgentEnvRoot.h"

#include "AgentEnv/AgentEnvDirSmWrapper.h"

namespace Zet {
namespace AgentEnv {

Ptr<Dir> dir() {
  Ptr<Dir> root = globalDir();
  Ptr<Dir> env = ptr_cast<Dir>(root->entityRef(Name("AgentEnv")));
  if (!env) env = root->dirIs("AgentEnv");
  if (env->entry("AgentEnvConfigDir")) return env;
  env->entityIs("AgentEnvConfigDir", "Zet::AgentEnvConfigDir");
  env->entityIs("AgentEnvStatusDir", "Zet::AgentEnvStatusDir");
  Ptr<AgentEnvConfigDir> configDir = entityCast<AgentEnvConfigDir>(env->entityRef(Name("AgentEnvConfigDir")));
  Ptr<AgentEnvStatusDir> statusDir = entityCast<AgentEnvStatusDir>(env->entityRef(Name("AgentEnvStatusDir")));
  env->entityIs("AgentEnvDirSm", "Zet::AgentEnvDirSmWrapper");
  entityCast<AgentEnvDirSmWrapper>(env->entityRef(Name("AgentEnvDirSm")))->adsmIs(configDir, statusDir);
  return env;
}

Ptr<AgentEnvConfigDir> agentEnvConfigDir() {
  return ptr_cast<AgentEnvConfigDir>(dir()->entityRef(Name("AgentEnvConfigDir")));
}

Ptr<AgentEnvStatusDir> agentEnvStatusDir() {
  return ptr_cast<AgentEnvStatusDir>(dir()->entityRef(Name("AgentEnvStatusDir")));
}

}  // namespace AgentEnv
}  // namespace Zet
