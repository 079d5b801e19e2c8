// The simulated desktop's documents side: its Finder answering scripts, the
// handlers, the Trash, the printing tools, and their state in the state file.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include <orla/models/url.h>
#include <orla/platform/finder_scripts.h>
#include "platform/sim/sim_state.h"
#include "tests/sim_fixture.h"
#include "tests/support/temp_folder.h"

namespace orla {
namespace {

namespace fs = std::filesystem;
using testing::TempFolder;

class SimDocumentsTest : public testing::SimTest {
 protected:
  ScriptOutcome run(std::string source) {
    auto script = platform->scripting().compile(source);
    EXPECT_TRUE(script && *script);
    return (*script)->execute();
  }
  std::vector<std::string> traced(std::string_view category) const {
    std::vector<std::string> out;
    for (const auto& entry : desktop->trace(category)) out.push_back(entry.text);
    return out;
  }
  TempFolder tmp{"orla-simdocs"};
};

TEST_F(SimDocumentsTest, TheFinderAnswersItsReaderScriptsFromTheModel) {
  fs::create_directories(tmp / "Folder");
  const std::string file = tmp.write("a.txt", "a");
  desktop->finder().setSelection({file, tmp / "Folder"});
  EXPECT_EQ(run(std::string(kFinderSelectionScript)).stringValue, file + "\n" + (tmp / "Folder") + "/\n");
  EXPECT_EQ(run(std::string(kFinderFrontFolderScript)).stringValue, "");
  desktop->finder().setWindows({{tmp / "Folder", "list", {0, 0, 1, 1}}});
  EXPECT_EQ(run(std::string(kFinderFrontFolderScript)).stringValue, (tmp / "Folder") + "/");

  desktop->finder().setAutomationAllowed(false);
  const auto refused = run(std::string(kFinderSelectionScript));
  ASSERT_TRUE(refused.error);
  EXPECT_EQ(refused.error->number, -1743);
}

TEST_F(SimDocumentsTest, TheFinderRunsWindowStatementsAndStopsAtTheFirstError) {
  fs::create_directories(tmp / "A");
  const auto ok = run("tell application \"Finder\"\n    activate\n    set w to make new Finder window\n"
                      "    set target of w to POSIX file \"" + (tmp / "A") + "\" as alias\n"
                      "    set bounds of front Finder window to {1, 2, 3, 4}\nend tell");
  EXPECT_FALSE(ok.error);
  EXPECT_EQ(desktop->finder().windows(), (std::vector<sim::SimFinderWindow>{{tmp / "A", "icon", {1, 2, 3, 4}}}));
  EXPECT_EQ(traced("finder"), (std::vector<std::string>{"new window", "window 1 shows " + (tmp / "A"), "bounds {1, 2, 3, 4}"}));

  const auto missing = run("tell application \"Finder\"\n    set target of front Finder window to POSIX file \"" +
                           (tmp / "Gone") + "\" as alias\n    set current view of front Finder window to list view\nend tell");
  ASSERT_TRUE(missing.error);
  EXPECT_EQ(missing.error->number, -43);
  EXPECT_EQ(desktop->finder().windows().front().view, "icon");

  // A statement the model does not know leaves the script unanswered.
  const auto unknown = run("tell application \"Finder\"\n    empty the trash\nend tell");
  ASSERT_TRUE(unknown.error);
  EXPECT_EQ(unknown.error->number, -2700);
  const auto badEscape = run("tell application \"Finder\"\n    set target of front Finder window to POSIX file \"\\q\" as alias\nend tell");
  EXPECT_EQ(badEscape.error->number, -2700);
}

TEST_F(SimDocumentsTest, DocumentsOpenWithTheirKindsApplicationAndJoinTheRecentList) {
  auto& files = platform->fileWorkspace();
  const std::string pdf = tmp.write("p.pdf", "%PDF");
  const std::string odd = tmp.write("x.odd", "?");
  EXPECT_TRUE(files.openDocument(pdf));
  EXPECT_FALSE(files.openDocument(odd));
  EXPECT_FALSE(files.openDocument(tmp / "none.pdf"));
  EXPECT_EQ(platform->fileManager().recentDocuments(), (std::vector<RecentDocument>{{pdf, ""}}));
  desktop->documents().setDocumentHandler("ODD", "/Applications/Odd.app");
  EXPECT_TRUE(files.openDocument(odd));
  EXPECT_EQ(traced("open").back(), odd + " with /Applications/Odd.app");
  EXPECT_EQ(files.applicationForURL("HTTPS://example.com"), "/Applications/Safari.app");
  EXPECT_EQ(files.applicationForURL("gopher://example.com"), std::nullopt);
  EXPECT_EQ(files.applicationForURL("no scheme"), std::nullopt);
}

TEST_F(SimDocumentsTest, TheTrashKeepsBothItemsOfOneName) {
  desktop->documents().setTrashFolder(tmp / "Trash");
  tmp.write("one/n.txt", "first");
  tmp.write("two/n.txt", "second");
  tmp.write("three/n.txt", "third");
  for (std::string folder : {"one", "two", "three"}) EXPECT_TRUE(platform->fileManager().moveToTrash(tmp / (folder + "/n.txt")));
  EXPECT_EQ(tmp.read("Trash/n.txt"), "first");
  EXPECT_EQ(tmp.read("Trash/n 2.txt"), "second");
  EXPECT_EQ(tmp.read("Trash/n 3.txt"), "third");
  auto missing = platform->fileManager().moveToTrash(tmp / "one/n.txt");
  ASSERT_FALSE(missing);
  EXPECT_EQ(missing.error(), "“n.txt” couldn’t be moved to the Trash because it doesn’t exist.");
}

TEST_F(SimDocumentsTest, RevealOpensAFinderWindowAndTheSelectionIsReadableWhenTrusted) {
  const std::string file = tmp.write("in/a.txt", "a");
  EXPECT_TRUE(platform->fileWorkspace().reveal(file));
  EXPECT_EQ(desktop->finder().windows().front().target, tmp / "in");
  EXPECT_FALSE(platform->fileWorkspace().reveal(tmp / "none"));

  desktop->finder().setSelection({file, tmp / "in"});
  EXPECT_FALSE(platform->fileWorkspace().selectedItemURLs(std::string(kFinderBundleIdentifier)));  // not running
  desktop->addApplication(app("Finder", std::string(kFinderBundleIdentifier), 200));
  EXPECT_EQ(*platform->fileWorkspace().selectedItemURLs(std::string(kFinderBundleIdentifier)),
            (std::vector<std::string>{fileURLFromPath(file), fileURLFromPath(tmp / "in/")}));
  desktop->setAccessibilityTrusted(false);
  EXPECT_FALSE(platform->fileWorkspace().selectedItemURLs(std::string(kFinderBundleIdentifier)));
}

TEST_F(SimDocumentsTest, ThePrintingToolsAnswerFromTheSimulatedPrinters) {
  desktop->documents().setPrinters({{"Office", true}, {"Paused", false}});
  const std::string doc = tmp.write("d.txt", "d");
  const struct {
    std::string tool;
    std::vector<std::string> args;
    int status;
    std::string out, err;
  } cases[] = {
      {"/usr/bin/lpstat", {"-d"}, 0, "no system default destination\n", ""},
      {"/usr/bin/lpr", {doc}, 1, "", "lpr: Error - no default destination available.\n"},
      {"/usr/bin/lpoptions", {"-d", "office"}, 0, "", ""},
      {"/usr/bin/lpstat", {"-d"}, 0, "system default destination: Office\n", ""},
      {"/usr/bin/lpoptions", {"-d", "Basement"}, 1, "", "lpoptions: Unknown printer or class.\n"},
      {"/usr/bin/lpr", {"-P", "Paused", doc}, 1, "", "lpr: Error - Destination \"Paused\" is not accepting jobs.\n"},
      {"/usr/bin/lpr", {"-P", "Office", tmp / "none.txt"}, 1, "",
       "lpr: Error - unable to access \"" + (tmp / "none.txt") + "\" - No such file or directory\n"},
      {"/usr/bin/lpr", {doc}, 0, "", ""},
  };
  for (const auto& c : cases) {
    CapturedOutput out, err;
    auto exit = platform->processes().run({c.tool, c.args, {}}, out, err);
    ASSERT_TRUE(exit);
    EXPECT_EQ(exit->status, c.status) << c.tool;
    EXPECT_EQ(out.bytes(), c.out) << c.tool;
    EXPECT_EQ(err.bytes(), c.err) << c.tool;
  }
  EXPECT_EQ(desktop->documents().printJobs(), (std::vector<sim::SimPrintJob>{{"Office", doc}}));
  EXPECT_EQ(traced("print"), std::vector<std::string>{doc + " on Office"});
}

TEST_F(SimDocumentsTest, TheStateFileCarriesHandlersRecentDocumentsPrintersAndTheFinder) {
  const auto state = nlohmann::json::parse(R"({
    "urlHandlers": {"https": "/Applications/Firefox.app", "gopher": "/Applications/Gopher.app", "mailto": null},
    "documentHandlers": {"md": "/Applications/Typora.app"},
    "recentDocuments": ["/Users/ada/a.txt", {"path": "/Users/ada/b.pdf", "name": "Bee"}],
    "trashFolder": "/Users/ada/.Trash",
    "printers": ["Office", {"name": "Paused", "accepting": false}],
    "defaultPrinter": "Office",
    "printJobs": [{"printer": "Office", "document": "/Users/ada/a.txt"}],
    "finder": {"selection": ["/Users/ada/a.txt"], "accessibilitySelection": null,
               "windows": [{"target": "/Users/ada", "view": "column", "bounds": [1, 2, 3, 4]}],
               "automationAllowed": false}
  })");
  sim::SimDesktop fresh;
  ASSERT_TRUE(sim::loadState(fresh, state));
  EXPECT_EQ(fresh.documents().urlHandler("https"), "/Applications/Firefox.app");
  EXPECT_EQ(fresh.documents().urlHandler("mailto"), std::nullopt);
  EXPECT_EQ(fresh.documents().urlHandler("http"), "/Applications/Safari.app");
  EXPECT_FALSE(fresh.finder().automationAllowed());
  const auto saved = sim::saveState(fresh);
  for (const char* key : {"urlHandlers", "documentHandlers", "recentDocuments", "trashFolder", "printers",
                          "defaultPrinter", "printJobs", "finder"})
    EXPECT_EQ(saved.at(key), state.at(key)) << key;
  EXPECT_FALSE(sim::saveState(sim::SimDesktop()).contains("finder"));

  for (const char* bad : {R"({"urlHandlers": ["https"]})", R"({"recentDocuments": [3]})",
                          R"({"printers": [{"name": "A", "accepting": "yes"}]})", R"({"defaultPrinter": 1})",
                          R"({"finder": {"windows": [{"target": "/", "view": "gallery"}]}})",
                          R"({"finder": {"selection": "/Users"}})"}) {
    sim::SimDesktop other;
    auto loaded = sim::loadState(other, nlohmann::json::parse(bad));
    ASSERT_FALSE(loaded) << bad;
    EXPECT_TRUE(loaded.error().starts_with("Simulated desktop state: “")) << loaded.error();
  }
}

}  // namespace
}  // namespace orla
