#include "plugins/apps/folder_plugin.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>

#include <orla/models/url.h>
#include "tests/sim_fixture.h"
#include "tests/support/temp_folder.h"

namespace orla {
namespace {

namespace fs = std::filesystem;
using Kind = FolderMenuEntry::Kind;
using testing::TempFolder;

// The menu as one line: "Open “x”" entries and separators left out, a
// submenu in brackets, a subfolder shown as an entry with a trailing "/",
// disabled notes in parentheses.
std::string shape(const std::vector<FolderMenuEntry>& entries) {
  std::string out;
  for (const FolderMenuEntry& e : entries) {
    if (e.kind == Kind::openFolder || e.kind == Kind::separator) continue;
    if (!out.empty()) out += ", ";
    switch (e.kind) {
      case Kind::folder: out += e.title + " [" + shape(e.submenu) + "]"; break;
      case Kind::folderItem: out += e.title + "/"; break;
      case Kind::note: out += "(" + e.title + ")"; break;
      default: out += e.title;
    }
  }
  return out;
}

FolderMenuOptions options(int order, bool foldersFirst, bool showHidden, int depth) {
  FolderMenuOptions o;
  o.order = order;
  o.foldersFirst = foldersFirst;
  o.showHidden = showHidden;
  o.depth = depth;
  o.locale = "en_US";
  return o;
}

void touch(const std::string& path, int ageInHours = 0) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path) << "x";
  fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::hours(ageInHours));
}

class FolderPluginTest : public testing::SimTest {
 protected:
  FolderPluginTest() { desktop->setLocale("en_US"); }
  std::string menu(const std::string& folder, const FolderMenuOptions& given) {
    const auto built = plugin.buildMenu(folder, given);
    return built ? shape(*built) : "failed: " + built.error();
  }
  std::vector<std::string> traced(std::string_view category) const {
    std::vector<std::string> out;
    for (const auto& entry : desktop->trace(category)) out.push_back(entry.text);
    return out;
  }

  TempFolder tmp{"orla-folder"};
  FolderPlugin plugin{platform};
};

TEST_F(FolderPluginTest, OrderFoldersFirstAndHiddenItems) {
  touch(tmp / "top/b", 3);
  touch(tmp / "top/a", 1);
  touch(tmp / "top/File 10", 2);
  touch(tmp / "top/File 2", 4);
  touch(tmp / "top/.DS_Store");
  touch(tmp / "top/.git/config");
  touch(tmp / "top/secret");
  std::ofstream(tmp / "top/.hidden") << "secret\n";
  fs::create_directories(tmp / "top/Sub");
  const struct {
    FolderMenuOptions given;
    const char* shape;
  } cases[] = {
      {options(0, false, false, 3), "a, b, File 2, File 10, Sub [(Empty folder)]"},
      {options(0, true, false, 3), "Sub [(Empty folder)], a, b, File 2, File 10"},
      {options(1, false, false, 3), "Sub [(Empty folder)], a, File 10, b, File 2"},
      {options(1, true, false, 1), "Sub/, a, File 10, b, File 2"},
      {options(0, false, true, 1), ".DS_Store, .git/, .hidden, a, b, File 2, File 10, secret, Sub/"},
  };
  for (const auto& c : cases) EXPECT_EQ(menu(tmp / "top", c.given), c.shape) << c.shape;
}

TEST_F(FolderPluginTest, DepthAndLinksThatLoopBackEndTheTree) {
  touch(tmp / "top/A/B/C/deep.txt");
  touch(tmp / "top/A/note.txt");
  fs::create_directory_symlink(tmp / "top", tmp / "top/A/up");
  fs::create_directory_symlink(tmp / "top/A", tmp / "top/A/self");
  fs::create_directory_symlink(tmp / "top/A/B", tmp / "top/A/B/C/back");
  const struct {
    int depth;
    const char* shape;
  } cases[] = {
      {1, "A/"},
      {2, "A [B/, note.txt, self/, up/]"},
      {3, "A [B [C/], note.txt, self/, up/]"},
      {5, "A [B [C [back/, deep.txt]], note.txt, self/, up/]"},
  };
  for (const auto& c : cases) EXPECT_EQ(menu(tmp / "top", options(0, false, false, c.depth)), c.shape) << c.depth;
}

TEST_F(FolderPluginTest, ALevelShowsTwoHundredItemsAndOffersTheRest) {
  for (int i = 0; i < 250; ++i) touch(tmp / ("Big/f" + std::to_string(1000 + i)));
  const auto built = plugin.buildMenu(tmp / "Big", {});
  ASSERT_TRUE(built) << built.error();
  const std::vector<FolderMenuEntry>& level = *built;
  ASSERT_EQ(level.size(), 2u + 200u + 1u);
  EXPECT_EQ(level[0].kind, Kind::openFolder);
  EXPECT_EQ(level[0].title, "Open \u201CBig\u201D");
  EXPECT_EQ(level[2].title, "f1000");
  EXPECT_EQ(level[201].title, "f1199");
  EXPECT_EQ(level.back().kind, Kind::more);
  EXPECT_EQ(level.back().title, "Show all 250 items in \u201CBig\u201D\u2026");
  EXPECT_EQ(level.back().path, tmp / "Big");
}

// Folders held in memory, each listing taking the time given: the limits on
// the whole tree, without making thousands of files.
class SlowFiles : public Files {
 public:
  explicit SlowFiles(Clock& clock) : clock_(clock) {}
  bool itemExists(std::string_view path) const override { return folders.count(std::string(path)) > 0; }
  bool folderExists(std::string_view path) const override { return itemExists(path); }
  Checked<FolderListing> listFolder(std::string_view path) const override {
    clock_.sleep(perListing);
    const auto it = folders.find(std::string(path));
    if (it == folders.end()) return fail("Permission denied.");
    return it->second;
  }
  void add(const std::string& path, int folderCount, int fileCount) {
    FolderListing listing{path.substr(path.rfind('/') + 1), path, {}};
    for (int i = 0; i < folderCount + fileCount; ++i) {
      const std::string name = (i < folderCount ? "d" : "f") + std::to_string(100 + i);
      listing.items.push_back({name, name, path + "/" + name, path + "/" + name, i < folderCount});
    }
    folders[path] = std::move(listing);
  }
  std::map<std::string, FolderListing> folders;
  std::chrono::microseconds perListing{0};
  Clock& clock_;
};

std::size_t countItems(const std::vector<FolderMenuEntry>& entries) {
  std::size_t n = 0;
  for (const FolderMenuEntry& e : entries)
    if (e.kind == Kind::item || e.kind == Kind::folder || e.kind == Kind::folderItem) n += 1 + countItems(e.submenu);
  return n;
}

TEST_F(FolderPluginTest, TheWholeTreeStaysWithinItsEntryAndTimeBudgets) {
  SlowFiles files(platform->clock());
  files.add("/r", 15, 0);
  for (int i = 0; i < 15; ++i) files.add("/r/d" + std::to_string(100 + i), 0, 200);
  files.folders.erase("/r/d114");  // unreadable
  const FolderMenuOptions twoLevels = options(0, false, false, 2);

  auto built = buildFolderMenu(files, platform->clock(), "/r", twoLevels);
  ASSERT_TRUE(built) << built.error();
  // 15 folders, then 1,985 files: nine full levels and one of 185; the rest
  // stay entries that open their folder.
  EXPECT_EQ(countItems(*built), 2000u);
  EXPECT_EQ((*built)[2 + 9].kind, Kind::folder);
  EXPECT_EQ(countItems((*built)[2 + 9].submenu), 185u);
  EXPECT_EQ((*built)[2 + 9].submenu.back().title, "Show all 200 items in \u201Cd109\u201D\u2026");
  EXPECT_EQ((*built)[2 + 10].kind, Kind::folderItem);

  // Listing stops once two seconds have gone: the levels listed by then stay.
  files.perListing = std::chrono::milliseconds(700);
  built = buildFolderMenu(files, platform->clock(), "/r", twoLevels);
  ASSERT_TRUE(built);
  EXPECT_EQ((*built)[2].kind, Kind::folder);
  EXPECT_EQ((*built)[3].kind, Kind::folder);
  EXPECT_EQ((*built)[4].kind, Kind::folderItem);

  files.perListing = {};
  files.add("/r", 1, 0);
  files.folders["/r"].items[0].path = "/r/d114";
  files.folders["/r"].items[0].displayName = "Locked";
  built = buildFolderMenu(files, platform->clock(), "/r", twoLevels);
  ASSERT_TRUE(built);
  EXPECT_EQ(shape(*built), "Locked [(Can't read this folder)]");
  EXPECT_EQ((*built)[2].submenu[0].title, "Open \u201CLocked\u201D");

  EXPECT_FALSE(buildFolderMenu(files, platform->clock(), "/nowhere", twoLevels));
}

TEST_F(FolderPluginTest, Validation) {
  touch(tmp / "x y/doc.txt");
  desktop->setEnvironment({{"HOME", tmp.path().string()}});
  const std::string file = tmp / "x y/doc.txt";
  const struct {
    ActionData data;
    std::optional<std::string> problem;
  } cases[] = {
      {{}, "Choose the folder to show as a menu with Browse\u2026"},
      {{{"folderPath", " \n "}}, "Choose the folder to show as a menu with Browse\u2026"},
      {{{"path", tmp / "gone"}},
       "The folder \u201C" + (tmp / "gone") + "\u201D can't be found. Choose it again with Browse\u2026"},
      {{{"Path", file}}, "\u201C" + file + "\u201D is a file, not a folder. Choose a folder with Browse\u2026"},
      {{{"folder", fileURLFromPath(file)}},
       "\u201C" + file + "\u201D is a file, not a folder. Choose a folder with Browse\u2026"},
      {{{"folderPath", "file://" + tmp.path().string() + "/x%20y"}}, std::nullopt},
      {{{"folderPath", " ~/x y "}}, std::nullopt},
      {{{"folderPath", "~/x y"}, {"depth", 0}}, "The depth must be between 1 and 5 levels."},
      {{{"folderPath", "~/x y"}, {"Depth", 6}}, "The depth must be between 1 and 5 levels."},
      {{{"folderPath", "~/x y"}, {"depth", std::int64_t{4294967297}}}, "The depth must be between 1 and 5 levels."},
      {{{"folderPath", "~/x y"}, {"order", 2}}, "Choose the order from the menu."},
      {{{"folderPath", "~/x y"}, {"Order", -1}, {"depth", 5}}, "Choose the order from the menu."},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(plugin.validate(c.data), c.problem) << c.data.size();
    if (c.problem) {
      EXPECT_EQ(plugin.execute(c.data), PluginResult::failure(*c.problem));
    }
  }
  EXPECT_TRUE(desktop->trace("menu").empty());
}

TEST_F(FolderPluginTest, TheItemChosenOpensWithItsApplicationAndFoldersInTheFileManager) {
  touch(tmp / "Docs/Sub/report.txt");
  touch(tmp / "Docs/odd.zzz");
  fs::create_directories(tmp / "Docs/Calc.app/Contents");
  desktop->installApplication({tmp / "Docs/Calc.app", "org.example.Calc", "Calc", "", ActivationPolicy::regular,
                               std::chrono::microseconds(0), sim::QuitBehaviour::quits});
  fs::create_symlink(tmp / "Docs/deleted.txt", tmp / "Docs/gone.txt");
  const std::string docs = tmp / "Docs";
  const struct {
    std::optional<std::string> choice;
    PluginResult result;
    const char* opened;  // the trace entry of the workspace, if any
  } cases[] = {
      {"Sub > report.txt", PluginResult::success("Opened \u201Creport.txt\u201D."),
       "open Docs/Sub/report.txt with /System/Applications/TextEdit.app"},
      {"Open \u201CDocs\u201D", PluginResult::success("Opened the folder \u201CDocs\u201D."), "reveal Docs"},
      {"Sub > Open \u201CSub\u201D", PluginResult::success("Opened the folder \u201CSub\u201D."), "reveal Docs/Sub"},
      {"Calc", PluginResult::success("Opened \u201CCalc\u201D."), "open Docs/Calc.app"},
      {"odd.zzz",
       PluginResult::failure("Unable to open \u201Codd.zzz\u201D. No application is set to open this kind of file. "
                             "Use Open Document with App to choose one."),
       "open Docs/odd.zzz (no application)"},
      {"gone.txt",
       PluginResult::failure(
           "\u201Cgone.txt\u201D is no longer there. Run the folder menu again to see the folder as it is now."),
       nullptr},
      {std::nullopt, PluginResult::silentSuccess(), nullptr},
  };
  for (const auto& c : cases) {
    desktop->clearTrace();
    desktop->scriptMenuChoice(c.choice);
    EXPECT_EQ(plugin.execute({{"folderPath", docs}}), c.result) << c.choice.value_or("dismissed");
    std::vector<std::string> opened;
    for (const auto& entry : desktop->trace())
      if (entry.category == "open" || entry.category == "reveal") {
        std::string text = entry.category + " " + entry.text;
        for (std::size_t at; (at = text.find(tmp.path().string() + "/")) != std::string::npos;)
          text.erase(at, tmp.path().string().size() + 1);
        opened.push_back(text);
      }
    if (c.opened) EXPECT_EQ(opened, std::vector<std::string>{c.opened}) << c.choice.value_or("dismissed");
    else EXPECT_TRUE(opened.empty()) << opened.front();
  }
  // What popped up: the entry that opens the folder, a line, then the items
  // with their icons, a subfolder as a submenu.
  desktop->clearTrace();
  desktop->scriptMenuChoice(std::nullopt);
  (void)plugin.execute({{"folderPath", docs}});
  EXPECT_EQ(traced("menu").front(),
            "pop up \u201COpen \u201CDocs\u201D\u201D, \u2014, \u201CCalc\u201D, \u201Cgone.txt\u201D, "
            "\u201Codd.zzz\u201D, \u201CSub\u201D [\u201COpen \u201CSub\u201D\u201D, \u2014, \u201Creport.txt\u201D]");
}

}  // namespace
}  // namespace orla
