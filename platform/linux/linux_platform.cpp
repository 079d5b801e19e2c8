// The native platform on Linux. The clock, the environment, processes,
// HTTP, the printers and the JavaScript worker are made here and cost
// nothing at the start; the desktop's services live in two modules, each
// loaded the first time one of its services or capabilities is asked for:
// the X11 module (orla_x11.so, x11_module.h: keys, typing, the mouse,
// screens, windows, the running applications, the clipboard), which needs
// only the X11 libraries and GLib, and the desktop module (orla_desktop.so,
// desktop_module.h: files, the keyring, sound, the session, messages and
// menus, the accessibility bus), which needs GIO, GTK and their libraries.
// They come in deferred parts, in this order: the X11 desktop (without a
// display, the running applications alone), the clipboard, messages and
// menus, whether focus modes can be read (from the settings schemas; first
// without a display), the desktop's other services, the accessibility bus.
// So `orla validate`, a shell command and `orla list` without a display load
// neither module, a key chord or a paste loads the X11 module alone, and
// nothing waits for the accessibility bus until it is asked for.
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>

#include "platform/linux/cups_printers.h"
#include "platform/linux/desktop_module.h"
#include "platform/linux/module_missing_services.h"
#include "platform/linux/x11_module.h"
#include <orla/platform/local_notification_center.h>
#include <orla/platform/memory_user_defaults.h>
#include <orla/platform/platform.h>
#include "platform/posix/curl_http.h"
#include "platform/posix/posix_processes.h"
#include "platform/posix/posix_services.h"
#include "platform/posix/service_module.h"
#include "platform/posix/worker_javascript_runner.h"
#include <orla/platform/thread_scheduler.h>
#include <orla/platform/unavailable_services.h>

// Defined only in a program that links the modules' code itself.
extern "C" const orla::linux_desktop::DesktopModuleEntries* orla_desktop_module_entries() __attribute__((weak));
extern "C" const orla::linux_desktop::X11ModuleEntries* orla_x11_module_entries() __attribute__((weak));

namespace orla {
namespace linux_desktop {

namespace {

template <class Entries>
struct LoadedModule {
  const Entries* entries = nullptr;
  std::string problem;  // why there are none
};

// `linked`: the entry point of the module's code linked into this program,
// when it is (the tests of its services, which reach into it): that copy is
// used, so that what they set up there and what their platform runs are one.
template <class Entries>
LoadedModule<Entries> loadModule(const Entries* (*linked)(), const std::string& file, const std::string& purpose,
                                 const char* entryPoint) {
  LoadedModule<Entries> m;
  if (linked) {
    m.entries = linked();
    return m;
  }
  auto module = posix::loadServiceModule(file, purpose);
  if (!module) {
    m.problem = module.error();
    return m;
  }
  using EntryPoint = const Entries* (*)();
  if (auto entries = reinterpret_cast<EntryPoint>(posix::moduleSymbol(*module, entryPoint))) {
    m.entries = entries();
  } else {
    m.problem = "Orla's module ";
    m.problem += file;
    m.problem += " is not the one this program was built with; reinstall Orla.";
  }
  return m;
}

const LoadedModule<DesktopModuleEntries>& desktopModule() {
  static const auto loaded = loadModule(orla_desktop_module_entries, "orla_desktop.so", "the desktop's services",
                                        "orla_desktop_module_entries");
  return loaded;
}

const LoadedModule<X11ModuleEntries>& x11Module() {
  static const auto loaded =
      loadModule(orla_x11_module_entries, "orla_x11.so", "the X11 desktop", "orla_x11_module_entries");
  return loaded;
}

// The workspace's way to GIO: the desktop module, loaded the first time an
// application is started or looked up by name or an address opened.
class ModuleApplicationOpener : public ApplicationOpener {
 public:
  Checked<std::optional<DesktopEntry>> installedDesktopEntry(std::string_view idOrName) override {
    const auto& module = desktopModule();
    if (!module.entries) return fail(module.problem);
    return module.entries->installedDesktopEntry(idOrName);
  }
  Checked<LaunchedApplication> launchApplication(std::string_view path) override {
    const auto& module = desktopModule();
    if (!module.entries) return fail(module.problem);
    return module.entries->launchApplication(path);
  }
  Checked<void> openURI(std::string_view uri) override {
    const auto& module = desktopModule();
    if (!module.entries) return fail(module.problem);
    return module.entries->openURI(uri);
  }
};

// The main thread before and after the desktop module: its loop is GLib's,
// which the module holds, so the module's main thread is made the first
// time work is queued or the loop served. Until then nothing can be waiting
// for the loop, and work sent synchronously runs on the caller, as the
// module's does while no loop runs.
class DeferredMainThread : public MainThread {
 public:
  DeferredMainThread() : mainId_(std::this_thread::get_id()) {}

  bool isMainThread() const override { return std::this_thread::get_id() == mainId_; }
  void runSync(Work work) override {
    if (MainThread* loop = made()) loop->runSync(std::move(work));
    else work();
  }
  void runAsync(Work work) override {
    if (MainThread* loop = real()) loop->runAsync(std::move(work));
    else queued_.runAsync(std::move(work));
  }
  std::size_t runPending() override {
    std::size_t ran = queued_.runPending();
    if (MainThread* loop = made()) ran += loop->runPending();
    return ran;
  }
  bool canServe() const override { return true; }
  void serveUntil(const std::function<bool()>& done) override {
    if (MainThread* loop = real()) loop->serveUntil(done);
  }
  void wake() override {
    if (MainThread* loop = made()) loop->wake();
  }

  // The module's main thread, made now if it was not; none without the
  // module (then work queued waits for runPending).
  MainThread* real() {
    std::call_once(once_, [this] {
      if (const auto* entries = desktopModule().entries) real_.reset(entries->makeMainThread(mainId_));
      made_.store(real_.get(), std::memory_order_release);
    });
    return made_.load(std::memory_order_acquire);
  }

 private:
  MainThread* made() const { return made_.load(std::memory_order_acquire); }

  std::thread::id mainId_;
  // Without the module: work queued for the main thread runs at runPending.
  class Queue : public MainThread {
   public:
    bool isMainThread() const override { return true; }
    void runSync(Work work) override { work(); }
    void runAsync(Work work) override {
      std::lock_guard lock(mutex_);
      work_.push_back(std::move(work));
    }
    std::size_t runPending() override {
      std::vector<Work> work;
      {
        std::lock_guard lock(mutex_);
        work.swap(work_);
      }
      for (Work& w : work) w();
      return work.size();
    }

   private:
    std::mutex mutex_;
    std::vector<Work> work_;
  } queued_;
  std::once_flag once_;
  std::unique_ptr<MainThread> real_;
  std::atomic<MainThread*> made_{nullptr};
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

// Whether this process has a session bus to find the desktop's services on
// (the keyring, the sound server's neighbours, ...): cheap to ask, unlike the
// services themselves, which are reached on first use.
bool hasSessionBus() {
  if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS"); address && *address) return true;
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  std::error_code ec;
  return runtime && *runtime && std::filesystem::exists(std::filesystem::path(runtime) / "bus", ec);
}

// Whether a sound server seems to listen (its socket, or an address the
// user gave): a file check, where asking the server would cost a connection
// at every start. Without one the sound services still answer, with the
// sentence that the server did not.
bool hasSoundServer() {
  if (const char* address = std::getenv("PULSE_SERVER"); address && *address) return true;
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  std::error_code ec;
  return runtime && *runtime && std::filesystem::exists(std::filesystem::path(runtime) / "pulse" / "native", ec);
}

// Whether the desktop's notification settings (do not disturb) are
// installed: whether a compiled settings schema file of the session names
// the schema and its key, in the folders GSettings reads (its extra folders,
// the user's, the system's). Asking GSettings itself would load GIO at every
// start of `orla list`; the focus service asks it again when used.
bool hasNotificationSettingsSchema() {
  std::vector<std::filesystem::path> folders;
  auto addAll = [&](const char* list, const char* below) {
    if (!list || !*list) return;
    std::string_view rest(list);
    while (!rest.empty()) {
      const auto colon = rest.find(':');
      if (const auto one = rest.substr(0, colon); !one.empty()) folders.push_back(std::filesystem::path(one) / below);
      if (colon == std::string_view::npos) break;
      rest.remove_prefix(colon + 1);
    }
  };
  addAll(std::getenv("GSETTINGS_SCHEMA_DIR"), "");
  if (const char* data = std::getenv("XDG_DATA_HOME"); data && *data) addAll(data, "glib-2.0/schemas");
  else if (const char* home = std::getenv("HOME"); home && *home)
    folders.push_back(std::filesystem::path(home) / ".local/share/glib-2.0/schemas");
  const char* system = std::getenv("XDG_DATA_DIRS");
  addAll(system && *system ? system : "/usr/local/share/:/usr/share/", "glib-2.0/schemas");
  for (const auto& folder : folders) {
    std::ifstream in(folder / "gschemas.compiled", std::ios::binary);
    if (!in) continue;
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (bytes.find("org.gnome.desktop.notifications") != std::string::npos &&
        bytes.find("show-banners") != std::string::npos)
      return true;
  }
  return false;
}

}  // namespace

}  // namespace linux_desktop

namespace {

using Service = Platform::Service;

// The X11 desktop's parts, with the GTK part that needs its window system:
// what a platform that reaches an X server adds first.
void addWindowSystemParts(std::vector<Platform::DeferredPart>& parts,
                          std::shared_ptr<linux_desktop::ApplicationOpener> opener,
                          linux_desktop::DeferredMainThread& mainThread, std::shared_ptr<bool> windowSystem) {
  using linux_desktop::x11Module;
  parts.push_back({{Service::keyboard, Service::mouse, Service::displays, Service::accessibility, Service::workspace},
                   {Capability::keyboardEvents, Capability::mouseEvents, Capability::displays,
                    Capability::accessibility, Capability::applicationControl},
                   [opener, windowSystem](Platform::Services& services, std::set<Capability>& offered) {
                     const auto& module = x11Module();
                     if (!module.entries) {
                       services.workspace = linux_desktop::makeModuleMissingWorkspace(module.problem);
                       return;
                     }
                     module.entries->addWindowSystem(services, offered, opener);
                     *windowSystem = offered.count(Capability::accessibility) > 0;
                   }});
  parts.push_back({{Service::pasteboard},
                   {Capability::pasteboard},
                   [windowSystem](Platform::Services& services, std::set<Capability>& offered) {
                     if (const auto& module = x11Module(); module.entries && *windowSystem)
                       module.entries->addClipboard(services, offered);
                   }});
  // GTK itself starts only when the first message or menu is shown.
  parts.push_back({{Service::alerts, Service::popupMenus},
                   {Capability::alerts, Capability::popUpMenus},
                   [&mainThread, windowSystem](Platform::Services& services, std::set<Capability>& offered) {
                     if (!*windowSystem) return;
                     const auto& module = linux_desktop::desktopModule();
                     if (MainThread* loop = mainThread.real(); module.entries && loop)
                       module.entries->addAlerts(services, offered, *loop, x11Module().entries->routeErrors);
                   }});
}

// The desktop module's services that connect to nothing at their start.
Platform::DeferredPart desktopServicesPart(linux_desktop::DeferredMainThread& mainThread, bool connect) {
  const bool sessionBus = linux_desktop::hasSessionBus();
  return {{Service::files, Service::fileWorkspace, Service::fileManager, Service::settingsPanes,
           Service::outputVolume, Service::sounds, Service::speech, Service::networkVolumes,
           Service::networkLocations, Service::sessionControl, Service::keychain, Service::focusModes},
          {},
          [&mainThread, connect, sessionBus](Platform::Services& services, std::set<Capability>& offered) {
            const auto& module = linux_desktop::desktopModule();
            MainThread* loop = mainThread.real();
            if (!module.entries || !loop) {
              services.files = linux_desktop::makeModuleMissingFiles(module.problem);
              services.fileWorkspace = linux_desktop::makeModuleMissingFileWorkspace(module.problem);
              services.fileManager = linux_desktop::makeModuleMissingFileManager(module.problem);
              return;
            }
            module.entries->addServices(services, offered, *loop, connect, sessionBus);
          }};
}

// The two modules' parts, as deferred parts of the platform.
std::vector<Platform::DeferredPart> desktopParts(linux_desktop::DeferredMainThread& mainThread, bool connect) {
  using linux_desktop::x11Module;
  auto opener = std::make_shared<linux_desktop::ModuleApplicationOpener>();
  // Without DISPLAY there is no X server to reach: the X11 parts would only
  // load the module to find that out.
  const char* display = std::getenv("DISPLAY");
  const bool reachWindowSystem = connect && display && *display;
  // The clipboard, messages, menus and the accessibility bus come only with
  // the window system, and the bus adds to its accessibility.
  auto windowSystem = std::make_shared<bool>(false);
  // Whether focus modes can be read is known from the settings schemas,
  // read only when asked (a shell command never does): with a display, after
  // the X11 desktop's parts, so that a key chord or a paste does not read
  // them; without one, first, so that asking loads nothing else. The focus
  // service itself comes with the desktop's other services after it.
  Platform::DeferredPart focus{{}, {Capability::focusModes}, [](Platform::Services&, std::set<Capability>& offered) {
                                 if (linux_desktop::hasNotificationSettingsSchema())
                                   offered.insert(Capability::focusModes);
                               }};
  std::vector<Platform::DeferredPart> parts;
  if (reachWindowSystem) {
    addWindowSystemParts(parts, opener, mainThread, windowSystem);
    parts.push_back(std::move(focus));
  } else {
    if (connect) parts.push_back(std::move(focus));
    parts.push_back({{Service::workspace}, {}, [opener](Platform::Services& services, std::set<Capability>&) {
                       const auto& module = x11Module();
                       if (module.entries) services.workspace.reset(module.entries->makeWorkspace(opener));
                       else services.workspace = linux_desktop::makeModuleMissingWorkspace(module.problem);
                     }});
  }
  parts.push_back(desktopServicesPart(mainThread, connect));
  if (reachWindowSystem)
    parts.push_back({{Service::accessibility},
                     {Capability::menuBars},
                     [windowSystem](Platform::Services& services, std::set<Capability>& offered) {
                       const auto& x11 = x11Module();
                       const auto& module = linux_desktop::desktopModule();
                       if (x11.entries && module.entries && *windowSystem)
                         module.entries->addAccessibilityBus(services, offered, x11.entries->describeElement);
                     }});
  return parts;
}

// `connect`: whether to reach the window system, the accessibility bus and
// the desktop's settings when first needed. Without, the platform is the
// one for checking actions: its desktop services say they are not
// available, and the keyring (which an action's check may ask for its key)
// connects when asked.
std::shared_ptr<Platform> makeLinuxPlatform(bool connect) {
  Platform::Services services;
  services.clock = std::make_unique<posix::PosixClock>();
  services.notifications = std::make_unique<LocalNotificationCenter>();
  auto mainThread = std::make_unique<linux_desktop::DeferredMainThread>();
  linux_desktop::DeferredMainThread& deferredMainThread = *mainThread;
  services.mainThread = std::move(mainThread);
  services.scheduler = std::make_unique<ThreadScheduler>();
  services.environment = std::make_unique<posix::PosixEnvironment>();
  services.host = std::make_unique<linux_desktop::ProcessHost>();
  services.userDefaults = std::make_unique<MemoryUserDefaults>();
  services.http = std::make_unique<posix::CurlHttp>();
  services.processes = std::make_unique<posix::PosixProcesses>();
  services.printers = linux_desktop::makeCupsPrinters();
  // The engine lives in its worker, so nothing of it loads here.
  services.javaScript = posix::makeWorkerJavaScriptRunner();
  // Placeholders until the desktop module's parts replace them; nobody
  // sees them, since asking for one of these services loads its part.
  services.pasteboard = std::make_unique<UnavailablePasteboard>();
  services.keyboard = std::make_unique<UnavailableKeyboardEvents>();
  services.accessibility = std::make_unique<UnavailableAccessibility>();
  services.scripting = std::make_unique<UnavailableScripting>();
  services.popupMenus = std::make_unique<UnavailablePopupMenus>();
  services.alerts = std::make_unique<UnavailableAlerts>();
  services.keychain = std::make_unique<UnavailableKeychain>();
  services.sounds = std::make_unique<UnavailableSounds>();
  services.mouse = std::make_unique<UnavailableMouseEvents>();
  services.displays = std::make_unique<UnavailableDisplays>();
  // What the desktop's services can do is known from here: a session bus,
  // a sound server. Focus modes and the X11 desktop are decided by parts.
  std::set<Capability> capabilities{Capability::workspace,      Capability::http,
                                    Capability::processes,      Capability::trash,
                                    Capability::recentDocuments, Capability::printers,
                                    Capability::settingsPanes,  Capability::javaScript,
                                    Capability::outputVolume,   Capability::speech,
                                    Capability::networkLocations, Capability::sessionControl};
  if (linux_desktop::hasSoundServer()) capabilities.insert(Capability::sound);
  if (linux_desktop::hasSessionBus()) capabilities.insert({Capability::networkVolumes, Capability::keychain});
  auto parts = desktopParts(deferredMainThread, connect);
  return std::make_shared<Platform>("linux", std::move(services), std::move(capabilities), std::move(parts));
}

}  // namespace

std::shared_ptr<Platform> makeNativePlatform() { return makeLinuxPlatform(true); }
std::shared_ptr<Platform> makeNativeCheckingPlatform() { return makeLinuxPlatform(false); }

Checked<std::unique_ptr<GlobalHotkeys>> openNativeGlobalHotkeys() {
  const auto& module = linux_desktop::x11Module();
  if (!module.entries) return fail(module.problem);
  std::string problem;
  if (GlobalHotkeys* hotkeys = module.entries->openHotkeys(&problem)) return std::unique_ptr<GlobalHotkeys>(hotkeys);
  return fail(std::move(problem));
}

namespace {

// The daemon's desktop without the module: it says which module is missing.
class MissingHostDesktop : public HostDesktop {
 public:
  explicit MissingHostDesktop(std::string problem) : problem_(std::move(problem)) {}
  Checked<void> showNotice(const std::string&, const std::string&) override { return fail(problem_); }
  Checked<void> openInTextEditor(const std::filesystem::path&) override { return fail(problem_); }
  Checked<void> openFolder(const std::filesystem::path&) override { return fail(problem_); }

 private:
  std::string problem_;
};

}  // namespace

std::unique_ptr<HostDesktop> makeNativeHostDesktop() {
  const auto& module = linux_desktop::desktopModule();
  if (!module.entries) return std::make_unique<MissingHostDesktop>(module.problem);
  return std::unique_ptr<HostDesktop>(module.entries->makeHostDesktop());
}

}  // namespace orla
