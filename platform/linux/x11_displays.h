// The screens of an X display through XRandR monitors, with the work area
// the window manager publishes (EWMH `_NET_WORKAREA`) as their visible frames.
#pragma once

#include <memory>

#include <orla/platform/displays.h>
#include "platform/linux/x11_connection.h"

namespace orla::linux_desktop {

std::unique_ptr<Displays> makeX11Displays(std::shared_ptr<X11Connection> connection);

}  // namespace orla::linux_desktop
