#include <orla/models/key_code_map.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <map>
#include <set>
#include <string>

namespace orla {
namespace {

constexpr std::uint64_t kCommand = 0x100000;
constexpr std::uint64_t kShift = 0x20000;
constexpr std::uint64_t kOption = 0x80000;
constexpr std::uint64_t kControl = 0x40000;
constexpr std::uint64_t kCapsLock = 0x10000;
constexpr std::uint64_t kFunction = 0x800000;
constexpr std::uint64_t kAllSix = 0x9F0000;

TEST(KeyCodeMap, ShowsRepresentativeCombinations) {
  struct Case {
    std::int64_t keyCode;
    std::uint64_t modifiers;
    const char* expected;
  };
  const Case cases[] = {
      // Letters, upper-case, including the codes the clipboard commands post.
      {0, 0, "A"},
      {8, kCommand, "⌘C"},
      {9, kCommand, "⌘V"},
      {7, kCommand | kShift, "⇧⌘X"},
      {40, kOption | kCommand, "⌥⌘K"},
      {16, 0, "Y"},
      {17, 0, "T"},
      {46, kControl, "⌃M"},
      // Digits: 5 and 6 are out of sequence in the code table.
      {18, 0, "1"},
      {22, 0, "6"},
      {23, 0, "5"},
      {25, 0, "9"},
      {28, 0, "8"},
      {29, kCommand, "⌘0"},
      // Punctuation, the unshifted character even with Shift held.
      {24, 0, "="},
      {27, 0, "-"},
      {30, 0, "]"},
      {33, 0, "["},
      {39, 0, "'"},
      {41, 0, ";"},
      {42, 0, "\\"},
      {43, kCommand, "⌘,"},
      {44, kShift | kCommand, "⇧⌘/"},
      {47, 0, "."},
      {50, kCommand, "⌘`"},
      // Editing and navigation.
      {36, 0, "↩"},
      {48, kControl, "⌃⇥"},
      {49, kCommand, "⌘Space"},
      {51, kOption, "⌥⌫"},
      {117, 0, "⌦"},
      {53, 0, "⎋"},
      {115, 0, "↖"},
      {119, 0, "↘"},
      {116, 0, "⇞"},
      {121, 0, "⇟"},
      {114, 0, "Help"},
      {123, kControl, "⌃←"},
      {124, 0, "→"},
      {125, 0, "↓"},
      {126, kControl | kOption | kCommand, "⌃⌥⌘↑"},
      // Keypad keys must not read like their main-block twins.
      {82, 0, "Keypad 0"},
      {83, kCommand, "⌘Keypad 1"},
      {92, 0, "Keypad 9"},
      {91, 0, "Keypad 8"},
      {65, 0, "Keypad ."},
      {67, 0, "Keypad *"},
      {69, 0, "Keypad +"},
      {75, 0, "Keypad /"},
      {78, 0, "Keypad -"},
      {81, 0, "Keypad ="},
      {76, 0, "⌤"},
      {71, 0, "⌧"},
      // Modifier keys on their own, left and right.
      {55, 0, "⌘"},
      {56, 0, "⇧"},
      {57, 0, "⇪"},
      {58, 0, "⌥"},
      {59, 0, "⌃"},
      {54, 0, "Right ⌘"},
      {60, 0, "Right ⇧"},
      {61, kCommand, "⌘Right ⌥"},
      {62, 0, "Right ⌃"},
      {63, 0, "fn"},
      // Media keys.
      {72, 0, "Volume Up"},
      {73, 0, "Volume Down"},
      {74, 0, "Mute"},
      // fn and Caps Lock in front of the chord keys.
      {122, kFunction, "fnF1"},
      {0, kCapsLock | kShift, "⇪⇧A"},
      {0, kAllSix, "fn⇪⌃⌥⇧⌘A"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(KeyCodeMap::displayString(c.keyCode, c.modifiers), c.expected)
        << "key code " << c.keyCode << ", modifiers 0x" << std::hex << c.modifiers;
}

TEST(KeyCodeMap, FunctionKeysMapToTheirScatteredCodes) {
  const std::map<std::int64_t, std::string> expected{
      {122, "F1"},  {120, "F2"},  {99, "F3"},   {118, "F4"},  {96, "F5"},
      {97, "F6"},   {98, "F7"},   {100, "F8"},  {101, "F9"},  {109, "F10"},
      {103, "F11"}, {111, "F12"}, {105, "F13"}, {107, "F14"}, {113, "F15"},
      {106, "F16"}, {64, "F17"},  {79, "F18"},  {80, "F19"},  {90, "F20"},
  };
  for (const auto& [code, name] : expected)
    EXPECT_EQ(KeyCodeMap::displayString(code, 0), name) << "key code " << code;
}

// A key recorded on one code must never be shown as another key: every code
// of the table has its own name, and the whole alphabet is there.
TEST(KeyCodeMap, EveryCodeHasOneDistinctName) {
  std::set<std::string> names;
  int known = 0;
  for (std::int64_t code = 0; code < 128; ++code) {
    const std::string name = KeyCodeMap::displayString(code, 0);
    ASSERT_FALSE(name.empty()) << "key code " << code;
    if (name.rfind("Key ", 0) == 0) {
      EXPECT_EQ(name, "Key " + std::to_string(code));
      continue;
    }
    ++known;
    EXPECT_TRUE(names.insert(name).second) << "\"" << name << "\" is used twice, again by " << code;
  }
  for (char letter = 'A'; letter <= 'Z'; ++letter)
    EXPECT_EQ(names.count(std::string(1, letter)), 1u) << letter;
  for (char digit = '0'; digit <= '9'; ++digit) {
    EXPECT_EQ(names.count(std::string(1, digit)), 1u) << digit;
    EXPECT_EQ(names.count(std::string("Keypad ") + digit), 1u) << digit;
  }
  // 120 named keys; the 8 codes left (52, 66, 68, 70, 77, 108, 112, 127) are
  // produced by no Mac keyboard.
  EXPECT_EQ(known, 120);
}

// Modifier-only commands are shown by dropping the last character of the
// string for key code 0, so the rest must be exactly the modifier glyphs,
// whatever the combination and whatever other bits ride along.
TEST(KeyCodeMap, KeyCodeZeroEndsInItsNameForEveryCombination) {
  const std::uint64_t flags[] = {kFunction, kCapsLock, kControl, kOption, kShift, kCommand};
  const char* glyphs[] = {"fn", "⇪", "⌃", "⌥", "⇧", "⌘"};
  // Device-dependent bits, numeric pad, help and non-coalesced bits.
  const std::uint64_t noise[] = {0, 0x1 | 0x100, 0x200000 | 0x400000 | 0x20000000,
                                 ~kAllSix};
  for (unsigned combo = 0; combo < 64; ++combo) {
    std::uint64_t modifiers = 0;
    std::string expectedPrefix;
    for (int i = 0; i < 6; ++i) {
      if (combo & (1u << i)) {
        modifiers |= flags[i];
        expectedPrefix += glyphs[i];
      }
    }
    for (std::uint64_t extra : noise) {
      const std::string shown = KeyCodeMap::displayString(0, modifiers | extra);
      ASSERT_FALSE(shown.empty());
      EXPECT_EQ(shown.back(), 'A');
      EXPECT_EQ(shown.substr(0, shown.size() - 1), expectedPrefix)
          << "modifiers 0x" << std::hex << (modifiers | extra);
    }
  }
}

TEST(KeyCodeMap, UnknownCodesFallBackToTheirNumber) {
  struct Case {
    std::int64_t keyCode;
    std::uint64_t modifiers;
    const char* expected;
  };
  const Case cases[] = {
      {52, 0, "Key 52"},  // gaps inside the table
      {66, 0, "Key 66"},
      {127, 0, "Key 127"},
      {128, 0, "Key 128"},
      {130, kCommand, "⌘Key 130"},
      {255, kControl | kShift, "⌃⇧Key 255"},
      {-1, 0, "Key -1"},
      {-1, kOption, "⌥Key -1"},
      {std::numeric_limits<std::int64_t>::min(), 0, "Key -9223372036854775808"},
      {std::numeric_limits<std::int64_t>::max(), kAllSix, "fn⇪⌃⌥⇧⌘Key 9223372036854775807"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(KeyCodeMap::displayString(c.keyCode, c.modifiers), c.expected)
        << "key code " << c.keyCode;
}

}  // namespace
}  // namespace orla
