// The desktop entries (".desktop" files) that name running applications,
// read with GLib's key-file reader alone: naming the application in front
// before a key chord must not load GIO and what it brings. Starting and
// finding installed applications by name is GIO's (application_opener.h).
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <orla/platform/workspace.h>

namespace orla::linux_desktop {

struct DesktopEntry {
  std::string id;  // "org.example.Editor.desktop": the bundle identifier here
  std::string name;
  std::string path;
};

// What a launch knows of what it started: the process it made (which may
// be a wrapper that starts the application as its child, or hands the
// request to a copy already running and ends) and the startup-notification
// id it gave it.
struct LaunchedApplication {
  ProcessId process = 0;
  std::string startupId;
};

// The installed desktop entry of the application whose windows have this
// X class (WM_CLASS: instance and class names): the entry whose
// StartupWMClass names either, else the one whose desktop-file id (without
// ".desktop") does, ignoring case, else the first shown entry whose program
// is `executable` (a process's resolved executable path).
std::optional<DesktopEntry> desktopEntryForWindowClass(std::string_view instance, std::string_view windowClass,
                                                       std::string_view executable = {});
// The same among the entries of `folders` (each an "applications" folder),
// the first taking precedence, rather than the installed ones.
std::optional<DesktopEntry> desktopEntryForWindowClass(std::string_view instance, std::string_view windowClass,
                                                       std::string_view executable,
                                                       const std::vector<std::filesystem::path>& folders);

// The desktop entry in the file at `path`, as GIO reads one (an application
// entry whose TryExec program is there); none when it is not one. Its id is
// the file's name: a file read by its path has no desktop-file id.
std::optional<DesktopEntry> desktopEntryAt(std::string_view path);

}  // namespace orla::linux_desktop
