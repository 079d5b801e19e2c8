// Naming a window's application from desktop entries. Every entry is first
// judged from its naming keys alone and only the chosen one read whole, so
// the cases here are the ways a key file can say something else than its
// naming lines seem to: keys in other groups, localized keys, comments,
// white space, repeated keys, a file GLib's reader refuses. Random entries
// then compare the result with reading every entry whole.
#include "platform/linux/desktop_entries.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <orla/models/text.h>
#include "tests/support/temp_folder.h"

namespace orla::linux_desktop {
namespace {

namespace fs = std::filesystem;

// Two application folders (the user's first) and two programs, one also
// reached through a symbolic link.
class Desktop {
 public:
  Desktop() {
    editor = folder.write("bin/editor", "#!/bin/sh\n");
    other = folder.write("bin/other", "#!/bin/sh\n");
    fs::permissions(editor, fs::perms::owner_all);
    fs::permissions(other, fs::perms::owner_all);
    fs::create_symlink(editor, folder / "bin/editor-link");
  }
  std::vector<fs::path> folders() const { return {folder.path() / "user", folder.path() / "system"}; }
  void entry(const std::string& where, const std::string& text) const { folder.write(where, text); }

  testing::TempFolder folder{"orla-entries"};
  std::string editor, other;
};

std::string idOf(const std::optional<DesktopEntry>& entry) { return entry ? entry->id : "(none)"; }

struct Case {
  const char* what;
  std::vector<std::pair<std::string, std::string>> files;  // under the temporary folder
  const char* windowClass;
  bool byProgram;  // the window's process runs bin/editor
  const char* expected;
};

TEST(DesktopEntries, TheNamingKeysAreReadAsTheWholeFileWouldBe) {
  const std::string app = "[Desktop Entry]\nType=Application\nName=A\n";
  const std::vector<Case> cases = {
      {"StartupWMClass names the class, ignoring case",
       {{"system/a.desktop", app + "StartupWMClass=eDiToR\n"}}, "Editor", false, "a.desktop"},
      {"the key in another group says nothing",
       {{"system/a.desktop", app + "[Desktop Action new]\nStartupWMClass=Editor\n"}}, "Editor", false, "(none)"},
      {"a group of the same name again adds to it",
       {{"system/a.desktop", app + "[Other]\nX=1\n[Desktop Entry]\nStartupWMClass=Editor\n"}}, "Editor", false,
       "a.desktop"},
      {"white space before the key and around '='",
       {{"system/a.desktop", app + "  StartupWMClass = Editor\n"}}, "Editor", false, "a.desktop"},
      {"a localized key is another key",
       {{"system/a.desktop", app + "StartupWMClass[de]=Editor\n"}}, "Editor", false, "(none)"},
      {"a comment is no key", {{"system/a.desktop", app + "#StartupWMClass=Editor\n"}}, "Editor", false, "(none)"},
      {"the last of a repeated key counts",
       {{"system/a.desktop", app + "StartupWMClass=Editor\nStartupWMClass=Other\n"},
        {"system/b.desktop", app + "StartupWMClass=Other\nStartupWMClass=Editor\n"}},
       "Editor", false, "b.desktop"},
      {"a hidden entry is passed over",
       {{"system/a.desktop", app + "Hidden=true\nStartupWMClass=Editor\n"},
        {"system/b.desktop", app + "StartupWMClass=Editor\n"}},
       "Editor", false, "b.desktop"},
      {"an entry whose TryExec program is missing is passed over",
       {{"system/a.desktop", app + "TryExec=orla-no-such-program\nStartupWMClass=Editor\n"}}, "Editor", false,
       "(none)"},
      {"not an application", {{"system/a.desktop", "[Desktop Entry]\nType=Link\nStartupWMClass=Editor\n"}}, "Editor",
       false, "(none)"},
      {"a file the reader refuses is passed over, whatever its naming lines say",
       {{"system/a.desktop", "Stray=1\n" + app + "StartupWMClass=Editor\n"},
        {"system/b.desktop", app + "StartupWMClass=Editor\n"}},
       "Editor", false, "b.desktop"},
      {"by the program it runs", {{"system/a.desktop", app + "Exec=\"BIN/editor\" %U\n"}}, "Mousepad", true,
       "a.desktop"},
      {"by the program through a symbolic link", {{"system/a.desktop", app + "Exec=BIN/editor-link\n"}}, "Mousepad",
       true, "a.desktop"},
      {"another program is not it", {{"system/a.desktop", app + "Exec=BIN/other\n"}}, "Mousepad", true, "(none)"},
      {"an entry not shown is not named by its program",
       {{"system/a.desktop", app + "NoDisplay=true\nExec=BIN/editor\n"}}, "Mousepad", true, "(none)"},
      {"a program in an action is not the entry's", {{"system/a.desktop", app + "[Desktop Action x]\nExec=BIN/editor\n"}},
       "Mousepad", true, "(none)"},
      {"the id beats the program, the class beats both",
       {{"system/a.desktop", app + "Exec=BIN/editor\n"},
        {"system/x-mousepad.desktop", app},
        {"system/z.desktop", app + "StartupWMClass=x-Mousepad\n"}},
       "x-Mousepad", true, "z.desktop"},
      {"the id beats the program",
       {{"system/a.desktop", app + "Exec=BIN/editor\n"}, {"system/x-mousepad.desktop", app}}, "x-Mousepad", true,
       "x-mousepad.desktop"},
      {"the user's entry hides the system's of the same id",
       {{"user/a.desktop", app + "Hidden=true\n"}, {"system/a.desktop", app + "StartupWMClass=Editor\n"}}, "Editor",
       false, "(none)"},
      {"an entry in a subfolder has the folder in its id",
       {{"system/org/a.desktop", app + "StartupWMClass=Editor\n"}}, "Editor", false, "org-a.desktop"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Desktop desktop;
    for (const auto& [where, text] : c.files) {
      std::string written = text;
      for (std::size_t at; (at = written.find("BIN/")) != std::string::npos;)
        written.replace(at, 3, (desktop.folder.path() / "bin").string());
      desktop.entry(where, written);
    }
    const auto entry =
        desktopEntryForWindowClass("x", c.windowClass, c.byProgram ? desktop.editor : "", desktop.folders());
    EXPECT_EQ(idOf(entry), c.expected);
    if (entry) {
      EXPECT_EQ(entry->name, "A");
    }
  }
}

// The naming as it was before the naming keys were read apart: every entry
// read whole.
std::optional<DesktopEntry> readingEveryEntryWhole(const std::string& windowClass, const std::string& executable,
                                                   const fs::path& folder) {
  std::optional<DesktopEntry> found, byId, byProgram;
  // In the order the naming lists the folder.
  std::vector<fs::path> listed;
  for (const auto& item : fs::recursive_directory_iterator(folder))
    if (item.path().extension() == ".desktop") listed.push_back(item.path());
  for (const fs::path& file : listed) {
    std::unique_ptr<GKeyFile, decltype(&g_key_file_free)> keys(g_key_file_new(), g_key_file_free);
    if (!g_key_file_load_from_file(keys.get(), file.c_str(), G_KEY_FILE_NONE, nullptr)) continue;
    auto text = [&](const char* key) {
      gchar* value = g_key_file_get_string(keys.get(), "Desktop Entry", key, nullptr);
      std::string out = value ? value : "";
      g_free(value);
      return out;
    };
    if (text("Type") != "Application" || g_key_file_get_boolean(keys.get(), "Desktop Entry", "Hidden", nullptr))
      continue;
    const std::string id = file.filename().string();
    const bool names = equalsIgnoringCase(text("StartupWMClass"), windowClass);
    std::string program;
    if (const std::string exec = text("Exec"); !exec.empty()) {
      gchar** argv = nullptr;
      if (g_shell_parse_argv(exec.c_str(), nullptr, &argv, nullptr) && argv && argv[0]) program = argv[0];
      g_strfreev(argv);
    }
    std::error_code ec;
    const bool runs = !program.empty() && !executable.empty() && fs::canonical(program, ec) == executable;
    const DesktopEntry entry{id, "", file.string()};
    if (names) {
      found = entry;
      break;
    }
    if (!byId && equalsIgnoringCase(id.substr(0, id.size() - 8), windowClass)) byId = entry;
    else if (!byProgram && !g_key_file_get_boolean(keys.get(), "Desktop Entry", "NoDisplay", nullptr) && runs)
      byProgram = entry;
  }
  return found ? found : byId ? byId : byProgram;
}

TEST(DesktopEntries, RandomEntriesAreNamedAsReadingThemWholeNamesThem) {
  std::mt19937 random(20261124);
  auto pick = [&](std::initializer_list<const char*> choices) {
    return std::string(*(choices.begin() + std::uniform_int_distribution<std::size_t>(0, choices.size() - 1)(random)));
  };
  for (int round = 0; round < 40; ++round) {
    Desktop desktop;
    const std::string bin = (desktop.folder.path() / "bin").string();
    for (int i = 0; i < 12; ++i) {
      std::string text;
      const int lines = std::uniform_int_distribution<int>(2, 9)(random);
      if (random() % 9 == 0) text += "Stray=1\n";
      text += pick({"[Desktop Entry]\n", "[Desktop Entry]\r\n", "  [Desktop Entry]\n", "[Desktop Action a]\n"});
      for (int l = 0; l < lines; ++l) {
        text += pick({"", " ", "\t", "#"});
        text += pick({"Type", "Type", "StartupWMClass", "StartupWMClass[de]", "Exec", "Hidden", "NoDisplay", "Name",
                      "Comment[fr]"});
        text += pick({"=", " = ", "\t="});
        text += pick({"Application", "Editor", "editor ", "Other", "true", "false", "\"BIN/editor\" %U",
                      "BIN/editor-link", "BIN/other", "Link"});
        text += pick({"\n", "\r\n", "\n", "\n[Desktop Entry]\n", "\n[Desktop Action b]\n"});
      }
      for (std::size_t at; (at = text.find("BIN")) != std::string::npos;) text.replace(at, 3, bin);
      // Some named after the window's class, so that the id can name it.
      const std::string name = pick({"editor", "a", "b"}) + (random() % 3 == 0 ? "" : std::to_string(i));
      desktop.entry("system/" + name + ".desktop", text);
    }
    const bool byProgram = random() % 2 == 0;
    const auto expected =
        readingEveryEntryWhole("Editor", byProgram ? desktop.editor : "", desktop.folder.path() / "system");
    const auto named = desktopEntryForWindowClass("x", "Editor", byProgram ? desktop.editor : "", desktop.folders());
    ASSERT_EQ(idOf(named), idOf(expected)) << "round " << round;
  }
}

}  // namespace
}  // namespace orla::linux_desktop
