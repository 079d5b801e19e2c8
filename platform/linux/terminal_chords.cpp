#include "platform/linux/terminal_chords.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace orla::linux_desktop {
namespace {

struct Terminal {
  std::string_view windowClass;
  ClipboardChords chords;
};

// By WM_CLASS instance or class, lower case. xterm binds no key to the
// clipboard unless the user adds translations (and then adds its class to
// ORLA_TERMINAL_CLASSES); Ctrl+Shift+C there would still interrupt.
constexpr std::array<Terminal, 28> kTerminals{{
    {"xterm", ClipboardChords::none},
    {"uxterm", ClipboardChords::none},
    {"gnome-terminal", ClipboardChords::controlShift},
    {"gnome-terminal-server", ClipboardChords::controlShift},
    {"org.gnome.terminal", ClipboardChords::controlShift},
    {"org.gnome.console", ClipboardChords::controlShift},
    {"kgx", ClipboardChords::controlShift},
    {"org.gnome.ptyxis", ClipboardChords::controlShift},
    {"konsole", ClipboardChords::controlShift},
    {"org.kde.konsole", ClipboardChords::controlShift},
    {"alacritty", ClipboardChords::controlShift},
    {"kitty", ClipboardChords::controlShift},
    {"tilix", ClipboardChords::controlShift},
    {"com.gexperts.tilix", ClipboardChords::controlShift},
    {"xfce4-terminal", ClipboardChords::controlShift},
    {"org.wezfurlong.wezterm", ClipboardChords::controlShift},
    {"wezterm", ClipboardChords::controlShift},
    {"st", ClipboardChords::controlShift},
    {"st-256color", ClipboardChords::controlShift},
    {"urxvt", ClipboardChords::controlShift},
    {"terminator", ClipboardChords::controlShift},
    {"lxterminal", ClipboardChords::controlShift},
    {"mate-terminal", ClipboardChords::controlShift},
    {"qterminal", ClipboardChords::controlShift},
    {"sakura", ClipboardChords::controlShift},
    {"terminology", ClipboardChords::controlShift},
    {"foot", ClipboardChords::controlShift},
    {"guake", ClipboardChords::controlShift},
}};

std::string lowered(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::tolower(c); });
  return out;
}

bool listed(std::string_view classes, const std::string& name) {
  while (!classes.empty()) {
    const auto end = classes.find_first_of(",:");
    std::string_view item = classes.substr(0, end);
    while (!item.empty() && std::isspace(static_cast<unsigned char>(item.front()))) item.remove_prefix(1);
    while (!item.empty() && std::isspace(static_cast<unsigned char>(item.back()))) item.remove_suffix(1);
    if (!item.empty() && lowered(item) == name) return true;
    if (end == std::string_view::npos) break;
    classes.remove_prefix(end + 1);
  }
  return false;
}

}  // namespace

ClipboardChords clipboardChordsForClass(std::string_view instance, std::string_view windowClass,
                                        std::string_view userClasses) {
  const std::string names[] = {lowered(instance), lowered(windowClass)};
  // The user's list first: it also covers a terminal whose bindings they changed.
  for (const std::string& name : names)
    if (!name.empty() && listed(userClasses, name)) return ClipboardChords::controlShift;
  for (const std::string& name : names)
    for (const Terminal& terminal : kTerminals)
      if (terminal.windowClass == name) return terminal.chords;
  return ClipboardChords::control;
}

bool isClipboardChordKey(KeyCode keyCode) {
  // The US Mac layout's X, C and V.
  return keyCode == 7 || keyCode == 8 || keyCode == 9;
}

}  // namespace orla::linux_desktop
