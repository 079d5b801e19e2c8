#include "plugins/apps/print_plugin.h"

#include <gtest/gtest.h>

#include <filesystem>

#include <orla/platform/finder_scripts.h>
#include "tests/sim_fixture.h"
#include "tests/support/temp_folder.h"

namespace orla {
namespace {

namespace fs = std::filesystem;
using Command = PrintPlugin::Command;
using testing::TempFolder;

class PrintPluginTest : public testing::SimTest {
 protected:
  PrintPluginTest() {
    desktop->documents().setPrinters({{"Office", true}, {"Home Laser", true}});
    desktop->documents().setDefaultPrinter("Home Laser");
    tmp.write("docs/b.PDF", "%PDF");
    tmp.write("docs/a.txt", "a");
    tmp.write("docs/.hidden.pdf", "%PDF");
    tmp.write("docs/notes", "no extension");
    tmp.write("docs/c.pages", "pages");
    fs::create_directories(tmp / "docs/folder.pdf");
  }

  std::vector<sim::SimPrintJob> jobs() const { return desktop->documents().printJobs(); }

  TempFolder tmp{"orla-print"};
  PrintPlugin plugin{platform};
};

TEST_F(PrintPluginTest, TheCommandIsRaisedToOneAndCappedAtFour) {
  const struct {
    ActionData data;
    std::optional<Command> expected;
  } cases[] = {
      {{}, Command::setDefaultPrinter},
      {{{"actionType", 0}}, Command::setDefaultPrinter},
      {{{"actionType", -3}}, Command::setDefaultPrinter},
      {{{"Action", 3}}, Command::printSelection},
      {{{"actionType", 4}}, Command::printFolder},
      {{{"actionType", 7}}, std::nullopt},
      {{{"subAction", " showMenu "}}, Command::printerMenu},
      {{{"subAction", "printFolder"}, {"actionType", 1}}, Command::printFolder},
      {{{"subAction", "Folder"}, {"actionType", 2}}, Command::printerMenu},
  };
  for (const auto& c : cases) EXPECT_EQ(PrintPlugin::command(c.data), c.expected);
  EXPECT_EQ(PrintPlugin::subAction(Command::printerMenu), "menu");
  EXPECT_EQ(plugin.execute({{"actionType", 7}}), PluginResult::failure("Unknown print command. Choose one from the menu."));
}

TEST_F(PrintPluginTest, OnlyExistingFilesWithAPrintableExtensionArePrintable) {
  EXPECT_TRUE(PrintPlugin::isDocumentFile(tmp / "docs/b.PDF"));
  EXPECT_TRUE(PrintPlugin::isDocumentFile(tmp / "docs/c.pages"));
  EXPECT_FALSE(PrintPlugin::isDocumentFile(tmp / "docs/notes"));
  EXPECT_FALSE(PrintPlugin::isDocumentFile(tmp / "docs/folder.pdf"));
  EXPECT_FALSE(PrintPlugin::isDocumentFile(tmp / "docs/gone.pdf"));
  EXPECT_EQ(PrintPlugin::documentExtensions().size(), 23u);
}

TEST_F(PrintPluginTest, ValidationChecksThePrinterAndTheFolder) {
  const std::string file = tmp / "docs/a.txt";
  const struct {
    ActionData data;
    std::optional<std::string> expected;
  } cases[] = {
      {{}, "Enter the printer name."},
      {{{"printerName", "Basement"}},
       "The printer “Basement” can't be found. Check the name in System Settings → Printers & Scanners."},
      {{{"actionType", 3}, {"printer", "Basement"}},
       "The printer “Basement” can't be found. Check the name in System Settings → Printers & Scanners."},
      {{{"actionType", 4}}, "Choose the folder whose documents to print."},
      {{{"actionType", 4}, {"path", tmp / "none"}}, "The folder “" + (tmp / "none") + "” can't be found. Choose it again with Browse…"},
      {{{"actionType", 4}, {"Path", file}}, "“" + file + "” is a file, not a folder."},
      {{{"Printer", " home laser "}}, std::nullopt},
      {{{"actionType", 2}, {"printer", "Basement"}}, std::nullopt},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(plugin.validate(c.data), c.expected);
    if (c.expected) {
      EXPECT_EQ(plugin.execute(c.data), PluginResult::failure(*c.expected));
    }
  }
}

TEST_F(PrintPluginTest, SettingTheDefaultPrinterRunsTheTool) {
  EXPECT_EQ(plugin.execute({{"printerName", "office"}}), PluginResult::success("The default printer is now “Office”."));
  EXPECT_EQ(desktop->documents().defaultPrinter(), "Office");
  EXPECT_EQ(desktop->trace("process").back().text, "run /usr/bin/lpoptions -d Office");
  desktop->programs().setMissing(std::string(PrintPlugin::lpoptions));
  EXPECT_EQ(plugin.execute({{"printerName", "Home Laser"}}),
            PluginResult::failure(
                "Could not set the default printer to “Home Laser”: The file “/usr/bin/lpoptions” doesn’t exist."));
}

TEST_F(PrintPluginTest, ThePrinterMenuMarksTheDefaultAndSetsTheChoice) {
  desktop->scriptMenuChoice("Office");
  EXPECT_EQ(plugin.execute({{"subAction", "menu"}}), PluginResult::success("The default printer is now “Office”."));
  EXPECT_EQ(desktop->trace("menu").front().text, "pop up ✓“Home Laser”, “Office”");
  EXPECT_EQ(plugin.execute({{"subAction", "menu"}}),
            PluginResult::success("Closed the printer menu without choosing a printer."));
  desktop->documents().setPrinters({});
  EXPECT_EQ(plugin.execute({{"subAction", "menu"}}),
            PluginResult::failure("No printers are set up. Add one in System Settings → Printers & Scanners."));
}

TEST_F(PrintPluginTest, AFolderPrintsItsVisibleDocumentsInNameOrder) {
  EXPECT_EQ(plugin.execute({{"actionType", 4}, {"folderPath", tmp / "docs"}}),
            PluginResult::success("Sent 3 documents to the printer."));
  const std::vector<sim::SimPrintJob> expected{
      {"Home Laser", tmp / "docs/a.txt"}, {"Home Laser", tmp / "docs/b.PDF"}, {"Home Laser", tmp / "docs/c.pages"}};
  EXPECT_EQ(jobs(), expected);
  EXPECT_EQ(plugin.execute({{"actionType", 4}, {"folderPath", tmp / "docs"}, {"printer", "OFFICE"}}),
            PluginResult::success("Sent 3 documents to the printer. Printer: Office."));
  fs::create_directories(tmp / "empty");
  tmp.write("empty/.only.pdf", "hidden");
  EXPECT_EQ(plugin.execute({{"actionType", 4}, {"folderPath", tmp / "empty"}}),
            PluginResult::failure("That folder has no documents to print (PDF, image, or text)."));
}

TEST_F(PrintPluginTest, NothingPrintedSaysSoInTheRightNumber) {
  desktop->documents().setPrinters({{"Office", false}});
  desktop->finder().setSelection({tmp / "docs/a.txt"});
  EXPECT_EQ(plugin.execute({{"actionType", 3}, {"printer", "Office"}}),
            PluginResult::failure("Could not print that document. Check that a printer is available."));
  EXPECT_EQ(plugin.execute({{"actionType", 4}, {"folderPath", tmp / "docs"}}),
            PluginResult::failure("Could not print those documents. Check that a printer is available."));
  EXPECT_TRUE(jobs().empty());
}

TEST_F(PrintPluginTest, TheFinderSelectionPrintsItsDocumentsOnly) {
  desktop->finder().setSelection({tmp / "docs/b.PDF", tmp / "docs/notes", tmp / "docs/folder.pdf"});
  EXPECT_EQ(plugin.execute({{"subAction", "selection"}}), PluginResult::success("Sent 1 document to the printer."));
  EXPECT_EQ(jobs(), (std::vector<sim::SimPrintJob>{{"Home Laser", tmp / "docs/b.PDF"}}));

  desktop->finder().setSelection({tmp / "docs/notes"});
  EXPECT_EQ(plugin.execute({{"subAction", "selection"}}),
            PluginResult::failure(
                "No document is selected. Select one or more files in Finder (PDF, image, or text), then click Test "
                "again."));
  desktop->finder().setAutomationAllowed(false);
  EXPECT_EQ(plugin.execute({{"subAction", "selection"}}),
            PluginResult::failure("Allow Orla Pro to control Finder in System Settings → Privacy & Security → "
                                  "Automation, then click Test again."));
  const std::string script(kFinderSelectionScript);
  desktop->setScriptAnswer(script, {true, std::nullopt, ScriptError{"Finder got an error: Timed out.", std::nullopt, -1712}});
  EXPECT_EQ(plugin.execute({{"subAction", "selection"}}), PluginResult::failure("Could not read the Finder selection."));
  desktop->setScriptAnswer(script, {false, std::nullopt, std::nullopt});
  EXPECT_EQ(plugin.execute({{"subAction", "selection"}}), PluginResult::failure("Could not ask Finder for the selection."));
}

}  // namespace
}  // namespace orla
