#include "Zet/MountStatus.h"

#include "Zet/TypeMap.h"

namespace Zet {

Ptr<MountStatus> mountStatusFactory(Name const& name, Entity* parent) {
  return Ptr<MountStatus>(new MountStatus(name, parent));
}

namespace {

Ptr<Entity> makeFromTypeMap(Name const& name, Entity* parent) { return mountStatusFactory(name, parent); }

using S = MountStatus;
TypeDescriptor const descriptor{
    "Zet::MountStatus",
    makeFromTypeMap,
    {
        {0x102, "state", readAs<&S::state>, writeAs<&S::stateIs>},
        {0x103, "code", readAs<&S::code>, writeAs<&S::codeIs>},
        {0x104, "round", readAs<&S::round>, writeAs<&S::roundIs>},
        {0x105, "currentSource", readAs<&S::currentSource>, writeAs<&S::currentSourceIs>},
        {0x106, "mountedEntity", readAs<&S::mountedEntity>, nullptr},
        {0x107, "reason", readAs<&S::reason>, writeAs<&S::reasonIs>},
    },
    {},
};
}  // namespace

ZET_DEFINE_TYPE(MountStatus, descriptor);

}  // namespace Zet
