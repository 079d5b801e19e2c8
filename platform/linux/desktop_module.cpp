// The desktop module (orla_desktop.so): the services of the Linux desktop
// that need GIO, GTK or the accessibility bus, added to a platform part by
// part as the program asks (see desktop_module.h).
#include "platform/linux/desktop_module.h"

#include "platform/linux/atspi_accessibility.h"
#include "platform/linux/atspi_bus.h"
#include "platform/linux/desktop_settings.h"
#include "platform/linux/espeak_speech.h"
#include "platform/linux/gio_files.h"
#include "platform/linux/gio_network_volumes.h"
#include "platform/linux/gio_services.h"
#include "platform/linux/glib_main_thread.h"
#include "platform/linux/gsettings_focus.h"
#include "platform/linux/gtk_services.h"
#include "platform/linux/pulse_sounds.h"
#include "platform/linux/pulse_volume.h"
#include "platform/linux/secret_service_keychain.h"
#include "platform/linux/session_control.h"

namespace orla::linux_desktop {

namespace {

MainThread* makeMainThread(std::thread::id main) { return new GLibMainThread(main); }

// The program has already decided the capabilities of these services from
// what it could see without loading them (a session bus, a sound server,
// the settings schemas).
void addServices(Platform::Services& services, std::set<Capability>&, MainThread& mainThread,
                 bool connect, bool sessionBus) {
  auto& glib = static_cast<GLibMainThread&>(mainThread);
  services.files = makeGioFiles();
  services.fileWorkspace = makeGioFileWorkspace();
  services.fileManager = makeGioFileManager();
  services.settingsPanes = makeDesktopSettingsPanes();
  services.outputVolume = makePulseVolumeControl();
  services.sounds = makePulseSounds();
  services.speech = makeEspeakSpeech();
  services.networkLocations = makeNetworkManagerLocations();
  services.sessionControl = makeLinuxSessionControl();
  if (sessionBus) {
    services.networkVolumes = makeGioNetworkVolumes(glib);
    services.keychain = makeSecretServiceKeychain();
  }
  // Whether the setting is there was decided by the program; the service
  // looks again when asked.
  if (connect) services.focusModes = makeGSettingsFocusModes();
}

void addAlerts(Platform::Services& services, std::set<Capability>& capabilities, MainThread& mainThread,
               X11ErrorRoute routeErrors) {
  auto& glib = static_cast<GLibMainThread&>(mainThread);
  routeGtkErrors(routeErrors);
  services.alerts = makeGtkAlerts(glib);
  services.popupMenus = makeGtkPopupMenus(glib);
  capabilities.insert({Capability::alerts, Capability::popUpMenus});
}

// Menus and the rest of an application's own interface, over the bus, on
// top of what the window manager tells of windows.
void addAccessibilityBus(Platform::Services& services, std::set<Capability>& capabilities,
                         X11ElementDescriber describe) {
  if (auto bus = AtspiBus::connect()) {
    services.accessibility = makeAtspiAccessibility(std::move(services.accessibility), describe, std::move(bus));
    capabilities.insert(Capability::menuBars);
  }
}

HostDesktop* makeHostDesktop() { return makeGioHostDesktop().release(); }

constexpr DesktopModuleEntries kEntries{makeMainThread,
                                        addServices,
                                        addAlerts,
                                        addAccessibilityBus,
                                        installedDesktopEntry,
                                        launchApplication,
                                        openURIWithDefaultHandler,
                                        makeHostDesktop};

}  // namespace

}  // namespace orla::linux_desktop

extern "C" __attribute__((visibility("default"))) const orla::linux_desktop::DesktopModuleEntries*
orla_desktop_module_entries() {
  return &orla::linux_desktop::kEntries;
}
