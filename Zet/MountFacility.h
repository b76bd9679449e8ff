#pragma once
// The mount facility: where a process asks for entities of other processes
// to be mounted into its tree, and reads how each mount stands.
//
// Both directories are made on first use and live as long as the process;
// they also appear in the global directory as /MountFacility/MountConfigDir
// and /MountFacility/MountStatusDir. The facility keeps one MountStatus per
// MountConfig, of the same name: adding a config adds its status at once
// (state notMounted) and removing the config removes the status. The
// facility's MountMachinery, made with the directories, carries out each
// config on the process's activity loop (see Mount for the states and codes
// it reports). Call from the thread that owns the global directory.

#include "Zet/MountConfigDir.h"
#include "Zet/MountStatusDir.h"

namespace Zet {
namespace MountFacility {

Ptr<MountConfigDir> mountConfigDir();
Ptr<MountStatusDir> mountStatusDir();

// Whether the machinery carries out the configs (on by default). Switched
// off, it ends every mount it runs (leaving mirrors as their unmount type
// says) and leaves the records to whoever writes them: tests and tools that
// play the facility's part. Switched on, it takes up the configs there are.
void machineryActiveIs(bool active);

}  // namespace MountFacility
}  // namespace Zet
