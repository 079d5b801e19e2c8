// The printers service and the print plugin against a real print server:
// cupsd on a private socket, with printers that write each job to a file.
#include <gtest/gtest.h>

#include <orla/platform/platform.h>
#include "plugins/apps/print_plugin.h"
#include "tests/support/temp_folder.h"
#include "tests/support/test_print_server.h"

namespace orla {
namespace {

class PrintServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string whyNot;
    server = testing::TestPrintServer::start({"Office", "Home_Laser"}, whyNot);
    if (!server) GTEST_SKIP() << "No print server for this test: " << whyNot;
    platform = makeNativePlatform();
  }

  std::unique_ptr<testing::TestPrintServer> server;
  std::shared_ptr<Platform> platform;
  testing::TempFolder docs{"orla-print-docs"};
};

TEST_F(PrintServerTest, ThePrintersServiceListsTheServersPrinters) {
  auto names = platform->printers().printerNames();
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"Home_Laser", "Office"}));
}

TEST_F(PrintServerTest, DocumentsOfAFolderReachTheNamedPrinterAndTheDefault) {
  docs.write("a.txt", "first document");
  docs.write("b.csv", "second,document");
  docs.write(".c.txt", "hidden");
  PrintPlugin plugin(platform);
  EXPECT_EQ(plugin.execute({{"actionType", 4}, {"folderPath", docs.path().string()}, {"printer", "home_laser"}}),
            PluginResult::success("Sent 2 documents to the printer. Printer: Home_Laser."));
  EXPECT_EQ(server->jobs("Home_Laser", 2), (std::vector<std::string>{"first document", "second,document"}));

  EXPECT_EQ(plugin.execute({{"actionType", 4}, {"folderPath", docs.path().string()}}),
            PluginResult::success("Sent 2 documents to the printer."));
  EXPECT_EQ(server->jobs("Office", 2).size(), 2u);
}

TEST_F(PrintServerTest, TheDefaultPrinterChangesForThisUser) {
  PrintPlugin plugin(platform);
  EXPECT_EQ(plugin.execute({{"printerName", "Home_Laser"}}),
            PluginResult::success("The default printer is now “Home_Laser”."));
  docs.write("note.txt", "to the new default");
  EXPECT_EQ(plugin.execute({{"actionType", 4}, {"folderPath", docs.path().string()}}).kind(),
            PluginResult::Kind::success);
  EXPECT_EQ(server->jobs("Home_Laser", 1), std::vector<std::string>{"to the new default"});
  EXPECT_EQ(plugin.validate({{"printerName", "Basement"}}),
            "The printer “Basement” can't be found. Check the name in System Settings → Printers & Scanners.");
}

}  // namespace
}  // namespace orla
