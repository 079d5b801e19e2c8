// The Linux desktop's tables: the words its sentences use where macOS's
// name something Linux does not have, and the terminals whose clipboard
// chords are Ctrl+Shift.
#include <gtest/gtest.h>

#include "platform/linux/linux_words.h"
#include "platform/linux/terminal_chords.h"
#include <orla/platform/platform.h>

namespace orla::linux_desktop {
namespace {

TEST(LinuxWords, SentencesNamingMacOnlyThingsReadTrueOnLinux) {
  const DesktopWords words = linuxWords();
  const struct {
    const char* macOS;
    const char* linux;
  } cases[] = {
      {"The system refused to switch to \u201cHome\u201d. Switch it in System Settings \u2192 Network, then try again.",
       "The system refused to switch to \u201cHome\u201d. Switch it in the network settings (NetworkManager), then try "
       "again."},
      {"\u201cPublic\u201d needs a password. Type it into the action once (Orla keeps it in the keychain), or turn on "
       "\u201cAsk for password\u201d.",
       "\u201cPublic\u201d needs a password. Type it into the action once (Orla keeps it in the keyring), or turn on "
       "\u201cAsk for password\u201d."},
      {"No application on this Mac can open ftp: addresses. Check the URL, or choose the application to open it with.",
       "No application on this computer can open ftp: addresses. Check the URL, or choose the application to open it "
       "with."},
      {"Accessibility permission is required to type or paste text. Enable Orla Pro in System Settings \u2192 "
       "Privacy & Security \u2192 Accessibility.",
       "An X11 display is required to type or paste text. Run Orla Pro in an X11 desktop session (with DISPLAY "
       "set)."},
      {"Accessibility permission is required for window actions. Enable Orla in System Settings \u2192 Privacy & "
       "Security \u2192 Accessibility.",
       "An X11 display is required for window actions. Run Orla in an X11 desktop session (with DISPLAY set)."},
      {"Cannot read the menu bar of Mousepad. Allow Orla Pro in System Settings \u2192 Privacy & Security \u2192 "
       "Accessibility, and make sure Mousepad has a menu bar.",
       "Cannot read the menu bar of Mousepad. Check that it publishes its interface on the accessibility bus (AT-SPI; "
       "Qt applications need QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1), and that Mousepad has a menu bar."},
      {"The menus and controls of other applications cannot be read on this desktop in this build of Orla.",
       "The accessibility bus (AT-SPI) is not running on this desktop, so Orla cannot read the menus and controls of "
       "applications. Start it (at-spi-bus-launcher of at-spi2-core), then start the application again; Qt "
       "applications also need QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1."},
      {"Accessibility permission is required for UI element actions. Enable Orla Pro in System Settings \u2192 "
       "Privacy & Security \u2192 Accessibility.",
       "An X11 display is required for UI element actions. Run Orla Pro in an X11 desktop session (with DISPLAY "
       "set)."},
      {"No printers are set up. Add one in System Settings \u2192 Printers & Scanners.",
       "No printers are set up. Add one in the printer settings of this computer."},
      {"No folder chosen. Click Browse\u2026 and pick the folder to show in Finder.",
       "No folder chosen. Click Browse\u2026 and pick the folder to show in the file manager."},
      {"Finder could not show \"/tmp/x\".", "The file manager could not show \"/tmp/x\"."},
      {"Orla can't read the folder \u201C/srv\u201D. Check its permissions (on macOS allow Orla Pro in System "
       "Settings \u2192 Privacy & Security \u2192 Files and Folders), then click Test again.",
       "Orla can't read the folder \u201C/srv\u201D. Check its permissions, then click Test again."},
      {"There is no Focus mode named \u201cWork\u201d. Modes here: Do Not Disturb. Check the name in System Settings "
       "\u2192 Focus, then click Test again.",
       "There is no Focus mode named \u201cWork\u201d. Modes here: Do Not Disturb. Check the name in the desktop's "
       "notification settings, then click Test again."},
      {"Could not read the current Focus mode. Open Control Center once so that Focus appears there, then click Test "
       "again.",
       "Could not read the current Focus mode. Check that the desktop's settings service (dconf) is running, then "
       "click Test again."},
      {"The system did not turn \u201cDo Not Disturb\u201d on within 3 seconds. Switch it in Control Center yourself, "
       "then click Test again.",
       "The system did not turn \u201cDo Not Disturb\u201d on within 3 seconds. Switch it in the desktop's "
       "notification settings yourself, then click Test again."},
      // Nothing to replace: the sentence comes back byte for byte.
      {"Opened \u201Cnotes.txt\u201D in Mousepad.", "Opened \u201Cnotes.txt\u201D in Mousepad."},
      {"", ""},
  };
  for (const auto& c : cases) EXPECT_EQ(words.adapt(c.macOS), c.linux) << c.macOS;
}

TEST(LinuxWords, TheSimulatedDesktopKeepsMacOSWords) {
  const std::string sentence = "No application on this Mac can open ftp: addresses.";
  EXPECT_EQ(DesktopWords().adapt(sentence), sentence);
  EXPECT_EQ(DesktopWords::of("sim").adapt(sentence), sentence);
  EXPECT_EQ(DesktopWords::of(makeNativePlatform()->name()).adapt(sentence),
            "No application on this computer can open ftp: addresses.");
}

TEST(TerminalChords, TerminalsAreKnownByEitherClassNameWithoutRegardToCase) {
  const struct {
    const char* instance;
    const char* windowClass;
    const char* userClasses;
    ClipboardChords chords;
  } cases[] = {
      {"mousepad", "Mousepad", "", ClipboardChords::control},
      {"", "", "", ClipboardChords::control},  // no active window
      {"gnome-terminal-server", "Gnome-terminal", "", ClipboardChords::controlShift},
      {"konsole", "konsole", "", ClipboardChords::controlShift},
      {"Alacritty", "Alacritty", "", ClipboardChords::controlShift},
      {"kitty", "kitty", "", ClipboardChords::controlShift},
      {"st-256color", "st-256color", "", ClipboardChords::controlShift},
      {"xfce4-terminal", "Xfce4-terminal", "", ClipboardChords::controlShift},
      {"org.wezfurlong.wezterm", "org.wezfurlong.wezterm", "", ClipboardChords::controlShift},
      {"xterm", "XTerm", "", ClipboardChords::none},
      // The user's classes: a terminal we do not know, and xterm given bindings.
      {"myterm", "MyTerm", "foo, myterm", ClipboardChords::controlShift},
      {"myterm", "MyTerm", "foo:MYTERM", ClipboardChords::controlShift},
      {"xterm", "XTerm", "XTerm", ClipboardChords::controlShift},
      {"myterm", "MyTerm", "myter,yterm", ClipboardChords::control},
  };
  for (const auto& c : cases)
    EXPECT_EQ(clipboardChordsForClass(c.instance, c.windowClass, c.userClasses), c.chords)
        << c.instance << " / " << c.windowClass << " with “" << c.userClasses << "”";
}

}  // namespace
}  // namespace orla::linux_desktop
