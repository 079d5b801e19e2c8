// What the workspace leaves to GIO: finding an installed application by its
// id or name, starting one, and opening an address with the default
// handler of its scheme. The workspace lives in the X11 module
// (orla_x11.so), GIO in the desktop module (orla_desktop.so); the program
// gives the workspace an opener that loads the desktop module the first
// time one of these is asked for, so that a key chord, which only names the
// application in front, loads no GIO.
#pragma once

#include <optional>
#include <string_view>

#include <orla/models/checked.h>
#include "platform/linux/desktop_entries.h"

namespace orla::linux_desktop {

class ApplicationOpener {
 public:
  virtual ~ApplicationOpener() = default;
  // The installed desktop entry with this desktop-file id (".desktop" may
  // be left out), else the first whose name is this, ignoring case; a
  // sentence when the entries cannot be looked up at all.
  virtual Checked<std::optional<DesktopEntry>> installedDesktopEntry(std::string_view idOrName) = 0;
  // Starts the desktop entry at `path` (a ".desktop" file) or the executable
  // file at `path`; a sentence when it is neither or cannot start.
  virtual Checked<LaunchedApplication> launchApplication(std::string_view path) = 0;
  virtual Checked<void> openURI(std::string_view uri) = 0;
};

}  // namespace orla::linux_desktop
