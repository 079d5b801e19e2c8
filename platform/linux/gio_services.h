// The documents side of the Linux desktop through GIO: the desktop's MIME
// associations and desktop entries for opening, the freedesktop Trash, the
// freedesktop recently-used list, and the file manager over D-Bus.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <orla/platform/file_manager.h>
#include <orla/platform/file_workspace.h>
#include <orla/platform/host_desktop.h>
#include <orla/platform/workspace.h>
#include "platform/linux/desktop_entries.h"

namespace orla::linux_desktop {

std::unique_ptr<FileWorkspace> makeGioFileWorkspace();
std::unique_ptr<FileManager> makeGioFileManager();
// The daemon's desktop: its shortcut folder shown in the file manager.
std::unique_ptr<HostDesktop> makeGioHostDesktop();

// Opens an address with the desktop's default handler for its scheme.
Checked<void> openURIWithDefaultHandler(std::string_view uri);

// The installed desktop entry with this desktop-file id (".desktop" may be
// left out), else the first whose name is this, ignoring case.
std::optional<DesktopEntry> installedDesktopEntry(std::string_view idOrName);
// Starts an application: the desktop entry at `path` (a ".desktop" file), or
// the executable file at `path` with no arguments. Fails with a sentence when
// `path` is neither or the start fails.
Checked<LaunchedApplication> launchApplication(std::string_view path);

}  // namespace orla::linux_desktop
