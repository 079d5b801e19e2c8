// The session on Linux: the login manager (org.freedesktop.login1 on the
// system bus) for restart, shut down, sleep and log out; the desktop's
// screen saver service on the session bus, else xdg-screensaver; GIO for
// ejecting removable disks and emptying the Trash.
#pragma once

#include <memory>

#include <orla/platform/session_control.h>

namespace orla::linux_desktop {

std::unique_ptr<SessionControl> makeLinuxSessionControl();

}  // namespace orla::linux_desktop
