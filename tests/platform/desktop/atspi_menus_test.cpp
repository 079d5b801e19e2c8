// Menus of real GTK applications over the accessibility bus, driven end to
// end through `orla`: the effect is read from the application's side (the
// test application's log, the window manager's client list).
#include <gtest/gtest.h>

#include <thread>

#include "plugins/input/accessibility_readers.h"
#include "tests/platform/desktop/gtk_app.h"

// Last: Xlib's macros (None, Bool, ...) would clash with names above.
#include <X11/Xatom.h>
#include <X11/Xlib.h>

namespace orla::desktop_testing {
namespace {

using namespace std::chrono_literals;

class AtspiMenus : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const std::string why = accessibilityBusUnavailableReason(); !why.empty()) GTEST_SKIP() << why;
  }
  static std::string menuJson(const std::string& path, const std::string& extra = "") {
    return R"({"applicationPath":"orla_gtk_test_app","menuPath":")" + path + "\"" + extra + "}";
  }
  // Whether a menu of the bar stands open (the bar has a selected menu).
  static bool anyMenuOpen(ProcessId pid) {
    AXReader reader(Platform::current()->accessibility());
    const auto bar = reader.menuBar(pid);
    if (!bar) return false;
    for (const AXElement& menu : reader.children(*bar))
      if (reader.boolean(menu, "AXSelected").value_or(false)) return true;
    return false;
  }
};

TEST_F(AtspiMenus, PathsClickTheRealItemsOrSayWhatIsThere) {
  GtkTestApp app;
  ASSERT_TRUE(app.app().ready()) << "the test application did not show its menus on the accessibility bus";
  struct Case {
    std::string json;
    std::string output;      // what orla prints
    std::string logged;      // what the application did; empty for nothing
  };
  const std::vector<Case> cases{
      {menuJson("File > Export > PDF"), "MenuShortcut: silentSuccess", "activated File > Export > PDF"},
      {menuJson("1 > 3 > 1", R"(,"matchType":0)"), "MenuShortcut: silentSuccess", "activated File > Export > PDF"},
      {menuJson("file > export > html > single page"), "MenuShortcut: silentSuccess",
       "activated File > Export > HTML > Single Page"},
      {menuJson("File > Save..."), "MenuShortcut: silentSuccess", "activated File > Save…"},
      // Filled only when opened: the opening walk finds it.
      {menuJson("File > Open Recent > report.txt"), "MenuShortcut: silentSuccess",
       "activated File > Open Recent > report.txt"},
      {menuJson("View > Word Wrap"), "MenuShortcut: silentSuccess", "toggled View > Word Wrap on"},
      {menuJson("File > Print..."),
       "MenuShortcut: failure: “File > Print...” is disabled in orla_gtk_test_app right now (greyed out), so "
       "nothing happened.",
       ""},
      {menuJson("Edit > Cut"),
       "MenuShortcut: failure: Menu item “Edit > Cut” not found in orla_gtk_test_app: no “Cut” in the Edit menu. "
       "Items there: Undo, Copy, Paste.",
       ""},
      {menuJson("Help > About"),
       "MenuShortcut: failure: Menu item “Help > About” not found in orla_gtk_test_app: no “Help” in the menu "
       "bar. Items there: File, Edit, View.",
       ""},
      // A cancelled opening walk: the menus it opened are closed again.
      {menuJson("File > Open Recent > missing.txt"),
       "MenuShortcut: failure: Menu item “File > Open Recent > missing.txt” not found in orla_gtk_test_app: no "
       "“missing.txt” in the Open Recent menu. Items there: notes.txt, report.txt.",
       ""},
  };
  std::size_t expectedLines = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.json);
    const OrlaRun run = runOrla("MenuShortcut", c.json);
    EXPECT_EQ(run.output, c.output);
    if (!c.logged.empty()) {
      ++expectedLines;
      const auto lines = app.lines(expectedLines);
      ASSERT_EQ(lines.size(), expectedLines);
      EXPECT_EQ(lines.back(), c.logged);
    }
    // Nothing is left open for the next case, whatever happened.
    const auto end = std::chrono::steady_clock::now() + 2s;
    while (anyMenuOpen(app.app().pid()) && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(20ms);
    EXPECT_FALSE(anyMenuOpen(app.app().pid())) << "a menu was left open";
  }
  EXPECT_EQ(app.lines(expectedLines + 1, 300ms).size(), expectedLines) << "nothing else was chosen";
}

TEST_F(AtspiMenus, OnlyDisplayingOpensTheMenusDownToTheItemWithoutChoosingIt) {
  GtkTestApp app;
  ASSERT_TRUE(app.app().ready());
  const OrlaRun run = runOrla("MenuShortcut", menuJson("File > Export > HTML", R"(,"onlyDisplayMenu":true)"));
  EXPECT_EQ(run.output, "MenuShortcut: silentSuccess");
  EXPECT_TRUE(anyMenuOpen(app.app().pid()));
  EXPECT_TRUE(app.lines(1, 300ms).empty()) << "nothing chosen";
}

TEST_F(AtspiMenus, AFiveThousandItemMenuIsWalkedAndListedWithinTheDeadline) {
  GtkTestApp app(std::map<std::string, std::string>{{"ORLA_GTK_TEST_MENU_ITEMS", "5000"}});
  ASSERT_TRUE(app.app().ready());
  OrlaRun run = runOrla("MenuShortcut", menuJson("Many > Item 5001"));
  EXPECT_EQ(run.output,
            "MenuShortcut: failure: Menu item “Many > Item 5001” not found in orla_gtk_test_app: no “Item 5001” in "
            "the Many menu. Items there: Item 1, Item 2, Item 3, Item 4, Item 5, Item 6, Item 7, Item 8, Item 9, "
            "Item 10, Item 11, Item 12, … (5000 items).");
  EXPECT_LT(run.took, 20s);
  // GTK takes a while to open and close a menu that long.
  GtkApp::waitUntilAnswering(app.app().pid(), 20s);
  run = runOrla("MenuShortcut", menuJson("Many > Item 4999"));
  EXPECT_EQ(run.output, "MenuShortcut: silentSuccess");
  EXPECT_LT(run.took, 20s);
  const auto lines = app.lines(1);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0], "activated Many > Item 4999");
}

TEST_F(AtspiMenus, AStoppedApplicationGivesItsSentenceWithinTheDeadline) {
  GtkTestApp app;
  ASSERT_TRUE(app.app().ready());
  app.app().signal(SIGSTOP);
  const OrlaRun run = runOrla("MenuShortcut", menuJson("File > Export > PDF"));
  app.app().signal(SIGCONT);
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(run.output.starts_with("MenuShortcut: failure: Cannot read the menu bar of orla_gtk_test_app.")) << run.output;
  EXPECT_LT(run.took, 5s);
  EXPECT_TRUE(app.lines(1, 300ms).empty());
}

TEST_F(AtspiMenus, WithoutAnAccessibilityBusMenusAreUnavailable) {
  GtkTestApp app;
  ASSERT_TRUE(app.app().ready());
  const OrlaRun run = runOrla("MenuShortcut", menuJson("File > Export > PDF"),
                              {{"AT_SPI_BUS_ADDRESS", "unix:path=/nonexistent/bus"}, {"DBUS_SESSION_BUS_ADDRESS", ""}});
  EXPECT_EQ(run.output,
            "MenuShortcut: failure: The accessibility bus (AT-SPI) is not running on this desktop, so Orla cannot read "
            "the menus and controls of applications. Start it (at-spi-bus-launcher of at-spi2-core), then start the "
            "application again; Qt applications also need QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1.");
  EXPECT_LT(run.took, 5s);
}

TEST_F(AtspiMenus, AnElementThatWentAwayRefusesWithoutHanging) {
  auto app = std::make_unique<GtkTestApp>();
  ASSERT_TRUE(app->app().ready());
  Accessibility& ax = Platform::current()->accessibility();
  AXReader reader(ax);
  const auto bar = reader.menuBar(app->app().pid());
  ASSERT_TRUE(bar);
  const AXElement file = reader.children(*bar).front();
  EXPECT_EQ(reader.title(file), "File");
  EXPECT_EQ(reader.children(*bar).front(), file) << "the same element, read twice";
  app.reset();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_NE(ax.performAction(file, "AXPress"), AXError::success);
  EXPECT_FALSE(ax.copyAttributeValue(file, "AXEnabled").ok());
  EXPECT_TRUE(reader.children(file).empty() || reader.children(reader.children(file).front()).empty());
  EXPECT_LT(std::chrono::steady_clock::now() - start, 3s);
}

TEST_F(AtspiMenus, TheWindowPluginScrollsTheFrontWindowsScrollArea) {
  GtkTestApp app;
  ASSERT_TRUE(app.app().ready());
  struct Case {
    std::string json;
    std::string output;
    std::string logged;  // the last scroll the application saw
  };
  const std::vector<Case> cases{
      {R"({"subAction":"scrollBottom"})", "WindowShortcut: success: Scrolled to the bottom in orla_gtk_test_app.",
       "scrolled vertical 100"},
      {R"({"subAction":"scrollTop"})", "WindowShortcut: success: Scrolled to the top in orla_gtk_test_app.",
       "scrolled vertical 0"},
      {R"({"subAction":"scrollRightEnd"})", "WindowShortcut: success: Scrolled to the right end in orla_gtk_test_app.",
       "scrolled horizontal 100"},
      {R"({"subAction":"scrollLeftEnd"})", "WindowShortcut: success: Scrolled to the left end in orla_gtk_test_app.",
       "scrolled horizontal 0"},
  };
  std::size_t seen = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.json);
    const OrlaRun run = runOrla("WindowShortcut", c.json);
    EXPECT_EQ(run.output, c.output);
    const auto lines = app.lines(seen + 1);
    ASSERT_GT(lines.size(), seen);
    seen = lines.size();
    EXPECT_EQ(lines.back(), c.logged);
  }
  // Steps move part of the way.
  const OrlaRun run = runOrla("WindowShortcut", R"({"subAction":"scrollDown","scrollCount":2})");
  EXPECT_EQ(run.output, "WindowShortcut: success: Scrolled down in orla_gtk_test_app.");
  const auto lines = app.lines(seen + 2);
  ASSERT_EQ(lines.size(), seen + 2);
  const int at = std::stoi(lines.back().substr(std::string("scrolled vertical ").size()));
  EXPECT_GT(at, 0);
  EXPECT_LT(at, 100);
  // A toolkit's window has no toolbar button of its title bar.
  EXPECT_EQ(runOrla("WindowShortcut", R"({"subAction":"toolbar"})").output,
            "WindowShortcut: failure: This window does not have that button.");
}

// mousepad, a real application from the distribution.
class MousepadMenus : public AtspiMenus {
 protected:
  void SetUp() override {
    AtspiMenus::SetUp();
    if (IsSkipped()) return;
    if (::access("/usr/bin/mousepad", X_OK) != 0) GTEST_SKIP() << "mousepad is not installed";
    // A private configuration: nothing of a user's own session is read.
    app_ = std::make_unique<GtkApp>("mousepad", std::vector<std::string>{"--disable-server"},
                                    std::map<std::string, std::string>{{"GSETTINGS_BACKEND", "memory"}});
    ASSERT_TRUE(app_->ready()) << "mousepad did not show its menus on the accessibility bus";
  }
  // The window manager's windows whose process is mousepad's.
  std::size_t windows() const {
    Display* display = XOpenDisplay(nullptr);
    std::size_t count = 0;
    Atom type = None;
    int format = 0;
    unsigned long n = 0, after = 0;
    unsigned char* data = nullptr;
    if (XGetWindowProperty(display, DefaultRootWindow(display), XInternAtom(display, "_NET_CLIENT_LIST", False), 0,
                           1024, False, XA_WINDOW, &type, &format, &n, &after, &data) == Success && data) {
      const auto* list = reinterpret_cast<const Window*>(data);
      for (unsigned long i = 0; i < n; ++i) {
        unsigned char* pid = nullptr;
        unsigned long pn = 0;
        if (XGetWindowProperty(display, list[i], XInternAtom(display, "_NET_WM_PID", False), 0, 1, False,
                               XA_CARDINAL, &type, &format, &pn, &after, &pid) == Success && pid && pn == 1 &&
            static_cast<ProcessId>(*reinterpret_cast<const unsigned long*>(pid)) == app_->pid())
          ++count;
        if (pid) XFree(pid);
      }
      XFree(data);
    }
    XCloseDisplay(display);
    return count;
  }
  std::unique_ptr<GtkApp> app_;
};

TEST_F(MousepadMenus, APathClickOpensANewWindowAndAThreeLevelPathPicksALineEnding) {
  const std::size_t before = windows();
  ASSERT_GE(before, 1u);
  OrlaRun run = runOrla("MenuShortcut", R"({"applicationPath":"mousepad","menuPath":"File > New Window"})");
  EXPECT_EQ(run.output, "MenuShortcut: silentSuccess");
  const auto end = std::chrono::steady_clock::now() + 5s;
  while (windows() == before && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(50ms);
  EXPECT_EQ(windows(), before + 1);

  run = runOrla("MenuShortcut",
                R"j({"applicationPath":"mousepad","menuPath":"Document > Line Ending > Mac (CR)"})j");
  EXPECT_EQ(run.output, "MenuShortcut: silentSuccess");
  run = runOrla("MenuShortcut", R"({"applicationPath":"mousepad","menuPath":"Document > Line Ending > Nope"})");
  EXPECT_EQ(run.output,
            "MenuShortcut: failure: Menu item “Document > Line Ending > Nope” not found in Mousepad: no “Nope” in "
            "the Line Ending menu. Items there: Unix (LF), Mac (CR), DOS / Windows (CR LF).");
}

}  // namespace
}  // namespace orla::desktop_testing
