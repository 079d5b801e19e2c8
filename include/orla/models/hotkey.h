// Hotkey: the key combination that starts a shortcut from anywhere on the
// desktop. Shortcut files may write it in the glyph form the key shortcut
// action displays ("⌃⌥U") or in a plain form typed on any keyboard
// ("ctrl+alt+u"); orla itself always writes the glyph form.
#pragma once

#include <orla/export.h>

#include <cstdint>
#include <string>
#include <string_view>

#include <orla/models/checked.h>

namespace orla ORLA_EXPORT {

struct Hotkey {
  // Modifier flags of the event flag word, the same bits the key shortcut
  // action stores.
  static constexpr std::uint64_t kShift = 0x20000;
  static constexpr std::uint64_t kControl = 0x40000;
  static constexpr std::uint64_t kOption = 0x80000;
  static constexpr std::uint64_t kCommand = 0x100000;

  std::uint16_t keyCode = 0;  // virtual key code on a US keyboard
  std::uint64_t modifiers = 0;

  bool operator==(const Hotkey&) const = default;
  auto operator<=>(const Hotkey&) const = default;
};

// Reads either form. Modifiers: ⌃ ⌥ ⇧ ⌘, or ctrl/control, alt/option,
// shift, super/cmd/command/meta, in any order; the key comes last. Fails
// with a sentence naming the text when there is no key, the key or a
// modifier has no such name, or a key that types a character lacks ⌃, ⌥ or
// ⌘ (grabbing it would take it away from every application's typing).
Checked<Hotkey> parseHotkey(std::string_view text);

// The glyph form, "⌃⌥U".
std::string hotkeyText(const Hotkey& hotkey);

}  // namespace orla
