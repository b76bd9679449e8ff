#include "Zet/MountStatusDir.h"

#include "Zet/TypeMap.h"

namespace Zet {

Ptr<MountStatusDir> mountStatusDirFactory(Name const& name, Entity* parent) {
  return Ptr<MountStatusDir>(new MountStatusDir(name, parent));
}

MountStatusDir::~MountStatusDir() { mountStatusDelAll(); }

Ptr<MountStatus> MountStatusDir::mountStatusIs(Name const& name) {
  return memberIs(name, [this](Name const& n) { return mountStatusFactory(n, this); });
}

void MountStatusDir::memberChanged(Name const& name) {
  notify<NotifieeConst>([&name](NotifieeConst& n) { n.onMountStatus(name); }, &name);
}

namespace {

Ptr<Entity> makeFromTypeMap(Name const& name, Entity* parent) { return mountStatusDirFactory(name, parent); }

using D = MountStatusDir;
TypeDescriptor const descriptor = memberDirDescriptor<&D::mountStatuses>("Zet::MountStatusDir", makeFromTypeMap,
                                                                         "mountStatus", "mountStatus-inverse-dir");
}  // namespace

ZET_DEFINE_TYPE(MountStatusDir, descriptor);

}  // namespace Zet
