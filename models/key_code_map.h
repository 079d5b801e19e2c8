// KeyCodeMap: how a recorded key combination is shown to the user, in the
// glyph form macOS uses (modifier glyphs, then the key's name: "⌥⌘K").
#pragma once

#include <cstdint>
#include <string>

namespace orla {

class KeyCodeMap {
 public:
  // The modifier glyphs present in `modifiers` (an event flag word) followed
  // by the name of the virtual key `keyCode` on a US keyboard.
  static std::string displayString(std::int64_t keyCode, std::uint64_t modifiers);
};

}  // namespace orla
