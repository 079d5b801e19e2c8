#include "platform/linux/linux_words.h"

#include <array>

namespace orla::linux_desktop {
namespace {

// Posting keys and reading windows needs no permission on X11, only a
// display to reach: where macOS sends the user to the Accessibility
// settings, the sentence says what is missing here. The longer phrases
// come first.
constexpr std::array<PhraseReplacement, 23> kLinuxWords{{
    // Folders need no permission of their own here: their permissions are all.
    {" (on macOS allow Orla Pro in System Settings \u2192 Privacy & Security \u2192 Files and Folders)", ""},
    // Menus and controls are read over the accessibility bus, which a
    // session may lack, and which an application may not publish on.
    {"The menus and controls of other applications cannot be read on this desktop in this build of Orla.",
     "The accessibility bus (AT-SPI) is not running on this desktop, so Orla cannot read the menus and controls of "
     "applications. Start it (at-spi-bus-launcher of at-spi2-core), then start the application again; Qt "
     "applications also need QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1."},
    {"Turn on its accessibility support, then click Test again.",
     "Start it while the accessibility bus (AT-SPI) is running; Qt applications also need "
     "QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1. Then click Test again."},
    {"Allow Orla Pro in System Settings \u2192 Privacy & Security \u2192 Accessibility, and make sure",
     "Check that it publishes its interface on the accessibility bus (AT-SPI; Qt applications need "
     "QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1), and that"},
    {"Accessibility permission is required", "An X11 display is required"},
    {"Enable Orla Pro in System Settings \u2192 Privacy & Security \u2192 Accessibility",
     "Run Orla Pro in an X11 desktop session (with DISPLAY set)"},
    {"Enable Orla in System Settings \u2192 Privacy & Security \u2192 Accessibility",
     "Run Orla in an X11 desktop session (with DISPLAY set)"},
    {"Allow Orla Pro in System Settings \u2192 Privacy & Security \u2192 Accessibility",
     "Run Orla Pro in an X11 desktop session (with DISPLAY set)"},
    {"System Settings \u2192 Privacy & Security \u2192 Accessibility", "an X11 desktop session (with DISPLAY set)"},
    {"System Settings \u2192 Printers & Scanners", "the printer settings of this computer"},
    // Network locations are NetworkManager's connection profiles.
    {"System Settings \u2192 Network", "the network settings (NetworkManager)"},
    // Passwords live in the Secret Service's keyring.
    {"in the keychain", "in the keyring"},
    // Focus is the desktop's do-not-disturb switch among its notification
    // settings, kept by its settings store.
    {"Open Control Center once so that Focus appears there",
     "Check that the desktop's settings service (dconf) is running"},
    {"Check the name in System Settings \u2192 Focus", "Check the name in the desktop's notification settings"},
    {"Switch it in Control Center yourself", "Switch it in the desktop's notification settings yourself"},
    {"on this Mac", "on this computer"},
    {"this Mac", "this computer"},
    {"Finder could not show", "The file manager could not show"},
    {"Finder did not answer", "The file manager did not answer"},
    {"the Finder selection", "the file manager's selection"},
    {"in the Finder", "in the file manager"},
    {"in Finder", "in the file manager"},
    {"Finder path(s)", "file manager path(s)"},
}};

}  // namespace

DesktopWords linuxWords() { return DesktopWords(kLinuxWords); }

}  // namespace orla::linux_desktop
