#include "Zet/MountStatusDir.h"

#include "Zet/TypeMap.h"

namespace Zet {

Ptr<MountStatusDir> mountStatusDirFactory(Name const& name, Entity* parent) {
  return Ptr<MountStatusDir>(new MountStatusDir(name, parent));
}

MountStatusDir::~MountStatusDir() { mountStatusDelAll(); }

Ptr<MountStatus> MountStatusDir::mountStatusIs(Name const& name) {
  bool created = false;
  Ptr<MountStatus> status =
      statuses_.memberIs(name, [this](Name const& n) { return mountStatusFactory(n, this); }, created);
  if (created) notify<NotifieeConst>([&name](NotifieeConst& n) { n.onMountStatus(name); });
  return status;
}

void MountStatusDir::mountStatusDel(Name const& name) {
  Ptr<MountStatus> status = statuses_.memberDel(name);
  if (!status) return;
  notify<NotifieeConst>([&name](NotifieeConst& n) { n.onMountStatus(name); });
  status->removedFromDir();
}

void MountStatusDir::mountStatusDelAll() {
  while (statuses_.size() > 0) mountStatusDel(Name(statuses_.members().begin()->key()));
}

namespace {

Ptr<Entity> makeFromTypeMap(Name const& name, Entity* parent) { return mountStatusDirFactory(name, parent); }

using D = MountStatusDir;
TypeDescriptor const descriptor{
    "Zet::MountStatusDir",
    makeFromTypeMap,
    {{0x102, "mountStatus", readKeys<&D::mountStatuses>, nullptr}},
    {
        {"mountStatus-inverse-dir", membersPointBack<&D::mountStatuses>},
        {"count is members count", membersCounted<&D::mountStatuses>},
    },
};
ZET_REGISTER_TYPE(descriptor);

}  // namespace

TypeDescriptor const& MountStatusDir::type() { return descriptor; }
TypeDescriptor const& MountStatusDir::fwkType() const { return descriptor; }

}  // namespace Zet
