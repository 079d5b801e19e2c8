// Keys, typed text and the mouse on X11, posted through the XTest extension
// as a physical keyboard and mouse would produce them.
//
// Keys: the macOS virtual key codes the plugins use map to X keysyms through
// one table (a US keyboard); each keysym's keycode is looked up in the
// server's current keyboard map, so another layout types the same keys.
// Modifier flags become X modifier keys: ⌘ Command → Control (so ⌘C, ⌘V
// and ⌘X copy, paste and cut in Linux applications), or → Super when
// ORLA_COMMAND_KEY=super; ⌃ Control → Control; ⌥ Option → Alt; ⇧ Shift →
// Shift; Caps Lock → Caps Lock; Function has no X key and is left out.
//
// Text: an event carrying a Unicode string types that string whatever the
// layout. A character missing from the keyboard map goes on a spare keycode
// (one with no keysym), remapped for the purpose and restored when the
// service goes away.
#pragma once

#include <memory>
#include <optional>

#include <orla/platform/events.h>
#include "platform/linux/x11_connection.h"

namespace orla::linux_desktop {

// The keysym of a macOS virtual key code on a US keyboard; none for a code
// no key produces. Modifier keys give their left or right keysym before the
// Command mapping is applied (Command gives Control_L or Super_L).
std::optional<unsigned long> keysymForKeyCode(KeyCode keyCode, bool commandIsSuper = false);

std::unique_ptr<KeyboardEvents> makeX11KeyboardEvents(std::shared_ptr<X11Connection> connection);
std::unique_ptr<MouseEvents> makeX11MouseEvents(std::shared_ptr<X11Connection> connection);

}  // namespace orla::linux_desktop
