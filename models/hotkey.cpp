#include <orla/models/hotkey.h>

#include <array>
#include <vector>

#include <orla/models/key_code_map.h>
#include <orla/models/text.h>

namespace orla {
namespace {

struct Name {
  std::string_view name;
  std::uint64_t value;
};

constexpr std::array<Name, 4> kGlyphs{{
    {"⌃", Hotkey::kControl}, {"⌥", Hotkey::kOption}, {"⇧", Hotkey::kShift}, {"⌘", Hotkey::kCommand}}};

constexpr std::array<Name, 10> kModifierWords{{
    {"ctrl", Hotkey::kControl}, {"control", Hotkey::kControl}, {"alt", Hotkey::kOption},
    {"option", Hotkey::kOption}, {"opt", Hotkey::kOption}, {"shift", Hotkey::kShift},
    {"super", Hotkey::kCommand}, {"cmd", Hotkey::kCommand}, {"command", Hotkey::kCommand},
    {"meta", Hotkey::kCommand}}};

// Plain names of the keys whose displayed name is a glyph or differs from
// what people type; every displayed name ("U", "F5", "Space", "↩") works too.
constexpr std::array<Name, 25> kKeyWords{{
    {"return", 36}, {"enter", 36}, {"tab", 48}, {"space", 49}, {"backspace", 51}, {"escape", 53},
    {"esc", 53}, {"delete", 117}, {"del", 117}, {"home", 115}, {"end", 119}, {"pageup", 116},
    {"pgup", 116}, {"pagedown", 121}, {"pgdn", 121}, {"left", 123}, {"right", 124}, {"down", 125},
    {"up", 126}, {"menu", 110}, {"plus", 24}, {"+", 24}, {"minus", 27}, {"comma", 43}, {"period", 47}}};

std::string lowered(std::string_view text) {
  std::string out(text);
  for (char& c : out)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return out;
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

bool isModifierKey(std::int64_t code) { return code >= 54 && code <= 63; }

// Keys that type a character (letters, digits, punctuation, space, return,
// tab, backspace) on their own or with Shift.
bool typesCharacter(std::int64_t code) {
  return (code >= 0 && code <= 51) || (code >= 93 && code <= 95);
}

std::int64_t keyNamed(std::string_view name) {
  const std::string lower = lowered(name);
  for (const Name& word : kKeyWords)
    if (word.name == lower) return static_cast<std::int64_t>(word.value);
  return KeyCodeMap::keyCodeForName(name);
}

}  // namespace

Checked<Hotkey> parseHotkey(std::string_view text) {
  const std::string_view whole = trimmed(text);
  const std::string named = orla::quoted(std::string(whole));
  if (whole.empty()) return fail("the hotkey is empty");
  Hotkey hotkey;
  std::string_view rest = whole;
  // The glyph form: modifier glyphs, then the key's name.
  for (bool found = true; found;) {
    found = false;
    for (const Name& glyph : kGlyphs)
      if (rest.starts_with(glyph.name)) {
        hotkey.modifiers |= glyph.value;
        rest.remove_prefix(glyph.name.size());
        found = true;
      }
  }
  std::string_view keyName = rest;
  // The plain form: words joined by "+", the key last. A "+" right after
  // another names the plus key itself ("ctrl++").
  if (hotkey.modifiers == 0 && rest.size() > 1 && rest.find('+') != std::string_view::npos) {
    std::vector<std::string_view> words;
    std::size_t start = 0;
    for (std::size_t i = 0; i < rest.size(); ++i)
      if (rest[i] == '+' && i > start) {
        words.push_back(trimmed(rest.substr(start, i - start)));
        start = i + 1;
      }
    keyName = trimmed(rest.substr(start));
    for (std::string_view word : words) {
      const std::string lower = lowered(word);
      bool known = false;
      for (const Name& modifier : kModifierWords)
        if (modifier.name == lower) {
          hotkey.modifiers |= modifier.value;
          known = true;
        }
      if (!known) return fail("the hotkey " + named + " has " + orla::quoted(std::string(word)) +
                              " where a modifier (ctrl, alt, shift or super) belongs");
    }
  }
  if (keyName.empty()) return fail("the hotkey " + named + " has no key");
  const std::string lowerKey = lowered(keyName);
  for (const Name& modifier : kModifierWords)
    if (modifier.name == lowerKey) return fail("the hotkey " + named + " has no key");
  const std::int64_t code = keyNamed(keyName);
  if (code < 0) return fail("the hotkey " + named + " names no key " + orla::quoted(std::string(keyName)));
  if (isModifierKey(code)) return fail("the hotkey " + named + " has no key");
  if (typesCharacter(code) && !(hotkey.modifiers & (Hotkey::kControl | Hotkey::kOption | Hotkey::kCommand)))
    return fail("the hotkey " + named + " needs ⌃, ⌥ or ⌘, or it would take the key from every application");
  hotkey.keyCode = static_cast<std::uint16_t>(code);
  return hotkey;
}

std::string hotkeyText(const Hotkey& hotkey) { return KeyCodeMap::displayString(hotkey.keyCode, hotkey.modifiers); }

}  // namespace orla
