// Platform: one implementation of every desktop service, handed to the
// plugins as a bundle. A plugin asks `supports(...)` what the backend can do
// rather than testing for a build or a null service.
#pragma once

#include <orla/export.h>

#include <memory>
#include <set>
#include <string>
#include <string_view>

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

  Platform(std::string name, Services services, std::set<Capability> capabilities);

  // "sim", "linux", "macos": for diagnostics only.
  const std::string& name() const { return name_; }
  bool supports(Capability capability) const;

  Clock& clock() const { return *services_.clock; }
  NotificationCenter& notifications() const { return *services_.notifications; }
  MainThread& mainThread() const { return *services_.mainThread; }
  Scheduler& scheduler() const { return *services_.scheduler; }
  Pasteboard& pasteboard() const { return *services_.pasteboard; }
  KeyboardEvents& keyboard() const { return *services_.keyboard; }
  Workspace& workspace() const { return *services_.workspace; }
  Accessibility& accessibility() const { return *services_.accessibility; }
  Environment& environment() const { return *services_.environment; }
  Files& files() const { return *services_.files; }
  Host& host() const { return *services_.host; }
  Scripting& scripting() const { return *services_.scripting; }
  PopupMenus& popupMenus() const { return *services_.popupMenus; }
  Alerts& alerts() const { return *services_.alerts; }
  UserDefaults& userDefaults() const { return *services_.userDefaults; }
  Http& http() const { return *services_.http; }
  Keychain& keychain() const { return *services_.keychain; }
  Processes& processes() const { return *services_.processes; }
  Sounds& sounds() const { return *services_.sounds; }
  MouseEvents& mouse() const { return *services_.mouse; }
  Displays& displays() const { return *services_.displays; }
  FileWorkspace& fileWorkspace() const { return *services_.fileWorkspace; }
  FileManager& fileManager() const { return *services_.fileManager; }
  Printers& printers() const { return *services_.printers; }
  SettingsPanes& settingsPanes() const { return *services_.settingsPanes; }
  OutputVolumeControl& outputVolume() const { return *services_.outputVolume; }
  SessionControl& sessionControl() const { return *services_.sessionControl; }
  // Only with the capability `javaScript`.
  JavaScriptRunner& javaScript() const { return *services_.javaScript; }
  SpeechSynthesizer& speech() const { return *services_.speech; }
  FocusModes& focusModes() const { return *services_.focusModes; }
  NetworkVolumes& networkVolumes() const { return *services_.networkVolumes; }
  NetworkLocations& networkLocations() const { return *services_.networkLocations; }

  // The process default: the native desktop unless a host or a test put
  // another platform in its place.
  static std::shared_ptr<Platform> current();
  static void setCurrent(std::shared_ptr<Platform> platform);

 private:
  std::string name_;
  Services services_;
  std::set<Capability> capabilities_;
};

// The native desktop of the system this was built for.
std::shared_ptr<Platform> makeNativePlatform();
// The same for checking actions only: it connects to nothing at its start
// (no window system, no accessibility bus), so its desktop services say they
// are not available; the keyring, which a check may ask for a key, connects
// when asked.
std::shared_ptr<Platform> makeNativeCheckingPlatform();

}  // namespace orla
