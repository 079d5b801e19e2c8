// Terminals take Ctrl+C as the interrupt of the program running in them, so
// the clipboard chords that are Ctrl+C/X/V elsewhere on Linux are
// Ctrl+Shift+C/V there. This is the one table of the terminals known by
// their window class (WM_CLASS), which the user extends with
// ORLA_TERMINAL_CLASSES (classes separated by commas or colons).
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <orla/platform/events.h>

namespace orla::linux_desktop {

// How ⌘ with C, X or V (copy, cut, paste) is sent to a window.
enum class ClipboardChords {
  control,       // Ctrl+C/X/V: every application that is not a terminal
  controlShift,  // Ctrl+Shift+C/V, cut as copy: a terminal's text cannot be cut
  none,          // no key copies or pastes the clipboard (xterm as installed)
};

// The chords of a window by its WM_CLASS instance and class names, matched
// without regard to case; `userClasses` is the value of
// ORLA_TERMINAL_CLASSES, whose classes use Ctrl+Shift.
ClipboardChords clipboardChordsForClass(std::string_view instance, std::string_view windowClass,
                                        std::string_view userClasses);

// Whether the key is C, X or V, the keys whose ⌘ chord is a clipboard chord.
bool isClipboardChordKey(KeyCode keyCode);

}  // namespace orla::linux_desktop
