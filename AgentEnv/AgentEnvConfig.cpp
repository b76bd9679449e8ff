#include "AgentEnv/AgentEnvConfig.h"

#include "AgentEnv/AgentEnvConfigDir.h"
#include "Zet/TypeMap.h"

namespace Zet {

Name const& AgentEnvConfig::notReady() {
  static Name const value("_NOT READY_");
  return value;
}

AgentEnvConfig::AgentEnvConfig(Name name, AgentEnvConfigDir* dir)
    : Entity(std::move(name), dir), dependency_(notReady()) {}

AgentEnvConfigDir* AgentEnvConfig::dir() const { return static_cast<AgentEnvConfigDir*>(parent()); }

AgentEnvConfig::~AgentEnvConfig() {
  if (aggConfig_ && aggConfig_->nestedConfig(name()) == this) aggConfig_->nestedConfigDel(name());
}

Ptr<AgentEnvConfig> agentEnvConfigFactory(Name const& name, AgentEnvConfigDir* dir) {
  return Ptr<AgentEnvConfig>(new AgentEnvConfig(name, dir));
}

void AgentEnvConfig::aggConfigIs(Ptr<AgentEnvConfig> const& aggregate) {
  if (aggregate == aggConfig_) return;
  Ptr<AgentEnvConfig> previous = std::exchange(aggConfig_, aggregate);
  if (previous) previous->nestedConfigDel(name());
  if (aggregate) aggregate->nestedConfigIs(this);
  notify<NotifieeConst>([](NotifieeConst& n) { n.onAggConfig(); });
}

HashMap<AgentEnvConfig*> const& AgentEnvConfig::nestedConfigs() const {
  static HashMap<AgentEnvConfig*> const none;
  return nestedConfig_ ? *nestedConfig_ : none;
}

void AgentEnvConfig::nestedConfigIs(AgentEnvConfig* config) {
  if (!config)
    throwRangeException("null _nestedConfig parameter to mutator for Zet::AgentEnvConfig::nestedConfig not allowed\"");
  Name const& key = config->name();
  if (!nestedConfig_) nestedConfig_ = std::make_unique<HashMap<AgentEnvConfig*>>();
  AgentEnvConfig*& slot = *nestedConfig_->insert(key, nullptr).first;
  if (slot == config) return;
  slot = config;
  notify<NotifieeConst>([&key](NotifieeConst& n) { n.onNestedConfig(key); });
}

void AgentEnvConfig::nestedConfigDel(Name const& name) {
  if (!nestedConfig_ || !nestedConfig_->erase(name)) return;
  notify<NotifieeConst>([&name](NotifieeConst& n) { n.onNestedConfig(name); });
}

void AgentEnvConfig::nestedConfigDelAll() {
  if (!nestedConfig_) return;
  for (auto it = nestedConfig_->begin(); it;) nestedConfigDel(Name(it->key()));
}

void AgentEnvConfig::removedFromOwner() {
  aggConfigIs(nullptr);
  parentIs(nullptr);
}

namespace {

Ptr<Entity> makeFromTypeMap(Name const& name, Entity* parent) {
  return agentEnvConfigFactory(name, dynamic_cast<AgentEnvConfigDir*>(parent));
}

// The aggregate is written as the full name of a config of the same
// directory (as it is read); an empty text takes the config out of its
// aggregate. RangeException when the directory has no config of that name.
void writeAggConfig(Entity& e, std::string_view text) {
  auto& config = static_cast<AgentEnvConfig&>(e);
  if (text.empty()) return config.aggConfigIs(nullptr);
  Name name{String8(text.substr(text.rfind('/') + 1))};
  Ptr<AgentEnvConfig> aggregate = config.dir() ? config.dir()->agentEnvConfig(name) : nullptr;
  if (!aggregate) throwRangeException(format("no config '%s' beside '%s'", name.charPtr(), config.name().charPtr()));
  config.aggConfigIs(aggregate);
}

String8 readDir(Entity const& e) {
  auto const* dir = static_cast<AgentEnvConfig const&>(e).dir();
  return dir ? dir->fullName() : String8();
}

String8 readNotReady(Entity const&) { return AgentEnvConfig::notReady(); }

bool notOwnAggregate(Entity const& e) {
  auto const& c = static_cast<AgentEnvConfig const&>(e);
  return c.aggConfig().ptr() != &c;
}

bool nestedPointBack(Entity const& e) {
  auto const& c = static_cast<AgentEnvConfig const&>(e);
  for (auto const& m : c.nestedConfigs())
    if (m.value()->aggConfig().ptr() != &c) return false;
  return true;
}

using C = AgentEnvConfig;
TypeDescriptor const descriptor{
    "Zet::AgentEnvConfig",
    makeFromTypeMap,
    {
        {C::source0Id, "source0", readAs<&C::source0>, writeAs<&C::source0Is>},
        {C::dirId, "dir", readDir, nullptr},
        {C::source1Id, "source1", readAs<&C::source1>, writeAs<&C::source1Is>},
        {C::targetId, "target", readAs<&C::target>, writeAs<&C::targetIs>},
        {C::pathSuffixId, "pathSuffix", readAs<&C::pathSuffix>, writeAs<&C::pathSuffixIs>},
        {C::typeNameId, "typeName", readAs<&C::typeName>, writeAs<&C::typeNameIs>},
        {C::notReadyId, "notReady", readNotReady, nullptr},
        {C::dependencyId, "dependency", readAs<&C::dependency>, writeAs<&C::dependencyIs>},
        {C::timeoutPeriodId, "timeoutPeriod", readAs<&C::timeoutPeriod>, writeAs<&C::timeoutPeriodIs>},
        {C::aggConfigId, "aggConfig", readAs<&C::aggConfig>, writeAggConfig},
        {C::nestedConfigId, "nestedConfig", readKeys<&C::nestedConfigs>, nullptr},
        {C::unmountTypeId, "unmountType", readAs<&C::unmountType>, writeAs<&C::unmountTypeIs>},
        {C::configFileId, "configFile", readAs<&C::configFile>, writeAs<&C::configFileIs>},
        {C::nextRoundId, "nextRound", readAs<&C::nextRound>, writeAs<&C::nextRoundIs>},
    },
    {
        {"aggConfig!=this", notOwnAggregate},
        {"nestedConfig-inverse-aggConfig", nestedPointBack},
    },
};
}  // namespace

ZET_DEFINE_TYPE(AgentEnvConfig, descriptor);

}  // namespace Zet
