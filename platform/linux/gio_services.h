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

namespace orla::linux_desktop {

std::unique_ptr<FileWorkspace> makeGioFileWorkspace();
std::unique_ptr<FileManager> makeGioFileManager();
// The daemon's desktop: its shortcut folder shown in the file manager.
std::unique_ptr<HostDesktop> makeGioHostDesktop();

// Opens an address with the desktop's default handler for its scheme.
Checked<void> openURIWithDefaultHandler(std::string_view uri);

// The installed desktop entry of the application whose windows have this
// X class (WM_CLASS: instance and class names): the entry whose
// StartupWMClass names either, else the one whose desktop-file id (without
// ".desktop") does, ignoring case.
struct DesktopEntry {
  std::string id;  // "org.example.Editor.desktop": the bundle identifier here
  std::string name;
  std::string path;
};
// Else the first shown entry whose program is `executable` (a process's
// resolved executable path).
std::optional<DesktopEntry> desktopEntryForWindowClass(std::string_view instance, std::string_view windowClass,
                                                       std::string_view executable = {});

// The installed desktop entry with this desktop-file id (".desktop" may be
// left out), else the first whose name is this, ignoring case.
std::optional<DesktopEntry> installedDesktopEntry(std::string_view idOrName);
// The desktop entry in the file at `path`; none when it is not one.
std::optional<DesktopEntry> desktopEntryAt(std::string_view path);

// What a launch knows of what it started: the process it made (which may
// be a wrapper that starts the application as its child, or hands the
// request to a copy already running and ends) and the startup-notification
// id it gave it.
struct LaunchedApplication {
  ProcessId process = 0;
  std::string startupId;
};
// Starts an application: the desktop entry at `path` (a ".desktop" file), or
// the executable file at `path` with no arguments. Fails with a sentence when
// `path` is neither or the start fails.
Checked<LaunchedApplication> launchApplication(std::string_view path);

}  // namespace orla::linux_desktop
