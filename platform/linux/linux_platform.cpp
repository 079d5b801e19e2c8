// The native platform on Linux. On an X11 desktop (DISPLAY set, with the
// XTest, XFixes and XRandR extensions) keys, typing, the mouse, the
// clipboard and the screens are real; without one, and for the services the X11 backend does
// not offer yet, the desktop services answer with a clear sentence that they
// are not available. The clock, environment, files, process list and HTTP
// are real everywhere.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <filesystem>
#include <functional>
#include <fstream>

#include "platform/linux/cups_printers.h"
#include "platform/linux/gio_services.h"
#include "platform/linux/x11_accessibility.h"
#include "platform/linux/x11_connection.h"
#include "platform/linux/x11_displays.h"
#include "platform/linux/x11_events.h"
#include "platform/linux/x11_pasteboard.h"
#include "platform/linux/x11_windows.h"
#include "platform/local_notification_center.h"
#include "platform/memory_user_defaults.h"
#include "platform/platform.h"
#include "platform/posix/curl_http.h"
#include "platform/posix/posix_processes.h"
#include "platform/posix/posix_services.h"
#include "platform/queued_main_thread.h"
#include "platform/thread_scheduler.h"
#include "platform/unavailable_services.h"

namespace orla {
namespace linux_desktop {

// What the window system tells of the running processes: the frontmost one,
// and the windows of each.
struct WindowSystem {
  std::function<std::optional<ProcessId>()> frontmost;
  std::function<std::vector<ManagedWindow>()> windows;
};

// Running applications from /proc: the current user's processes that have an
// executable (kernel threads have none). Without a window system each is
// reported with the `prohibited` policy and none is frontmost. On an X11
// desktop a process with managed windows is a `regular` application, named
// by the desktop entry its windows' class matches (its desktop-file id as
// the bundle identifier, the entry's file as the bundle path) or else by its
// executable, hidden when every one of its windows is minimized; the
// frontmost one is the process of the active window.
class ProcWorkspace : public Workspace {
 public:
  explicit ProcWorkspace(WindowSystem windowSystem = {}) : windowSystem_(std::move(windowSystem)) {}

  std::vector<RunningApplication> runningApplications() const override {
    auto apps = processes();
    if (windowSystem_.windows) {
      const auto windows = windowSystem_.windows();
      for (RunningApplication& app : apps) describeWithWindows(app, windows);
    }
    if (const auto front = frontmost())
      for (RunningApplication& app : apps) app.active = app.processIdentifier == *front;
    return apps;
  }

  std::optional<RunningApplication> frontmostApplication() const override {
    const auto front = frontmost();
    if (!front) return std::nullopt;
    for (RunningApplication& app : processes())
      if (app.processIdentifier == *front) {
        if (windowSystem_.windows) describeWithWindows(app, windowSystem_.windows());
        app.active = true;
        return app;
      }
    return std::nullopt;  // another user's process, or one that has ended
  }

 private:
  std::optional<ProcessId> frontmost() const {
    return windowSystem_.frontmost ? windowSystem_.frontmost() : std::nullopt;
  }

  static void describeWithWindows(RunningApplication& app, const std::vector<ManagedWindow>& windows) {
    bool any = false, allMinimized = true;
    const ManagedWindow* first = nullptr;
    for (const ManagedWindow& w : windows) {
      if (w.process != app.processIdentifier) continue;
      any = true;
      allMinimized = allMinimized && w.minimized;
      if (!first) first = &w;
    }
    if (!any) return;
    app.activationPolicy = ActivationPolicy::regular;
    app.hidden = allMinimized;
    if (auto entry = desktopEntryForWindowClass(first->instance, first->windowClass)) {
      app.bundleIdentifier = entry->id;
      app.bundlePath = entry->path;
      if (!entry->name.empty()) app.localizedName = entry->name;
    }
  }

  std::vector<RunningApplication> processes() const {
    std::vector<RunningApplication> apps;
    std::error_code ec;
    const uid_t me = getuid();
    for (const auto& entry : std::filesystem::directory_iterator("/proc", ec)) {
      const std::string name = entry.path().filename().string();
      if (name.empty() || !std::all_of(name.begin(), name.end(), ::isdigit)) continue;
      struct stat info {};
      if (::stat(entry.path().c_str(), &info) != 0 || info.st_uid != me) continue;
      std::error_code linkError;
      const auto exe = std::filesystem::read_symlink(entry.path() / "exe", linkError);
      if (linkError) continue;
      RunningApplication app;
      app.processIdentifier = static_cast<ProcessId>(std::stol(name));
      app.executablePath = exe.string();
      app.bundlePath = exe.parent_path().string();
      app.localizedName = exe.filename().string();
      app.activationPolicy = ActivationPolicy::prohibited;
      apps.push_back(std::move(app));
    }
    std::sort(apps.begin(), apps.end(), [](const auto& a, const auto& b) {
      return a.processIdentifier < b.processIdentifier;
    });
    return apps;
  }

 public:
  bool activate(ProcessId, unsigned) override { return false; }
  bool yieldActivation(ProcessId) override { return false; }
  bool hide(ProcessId) override { return false; }
  bool unhide(ProcessId) override { return false; }
  Checked<void> setHiddenThroughAccessibility(ProcessId, bool) override { return unavailable(); }
  Checked<void> setHiddenThroughProcessManager(ProcessId, bool) override { return unavailable(); }
  Checked<void> sendQuitEvent(ProcessId, std::chrono::milliseconds) override {
    return fail("Apple events need macOS.");
  }
  // Termination is the one control a process list gives: the polite request
  // is SIGTERM, which a program may catch; the forced one is SIGKILL.
  bool terminate(ProcessId pid) override { return pid > 0 && ::kill(pid, SIGTERM) == 0; }
  bool forceTerminate(ProcessId pid) override { return pid > 0 && ::kill(pid, SIGKILL) == 0; }
  Checked<void> openApplication(std::string_view, const OpenConfiguration&) override {
    return unavailable();
  }
  Checked<void> openApplicationWithBundleIdentifier(std::string_view, const OpenConfiguration&) override {
    return unavailable();
  }
  std::optional<std::string> applicationPath(std::string_view) const override { return std::nullopt; }
  Checked<void> openURL(std::string_view url) override { return openURIWithDefaultHandler(url); }
  bool itemExists(std::string_view path) const override {
    std::error_code ec;
    return !path.empty() && std::filesystem::exists(std::filesystem::path(path), ec);
  }
  // Without a window system nothing ever comes to the front.
  ObserverToken addActivationObserver(ActivationObserver) override { return ++lastToken_; }
  void removeActivationObserver(ObserverToken) override {}

 private:
  static Failure unavailable() {
    return fail("Showing, hiding and opening applications is not available on this desktop in this build of Orla.");
  }
  std::atomic<ObserverToken> lastToken_{0};
  WindowSystem windowSystem_;
};

// The host's identity: ORLA_HOST_BUNDLE_ID names it when an embedding
// application sets it; otherwise the command-line host's own identifier.
class ProcessHost : public Host {
 public:
  std::string bundleIdentifier() const override {
    if (const char* id = std::getenv("ORLA_HOST_BUNDLE_ID")) return id;
    return "pro.orla.OrlaPro";
  }
  ProcessId processIdentifier() const override { return static_cast<ProcessId>(::getpid()); }
  // A command-line host has neither a Dock icon nor windows.
  ActivationPolicy activationPolicy() const override { return ActivationPolicy::prohibited; }
  bool setActivationPolicy(ActivationPolicy) override { return false; }
  bool hasVisibleTitledWindow() const override { return false; }
};

}  // namespace linux_desktop

std::shared_ptr<Platform> makeNativePlatform() {
  Platform::Services services;
  services.clock = std::make_unique<posix::PosixClock>();
  services.notifications = std::make_unique<LocalNotificationCenter>();
  services.mainThread = std::make_unique<QueuedMainThread>();
  services.scheduler = std::make_unique<ThreadScheduler>();
  services.pasteboard = std::make_unique<UnavailablePasteboard>();
  services.keyboard = std::make_unique<UnavailableKeyboardEvents>();
  services.workspace = std::make_unique<linux_desktop::ProcWorkspace>();
  services.accessibility = std::make_unique<UnavailableAccessibility>();
  services.environment = std::make_unique<posix::PosixEnvironment>();
  services.files = std::make_unique<posix::PosixFiles>();
  services.host = std::make_unique<linux_desktop::ProcessHost>();
  services.scripting = std::make_unique<UnavailableScripting>();
  services.popupMenus = std::make_unique<UnavailablePopupMenus>();
  services.alerts = std::make_unique<UnavailableAlerts>();
  services.userDefaults = std::make_unique<MemoryUserDefaults>();
  services.http = std::make_unique<posix::CurlHttp>();
  // The desktop keyring comes with the desktop backend.
  services.keychain = std::make_unique<UnavailableKeychain>();
  services.processes = std::make_unique<posix::PosixProcesses>();
  // Sound output comes with the desktop backend; so do mouse events, screens
  // and the accessibility tree (X11 and AT-SPI).
  services.sounds = std::make_unique<UnavailableSounds>();
  services.mouse = std::make_unique<UnavailableMouseEvents>();
  services.displays = std::make_unique<UnavailableDisplays>();
  services.fileWorkspace = linux_desktop::makeGioFileWorkspace();
  services.fileManager = linux_desktop::makeGioFileManager();
  services.printers = linux_desktop::makeCupsPrinters();
  std::set<Capability> capabilities{Capability::workspace, Capability::http, Capability::processes,
                                    Capability::trash, Capability::recentDocuments, Capability::printers};
  if (auto x11 = linux_desktop::X11Connection::open()) {
    services.keyboard = linux_desktop::makeX11KeyboardEvents(*x11);
    services.mouse = linux_desktop::makeX11MouseEvents(*x11);
    services.displays = linux_desktop::makeX11Displays(*x11);
    services.accessibility = linux_desktop::makeX11Accessibility(*x11);
    services.workspace = std::make_unique<linux_desktop::ProcWorkspace>(linux_desktop::WindowSystem{
        [connection = *x11] { return linux_desktop::activeWindowProcess(*connection); },
        [connection = *x11] { return linux_desktop::managedWindows(*connection); }});
    capabilities.insert(
        {Capability::keyboardEvents, Capability::mouseEvents, Capability::displays, Capability::accessibility});
    if (auto clipboard = linux_desktop::makeX11Pasteboard()) {
      services.pasteboard = std::move(clipboard.value());
      capabilities.insert(Capability::pasteboard);
    }
  }
  return std::make_shared<Platform>("linux", std::move(services), std::move(capabilities));
}

}  // namespace orla
