// The accessibility interface of a Linux desktop: windows through the window
// manager (the X11 service underneath), and what an application draws
// itself (its menu bar, toolbars, buttons, fields, scroll bars) through the
// accessibility bus (AT-SPI), presented under the names the plugins use.
//
// - An application is matched to its AT-SPI application by process; an
//   X11 window to the application's AT-SPI window of the same title (the
//   only one, else the active one, when no title matches). A window's
//   children are its title-bar buttons followed by its AT-SPI children.
// - A menu bar's menus are "AXMenuBarItem"s, a submenu's owner an
//   "AXMenuItem"; each has one child, the "AXMenu" holding the items, as
//   the plugins walk menus. Pressing a menu opens it; cancelling closes it.
// - Values: text of fields and labels, 1/0 (2 mixed) of check boxes and
//   check menu items, 0 to 1 along a scroll bar.
// - Elements are the same when they have the same bus name and path.
#pragma once

#include <cstdint>
#include <memory>

#include <orla/platform/accessibility.h>
#include "platform/linux/x11_accessibility.h"

namespace orla::linux_desktop {

class AtspiBus;

// `describe` tells what an element of `windows` stands for.
std::unique_ptr<Accessibility> makeAtspiAccessibility(std::unique_ptr<Accessibility> windows,
                                                      X11ElementDescriber describe, std::shared_ptr<AtspiBus> bus);

// The bus calls an accessibility service made here has made so far; 0 for
// another service (the benchmarks count them).
std::uint64_t atspiRoundTrips(const Accessibility& accessibility);

}  // namespace orla::linux_desktop
