#include "Zet/MountConfigDir.h"

#include "Zet/ConstructorParameter.h"
#include "Zet/TypeMap.h"

namespace Zet {

Ptr<MountConfigDir> mountConfigDirFactory(Name const& name, Entity* parent) {
  return Ptr<MountConfigDir>(new MountConfigDir(name, parent));
}

MountConfigDir::~MountConfigDir() { mountConfigDelAll(); }

Ptr<MountConfig> MountConfigDir::mountConfigIs(Name const& name, EntityUri const& source0,
                                               EntityUri const& source1) {
  Ptr<MountConfig> config = configs_.memberIs(
      name, [&](Name const& n) { return mountConfigFactory(n, this, source0, source1); },
      [this](Name const& n) { memberChanged(n); });
  constructorParameterCheck("_source0", config->source0(), source0);
  constructorParameterCheck("_source1", config->source1(), source1);
  return config;
}

void MountConfigDir::mountConfigDel(Name const& name) {
  configs_.memberDel(name, [this](Name const& n) { memberChanged(n); });
}

void MountConfigDir::mountConfigDelAll() {
  configs_.memberDelAll([this](Name const& n) { memberChanged(n); });
}

void MountConfigDir::memberChanged(Name const& name) {
  notify<NotifieeConst>([&name](NotifieeConst& n) { n.onMountConfig(name); }, &name);
}

namespace {

Ptr<Entity> makeFromTypeMap(Name const& name, Entity* parent) { return mountConfigDirFactory(name, parent); }

using D = MountConfigDir;
TypeDescriptor const descriptor{
    "Zet::MountConfigDir",
    makeFromTypeMap,
    {{0x102, "mountConfig", readKeys<&D::mountConfigs>, nullptr}},
    {
        {"mountConfig-inverse-dir", membersPointBack<&D::mountConfigs>},
        {"count is members count", membersCounted<&D::mountConfigs>},
    },
};
}  // namespace

ZET_DEFINE_TYPE(MountConfigDir, descriptor);

}  // namespace Zet
