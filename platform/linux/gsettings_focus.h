// Focus on GNOME: do not disturb is the "show-banners" key of the
// "org.gnome.desktop.notifications" settings (false while do not disturb is
// on), read and written through GSettings, so that the desktop's own
// notification switch and this one are the same. It is the only mode there.
#pragma once

#include <memory>

#include <orla/platform/focus_modes.h>

namespace orla::linux_desktop {

// Whether the installed settings schemas have the key (gsettings-desktop-
// schemas installs it with GNOME and on most other desktops).
bool hasDoNotDisturbSetting();

std::unique_ptr<FocusModes> makeGSettingsFocusModes();

}  // namespace orla::linux_desktop
