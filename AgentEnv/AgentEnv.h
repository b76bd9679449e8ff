#pragma once
// Everything the agent environment library offers.

#include "AgentEnv/AgentEnvConfig.h"
#include "AgentEnv/AgentEnvConfigDir.h"
#include "AgentEnv/AgentEnvDirSm.h"
#include "AgentEnv/AgentEnvConsistency.h"
#include "AgentEnv/AgentEnvDirSmWrapper.h"
#include "AgentEnv/AgentEnvMonitorDirSm.h"
#include "AgentEnv/AgentEnvMonitorSm.h"
#include "AgentEnv/AgentEnvRoot.h"
#include "AgentEnv/AgentEnvSm.h"
#include "AgentEnv/AgentEnvStatus.h"
#include "AgentEnv/AgentEnvStatusDir.h"
#include "AgentEnv/AgentEnvVersion.h"
#include "AgentEnv/ConfigFileParser.h"
#include "Zet/Zet.h"
