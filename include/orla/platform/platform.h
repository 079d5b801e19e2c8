// Platform: one implementation of every desktop service, handed to the
// plugins as a bundle. A plugin asks `supports(...)` what the backend can do
// rather than testing for a build or a null service.
#pragma once

#include <orla/export.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <orla/platform/accessibility.h>
#include <orla/platform/alerts.h>
#include <orla/platform/clock.h>
#include <orla/platform/displays.h>
#include <orla/platform/environment.h>
#include <orla/platform/events.h>
#include <orla/platform/file_manager.h>
#include <orla/platform/file_workspace.h>
#include <orla/platform/files.h>
#include <orla/platform/focus_modes.h>
#include <orla/platform/host.h>
#include <orla/platform/http.h>
#include <orla/platform/javascript.h>
#include <orla/platform/keychain.h>
#include <orla/platform/main_thread.h>
#include <orla/platform/network.h>
#include <orla/platform/notifications.h>
#include <orla/platform/pasteboard.h>
#include <orla/platform/popup_menus.h>
#include <orla/platform/printers.h>
#include <orla/platform/processes.h>
#include <orla/platform/scheduler.h>
#include <orla/platform/scripting.h>
#include <orla/platform/settings_panes.h>
#include <orla/platform/session_control.h>
#include <orla/platform/sound.h>
#include <orla/platform/speech.h>
#include <orla/platform/user_defaults.h>
#include <orla/platform/volume.h>
#include <orla/platform/workspace.h>

namespace orla ORLA_EXPORT {

enum class Capability {
  pasteboard,
  workspace,
  accessibility,
  keyboardEvents,
  mouseEvents,
  displays,
  popUpMenus,
  alerts,
  appleScript,
  http,
  processes,
  keychain,
  trash,
  recentDocuments,
  printers,
  sound,
  // Activating, hiding, quitting and opening applications.
  applicationControl,
  // Applications' menu bars through the accessibility interface; a desktop
  // may offer windows there but not menus (X11 through its window manager).
  menuBars,
  // Opening a pane of the system's settings application.
  settingsPanes,
  // The default output's level and mute state, without AppleScript.
  outputVolume,
  // Restart, shut down, sleep, log out, the screen saver, ejecting and the
  // Trash through the desktop's own services, without AppleScript.
  sessionControl,
  // Running JavaScript in a sandboxed engine.
  javaScript,
  // Speaking a text aloud.
  speech,
  // Switching do not disturb and the other Focus modes.
  focusModes,
  // Mounting and unmounting server shares.
  networkVolumes,
  // Switching between network locations.
  networkLocations,
};

class Platform {
 public:
  struct Services {
    std::unique_ptr<Clock> clock;
    std::unique_ptr<NotificationCenter> notifications;
    std::unique_ptr<MainThread> mainThread;
    std::unique_ptr<Scheduler> scheduler;
    std::unique_ptr<Pasteboard> pasteboard;
    std::unique_ptr<KeyboardEvents> keyboard;
    std::unique_ptr<Workspace> workspace;
    std::unique_ptr<Accessibility> accessibility;
    std::unique_ptr<Environment> environment;
    std::unique_ptr<Files> files;
    std::unique_ptr<Host> host;
    std::unique_ptr<Scripting> scripting;
    std::unique_ptr<PopupMenus> popupMenus;
    std::unique_ptr<Alerts> alerts;
    std::unique_ptr<UserDefaults> userDefaults;
    std::unique_ptr<Http> http;
    std::unique_ptr<Keychain> keychain;
    std::unique_ptr<Processes> processes;
    std::unique_ptr<Sounds> sounds;
    std::unique_ptr<MouseEvents> mouse;
    std::unique_ptr<Displays> displays;
    // Documents, the Trash and printers.
    std::unique_ptr<FileWorkspace> fileWorkspace;
    std::unique_ptr<FileManager> fileManager;
    std::unique_ptr<Printers> printers;
    // None where a backend has no settings application to open: then it
    // answers that it cannot.
    std::unique_ptr<SettingsPanes> settingsPanes;
    // Optional: a backend without them gets services that say so.
    std::unique_ptr<OutputVolumeControl> outputVolume;
    std::unique_ptr<SessionControl> sessionControl;
    std::unique_ptr<JavaScriptRunner> javaScript;
    std::unique_ptr<SpeechSynthesizer> speech;
    std::unique_ptr<FocusModes> focusModes;
    std::unique_ptr<NetworkVolumes> networkVolumes;
    std::unique_ptr<NetworkLocations> networkLocations;
  };

  // Each service of `Services`, as a deferred part names the ones it brings.
  enum class Service : unsigned {
    clock,
    notifications,
    mainThread,
    scheduler,
    pasteboard,
    keyboard,
    workspace,
    accessibility,
    environment,
    files,
    host,
    scripting,
    popupMenus,
    alerts,
    userDefaults,
    http,
    keychain,
    processes,
    sounds,
    mouse,
    displays,
    fileWorkspace,
    fileManager,
    printers,
    settingsPanes,
    outputVolume,
    sessionControl,
    javaScript,
    speech,
    focusModes,
    networkVolumes,
    networkLocations,
  };

  // A part of a backend whose libraries or connections cost more than a
  // short run should pay at its start (a window system, a bus, a toolkit):
  // it is loaded the first time one of its services is handed out or one of
  // the capabilities it decides is asked about. Until then the services it
  // names hold placeholders that nobody sees; `load` replaces them and adds
  // the capabilities it can offer (only those among `decides` count). Parts
  // load in order: asking for one loads those before it first. A service
  // named by several parts is handed out once the last of them has loaded.
  struct DeferredPart {
    std::vector<Service> services;
    std::set<Capability> decides;
    std::function<void(Services&, std::set<Capability>&)> load;
  };

  Platform(std::string name, Services services, std::set<Capability> capabilities,
           std::vector<DeferredPart> deferred = {});

  // "sim", "linux", "macos": for diagnostics only.
  const std::string& name() const { return name_; }
  // Thread safety: the accessors and `supports` may be called from any
  // thread; the first that needs a deferred part loads it, the others wait.
  bool supports(Capability capability) const;

  Clock& clock() const {
    settle(Service::clock);
    return *services_.clock;
  }
  NotificationCenter& notifications() const {
    settle(Service::notifications);
    return *services_.notifications;
  }
  MainThread& mainThread() const {
    settle(Service::mainThread);
    return *services_.mainThread;
  }
  Scheduler& scheduler() const {
    settle(Service::scheduler);
    return *services_.scheduler;
  }
  Pasteboard& pasteboard() const {
    settle(Service::pasteboard);
    return *services_.pasteboard;
  }
  KeyboardEvents& keyboard() const {
    settle(Service::keyboard);
    return *services_.keyboard;
  }
  Workspace& workspace() const {
    settle(Service::workspace);
    return *services_.workspace;
  }
  Accessibility& accessibility() const {
    settle(Service::accessibility);
    return *services_.accessibility;
  }
  Environment& environment() const {
    settle(Service::environment);
    return *services_.environment;
  }
  Files& files() const {
    settle(Service::files);
    return *services_.files;
  }
  Host& host() const {
    settle(Service::host);
    return *services_.host;
  }
  Scripting& scripting() const {
    settle(Service::scripting);
    return *services_.scripting;
  }
  PopupMenus& popupMenus() const {
    settle(Service::popupMenus);
    return *services_.popupMenus;
  }
  Alerts& alerts() const {
    settle(Service::alerts);
    return *services_.alerts;
  }
  UserDefaults& userDefaults() const {
    settle(Service::userDefaults);
    return *services_.userDefaults;
  }
  Http& http() const {
    settle(Service::http);
    return *services_.http;
  }
  Keychain& keychain() const {
    settle(Service::keychain);
    return *services_.keychain;
  }
  Processes& processes() const {
    settle(Service::processes);
    return *services_.processes;
  }
  Sounds& sounds() const {
    settle(Service::sounds);
    return *services_.sounds;
  }
  MouseEvents& mouse() const {
    settle(Service::mouse);
    return *services_.mouse;
  }
  Displays& displays() const {
    settle(Service::displays);
    return *services_.displays;
  }
  FileWorkspace& fileWorkspace() const {
    settle(Service::fileWorkspace);
    return *services_.fileWorkspace;
  }
  FileManager& fileManager() const {
    settle(Service::fileManager);
    return *services_.fileManager;
  }
  Printers& printers() const {
    settle(Service::printers);
    return *services_.printers;
  }
  SettingsPanes& settingsPanes() const {
    settle(Service::settingsPanes);
    return *services_.settingsPanes;
  }
  OutputVolumeControl& outputVolume() const {
    settle(Service::outputVolume);
    return *services_.outputVolume;
  }
  SessionControl& sessionControl() const {
    settle(Service::sessionControl);
    return *services_.sessionControl;
  }
  // Only with the capability `javaScript`.
  JavaScriptRunner& javaScript() const {
    settle(Service::javaScript);
    return *services_.javaScript;
  }
  SpeechSynthesizer& speech() const {
    settle(Service::speech);
    return *services_.speech;
  }
  FocusModes& focusModes() const {
    settle(Service::focusModes);
    return *services_.focusModes;
  }
  NetworkVolumes& networkVolumes() const {
    settle(Service::networkVolumes);
    return *services_.networkVolumes;
  }
  NetworkLocations& networkLocations() const {
    settle(Service::networkLocations);
    return *services_.networkLocations;
  }

  // The process default: the native desktop unless a host or a test put
  // another platform in its place.
  static std::shared_ptr<Platform> current();
  static void setCurrent(std::shared_ptr<Platform> platform);

 private:
  static constexpr std::uint64_t bit(Service service) { return std::uint64_t{1} << static_cast<unsigned>(service); }
  static constexpr std::uint64_t bit(Capability capability) {
    return std::uint64_t{1} << static_cast<unsigned>(capability);
  }
  void settle(Service service) const {
    if (pendingServices_.load(std::memory_order_acquire) & bit(service)) loadDeferred(bit(service), 0);
  }
  // Loads every pending part up to the last one that brings `services` or
  // decides `capabilities`.
  void loadDeferred(std::uint64_t services, std::uint64_t capabilities) const;

  std::string name_;
  mutable Services services_;
  mutable std::atomic<std::uint64_t> capabilities_{0};
  mutable std::vector<DeferredPart> deferred_;
  mutable std::size_t loadedParts_ = 0;
  mutable std::atomic<std::uint64_t> pendingServices_{0};
  mutable std::atomic<std::uint64_t> pendingCapabilities_{0};
  mutable std::mutex loading_;
};

// The native desktop of the system this was built for.
std::shared_ptr<Platform> makeNativePlatform();
// The same for checking actions only: it connects to nothing at its start
// (no window system, no accessibility bus), so its desktop services say they
// are not available; the keyring, which a check may ask for a key, connects
// when asked.
std::shared_ptr<Platform> makeNativeCheckingPlatform();

}  // namespace orla
