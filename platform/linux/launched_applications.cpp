#include "platform/linux/launched_applications.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>

namespace orla::linux_desktop {
namespace {

constexpr std::size_t kLaunchesKept = 32;
// Deep enough for a launcher's shell, a script and the program it starts.
constexpr int kAncestorsLooked = 16;

std::optional<ProcessId> number(std::string_view text) {
  ProcessId value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value <= 0) return std::nullopt;
  return value;
}

// The process's ancestors, nearest first, up to (not counting) the first
// process of the system.
std::vector<ProcessId> ancestorsOf(ProcessId pid) {
  std::vector<ProcessId> chain;
  for (auto parent = parentProcess(pid); parent && *parent > 1 && chain.size() < kAncestorsLooked;
       parent = parentProcess(*parent))
    chain.push_back(*parent);
  return chain;
}

bool hasWindows(ProcessId pid, const std::vector<ManagedWindow>& windows) {
  return std::any_of(windows.begin(), windows.end(), [&](const ManagedWindow& w) { return w.process == pid; });
}

// Whether what `launcher` was launched as is what `pid` is: the same
// process, or one a wrapper of it (a process with no window of its own)
// started. A program started from a launched terminal is the terminal's
// child, but the terminal has windows: it is not the terminal's entry.
bool launchedAs(ProcessId launcher, ProcessId pid, const std::vector<ProcessId>& ancestors,
                const std::vector<ManagedWindow>& windows) {
  if (launcher == pid) return true;
  return std::find(ancestors.begin(), ancestors.end(), launcher) != ancestors.end() &&
         !hasWindows(launcher, windows);
}

}  // namespace

std::optional<ProcessId> parentProcess(ProcessId pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  const std::string stat{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  // "pid (name) state ppid ...": the name may hold spaces and parentheses,
  // so the fields are counted from its last ')'.
  const auto close = stat.rfind(')');
  if (close == std::string::npos || close + 4 >= stat.size()) return std::nullopt;
  const auto start = close + 4;  // past ") S "
  const auto end = stat.find(' ', start);
  if (end == std::string::npos) return std::nullopt;
  const std::string_view field = std::string_view(stat).substr(start, end - start);
  if (field == "0") return ProcessId{0};
  return number(field);
}

std::optional<std::string> processEnvironmentValue(ProcessId pid, std::string_view name) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/environ");
  std::string item;
  while (std::getline(in, item, '\0'))
    if (item.size() > name.size() && item.compare(0, name.size(), name) == 0 && item[name.size()] == '=')
      return item.substr(name.size() + 1);
  return std::nullopt;
}

void LaunchedApplications::record(DesktopEntry entry, LaunchedApplication launched) {
  std::lock_guard lock(mutex_);
  launches_.push_front({std::move(entry), std::move(launched)});
  if (launches_.size() > kLaunchesKept) launches_.pop_back();
}

std::optional<DesktopEntry> LaunchedApplications::entryOf(ProcessId pid,
                                                          const std::vector<ManagedWindow>& windows) const {
  std::deque<Launch> launches;
  {
    std::lock_guard lock(mutex_);
    launches = launches_;
  }
  const std::vector<ProcessId> ancestors = ancestorsOf(pid);
  for (const Launch& launch : launches)
    if (launch.launched.process > 0 && launchedAs(launch.launched.process, pid, ancestors, windows))
      return launch.entry;

  // GIO notes the entry in the environment of what it launches (whoever
  // launched it), which every child inherits: only the process it names,
  // or one its wrapper started, is that entry. When that process has
  // ended (a wrapper that started the program and left), the program
  // counts unless it runs under another application's window.
  if (auto file = processEnvironmentValue(pid, "GIO_LAUNCHED_DESKTOP_FILE"); file && !file->empty()) {
    const auto launcher = processEnvironmentValue(pid, "GIO_LAUNCHED_DESKTOP_FILE_PID");
    const auto launcherPid = launcher ? number(*launcher) : std::nullopt;
    const bool launcherGone = !launcherPid || !parentProcess(*launcherPid);
    const bool underAnotherApplication = std::any_of(ancestors.begin(), ancestors.end(),
                                                     [&](ProcessId p) { return hasWindows(p, windows); });
    if ((launcherPid && launchedAs(*launcherPid, pid, ancestors, windows)) ||
        (launcherGone && !underAnotherApplication))
      if (auto entry = desktopEntryAt(*file)) return entry;
  }

  for (const ManagedWindow& window : windows) {
    if (window.process != pid || window.startupId.empty()) continue;
    for (const Launch& launch : launches)
      if (launch.launched.startupId == window.startupId) return launch.entry;
  }
  return std::nullopt;
}

}  // namespace orla::linux_desktop
