// The workspace (running applications, activation, opening) of the Linux
// desktop: the processes of /proc, and on an X11 desktop (`x11` given)
// their windows and the desktop entries they were started from. Starting
// applications and opening addresses go to `opener`.
#pragma once

#include <memory>

#include <orla/platform/workspace.h>
#include "platform/linux/application_opener.h"
#include "platform/linux/x11_connection.h"

namespace orla::linux_desktop {

std::unique_ptr<Workspace> makeProcWorkspace(std::shared_ptr<ApplicationOpener> opener,
                                             std::shared_ptr<X11Connection> x11 = nullptr);

}  // namespace orla::linux_desktop
