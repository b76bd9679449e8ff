#include "Zet/MountFacility.h"

#include "Zet/Dir.h"
#include "Zet/mount/MountMachinery.h"

namespace Zet {
namespace MountFacility {
namespace {

// Gives each mount config its status and takes the status away with it.
class StatusKeeper : public MountConfigDir::NotifieeConst {
 public:
  explicit StatusKeeper(Ptr<MountStatusDir> statuses) : statuses_(std::move(statuses)) {}
  void onMountConfig(Name const& name) override {
    if (notifier()->mountConfig(name))
      statuses_->mountStatusIs(name);
    else
      statuses_->mountStatusDel(name);
  }

 private:
  Ptr<MountStatusDir> statuses_;
};

struct Facility {
  Facility() {
    Ptr<Dir> home = globalDir()->dirIs("MountFacility");
    home->entryIs("MountConfigDir", configs);
    home->entryIs("MountStatusDir", statuses);
    keeper.notifierIs(configs);
  }
  Ptr<MountConfigDir> configs = mountConfigDirFactory("MountConfigDir");
  Ptr<MountStatusDir> statuses = mountStatusDirFactory("MountStatusDir");
  StatusKeeper keeper{statuses};
  // Registered after the keeper, so a new config's status is there when
  // its mount starts.
  MountMachinery machinery{configs, statuses};
};

// Made once and never destroyed: entities anywhere may refer to it until
// the process ends.
Facility& facility() {
  static Facility* f = new Facility;
  return *f;
}

}  // namespace

Ptr<MountConfigDir> mountConfigDir() { return facility().configs; }
Ptr<MountStatusDir> mountStatusDir() { return facility().statuses; }

void machineryActiveIs(bool active) { facility().machinery.activeIs(active); }

}  // namespace MountFacility
}  // namespace Zet
