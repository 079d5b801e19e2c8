// The UI element action against the GTK test application over the
// accessibility bus, through `orla`: what it pressed, typed and toggled is
// read from the application's own log.
#include <gtest/gtest.h>

#include "plugins/input/accessibility_readers.h"
#include "plugins/input/mouse_plugin.h"
#include "tests/platform/desktop/gtk_app.h"

namespace orla::desktop_testing {
namespace {

using namespace std::chrono_literals;

class AtspiInterface : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const std::string why = accessibilityBusUnavailableReason(); !why.empty()) GTEST_SKIP() << why;
  }
  static std::string elementJson(const std::string& fields) {
    return R"({"applicationPath":"orla_gtk_test_app",)" + fields + "}";
  }
};

TEST_F(AtspiInterface, PressesFillsTurnsAndReadsTheRealControls) {
  GtkTestApp app;
  ASSERT_TRUE(app.app().ready());
  struct Case {
    std::string json;
    std::string output;
    std::string logged;  // the application's last line afterwards; empty for none
  };
  const std::vector<Case> cases{
      {elementJson(R"("title":"Submit","elementKind":1)"), "InterfaceShortcut: success: Pressed “Submit”.",
       "pressed Submit"},
      // The field is named by its label ("Name") and by its placeholder.
      {elementJson(R"("subAction":"fill","title":"Name","elementKind":2,"text":"Ada Lovelace")"),
       "InterfaceShortcut: success: Set the text of “Name”.", "text Name=Ada Lovelace"},
      {elementJson(R"("subAction":"read","title":"your name","elementKind":2)"),
       "InterfaceShortcut: success: Ada Lovelace", ""},
      {elementJson(R"("subAction":"check","title":"Subscribe","on":true)"),
       "InterfaceShortcut: success: Turned “Subscribe” on.", "toggled Subscribe on"},
      {elementJson(R"("subAction":"check","title":"Subscribe","on":true)"),
       "InterfaceShortcut: success: “Subscribe” was already on.", ""},
      {elementJson(R"("subAction":"read","title":"Subscribe")"), "InterfaceShortcut: success: 1", ""},
      {elementJson(R"("title":"Open","matchType":4,"elementKind":1)"),
       "InterfaceShortcut: success: Pressed “Open Report”.", "opened Report"},
      {elementJson(R"("title":"Cancel","elementKind":1,"timeout":0)"),
       "InterfaceShortcut: failure: Found no button whose title is “Cancel” in “orla_gtk_test_app”. Titles there: "
       "Bold, Italic, Open Report, Submit. Check the title or identifier, or allow a longer time-out, then click Test "
       "again.",
       ""},
  };
  std::size_t seen = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.json);
    const OrlaRun run = runOrla("InterfaceShortcut", c.json);
    EXPECT_EQ(run.output, c.output);
    EXPECT_LT(run.took, 5s);
    if (c.logged.empty()) continue;
    // Setting a text may log the emptied field first.
    const auto end = std::chrono::steady_clock::now() + 5s;
    std::vector<std::string> lines = app.lines(seen + 1);
    while ((lines.empty() || lines.back() != c.logged) && std::chrono::steady_clock::now() < end)
      lines = app.lines(lines.size() + 1, 200ms);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), c.logged);
    seen = lines.size();
  }
}

TEST_F(AtspiInterface, AFieldThatGoesAwayBeforeItIsFilledIsTold) {
  GtkTestApp app;
  ASSERT_TRUE(app.app().ready());
  const OrlaRun run =
      runOrla("InterfaceShortcut", elementJson(R"("subAction":"fill","title":"Vanishing","text":"lost")"));
  EXPECT_EQ(run.output,
            "InterfaceShortcut: failure: “orla_gtk_test_app” did not accept the text for “Vanishing”. Type it with "
            "the Type Text action instead.");
  EXPECT_LT(run.took, 5s);
  const auto lines = app.lines(1);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0], "vanished");
}

TEST_F(AtspiInterface, AStoppedApplicationIsToldWithinTheDeadline) {
  GtkTestApp app;
  ASSERT_TRUE(app.app().ready());
  app.app().signal(SIGSTOP);
  const OrlaRun run = runOrla("InterfaceShortcut", elementJson(R"("title":"Submit","timeout":1)"));
  app.app().signal(SIGCONT);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output,
            "InterfaceShortcut: failure: “orla_gtk_test_app” is not answering the accessibility interface right now, "
            "so its controls cannot be read. Wait until it responds, then click Test again.");
  EXPECT_LT(run.took, 5s);
  EXPECT_TRUE(app.lines(1, 300ms).empty()) << "nothing was pressed";
}

TEST_F(AtspiInterface, AnApplicationThatPublishesNothingAndAMissingBusSayWhatToTurnOn) {
  // GTK leaves the accessibility bus alone when told to.
  GtkTestApp silent(std::map<std::string, std::string>{{"NO_AT_BRIDGE", "1"}});
  ASSERT_TRUE(silent.app().ready());
  OrlaRun run = runOrla("InterfaceShortcut", elementJson(R"("title":"Submit","timeout":0)"));
  EXPECT_EQ(run.output,
            "InterfaceShortcut: failure: “orla_gtk_test_app” does not share its controls with the accessibility "
            "interface, so Orla cannot find them. Start it while the accessibility bus (AT-SPI) is running; Qt "
            "applications also need QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1. Then click Test again.");
  EXPECT_LT(run.took, 5s);
  run = runOrla("InterfaceShortcut", elementJson(R"("title":"Submit")"),
                {{"AT_SPI_BUS_ADDRESS", "unix:path=/nonexistent/bus"}, {"DBUS_SESSION_BUS_ADDRESS", ""}});
  EXPECT_EQ(run.output,
            "InterfaceShortcut: failure: The accessibility bus (AT-SPI) is not running on this desktop, so Orla "
            "cannot read the menus and controls of applications. Start it (at-spi-bus-launcher of at-spi2-core), then "
            "start the application again; Qt applications also need QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1.");
  EXPECT_LT(run.took, 5s);
}

// The mouse's "focused window" origin: a click at the Submit button's
// place, measured from the corner of the window the accessibility bus
// reports, presses that button.
TEST_F(AtspiInterface, AClickFromTheFocusedWindowsCornerLandsOnTheButton) {
  GtkTestApp app;
  ASSERT_TRUE(app.app().ready());
  Platform::current()->workspace().activate(app.app().pid(), activation_options::ignoringOtherApps);
  AXReader reader(Platform::current()->accessibility());
  const auto window = reader.window(app.app().pid(), "AXFocusedWindow");
  ASSERT_TRUE(window);
  const auto windowFrame = reader.frame(*window);
  ASSERT_TRUE(windowFrame);
  std::optional<Rect> button;
  std::vector<AXElement> pending{*window};
  while (!pending.empty() && !button) {
    const AXElement element = pending.back();
    pending.pop_back();
    if (reader.role(element) == "AXButton" && reader.title(element) == "Submit") button = reader.frame(element);
    for (const AXElement& child : reader.children(element)) pending.push_back(child);
  }
  ASSERT_TRUE(button);
  const double x = button->x + button->width / 2 - windowFrame->x;
  const double y = button->y + button->height / 2 - windowFrame->y;
  const OrlaRun run = runOrla("MouseShortcut", R"({"subAction":"focusedWindow","movements":[{"moveType":)" +
                                                   std::to_string(MousePlugin::leftClick) + R"(,"x":)" +
                                                   std::to_string(x) + R"(,"y":)" + std::to_string(y) + "}]}");
  EXPECT_EQ(run.status, 0) << run.output;
  const auto lines = app.lines(1);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0], "pressed Submit");
}

}  // namespace
}  // namespace orla::desktop_testing
