// The GTK side of the Linux desktop: message dialogs and pop-up menus. It is
// built as a module of its own (orla_gtk.so) that the platform loads the
// first time a message or a menu is shown, so that a run that shows neither
// does not load GTK at all. Everything here runs on the main thread.
#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>

#include <orla/models/checked.h>
#include <orla/platform/alerts.h>
#include <orla/platform/popup_menus.h>

namespace orla::linux_desktop {

// The main thread's loop, as the module sees it (a virtual call, so that
// the module needs no symbol of the program that loads it).
class MainLoop {
 public:
  virtual ~MainLoop() = default;
  // Runs GLib's default main context until `done` answers true.
  virtual void runUntil(const std::function<bool()>& done) = 0;
};

class GtkUi {
 public:
  virtual ~GtkUi() = default;
  // A modal message dialog; answers the modal response of the button
  // pressed (`alertFirstButtonReturn` or `alertSecondButtonReturn`).
  virtual Checked<int> runAlert(const Alert& alert, MainLoop& loop) = 0;
  // A menu at the pointer; answers the path of the chosen item, or none
  // when it was dismissed. Without `nested`, submenus are left out.
  virtual Checked<std::optional<MenuItemPath>> popUpMenu(std::span<const MenuItem> items, bool nested,
                                                         MainLoop& loop) = 0;
  // A new GtkMountOperation (as a GMountOperation*, owned by the caller):
  // the desktop's own password and question dialogs for a mount, shown
  // while the caller runs the default main context.
  virtual void* newMountOperation() = 0;
};

}  // namespace orla::linux_desktop

// The module's one entry point: starts GTK on the display of the process
// and answers the interface, or null with the reason in `why` when GTK
// cannot start (no display). Call once, on the main thread. GTK takes
// Xlib's one error handler for itself as it starts, and its handler
// swallows the errors of every other connection; with `routeErrors` (the
// X11 module's routeX11Errors: a Display* and an XErrorHandler, untyped)
// the process's handler is put back and GTK's gets the errors of GTK's
// connection only.
extern "C" orla::linux_desktop::GtkUi* orla_gtk_ui_open(std::string* why,
                                                        void (*routeErrors)(void* display, void* handler));
using OrlaGtkUiOpen = orla::linux_desktop::GtkUi* (*)(std::string*, void (*)(void*, void*));
