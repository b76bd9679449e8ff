#include "AgentView.h"

#include "Subcommand.h"
#include "Zet/Activity.h"
#include "Zet/MountFacility.h"

namespace Zet::Tool {
namespace {

// Seconds to wait for the agent's directories.
constexpr double kReachTimeout = 5.0;

// Mounts the agent's directory of that name at /agentenv-view/NAME.
Ptr<MountStatus> mountAgentDirectory(ControlSocket const& control, std::string const& name) {
  Name mountName(String8("agentenv-view-" + name));
  auto config = MountFacility::mountConfigDir()->mountConfigIs(
      mountName, EntityUri(String8(control.uri("/AgentEnv/" + name))), EntityUri());
  config->initTimeoutPeriodIs(kReachTimeout);
  config->targetNameIs(EntityUriPath(String8("/agentenv-view/" + name)));
  return MountFacility::mountStatusDir()->mountStatus(mountName);
}

bool settled(MountStatus const& s) { return s.state() != MountStatus::notMounted && s.state() != MountStatus::inProgress; }

}  // namespace

AgentView AgentView::ofAgent(ControlSocket const& control) {
  Ptr<MountStatus> statuses = mountAgentDirectory(control, "AgentEnvStatusDir");
  Ptr<MountStatus> configs = mountAgentDirectory(control, "AgentEnvConfigDir");
  ActivityFacility::loop().runUntil([&] { return settled(*statuses) && settled(*configs); }, 2 * kReachTimeout);
  AgentView view;
  view.statuses = ptr_cast<AgentEnvStatusDir const>(statuses->mountedEntity());
  view.configs = ptr_cast<AgentEnvConfigDir const>(configs->mountedEntity());
  if (statuses->state() == MountStatus::complete && configs->state() == MountStatus::complete && view.statuses &&
      view.configs)
    return view;
  auto const& failed = statuses->state() != MountStatus::complete ? *statuses : *configs;
  throw UsageError("no agent answers at " + control.path() + " (" + stringValue(failed.code()).str() + ")");
}

AgentView AgentView::ofFiles(ConfigFiles const& files, std::string const& who, Findings& findings) {
  AgentView view;
  Ptr<AgentEnvConfigDir> configs = agentEnvConfigDirFactory("AgentEnvConfigDir");
  view.parser = configFileParserFactory(configs);
  findings = readConfigFiles(*view.parser, files, who);
  view.configs = configs;
  return view;
}

}  // namespace Zet::Tool
