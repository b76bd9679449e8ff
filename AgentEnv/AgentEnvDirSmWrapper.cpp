#include "AgentEnv/AgentEnvDirSmWrapper.h"

#include "Zet/TypeMap.h"

namespace Zet {

Ptr<Entity> makeAgentEnvDirSmWrapper(Name const& name, Entity* parent) {
  return Ptr<Entity>(new AgentEnvDirSmWrapper(name, parent));
}

Ptr<AgentEnvDirSmWrapper> agentEnvDirSmWrapperFactory(Name const& name) {
  return Ptr<AgentEnvDirSmWrapper>(new AgentEnvDirSmWrapper(name, nullptr));
}

Ptr<AgentEnvDirSm> AgentEnvDirSmWrapper::adsmIs(Ptr<AgentEnvConfigDir const> const& configDir,
                                                Ptr<AgentEnvStatusDir> const& statusDir) {
  if (adsm_ && adsm_->agentEnvConfigDir() == configDir && adsm_->agentEnvStatusDir() == statusDir) return adsm_;
  Ptr<AgentEnvDirSm> previous = std::exchange(adsm_, newAdsm(configDir, statusDir));
  notify<NotifieeConst>([](NotifieeConst& n) { n.onAdsm(); });
  if (!adsm_) throwRangeException("null ValidPtr");
  return adsm_;
}

Ptr<AgentEnvDirSm> AgentEnvDirSmWrapper::adsmDel() {
  Ptr<AgentEnvDirSm> removed = std::exchange(adsm_, nullptr);
  if (removed) notify<NotifieeConst>([](NotifieeConst& n) { n.onAdsm(); });
  return removed;
}

Ptr<AgentEnvDirSm> AgentEnvDirSmWrapper::newAdsm(Ptr<AgentEnvConfigDir const> const& configDir,
                                                 Ptr<AgentEnvStatusDir> const& statusDir) {
  return agentEnvDirSmFactory(configDir, statusDir);
}

String8 AgentEnvDirSmWrapper::attributeString(AttributeId id) const { return id == 0x102 ? "adsm" : "unknown"; }

namespace {

String8 readAdsm(Entity const& e) { return static_cast<AgentEnvDirSmWrapper const&>(e).adsm() ? "AgentEnvDirSm" : ""; }

TypeDescriptor const descriptor{
    "Zet::AgentEnvDirSmWrapper",
    makeAgentEnvDirSmWrapper,
    {{0x102, "adsm", readAdsm, nullptr}},
    {},
};
}  // namespace

ZET_DEFINE_TYPE(AgentEnvDirSmWrapper, descriptor);

}  // namespace Zet
