// KeyCodeMap: how a recorded key combination is shown to the user, in the
// glyph form macOS uses (modifier glyphs, then the key's name: "⌥⌘K").
#pragma once

#include <orla/export.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace orla ORLA_EXPORT {

class KeyCodeMap {
 public:
  // The modifier glyphs present in `modifiers` (an event flag word) followed
  // by the name of the virtual key `keyCode` on a US keyboard.
  static std::string displayString(std::int64_t keyCode, std::uint64_t modifiers);
  // The key code whose displayed name is `name` (letters in either case);
  // -1 when no key has that name.
  static std::int64_t keyCodeForName(std::string_view name);
};

}  // namespace orla
