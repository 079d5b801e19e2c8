// The settings application of the Linux desktop: GNOME's control center or
// KDE's system settings, started with the pane as its one argument.
#pragma once

#include <memory>

#include <orla/platform/settings_panes.h>

namespace orla::linux_desktop {

std::unique_ptr<SettingsPanes> makeDesktopSettingsPanes();

}  // namespace orla::linux_desktop
