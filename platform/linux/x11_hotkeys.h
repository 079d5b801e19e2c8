// Global hotkeys on X11: passive key grabs on the root window, on a
// connection of their own so that the presses never mix with the events
// the other desktop services read.
//
// Caps Lock and Num Lock change the modifier state X reports, so each
// combination is grabbed four times (with neither lock, either, both) and
// works whatever lock is on. ⌃ is Control, ⌥ Alt (Mod1), ⇧ Shift and ⌘
// Super (Mod4), the key a Linux desktop keeps for global shortcuts.
#pragma once

#include <memory>

#include <orla/models/checked.h>
#include <orla/platform/global_hotkeys.h>

namespace orla::linux_desktop {

// Fails with a sentence when DISPLAY is unset or the display cannot be opened.
Checked<std::unique_ptr<GlobalHotkeys>> openX11GlobalHotkeys();

}  // namespace orla::linux_desktop
