#include "Zet/MountConfigDir.h"

#include "Zet/ConstructorParameter.h"
#include "Zet/TypeMap.h"

namespace Zet {

Ptr<MountConfigDir> mountConfigDirFactory(Name const& name, Entity* parent) {
  return Ptr<MountConfigDir>(new MountConfigDir(name, parent));
}

MountConfigDir::~MountConfigDir() { mountConfigDelAll(); }

Ptr<MountConfig> MountConfigDir::mountConfigIs(Name const& name, EntityUri const& source0, EntityUri const& source1) {
  Ptr<MountConfig> config =
      memberIs(name, [&](Name const& n) { return mountConfigFactory(n, this, source0, source1); });
  constructorParameterCheck("_source0", config->source0(), source0);
  constructorParameterCheck("_source1", config->source1(), source1);
  return config;
}

void MountConfigDir::memberChanged(Name const& name) {
  notify<NotifieeConst>([&name](NotifieeConst& n) { n.onMountConfig(name); }, &name);
}

namespace {

Ptr<Entity> makeFromTypeMap(Name const& name, Entity* parent) { return mountConfigDirFactory(name, parent); }

using D = MountConfigDir;
TypeDescriptor const descriptor = memberDirDescriptor<&D::mountConfigs>("Zet::MountConfigDir", makeFromTypeMap,
                                                                        "mountConfig", "mountConfig-inverse-dir");
}  // namespace

ZET_DEFINE_TYPE(MountConfigDir, descriptor);

}  // namespace Zet
