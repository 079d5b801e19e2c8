// Which desktop entry a running process belongs to, told first by what
// launching it knows and only then by its windows' class: a window's class
// often names neither the entry's file nor anything in it (an entry whose
// command runs a script that starts the program, a program that names its
// windows as it likes).
//
// Thread safety: every method may be called from any thread.
#pragma once

#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/desktop_entries.h"
#include "platform/linux/x11_windows.h"

namespace orla::linux_desktop {

class LaunchedApplications {
 public:
  // Notes a launch of the entry this host made.
  void record(DesktopEntry entry, LaunchedApplication launched);

  // The entry of process `pid`, given every managed window (to tell a
  // wrapper, which has none, from an application that started another).
  // In this order: a launch of this host made the process, or made a
  // wrapper above it; the launch GIO noted in the process's environment
  // (GIO_LAUNCHED_DESKTOP_FILE, for the process that GIO_LAUNCHED_DESKTOP_FILE_PID
  // names or one a wrapper of it started); a window that carries the
  // startup-notification id of a launch of this host. None when none of
  // these tells, and the window's class has to.
  std::optional<DesktopEntry> entryOf(ProcessId pid, const std::vector<ManagedWindow>& windows) const;

 private:
  struct Launch {
    DesktopEntry entry;
    LaunchedApplication launched;
  };
  mutable std::mutex mutex_;
  std::deque<Launch> launches_;  // newest first, a few
};

// The parent of a process (from /proc), none when it has ended.
std::optional<ProcessId> parentProcess(ProcessId pid);
// One variable of a process's environment as it started (from /proc).
std::optional<std::string> processEnvironmentValue(ProcessId pid, std::string_view name);

}  // namespace orla::linux_desktop
