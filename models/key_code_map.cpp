#include <orla/models/key_code_map.h>

#include <array>
#include <charconv>
#include <string_view>

namespace orla {
namespace {

// Virtual key codes are small (0-127 on every Mac keyboard), so the names
// live in one flat table indexed by code; an empty entry is a code no key
// produces, shown by the numeric fallback below.
using NameTable = std::array<std::string_view, 128>;

constexpr NameTable makeNames() {
  NameTable n{};
  // Letters, in the order of the key codes of the ANSI layout.
  n[0] = "A";  n[1] = "S";  n[2] = "D";  n[3] = "F";  n[4] = "H";
  n[5] = "G";  n[6] = "Z";  n[7] = "X";  n[8] = "C";  n[9] = "V";
  n[11] = "B"; n[12] = "Q"; n[13] = "W"; n[14] = "E"; n[15] = "R";
  n[16] = "Y"; n[17] = "T"; n[31] = "O"; n[32] = "U"; n[34] = "I";
  n[35] = "P"; n[37] = "L"; n[38] = "J"; n[40] = "K"; n[45] = "N";
  n[46] = "M";

  // Digits of the main block.
  n[18] = "1"; n[19] = "2"; n[20] = "3"; n[21] = "4"; n[23] = "5";
  n[22] = "6"; n[26] = "7"; n[28] = "8"; n[25] = "9"; n[29] = "0";

  // Punctuation, shown as the unshifted character of a US keyboard.
  n[24] = "=";  n[27] = "-";  n[30] = "]";  n[33] = "[";  n[39] = "'";
  n[41] = ";";  n[42] = "\\"; n[43] = ",";  n[44] = "/";  n[47] = ".";
  n[50] = "`";

  // Keys of other national layouts that a recorder can still hand us.
  n[10] = "§";      // ISO section key
  n[93] = "¥";      // JIS yen
  n[94] = "_";      // JIS underscore
  n[95] = "Keypad ,";
  n[102] = "英数";  // JIS Eisu
  n[104] = "かな";  // JIS Kana

  // Editing and navigation keys, in the glyphs of the menu bar.
  n[36] = "↩";   // Return
  n[48] = "⇥";   // Tab
  n[49] = "Space";
  n[51] = "⌫";   // Delete (backspace)
  n[53] = "⎋";   // Escape
  n[114] = "Help";
  n[115] = "↖";  // Home
  n[116] = "⇞";  // Page Up
  n[117] = "⌦";  // Forward Delete
  n[119] = "↘";  // End
  n[121] = "⇟";  // Page Down
  n[123] = "←";  n[124] = "→";  n[125] = "↓";  n[126] = "↑";
  n[110] = "Menu";  // contextual-menu key of some external keyboards

  // Modifier keys pressed on their own. The right-hand ones are spelled out
  // so that a command bound to Right Option does not read like Option.
  n[55] = "⌘";  n[56] = "⇧";  n[57] = "⇪";  n[58] = "⌥";  n[59] = "⌃";
  n[54] = "Right ⌘";  n[60] = "Right ⇧";  n[61] = "Right ⌥";  n[62] = "Right ⌃";
  n[63] = "fn";

  // Function keys; their codes are scattered across the table.
  n[122] = "F1";  n[120] = "F2";  n[99] = "F3";   n[118] = "F4";
  n[96] = "F5";   n[97] = "F6";   n[98] = "F7";   n[100] = "F8";
  n[101] = "F9";  n[109] = "F10"; n[103] = "F11"; n[111] = "F12";
  n[105] = "F13"; n[107] = "F14"; n[113] = "F15"; n[106] = "F16";
  n[64] = "F17";  n[79] = "F18";  n[80] = "F19";  n[90] = "F20";

  // Keypad keys carry a "Keypad " prefix: "⌘1" and "⌘Keypad 1" are
  // different shortcuts and must not look alike. Enter and Clear exist only
  // on the keypad and keep their glyphs.
  n[82] = "Keypad 0"; n[83] = "Keypad 1"; n[84] = "Keypad 2"; n[85] = "Keypad 3";
  n[86] = "Keypad 4"; n[87] = "Keypad 5"; n[88] = "Keypad 6"; n[89] = "Keypad 7";
  n[91] = "Keypad 8"; n[92] = "Keypad 9";
  n[65] = "Keypad .";  n[67] = "Keypad *";  n[69] = "Keypad +";
  n[75] = "Keypad /";  n[78] = "Keypad -";  n[81] = "Keypad =";
  n[76] = "⌤";  // Enter
  n[71] = "⌧";  // Clear

  // Media keys of the older aluminium keyboards.
  n[72] = "Volume Up";  n[73] = "Volume Down";  n[74] = "Mute";
  return n;
}

constexpr NameTable kNames = makeNames();

struct ModifierGlyph {
  std::uint64_t flag;
  std::string_view glyph;
};

// The order macOS uses in its menus: fn first, then Control, Option, Shift,
// Command. Caps Lock never appears in a menu; it is a lock rather than a key
// held for the chord, so it goes ahead of the chord keys, after fn, and the
// familiar ⌃⌥⇧⌘ run stays unbroken. Any other bit of the flag word is ignored.
constexpr std::array<ModifierGlyph, 6> kModifierGlyphs{{
    {0x800000, "fn"},
    {0x10000, "⇪"},
    {0x40000, "⌃"},
    {0x80000, "⌥"},
    {0x20000, "⇧"},
    {0x100000, "⌘"},
}};

constexpr std::string_view kUnknownPrefix = "Key ";

}  // namespace

std::string KeyCodeMap::displayString(std::int64_t keyCode, std::uint64_t modifiers) {
  std::string_view name;
  // Codes outside the table (negative, or above 127 from a corrupt or
  // hand-edited action) get the numeric form rather than a guess.
  char digits[24];
  std::size_t digitCount = 0;
  if (keyCode >= 0 && keyCode < static_cast<std::int64_t>(kNames.size()))
    name = kNames[static_cast<std::size_t>(keyCode)];
  if (name.empty()) {
    auto [end, ec] = std::to_chars(digits, digits + sizeof digits, keyCode);
    (void)ec;  // 24 bytes hold every 64-bit value
    digitCount = static_cast<std::size_t>(end - digits);
  }

  std::size_t size = name.empty() ? kUnknownPrefix.size() + digitCount : name.size();
  for (const auto& m : kModifierGlyphs)
    if (modifiers & m.flag) size += m.glyph.size();

  std::string result;
  result.reserve(size);
  for (const auto& m : kModifierGlyphs)
    if (modifiers & m.flag) result += m.glyph;
  if (name.empty()) {
    result += kUnknownPrefix;
    result.append(digits, digitCount);
  } else {
    result += name;
  }
  return result;
}

std::int64_t KeyCodeMap::keyCodeForName(std::string_view name) {
  if (name.empty()) return -1;
  const auto sameLetters = [](std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
      const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
      if (lower(a[i]) != lower(b[i])) return false;
    }
    return true;
  };
  for (std::size_t code = 0; code < kNames.size(); ++code)
    if (!kNames[code].empty() && sameLetters(kNames[code], name)) return static_cast<std::int64_t>(code);
  return -1;
}

}  // namespace orla
