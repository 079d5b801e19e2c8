#include <orla/models/hotkey.h>

#include <gtest/gtest.h>

namespace orla {
namespace {

TEST(HotkeyTest, ReadsBothFormsAndWritesTheGlyphForm) {
  struct Case {
    const char* text;
    const char* written;
  };
  const Case cases[] = {
      {"⌃⌥U", "⌃⌥U"},
      {"ctrl+alt+u", "⌃⌥U"},
      {"Alt+Ctrl+U", "⌃⌥U"},             // any order, any case
      {" control + option + u ", "⌃⌥U"},  // spaces around the words
      {"⌘⇧4", "⇧⌘4"},                     // glyphs in any order, written in the menu order
      {"super+shift+4", "⇧⌘4"},
      {"cmd+space", "⌘Space"},
      {"ctrl+alt+return", "⌃⌥↩"},
      {"⌃⌥↩", "⌃⌥↩"},
      {"F5", "F5"},                       // a function key needs no modifier
      {"shift+f12", "⇧F12"},
      {"ctrl++", "⌃="},                   // the plus key is the = key of a US keyboard
      {"ctrl+alt+pagedown", "⌃⌥⇟"},
      {"meta+left", "⌘←"},
  };
  for (const Case& c : cases) {
    auto hotkey = parseHotkey(c.text);
    ASSERT_TRUE(hotkey) << c.text << ": " << hotkey.error();
    EXPECT_EQ(hotkeyText(*hotkey), c.written) << c.text;
    // What is written reads back as the same combination.
    auto again = parseHotkey(hotkeyText(*hotkey));
    ASSERT_TRUE(again) << c.written;
    EXPECT_EQ(*again, *hotkey) << c.written;
  }
}

TEST(HotkeyTest, RefusesWhatCannotBeAHotkey) {
  struct Case {
    const char* text;
    const char* error;
  };
  const Case cases[] = {
      {"", "the hotkey is empty"},
      {"ctrl+alt", "the hotkey “ctrl+alt” has no key"},
      {"ctrl+alt+", "the hotkey “ctrl+alt+” has no key"},
      {"⌃⌥", "the hotkey “⌃⌥” has no key"},
      {"⌃⌥⌘", "the hotkey “⌃⌥⌘” has no key"},
      {"ctrl+alt+nosuchkey", "the hotkey “ctrl+alt+nosuchkey” names no key “nosuchkey”"},
      {"hyper+u", "the hotkey “hyper+u” has “hyper” where a modifier (ctrl, alt, shift or super) belongs"},
      {"u", "the hotkey “u” needs ⌃, ⌥ or ⌘, or it would take the key from every application"},
      {"shift+u", "the hotkey “shift+u” needs ⌃, ⌥ or ⌘, or it would take the key from every application"},
      {"⇧Space", "the hotkey “⇧Space” needs ⌃, ⌥ or ⌘, or it would take the key from every application"},
  };
  for (const Case& c : cases) {
    auto hotkey = parseHotkey(c.text);
    ASSERT_FALSE(hotkey) << c.text;
    EXPECT_EQ(hotkey.error(), c.error) << c.text;
  }
}

}  // namespace
}  // namespace orla
