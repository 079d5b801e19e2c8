// What the program and its X11 module (orla_x11.so) hand each other. The
// module holds the X11 desktop (keys, typing, the mouse, screens, windows,
// the clipboard, the daemon's hotkeys) and the running applications of
// /proc, and needs nothing but the X11 libraries and GLib: a key chord or a
// paste from the command line loads it alone, without GIO, the
// accessibility bus or the desktop module's other libraries
// (desktop_module.h).
#pragma once

#include <memory>
#include <set>
#include <string>

#include <orla/platform/global_hotkeys.h>
#include <orla/platform/platform.h>
#include "platform/linux/application_opener.h"
#include "platform/linux/x11_accessibility.h"

namespace orla::linux_desktop {

struct X11ModuleEntries {
  // Keys, the mouse, screens, windows (through accessibility) and the
  // running applications with their windows, when the X server answers;
  // whether it did is told by the capabilities added.
  void (*addWindowSystem)(Platform::Services& services, std::set<Capability>& capabilities,
                          std::shared_ptr<ApplicationOpener> opener);
  // The clipboard, on a connection of its own.
  void (*addClipboard)(Platform::Services& services, std::set<Capability>& capabilities);
  // The running applications of /proc, for a platform without a window
  // system.
  Workspace* (*makeWorkspace)(std::shared_ptr<ApplicationOpener> opener);
  // The daemon's hotkeys; a sentence when they cannot be had.
  GlobalHotkeys* (*openHotkeys)(std::string* problem);
  // What an element of this module's accessibility service stands for.
  X11ElementDescriber describeElement;
  // Hands the errors of one connection to a handler of its own (GTK's).
  X11ErrorRoute routeErrors;
};

}  // namespace orla::linux_desktop

// The module's one entry point.
extern "C" const orla::linux_desktop::X11ModuleEntries* orla_x11_module_entries();
