#include "AgentView.h"

#include "PrintableText.h"
#include "Subcommand.h"
#include "Zet/Activity.h"
#include "Zet/MountFacility.h"

namespace Zet::Tool {
namespace {

// Seconds to wait for the agent's directories.
constexpr double kReachTimeout = 5.0;

bool settled(MountStatus const& s) {
  return s.state() != MountStatus::notMounted && s.state() != MountStatus::inProgress;
}

// Says where no agent answers, and why in the mount's words (a socket
// missing, a certificate refused).
UsageError noAgent(ControlSocket const& control, MountStatus const& failed) {
  std::string why = stringValue(failed.code()).str();
  if (!failed.reason().isEmpty()) why += ": " + printable(failed.reason().view());
  return UsageError("no agent answers at " + control.where() + " (" + why + ")");
}

}  // namespace

Ptr<MountStatus> mountFromAgent(ControlSocket const& control, std::string const& path) {
  std::string name = path.substr(path.rfind('/') + 1);
  Name mountName(String8("agentenv-view-" + name));
  auto config =
      MountFacility::mountConfigDir()->mountConfigIs(mountName, EntityUri(String8(control.uri(path))), EntityUri());
  config->initTimeoutPeriodIs(kReachTimeout);
  config->targetNameIs(EntityUriPath(String8("/agentenv-view/" + name)));
  return MountFacility::mountStatusDir()->mountStatus(mountName);
}

Ptr<Entity> reachAgent(ControlSocket const& control, std::string const& path) {
  Ptr<MountStatus> mounted = mountFromAgent(control, path);
  ActivityFacility::loop().runUntil([&] { return settled(*mounted); }, 2 * kReachTimeout);
  if (mounted->state() == MountStatus::complete && mounted->mountedEntity()) return mounted->mountedEntity();
  throw noAgent(control, *mounted);
}

AgentView AgentView::ofAgent(ControlSocket const& control) {
  Ptr<MountStatus> statuses = mountFromAgent(control, "/AgentEnv/AgentEnvStatusDir");
  Ptr<MountStatus> configs = mountFromAgent(control, "/AgentEnv/AgentEnvConfigDir");
  ActivityFacility::loop().runUntil([&] { return settled(*statuses) && settled(*configs); }, 2 * kReachTimeout);
  AgentView view;
  view.statuses = ptr_cast<AgentEnvStatusDir const>(statuses->mountedEntity());
  view.configs = ptr_cast<AgentEnvConfigDir const>(configs->mountedEntity());
  view.connection = statuses;
  if (statuses->state() == MountStatus::complete && configs->state() == MountStatus::complete && view.statuses &&
      view.configs)
    return view;
  throw noAgent(control, statuses->state() != MountStatus::complete ? *statuses : *configs);
}

AgentView AgentView::ofFiles(ConfigFiles const& files, std::string const& who, Findings& findings) {
  AgentView view;
  Ptr<AgentEnvConfigDir> configs = agentEnvConfigDirFactory("AgentEnvConfigDir");
  view.parser = configFileParserFactory(configs);
  findings = readConfigFiles(*view.parser, files, who);
  view.configs = configs;
  return view;
}

AgentView AgentView::ofCleanFiles(ConfigFiles const& files, std::string const& who) {
  Findings findings;
  AgentView view = ofFiles(files, who, findings);
  if (findings.unreadableFile || findings.errors) throw UsageError("the files have errors (above); nothing to show");
  return view;
}

}  // namespace Zet::Tool
