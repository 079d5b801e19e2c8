#include "tools/orla/daemon_main.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <system_error>
#include <thread>

#include "tools/orla/daemon.h"

namespace orla::cli {
namespace {

Daemon* signalTarget = nullptr;

void quitOnSignal(int) {
  if (signalTarget) signalTarget->quitFromSignal();
}

}  // namespace

std::filesystem::path defaultShortcutFolder() {
  const char* config = std::getenv("XDG_CONFIG_HOME");
  if (config && *config == '/') return std::filesystem::path(config) / "orla" / "shortcuts";
  const char* home = std::getenv("HOME");
  return std::filesystem::path(home ? home : ".") / ".config" / "orla" / "shortcuts";
}

int checkShortcutFolder(std::shared_ptr<Platform> platform, const std::filesystem::path& folder) {
  std::error_code ec;
  if (!std::filesystem::is_directory(folder, ec)) {
    std::cout << folder.string() << ": no such folder" << std::endl;
    return 1;
  }
  PluginRegistry registry(platform);
  const ShortcutFolder read = readShortcutFolder(folder, nullptr, &registry);
  for (const FolderProblem& problem : read.problems) std::cout << problem.line() << std::endl;
  if (!read.problems.empty()) return 1;
  const auto count = [](std::size_t n, const char* one, const char* many) {
    return std::to_string(n) + " " + (n == 1 ? one : many);
  };
  std::cout << count(read.shortcuts.size(), "shortcut", "shortcuts") << ", "
            << count(read.bindings.size(), "hotkey", "hotkeys") << ": no problems" << std::endl;
  return 0;
}

int runDaemon(std::shared_ptr<Platform> platform, const std::filesystem::path& folder) {
  DaemonLog log(std::cerr, DaemonLog::standardErrorIsJournal());
  // The desktop's window system first, as when it connected at the start:
  // the hotkeys set up their own handling of X errors (a combination
  // another program holds) after it, not before.
  platform->supports(Capability::keyboardEvents);
  auto hotkeys = openNativeGlobalHotkeys();
  if (!hotkeys) {
    // Hotkeys on Wayland would come from the desktop's global shortcuts
    // portal, which orla does not speak yet.
    log.error(hotkeys.error() + " The daemon needs an X11 session (on Wayland, one with Xwayland and DISPLAY set).");
    return 2;
  }
  std::error_code ec;
  if (!std::filesystem::is_directory(folder, ec)) {
    // The first start of a new user: the folder is made, empty, for them to
    // fill; any other failure is said.
    if (std::filesystem::exists(folder, ec) || !std::filesystem::create_directories(folder, ec)) {
      log.error(folder.string() + " is not a folder orla can use" + (ec ? " (" + ec.message() + ")" : std::string()));
      return 1;
    }
    log.info("made the empty shortcut folder " + folder.string());
  }
  auto watch = watchFolder(folder);
  if (!watch) log.warning(watch.error() + " Changes are read at the next start.");
  Daemon daemon(platform, std::move(hotkeys).value(), makeNativeHostDesktop(), log, folder);
  signalTarget = &daemon;
  struct sigaction action {};
  action.sa_handler = quitOnSignal;
  sigemptyset(&action.sa_mask);
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGINT, &action, nullptr);
  std::unique_ptr<FolderWatch> folderWatch = watch ? std::move(watch).value() : nullptr;
  MainThread& mainThread = platform->mainThread();
  int status = 0;
  if (mainThread.canServe() && mainThread.isMainThread()) {
    // The main thread serves the desktop's loop, where the messages and
    // menus that runs show must live; the daemon's own loop waits on
    // another thread.
    std::atomic<bool> ended{false};
    std::thread loop([&] {
      status = daemon.run(std::move(folderWatch));
      ended = true;
      mainThread.wake();
    });
    mainThread.serveUntil([&] { return ended.load(); });
    loop.join();
    // A run still going may be waiting for the main thread (a message is
    // up): it is served until it ends; the runs waiting behind it do not start.
    daemon.dropQueued();
    mainThread.serveUntil([&] { return daemon.idle(); });
  } else {
    status = daemon.run(std::move(folderWatch));
  }
  signalTarget = nullptr;
  return status;
}

}  // namespace orla::cli
