#include "Zet/MountConfigDir.h"

#include "Zet/Format.h"
#include "Zet/TypeMap.h"

namespace Zet {
namespace {

void checkSameParameter(char const* attribute, EntityUri const& held, EntityUri const& asked) {
  if (held == asked) return;
  throwRangeException(format(
      "Reinstantiating the pointer interface where constructor parameter attribute %s has a different value of "
      "\"%s\" and \"%s\"",
      attribute, held.text().charPtr(), asked.text().charPtr()));
}

}  // namespace

Ptr<MountConfigDir> mountConfigDirFactory(Name const& name, Entity* parent) {
  return Ptr<MountConfigDir>(new MountConfigDir(name, parent));
}

MountConfigDir::~MountConfigDir() { mountConfigDelAll(); }

Ptr<MountConfig> MountConfigDir::mountConfigIs(Name const& name, EntityUri const& source0,
                                               EntityUri const& source1) {
  bool created = false;
  Ptr<MountConfig> config = configs_.memberIs(
      name, [&](Name const& n) { return mountConfigFactory(n, this, source0, source1); }, created);
  if (created) {
    notify<NotifieeConst>([&name](NotifieeConst& n) { n.onMountConfig(name); });
  } else {
    checkSameParameter("_source0", config->source0(), source0);
    checkSameParameter("_source1", config->source1(), source1);
  }
  return config;
}

void MountConfigDir::mountConfigDel(Name const& name) {
  Ptr<MountConfig> config = configs_.memberDel(name);
  if (!config) return;
  notify<NotifieeConst>([&name](NotifieeConst& n) { n.onMountConfig(name); });
  config->removedFromDir();
}

void MountConfigDir::mountConfigDelAll() {
  while (configs_.size() > 0) mountConfigDel(Name(configs_.members().begin()->key()));
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
ZET_REGISTER_TYPE(descriptor);

}  // namespace

TypeDescriptor const& MountConfigDir::type() { return descriptor; }
TypeDescriptor const& MountConfigDir::fwkType() const { return descriptor; }

}  // namespace Zet
