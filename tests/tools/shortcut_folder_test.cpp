#include "tools/orla/shortcut_folder.h"

#include <gtest/gtest.h>

#include "tests/support/temp_folder.h"

namespace orla::cli {
namespace {

using testing::TempFolder;

std::string shortcut(std::string_view name, std::string_view hotkey, bool enabled = true) {
  return std::string(R"({"name": ")") + std::string(name) + R"(", "hotkey": ")" + std::string(hotkey) +
         R"(", "enabled": )" + (enabled ? "true" : "false") + R"(, "actions": []})";
}

std::vector<std::string> lines(const ShortcutFolder& read, const TempFolder& folder) {
  std::vector<std::string> out;
  for (const FolderProblem& problem : read.problems)
    out.push_back(problem.file.filename().string() + ": " + problem.reason);
  (void)folder;
  return out;
}

TEST(ShortcutFolderTest, ReportsEachBadFileAndKeepsTheOthers) {
  TempFolder folder;
  folder.write("a.json", shortcut("A", "ctrl+alt+u"));
  folder.write("b.json", shortcut("B", "⌃⌥U"));        // the same combination: A keeps it
  folder.write("c.json", shortcut("C", "ctrl+alt"));   // no key
  folder.write("d.json", "{\"actions\": [");           // does not read
  folder.write("e.json", shortcut("A", "ctrl+alt+e")); // a name taken
  folder.write("f.json", shortcut("F", "⌃⌥U", false)); // disabled: no clash
  folder.write("g.json", R"({"hotkey": 5, "actions": []})");
  folder.write(".hidden.json", shortcut("H", "ctrl+alt+h"));
  folder.write("notes.txt", "not a shortcut");
  const ShortcutFolder read = readShortcutFolder(folder.path());
  ASSERT_EQ(read.bindings.size(), 1u);
  EXPECT_EQ(read.bindings[0].shortcut, "A");
  EXPECT_EQ(hotkeyText(read.bindings[0].hotkey), "⌃⌥U");
  EXPECT_EQ(read.shortcuts.size(), 4u);  // A, B, C, F: each still runs by name
  const std::vector<std::string> expected = {
      "d.json: not valid JSON at line 1, column 14",
      "e.json: the shortcut “A” of a.json has this name already",
      R"(g.json: "hotkey" must be a text such as "ctrl+alt+u")",
      "b.json: the hotkey ⌃⌥U is already the hotkey of “A”, which keeps it",
      "c.json: the hotkey “ctrl+alt” has no key",
  };
  EXPECT_EQ(lines(read, folder), expected);
}

TEST(ShortcutFolderTest, AFileThatStopsReadingKeepsItsLastGoodVersion) {
  TempFolder folder;
  folder.write("a.json", shortcut("A", "ctrl+alt+u"));
  const ShortcutFolder first = readShortcutFolder(folder.path());
  folder.write("a.json", R"({"name": "A", "hotkey": "ctrl+alt+u", "act)");  // caught half written
  const ShortcutFolder second = readShortcutFolder(folder.path(), &first.shortcuts);
  ASSERT_EQ(second.bindings.size(), 1u);
  EXPECT_EQ(second.bindings[0].shortcut, "A");
  ASSERT_EQ(second.problems.size(), 1u);
  EXPECT_NE(second.problems[0].reason.find("its last good version stays in use"), std::string::npos);
  // Without a last good version, it is simply absent.
  EXPECT_TRUE(readShortcutFolder(folder.path()).bindings.empty());
}

TEST(ShortcutFolderTest, AThousandShortcutsEachKeepTheirHotkey) {
  TempFolder folder;
  const char* modifiers[] = {"ctrl+alt+", "ctrl+shift+", "alt+shift+", "super+", "super+alt+",
                             "ctrl+super+", "ctrl+alt+shift+", "super+shift+"};
  const char* keys[] = {"a", "b", "c", "d", "e", "f", "g", "h", "i", "j", "k", "l", "m", "n", "o", "p", "q",
                        "r", "s", "t", "u", "v", "w", "x", "y", "z", "1", "2", "3", "4", "5", "6", "7", "8",
                        "9", "0", "f1", "f2", "f3", "f4", "f5", "f6", "f7", "f8", "f9", "f10", "f11", "f12",
                        "f13", "f14", "f15", "f16", "f17", "f18", "f19", "f20", "left", "right", "up", "down",
                        "home", "end", "pageup", "pagedown", "return", "tab", "space", "escape", "backspace",
                        "delete", ",", ".", "/", ";", "'", "[", "]", "-", "=", "`", "\\\\", "menu", "help",
                        "f1", "f1", "f1", "f1", "f1", "f1", "f1", "f1", "f1", "f1", "f1", "f1", "f1", "f1", "f1",
                        "f1", "f1", "f1", "f1", "f1", "f1", "f1", "f1", "f1", "f1", "f1", "f1", "f1", "f1", "f1",
                        "f1", "f1", "f1", "f1", "f1", "f1", "f1", "f1", "f1", "f1", "f1", "f1", "f1", "f1", "f1"};
  int written = 0;
  for (const char* key : keys)
    for (const char* modifier : modifiers) {
      if (written == 1000) break;
      char name[32];
      std::snprintf(name, sizeof name, "s%04d.json", written);
      // Built by appending: GCC 12 at -O3 warns falsely about "S" + std::string.
      std::string title = "S";
      title += std::to_string(written);
      folder.write(name, shortcut(title, std::string(modifier) + key));
      ++written;
    }
  ASSERT_EQ(written, 1000);
  const ShortcutFolder read = readShortcutFolder(folder.path());
  EXPECT_EQ(read.shortcuts.size(), 1000u);
  // Every combination is held once; every repeat of one is reported.
  EXPECT_EQ(read.bindings.size() + read.problems.size(), 1000u);
  std::set<Hotkey> distinct;
  for (const Binding& binding : read.bindings) EXPECT_TRUE(distinct.insert(binding.hotkey).second);
  for (const FolderProblem& problem : read.problems)
    EXPECT_NE(problem.reason.find("is already the hotkey of"), std::string::npos) << problem.line();
}

}  // namespace
}  // namespace orla::cli
