// Network volumes on Linux: GVfs mounts through GIO. A mount answers the
// server's password question with the password from the keychain (never
// saved by GVfs itself), or shows the desktop's own dialog when nothing is
// stored and the action allows it; mounted volumes are GIO's mounts of
// network schemes, shown at their folder under "$XDG_RUNTIME_DIR/gvfs"
// where gvfsd-fuse provides one.
#pragma once

#include <memory>

#include "platform/linux/glib_main_thread.h"
#include <orla/platform/network.h>

namespace orla::linux_desktop {

std::unique_ptr<NetworkVolumes> makeGioNetworkVolumes(GLibMainThread& mainThread);

// Network locations on Linux: NetworkManager's connection profiles on the
// system bus (loopback and bridge profiles left out); the current location
// is the profile of an active connection in the "activated" state.
std::unique_ptr<NetworkLocations> makeNetworkManagerLocations();

}  // namespace orla::linux_desktop
