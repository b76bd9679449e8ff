#include "Zet/MountConfig.h"

#include "Zet/TypeMap.h"

namespace Zet {

MountConfig::MountConfig(Name name, Entity* parent, EntityUri source0, EntityUri source1)
    : Entity(std::move(name), parent), source0_(std::move(source0)), source1_(std::move(source1)) {}

Ptr<MountConfig> mountConfigFactory(Name const& name, Entity* parent, EntityUri const& source0,
                                    EntityUri const& source1) {
  return Ptr<MountConfig>(new MountConfig(name, parent, source0, source1));
}

namespace {

Ptr<Entity> makeFromTypeMap(Name const& name, Entity* parent) {
  return mountConfigFactory(name, parent, EntityUri(), EntityUri());
}

using C = MountConfig;
TypeDescriptor const descriptor{
    "Zet::MountConfig",
    makeFromTypeMap,
    {
        {0x102, "source0", readAs<&C::source0>, nullptr},
        {0x103, "source1", readAs<&C::source1>, nullptr},
        {0x104, "sourcePre0", readAs<&C::sourcePre0>, writeAs<&C::sourcePre0Is>},
        {0x105, "sourcePre1", readAs<&C::sourcePre1>, writeAs<&C::sourcePre1Is>},
        {0x106, "sourceName", readAs<&C::sourceName>, writeAs<&C::sourceNameIs>},
        {0x107, "targetName", readAs<&C::targetName>, writeAs<&C::targetNameIs>},
        {0x108, "nextRound", readAs<&C::nextRound>, writeAs<&C::nextRoundIs>},
        {0x109, "initTimeoutPeriod", readAs<&C::initTimeoutPeriod>, writeAs<&C::initTimeoutPeriodIs>},
        {0x10a, "unmountType", readAs<&C::unmountType>, writeAs<&C::unmountTypeIs>},
        {0x10b, "aggMount", readAs<&C::aggMount>, writeAs<&C::aggMountIs>},
    },
    {},
};
}  // namespace

ZET_DEFINE_TYPE(MountConfig, descriptor);

}  // namespace Zet
