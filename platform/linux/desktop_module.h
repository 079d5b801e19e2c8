// What the program and its desktop module (orla_desktop.so) hand each
// other. The module holds every service of the Linux desktop that needs
// GIO, the X11 libraries or the accessibility bus, so that a run which uses
// none of them (checking an action, a shell command, the list of kinds
// without a display) loads none of those libraries; the program loads it
// the first time a platform needs one of its services (see Platform's
// deferred parts), and the daemon for its hotkeys.
#pragma once

#include <set>
#include <string>
#include <thread>

#include <orla/platform/global_hotkeys.h>
#include <orla/platform/host_desktop.h>
#include <orla/platform/platform.h>

namespace orla::linux_desktop {

// The module's functions. Each part adds to a platform's services what it
// offers and the capabilities that go with them; a part that cannot reach
// its desktop leaves the placeholders.
struct DesktopModuleEntries {
  // The main thread whose loop is GLib's default context, for the thread
  // `main`.
  MainThread* (*makeMainThread)(std::thread::id main);
  // The desktop's services that connect to nothing at their start (files,
  // the keyring, sound, the session, ...). `mainThread` is one that
  // makeMainThread made. `connect`: whether this platform may look at the
  // desktop's settings (a checking platform does not); `sessionBus`: whether
  // the session has a bus for the keyring and the mounts.
  void (*addServices)(Platform::Services& services, std::set<Capability>& capabilities, MainThread& mainThread,
                      bool connect, bool sessionBus);
  // The X11 desktop: keys, the mouse, screens, windows, messages and
  // menus, when the window system answers.
  void (*addWindowSystem)(Platform::Services& services, std::set<Capability>& capabilities,
                          MainThread& mainThread);
  // The clipboard, on a connection of its own; after addWindowSystem.
  void (*addClipboard)(Platform::Services& services, std::set<Capability>& capabilities);
  // Applications' menus and controls over the accessibility bus, when the
  // session has one; after addWindowSystem.
  void (*addAccessibilityBus)(Platform::Services& services, std::set<Capability>& capabilities);
  // The daemon's hotkeys and its desktop; a sentence when they cannot be had.
  GlobalHotkeys* (*openHotkeys)(std::string* problem);
  HostDesktop* (*makeHostDesktop)();
};

}  // namespace orla::linux_desktop

// The module's one entry point.
extern "C" const orla::linux_desktop::DesktopModuleEntries* orla_desktop_module_entries();
