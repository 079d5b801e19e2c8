#include "plugins/apps/document_plugin.h"

#include <gtest/gtest.h>

#include <filesystem>

#include <orla/models/url.h>
#include <orla/platform/finder_scripts.h>
#include "tests/sim_fixture.h"
#include "tests/support/temp_folder.h"

namespace orla {
namespace {

namespace fs = std::filesystem;
using Command = DocumentPlugin::Command;
using testing::TempFolder;

sim::SimApplicationBundle bundle(std::string path, std::string id, std::string name) {
  return {std::move(path), std::move(id), std::move(name), "", ActivationPolicy::regular,
          std::chrono::microseconds(0), sim::QuitBehaviour::quits};
}

class DocumentPluginTest : public testing::SimTest {
 protected:
  DocumentPluginTest() {
    desktop->setEnvironment({{"HOME", tmp / "home"}});
    fs::create_directories(tmp / "home");
    desktop->installApplication(bundle("/System/Applications/Preview.app", "com.apple.Preview", "Preview"));
    RecentDocumentsTracker::shared().reset();
  }
  ~DocumentPluginTest() override { RecentDocumentsTracker::shared().reset(); }

  std::vector<std::string> traced(std::string_view category) const {
    std::vector<std::string> out;
    for (const auto& entry : desktop->trace(category)) out.push_back(entry.text);
    return out;
  }

  TempFolder tmp{"orla-documents"};
  DocumentPlugin plugin{platform};
};

TEST_F(DocumentPluginTest, CommandsComeFromTheNumberThenTheName) {
  const struct {
    ActionData data;
    std::optional<Command> expected;
  } cases[] = {
      {{}, Command::open},
      {{{"actionType", 2}}, Command::openWith},
      {{{"actionType", 3}}, Command::recentMenu},
      {{{"actionType", 4}}, Command::openSelectionWith},
      {{{"actionType", 5}}, Command::openSelectionWith},
      {{{"Action", 2}}, Command::openWith},
      {{{"actionType", 0}, {"subAction", "recent"}}, Command::recentMenu},
      {{{"actionType", 0}, {"Action", 2}}, Command::open},
      {{{"subAction", "selection"}}, Command::openSelectionWith},
      {{{"subAction", "openSelection"}}, Command::openSelectionWith},
      {{{"subAction", "openWith"}, {"actionType", 1}}, Command::open},
      {{{"subAction", "launch"}}, Command::open},
      {{{"actionType", 6}}, std::nullopt},
      {{{"actionType", -2}}, std::nullopt},
  };
  for (const auto& c : cases) EXPECT_EQ(DocumentPlugin::command(c.data), c.expected);
  EXPECT_EQ(DocumentPlugin::commandFromRawValue(4), std::nullopt);
  EXPECT_EQ(DocumentPlugin::commandFromRawValue(5), Command::openSelectionWith);
  EXPECT_EQ(DocumentPlugin::title(Command::openSelectionWith), "Open Selection with App");
}

TEST_F(DocumentPluginTest, ValidationNamesTheMissingPiece) {
  const std::string doc = tmp.write("a.txt", "a");
  const struct {
    ActionData data;
    std::optional<std::string> expected;
  } cases[] = {
      {{{"actionType", 6}}, "Unknown document command 6. Choose a command from the menu."},
      {{}, "Choose the document to open with Browse…"},
      {{{"actionType", 2}, {"DocPath", "  "}}, "Choose the document to open with Browse…"},
      {{{"path", "~/gone.pdf"}}, "The document \"" + (tmp / "home/gone.pdf") + "\" can't be found. Choose it again with Browse…"},
      {{{"documentPath", doc}, {"appName", "Nonesuch"}},
       "The application \"Nonesuch\" can't be found. Choose it again with Browse Apps, or leave it blank for the "
       "default application."},
      {{{"actionType", 3}}, std::nullopt},
      {{{"documentPath", doc}, {"AppName", "Preview"}}, std::nullopt},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(plugin.validate(c.data), c.expected);
    if (c.expected) {
      EXPECT_EQ(plugin.execute(c.data), PluginResult::failure(*c.expected));
    }
  }
}

TEST_F(DocumentPluginTest, ApplicationsResolveByPathNameIdentifierOrRunningName) {
  desktop->installApplication(bundle(tmp / "home/Applications/Preview.app", "org.home.Preview", "Preview"));
  RunningApplication odd = app("Oddity", "org.odd", 300);
  odd.bundlePath = "/opt/Apps/Odd.app";
  desktop->addApplication(odd);
  const struct {
    std::string text;
    std::optional<std::string> expected;
  } cases[] = {
      {"/System/Applications/Preview.app", "/System/Applications/Preview.app"},
      {"Preview", tmp / "home/Applications/Preview.app"},
      {"Preview.app", tmp / "home/Applications/Preview.app"},
      {"com.apple.Preview", "/System/Applications/Preview.app"},
      {"oddity", "/opt/Apps/Odd.app"},
      {"ODD", "/opt/Apps/Odd.app"},
      {"Nonesuch", std::nullopt},
  };
  for (const auto& c : cases) EXPECT_EQ(plugin.resolveApplication(c.text), c.expected) << c.text;
}

TEST_F(DocumentPluginTest, OpeningWithTheDefaultApplicationOrAChosenOne) {
  const std::string text = tmp.write("notes.txt", "n");
  const std::string pdf = tmp.write("paper.pdf", "%PDF");
  const std::string odd = tmp.write("data.xyz", "?");
  EXPECT_EQ(plugin.execute({{"documentPath", text}}), PluginResult::success("Opened notes.txt."));
  EXPECT_EQ(traced("open"), std::vector<std::string>{text + " with /System/Applications/TextEdit.app"});
  EXPECT_EQ(plugin.execute({{"documentPath", odd}}),
            PluginResult::failure("Unable to open \"data.xyz\". No application is set to open this kind of file. Use "
                                  "Open Document with App to choose one."));

  EXPECT_EQ(plugin.execute({{"actionType", 2}, {"documentPath", pdf}, {"applicationPath", "Preview"}}),
            PluginResult::success("Opened paper.pdf with Preview."));
  auto refusing = bundle("/Applications/Picky.app", "org.picky", "Picky");
  refusing.opensDocuments = false;
  desktop->installApplication(refusing);
  EXPECT_EQ(plugin.execute({{"actionType", 2}, {"documentPath", odd}, {"AppPath", "Picky"}}),
            PluginResult::failure("Picky could not open \"data.xyz\""));
  auto silent = bundle("/Applications/Hang.app", "org.hang", "Hang");
  silent.launchDelay.reset();
  desktop->installApplication(silent);
  EXPECT_EQ(plugin.execute({{"actionType", 2}, {"documentPath", odd}, {"AppPath", "Hang"}}),
            PluginResult::failure("Asked Hang to open \"data.xyz\", but it did not answer within 8 seconds."));
  // Only what opened is remembered, most recent first.
  EXPECT_EQ(RecentDocumentsTracker::shared().stored(), (std::vector<std::string>{pdf, text}));
}

TEST_F(DocumentPluginTest, TheTrackerKeepsFifteenDocumentsEachOnceMostRecentFirst) {
  RecentDocumentsTracker& tracker = RecentDocumentsTracker::shared();
  for (int i = 0; i < 20; ++i) tracker.record("/docs/" + std::to_string(i) + ".txt");
  tracker.record("/docs/./7.txt/");
  const auto stored = tracker.stored();
  ASSERT_EQ(stored.size(), 15u);
  EXPECT_EQ(stored.front(), "/docs/7.txt");
  EXPECT_EQ(stored[1], "/docs/19.txt");
  EXPECT_EQ(std::count(stored.begin(), stored.end(), "/docs/7.txt"), 1);
  EXPECT_EQ(stored.back(), "/docs/5.txt");
}

TEST_F(DocumentPluginTest, TheRecentMenuListsItsOwnDocumentsFirstThenTheSystemsKeptOnceAndExisting) {
  const std::string mine = tmp.write("mine.txt", "m");
  const std::string theirs = tmp.write("B theirs.pdf", "b");
  const std::string early = tmp.write("a early.rtf", "a");
  fs::create_directories(tmp / "Folder");
  fs::create_directories(tmp / "Tool.app");
  fs::create_directories(tmp / "Letter.rtfd");
  ASSERT_EQ(plugin.execute({{"documentPath", mine}}).kind(), PluginResult::Kind::success);
  desktop->documents().setRecentDocuments({{theirs, ""},
                                           {mine, "duplicate"},
                                           {tmp / "gone.txt", ""},
                                           {tmp / "Folder", ""},
                                           {tmp / "Tool.app", ""},
                                           {tmp / "Letter.rtfd", "My Letter"},
                                           {early, ""}});
  const std::vector<RecentDocumentItem> expected{
      {"mine.txt", mine}, {"B theirs.pdf", theirs}, {"My Letter", tmp / "Letter.rtfd"}, {"a early.rtf", early}};
  EXPECT_EQ(recentDocumentItems(*platform, false), expected);
  const std::vector<RecentDocumentItem> byName{
      {"a early.rtf", early}, {"B theirs.pdf", theirs}, {"mine.txt", mine}, {"My Letter", tmp / "Letter.rtfd"}};
  EXPECT_EQ(recentDocumentItems(*platform, true), byName);

  desktop->clearTrace();
  desktop->scriptMenuChoice("B theirs.pdf");
  EXPECT_EQ(plugin.execute({{"actionType", 3}, {"order", 1}}), PluginResult::success("Opened B theirs.pdf."));
  EXPECT_EQ(traced("menu"), (std::vector<std::string>{
                                "pop up “a early.rtf”, “B theirs.pdf”, “mine.txt”, “My Letter”", "chose “B theirs.pdf”"}));
  EXPECT_EQ(traced("open"), std::vector<std::string>{theirs + " with /System/Applications/Preview.app"});
  EXPECT_EQ(RecentDocumentsTracker::shared().stored().front(), theirs);

  // Dismissed: nothing to report.
  EXPECT_EQ(plugin.execute({{"actionType", 3}}), PluginResult::silentSuccess());
}

TEST_F(DocumentPluginTest, AnEmptyRecentMenuHasOneDisabledItem) {
  desktop->scriptMenuChoice("No recent documents");
  EXPECT_EQ(plugin.execute({{"subAction", "recent"}}), PluginResult::silentSuccess());
  EXPECT_EQ(traced("menu").front(), "pop up (disabled)“No recent documents”");
}

class DocumentSelectionTest : public DocumentPluginTest {
 protected:
  DocumentSelectionTest() {
    desktop->addApplication(app("Finder", std::string(kFinderBundleIdentifier), 200));
    a = tmp.write("a.txt", "a");
    b = tmp.write("b.pdf", "b");
    fs::create_directories(tmp / "Folder");
    fs::create_directories(tmp / "Tool.app");
  }
  std::string a, b;
};

TEST_F(DocumentSelectionTest, OnlyTheSelectedDocumentsAreOpenedAndCounted) {
  desktop->finder().setSelection({a, tmp / "Folder", tmp / "Tool.app", b});
  EXPECT_EQ(plugin.execute({{"actionType", 5}, {"appName", "Preview"}}),
            PluginResult::success("Opened 2 of 2 selected document(s)."));
  EXPECT_EQ(traced("open"), (std::vector<std::string>{fileURLFromPath(a) + " with /System/Applications/Preview.app",
                                                       fileURLFromPath(b) + " with /System/Applications/Preview.app"}));

  const std::string odd = tmp.write("c.xyz", "c");
  desktop->finder().setSelection({a, odd});
  EXPECT_EQ(plugin.execute({{"actionType", 5}}),
            PluginResult::success("Opened 1 of 2 selected document(s).\nUnable to open \"c.xyz\". No application is set "
                                  "to open this kind of file. Use Open Document with App to choose one."));
  desktop->finder().setSelection({odd});
  EXPECT_EQ(plugin.execute({{"actionType", 5}}), PluginResult::failure("Unable to open any document!"));
}

TEST_F(DocumentSelectionTest, SelectionsWithoutDocumentsSaySoEachTheirWay) {
  desktop->finder().setSelection({tmp / "Folder", tmp / "Tool.app"});
  EXPECT_EQ(plugin.execute({{"subAction", "selection"}}),
            PluginResult::failure("No document is selected. The Finder selection is a folder or an application; select "
                                  "a file and try again."));
  desktop->finder().setSelection({});
  desktop->finder().setAccessibilitySelection(std::vector<std::string>{});
  EXPECT_EQ(plugin.execute({{"subAction", "selection"}}),
            PluginResult::failure("No document is selected. Select a file in Finder, then click Test again."));
}

TEST_F(DocumentSelectionTest, FileURLsAndTildesInTheAnswerArePaths) {
  const std::string spaced = tmp.write("My Notes.txt", "s");
  const std::string home = tmp.write("home/h.txt", "h");
  desktop->setScriptAnswer(std::string(kFinderSelectionScript),
                           {true, fileURLFromPath(spaced) + "\n  ~/h.txt  \r\n" + tmp / "missing.txt" + "\n", {}});
  EXPECT_EQ(plugin.finderSelection().paths, (std::vector<std::string>{spaced, home}));
}

TEST_F(DocumentSelectionTest, ARefusedScriptFallsBackToTheAccessibilityInterface) {
  desktop->finder().setAutomationAllowed(false);
  desktop->finder().setSelection({b});
  EXPECT_EQ(plugin.execute({{"actionType", 4}}), PluginResult::success("Opened 1 of 1 selected document(s)."));

  desktop->setAccessibilityTrusted(false);
  EXPECT_EQ(plugin.execute({{"actionType", 4}}),
            PluginResult::failure("Allow Orla to control Finder: System Settings → Privacy & Security → Automation. "
                                  "Then select a file in Finder and run this again."));

  // An answer that names nothing is also tried the other way.
  desktop->setAccessibilityTrusted(true);
  desktop->finder().setAutomationAllowed(true);
  desktop->finder().setSelection({});
  desktop->finder().setAccessibilitySelection(std::vector<std::string>{a});
  EXPECT_EQ(plugin.finderSelection().paths, std::vector<std::string>{a});
}

TEST_F(DocumentSelectionTest, OtherScriptFailuresReportTheScriptsOwnMessage) {
  const struct {
    std::optional<std::string> message;
    std::optional<std::int64_t> number;
    std::string expected;
  } cases[] = {
      {"Finder got an error: Connection is invalid.", -609, "Finder got an error: Connection is invalid."},
      {std::nullopt, -600, "Could not read the Finder selection."},
      // Tested as written against the lowercased text, so it never matches.
      {"errAEEventNotPermitted", std::nullopt, "errAEEventNotPermitted"},
      {"OSStatus error -54", std::nullopt,
       "Allow Orla to control Finder: System Settings → Privacy & Security → Automation. Then select a file in Finder "
       "and run this again."},
  };
  desktop->finder().setAccessibilitySelection(std::vector<std::string>{});
  for (const auto& c : cases) {
    desktop->setScriptAnswer(std::string(kFinderSelectionScript), {true, std::nullopt, ScriptError{c.message, std::nullopt, c.number}});
    EXPECT_EQ(plugin.execute({{"actionType", 5}}), PluginResult::failure(c.expected));
  }
}

}  // namespace
}  // namespace orla
