// The accessibility side of an X11 desktop. Posting keys, typing and reading
// the clipboard need no permission on X11 beyond a connection to the server,
// so the trust check answers whether the server and the extensions the
// services use are reachable. Other applications' interface elements (menus,
// buttons, scroll bars) are not offered by the X server: element calls are
// refused, and the `accessibility` capability stays off.
#pragma once

#include <memory>

#include "platform/accessibility.h"
#include "platform/linux/x11_connection.h"

namespace orla::linux_desktop {

std::unique_ptr<Accessibility> makeX11Accessibility(std::shared_ptr<X11Connection> connection);

}  // namespace orla::linux_desktop
