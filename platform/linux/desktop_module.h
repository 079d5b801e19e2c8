// What the program and its desktop module (orla_desktop.so) hand each
// other. The module holds every service of the Linux desktop that needs
// GIO, GTK or the accessibility bus, so that a run which uses none of them
// (checking an action, a shell command, a key chord, a paste) loads none of
// those libraries; the program loads it the first time a platform needs one
// of its services (see Platform's deferred parts), and the daemon for its
// desktop. The X11 desktop is the X11 module's (x11_module.h).
#pragma once

#include <set>
#include <string>
#include <thread>

#include <orla/platform/host_desktop.h>
#include <orla/platform/platform.h>
#include "platform/linux/application_opener.h"
#include "platform/linux/x11_accessibility.h"

namespace orla::linux_desktop {

// The module's functions. Each part adds to a platform's services what it
// offers and the capabilities that go with them; a part that cannot reach
// its desktop leaves the placeholders.
struct DesktopModuleEntries {
  // The main thread whose loop is GLib's default context, for the thread
  // `main`.
  MainThread* (*makeMainThread)(std::thread::id main);
  // The desktop's services that connect to nothing at their start (files,
  // the keyring, sound, the session, ...; not the workspace, which is the
  // X11 module's). `mainThread` is one that makeMainThread made. `connect`:
  // whether this platform may look at the desktop's settings (a checking
  // platform does not); `sessionBus`: whether the session has a bus for the
  // keyring and the mounts.
  void (*addServices)(Platform::Services& services, std::set<Capability>& capabilities, MainThread& mainThread,
                      bool connect, bool sessionBus);
  // Messages and menus (GTK, started when the first is shown), once the
  // X11 module has found a window system; GTK's X errors go to it through
  // the X11 module's `routeErrors`.
  void (*addAlerts)(Platform::Services& services, std::set<Capability>& capabilities, MainThread& mainThread,
                    X11ErrorRoute routeErrors);
  // Applications' menus and controls over the accessibility bus, when the
  // session has one, on top of the X11 module's accessibility, whose
  // elements `describe` tells.
  void (*addAccessibilityBus)(Platform::Services& services, std::set<Capability>& capabilities,
                              X11ElementDescriber describe);
  // What the X11 module's workspace leaves to GIO (application_opener.h).
  std::optional<DesktopEntry> (*installedDesktopEntry)(std::string_view idOrName);
  Checked<LaunchedApplication> (*launchApplication)(std::string_view path);
  Checked<void> (*openURI)(std::string_view uri);
  // The daemon's desktop.
  HostDesktop* (*makeHostDesktop)();
};

}  // namespace orla::linux_desktop

// The module's one entry point.
extern "C" const orla::linux_desktop::DesktopModuleEntries* orla_desktop_module_entries();
