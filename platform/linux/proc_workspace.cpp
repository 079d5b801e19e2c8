// The workspace of the Linux desktop: running applications from /proc,
// described with their windows and desktop entries on an X11 desktop.
#include "platform/linux/proc_workspace.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <filesystem>
#include <mutex>

#include "platform/linux/desktop_entries.h"
#include "platform/linux/launched_applications.h"
#include "platform/linux/x11_active_window_watch.h"
#include "platform/linux/x11_windows.h"

namespace orla::linux_desktop {

namespace {

// Running applications from /proc: the current user's processes that have an
// executable (kernel threads have none), each its own install location.
// Without a window system each is reported with the `prohibited` policy,
// none is frontmost, and only termination works. On an X11 desktop a process
// with managed windows is a `regular` application, named by the desktop entry
// it was launched from (see LaunchedApplications) or else the one its
// windows' class matches (its desktop-file id as the bundle identifier, the
// entry's file as the bundle path) or else by its executable, hidden when
// every one of its windows is minimized; the frontmost one is the process of
// the active window. There the windows are what is shown, hidden, activated
// and asked to close, and applications open from their desktop entries.
class ProcWorkspace : public Workspace {
 public:
  ProcWorkspace(std::shared_ptr<ApplicationOpener> opener, std::shared_ptr<X11Connection> x11)
      : opener_(std::move(opener)), x11_(std::move(x11)) {}

  std::vector<RunningApplication> runningApplications() const override {
    auto apps = processes();
    if (x11_) {
      const auto windows = managedWindows(*x11_);
      for (RunningApplication& app : apps) describeWithWindows(app, windows);
    }
    if (const auto front = frontmost())
      for (RunningApplication& app : apps) app.active = app.processIdentifier == *front;
    return apps;
  }

  // Asked before every key and text posted: the active window and its
  // process are read each time (two round trips), the rest of the
  // description (the process, its windows, its desktop entry) only when the
  // active window changed since the last answer or an activation was heard.
  std::optional<RunningApplication> frontmostApplication() const override {
    if (!x11_) return std::nullopt;
    const auto active = activeWindowAndProcess(*x11_);
    if (!active || !active->process) return std::nullopt;
    const unsigned long generation = frontGeneration_.load();
    {
      std::lock_guard lock(frontMutex_);
      if (front_ && front_->window == active->window && front_->generation == generation &&
          front_->app.processIdentifier == *active->process)
        return front_->app;
    }
    auto app = described(*active->process, true);
    if (app) {
      std::lock_guard lock(frontMutex_);
      front_ = FrontCache{active->window, generation, *app};
    }
    return app;
  }

 private:
  std::optional<ProcessId> frontmost() const { return x11_ ? activeWindowProcess(*x11_) : std::nullopt; }
  // What was said of the front application no longer holds.
  void forgetFront() { ++frontGeneration_; }

  // One process as `runningApplications` tells it; none when it is another
  // user's or has ended.
  std::optional<RunningApplication> described(ProcessId pid, bool active) const {
    auto app = process(std::to_string(pid));
    if (!app) return std::nullopt;
    if (x11_) describeWithWindows(*app, managedWindows(*x11_));
    app->active = active;
    return app;
  }

  void describeWithWindows(RunningApplication& app, const std::vector<ManagedWindow>& windows) const {
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
    auto entry = launched_.entryOf(app.processIdentifier, windows);
    if (!entry) entry = desktopEntryForWindowClass(first->instance, first->windowClass, app.executablePath);
    if (entry) {
      app.bundleIdentifier = entry->id;
      app.bundlePath = entry->path;
      if (!entry->name.empty()) app.localizedName = entry->name;
    }
  }

  // The process /proc/`name` when it is one of the user's with an
  // executable (kernel threads have none).
  static std::optional<RunningApplication> process(const std::string& name, uid_t me = ::getuid()) {
    if (name.empty() || !std::all_of(name.begin(), name.end(), ::isdigit)) return std::nullopt;
    const std::filesystem::path dir = std::filesystem::path("/proc") / name;
    struct stat info {};
    if (::stat(dir.c_str(), &info) != 0 || info.st_uid != me) return std::nullopt;
    std::error_code linkError;
    const auto exe = std::filesystem::read_symlink(dir / "exe", linkError);
    if (linkError) return std::nullopt;
    RunningApplication app;
    app.processIdentifier = static_cast<ProcessId>(std::stol(name));
    app.executablePath = exe.string();
    app.bundlePath = exe.string();
    app.localizedName = exe.filename().string();
    app.activationPolicy = ActivationPolicy::prohibited;
    return app;
  }

  std::vector<RunningApplication> processes() const {
    std::vector<RunningApplication> apps;
    std::error_code ec;
    const uid_t me = ::getuid();
    for (const auto& entry : std::filesystem::directory_iterator("/proc", ec))
      if (auto app = process(entry.path().filename().string(), me)) apps.push_back(std::move(*app));
    std::sort(apps.begin(), apps.end(), [](const auto& a, const auto& b) {
      return a.processIdentifier < b.processIdentifier;
    });
    return apps;
  }

 public:
  bool activate(ProcessId pid, unsigned options) override {
    if (!x11_ || pid <= 0) return false;
    const auto before = frontmost();
    forgetFront();
    if (!activateProcessWindows(*x11_, pid, options & activation_options::allWindows)) return false;
    // Said here, before the answer, so that whatever the caller does next
    // already knows; the watch then finds it said.
    if (before != pid) announceActivation(pid);
    return true;
  }
  // Window managers have no cooperative activation: there is no front
  // application to ask.
  bool yieldActivation(ProcessId) override { return false; }
  // An X11 application has no hiding of its own: hiding minimizes its
  // windows, showing brings them back (and to the front).
  bool hide(ProcessId pid) override {
    forgetFront();
    return x11_ && pid > 0 && minimizeProcessWindows(*x11_, pid);
  }
  bool unhide(ProcessId pid) override {
    if (!x11_ || pid <= 0) return false;
    const auto before = frontmost();
    forgetFront();
    if (!restoreProcessWindows(*x11_, pid)) return false;
    if (before != pid && frontmost() == pid) announceActivation(pid);
    return true;
  }
  Checked<void> setHiddenThroughAccessibility(ProcessId, bool) override {
    return fail("Hiding through the accessibility interface needs macOS; on this desktop hiding minimizes the "
                "application's windows.");
  }
  Checked<void> setHiddenThroughProcessManager(ProcessId, bool) override {
    return fail("Hiding through the process manager needs macOS; on this desktop hiding minimizes the "
                "application's windows.");
  }
  // The quit request of an X11 application is the close request to each of
  // its windows (WM_DELETE_WINDOW), which it may answer by asking to save.
  // Once all of them have closed within `timeout`, SIGTERM ends the process
  // too: a program without windows has nothing left for the user, and many
  // keep running in the background otherwise.
  Checked<void> sendQuitEvent(ProcessId pid, std::chrono::milliseconds timeout) override {
    if (!x11_) return fail("Apple events need macOS.");
    if (pid <= 0) return fail("There is no application with process identifier " + std::to_string(pid) + ".");
    const CloseRequest request = closeProcessWindows(*x11_, pid, timeout);
    if (request.asked == 0) {
      std::string message = "The application with process identifier ";
      message += std::to_string(pid);
      message += " has no window that can be asked to close.";
      return fail(std::move(message));
    }
    if (request.allClosed) terminate(pid);
    return {};
  }
  // The polite termination request is SIGTERM, which a program may catch;
  // the forced one is SIGKILL.
  bool terminate(ProcessId pid) override { return pid > 0 && ::kill(pid, SIGTERM) == 0; }
  bool forceTerminate(ProcessId pid) override { return pid > 0 && ::kill(pid, SIGKILL) == 0; }

  // An application here is a desktop entry (a ".desktop" file) or an
  // executable. One that already runs is activated instead; a new one comes
  // to the front as the window manager places it, whatever `activates` says,
  // since a window manager gives new windows the focus as it sees fit.
  Checked<void> openApplication(std::string_view path, const OpenConfiguration& configuration) override {
    if (!x11_) return unavailable();
    std::error_code ec;
    const std::filesystem::path wanted = std::filesystem::path(path).lexically_normal();
    const std::filesystem::path real = std::filesystem::canonical(wanted, ec);
    for (const RunningApplication& app : runningApplications()) {
      if (app.activationPolicy != ActivationPolicy::regular) continue;
      const std::filesystem::path at(app.bundlePath);
      if (at != wanted && (ec || at != real)) continue;
      if (configuration.activates && !app.active) activate(app.processIdentifier, activation_options::ignoringOtherApps);
      return {};
    }
    auto launched = opener_->launchApplication(path);
    if (!launched) return fail(launched.error());
    // An executable started by its path is named as any process is: by the
    // entry that runs it, if one does.
    if (auto entry = desktopEntryAt(path)) launched_.record(std::move(*entry), std::move(launched).value());
    forgetFront();  // the entry may now name a process already described
    return {};
  }
  // By desktop-file id, with or without ".desktop", or by the entry's name.
  Checked<void> openApplicationWithBundleIdentifier(std::string_view bundleIdentifier,
                                                    const OpenConfiguration& configuration) override {
    if (!x11_) return unavailable();
    const auto found = opener_->installedDesktopEntry(bundleIdentifier);
    if (!found) return fail(found.error());
    const auto& entry = found.value();
    if (!entry) {
      std::string message = "No application “";
      message += bundleIdentifier;
      message += "” is installed.";
      return fail(std::move(message));
    }
    return openApplication(entry->path, configuration);
  }
  std::optional<std::string> applicationPath(std::string_view bundleIdentifier) const override {
    if (auto found = opener_->installedDesktopEntry(bundleIdentifier); found && found.value())
      return found.value()->path;
    return std::nullopt;
  }
  Checked<void> openURL(std::string_view url) override { return opener_->openURI(url); }
  bool itemExists(std::string_view path) const override {
    std::error_code ec;
    return !path.empty() && std::filesystem::exists(std::filesystem::path(path), ec);
  }

  // Observers hear of the activations made through this workspace on the
  // thread that made them, and of every other change of the front
  // application (the user's click, Alt+Tab, another program) on the watch's
  // thread, as the window manager makes it. The watch starts with the first
  // observer.
  ObserverToken addActivationObserver(ActivationObserver observer) override {
    if (x11_) startWatch();
    std::lock_guard lock(observersMutex_);
    observers_.emplace_back(++lastToken_, std::move(observer));
    return lastToken_;
  }
  void removeActivationObserver(ObserverToken token) override {
    std::lock_guard lock(observersMutex_);
    std::erase_if(observers_, [&](const auto& entry) { return entry.first == token; });
  }

 private:
  static Failure unavailable() {
    return fail("Showing, hiding and opening applications is not available on this desktop in this build of Orla.");
  }
  // Once for each change of the front application, however many ways
  // report it (the call that made it and the watch both do; without the
  // watch the caller knows what was in front before). Observers are
  // called in the order of the changes: the announcing lock is held while
  // they run, so an observer must not activate applications itself.
  void announceActivation(ProcessId pid) {
    std::lock_guard announcing(announceMutex_);
    announceLocked(pid);
  }
  void announceLocked(ProcessId pid) {
    if (watch_ && lastAnnounced_ == pid) return;
    const auto app = described(pid, true);
    if (!app) return;
    lastAnnounced_ = pid;
    std::vector<ActivationObserver> observers;
    {
      std::lock_guard lock(observersMutex_);
      for (const auto& entry : observers_) observers.push_back(entry.second);
    }
    for (const auto& observer : observers) observer(*app);
  }

  void startWatch() {
    std::lock_guard announcing(announceMutex_);
    if (watch_ || watchFailed_) return;
    // What is in front now is known to whoever adds an observer; only a
    // change is news.
    lastAnnounced_ = frontmost();
    // The front is read under the announcing lock: read before it, it could
    // be older than an activation announced meanwhile, and be announced
    // after it.
    auto watch = ActiveWindowWatch::start([this] {
      forgetFront();
      std::lock_guard heard(announceMutex_);
      if (const auto front = frontmost()) announceLocked(*front);
    });
    // Without the watch the observers still hear of Orla's own activations.
    if (!watch) watchFailed_ = true;
    else watch_ = std::move(watch).value();
  }

  std::shared_ptr<ApplicationOpener> opener_;
  std::shared_ptr<X11Connection> x11_;
  LaunchedApplications launched_;
  // The last description of the front application: for the active window
  // it was read for, until an activation (ours or the watch's) is heard.
  struct FrontCache {
    XWindow window;
    unsigned long generation;
    RunningApplication app;
  };
  mutable std::mutex frontMutex_;
  mutable std::optional<FrontCache> front_;
  std::atomic<unsigned long> frontGeneration_{0};
  std::mutex observersMutex_;
  ObserverToken lastToken_ = 0;
  std::vector<std::pair<ObserverToken, ActivationObserver>> observers_;
  std::mutex announceMutex_;
  std::optional<ProcessId> lastAnnounced_;
  bool watchFailed_ = false;
  // Last, so that it stops before the members its thread uses go.
  std::unique_ptr<ActiveWindowWatch> watch_;
};

}  // namespace

std::unique_ptr<Workspace> makeProcWorkspace(std::shared_ptr<ApplicationOpener> opener,
                                             std::shared_ptr<X11Connection> x11) {
  return std::make_unique<ProcWorkspace>(std::move(opener), std::move(x11));
}

}  // namespace orla::linux_desktop
