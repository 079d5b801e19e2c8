// Messages and pop-up menus on Linux: GTK, loaded the first time one is
// shown (see gtk/gtk_ui.h). Where GTK cannot start (no display, the module
// missing) they answer their "not available" sentences.
#pragma once

#include <gio/gio.h>

#include <memory>

#include <orla/platform/alerts.h>
#include "platform/linux/glib_main_thread.h"
#include "platform/linux/x11_connection.h"
#include <orla/platform/popup_menus.h>

namespace orla::linux_desktop {

std::unique_ptr<Alerts> makeGtkAlerts(GLibMainThread& mainThread);
// How GTK's X errors reach its own handler once it starts (see
// routeX11Errors): set before the first message or menu.
void routeGtkErrors(X11ErrorRoute routeErrors);
std::unique_ptr<PopupMenus> makeGtkPopupMenus(GLibMainThread& mainThread);

// Whether GTK has been loaded into this process (for the memory figures and
// the tests that check it is loaded only when needed).
bool gtkLoaded();

// The desktop's own mount dialogs (a GtkMountOperation, owned by the
// caller), or null where GTK cannot start. Main thread only: the dialogs
// are served by the default main context.
GMountOperation* newGtkMountOperation();

}  // namespace orla::linux_desktop
