// Messages and pop-up menus, answered by a user at the screen: on the
// simulated desktop the answer is scripted; on the X11 desktop a separate
// program presses the real dialog's buttons and chooses the real menu's
// items through the accessibility bus, or types keys with XTest.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <thread>

#include "tests/platform/desktop/desktop_backends.h"

namespace orla::desktop_testing {
namespace {

// What the user will do with the next dialog or menu, the same way on
// every backend.
struct SimUser {
  explicit SimUser(SimDesktopBackend& backend) : desktop(*backend.desktop) {}
  void press(const std::string& button) { desktop.scriptAlertAnswer(button); }
  void choose(const std::vector<std::string>& path) {
    std::string joined;
    for (const std::string& title : path) joined += (joined.empty() ? "" : " > ") + title;
    desktop.scriptMenuChoice(joined);
  }
  void dismiss(const std::string&) { desktop.scriptMenuChoice(std::nullopt); }
  bool done() { return true; }
  sim::SimDesktop& desktop;
};

struct X11User {
  explicit X11User(X11DesktopBackend&) {}
  void press(const std::string& button) { driver = std::make_unique<Driver>(args("button", {button})); }
  void choose(const std::vector<std::string>& path) { driver = std::make_unique<Driver>(args("menu", path)); }
  // Escape, once the item `shown` shows.
  void dismiss(const std::string& shown) { driver = std::make_unique<Driver>(args("keys", {shown, "Escape"})); }
  bool done() { return !driver || driver->succeeded(); }
  static std::vector<std::string> args(const char* command, std::vector<std::string> rest) {
    rest.insert(rest.begin(), {command, self()});
    return rest;
  }
  std::unique_ptr<Driver> driver;
};

template <class Backend>
struct UserOf;
template <>
struct UserOf<SimDesktopBackend> {
  using type = SimUser;
};
template <>
struct UserOf<X11DesktopBackend> {
  using type = X11User;
};

template <class Backend>
class UiConformance : public DesktopTest<Backend> {
 protected:
  typename UserOf<Backend>::type user() { return typename UserOf<Backend>::type(*this->backend); }
};

TYPED_TEST_SUITE(UiConformance, DesktopBackends, DesktopBackendNames);

MenuItem item(std::string title, std::vector<MenuItem> submenu = {}) {
  MenuItem m;
  m.title = std::move(title);
  m.submenu = std::move(submenu);
  return m;
}

TYPED_TEST(UiConformance, TheButtonPressedIsTheAnswer) {
  ASSERT_TRUE(this->platform().supports(Capability::alerts));
  struct Case {
    std::vector<std::string> buttons;
    std::string pressed;
    int response;
  };
  const Case cases[] = {
      {{"Continue", "Stop"}, "Stop", alertSecondButtonReturn},
      {{"Continue", "Stop"}, "Continue", alertFirstButtonReturn},
      {{"Got it"}, "Got it", alertFirstButtonReturn},
  };
  for (const Case& c : cases) {
    auto user = this->user();
    user.press(c.pressed);
    const Alert alert{"Back up now?", "The last backup is three days old.", AlertStyle::informational, c.buttons};
    const Checked<int> response = this->platform().alerts().runModal(alert);
    ASSERT_TRUE(response) << response.error();
    EXPECT_EQ(*response, c.response) << c.pressed;
    EXPECT_TRUE(user.done()) << "the user could not press " << c.pressed;
  }
}

TYPED_TEST(UiConformance, AnItemInASubmenuIsChosenByItsPathAndDismissingChoosesNothing) {
  ASSERT_TRUE(this->platform().supports(Capability::popUpMenus));
  MenuItem separator;
  separator.separator = true;
  const std::vector<MenuItem> menu{
      item("Open"), separator,
      item("Recent", {item("Notes.txt"), item("Older", {item("Plan.odt"), item("Budget.ods")})}), item("Quit")};
  {
    auto user = this->user();
    user.choose({"Recent", "Older", "Budget.ods"});
    const auto chosen = this->platform().popupMenus().popUpNestedAtMouse(menu);
    ASSERT_TRUE(chosen) << chosen.error();
    EXPECT_EQ(*chosen, (MenuItemPath{2, 1, 1}));
    EXPECT_TRUE(user.done());
  }
  {
    auto user = this->user();
    user.choose({"Quit"});
    const auto chosen = this->platform().popupMenus().popUpAtMouse(menu);
    ASSERT_TRUE(chosen) << chosen.error();
    EXPECT_EQ(*chosen, std::optional<std::size_t>(3));
    EXPECT_TRUE(user.done());
  }
  {
    auto user = this->user();
    user.dismiss("Open");
    const auto chosen = this->platform().popupMenus().popUpNestedAtMouse(menu);
    ASSERT_TRUE(chosen) << chosen.error();
    EXPECT_EQ(*chosen, std::nullopt);
    EXPECT_TRUE(user.done());
  }
}

// --- the real desktop only: keys, focus, clicks, size, the main thread ---

class X11Ui : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const std::string why = X11DesktopBackend::unavailableReason(); !why.empty()) GTEST_SKIP() << why;
    backend = std::make_unique<X11DesktopBackend>();
  }
  Platform& platform() { return *backend->platform; }
  std::unique_ptr<X11DesktopBackend> backend;
};

TEST_F(X11Ui, TheMessageComesToTheFrontWithTheFocusAndGivesItBackAfterwards) {
  auto receiver = backend->receiver();
  const std::string before = std::to_string(receiver->process());
  Driver focus({"focus", self()});
  Driver press({"button", self(), "Later"});
  const Alert alert{"Update ready", "", AlertStyle::informational, {"Install", "Later"}};
  const auto response = platform().alerts().runModal(alert);
  ASSERT_TRUE(response) << response.error();
  EXPECT_EQ(*response, alertSecondButtonReturn);
  EXPECT_TRUE(focus.succeeded()) << "the message did not take the focus from the window in front";
  EXPECT_TRUE(press.succeeded());
  EXPECT_TRUE(Driver({"focus", before}).succeeded()) << "the focus did not go back to the window the user was in";
}

TEST_F(X11Ui, ReturnPressesTheDefaultButtonAndEscapeTheOther) {
  struct Case {
    std::vector<std::string> buttons;
    const char* key;
    int response;
  };
  const Case cases[] = {
      {{"Save", "Discard"}, "Return", alertFirstButtonReturn},
      {{"Save", "Discard"}, "Escape", alertSecondButtonReturn},
      {{"OK"}, "Escape", alertFirstButtonReturn},
  };
  for (const Case& c : cases) {
    Driver keys({"keys", self(), c.buttons.front(), c.key});
    const auto response = platform().alerts().runModal({"Keep the draft?", "", AlertStyle::informational, c.buttons});
    ASSERT_TRUE(response) << response.error();
    EXPECT_EQ(*response, c.response) << c.key << " with " << c.buttons.size() << " buttons";
    EXPECT_TRUE(keys.succeeded());
  }
}

TEST_F(X11Ui, ArrowKeysSkipSeparatorsAndDisabledItemsAndReturnChooses) {
  MenuItem separator;
  separator.separator = true;
  MenuItem disabled = item("Unavailable");
  disabled.enabled = false;
  MenuItem marked = item("Current");
  marked.on = true;
  const std::vector<MenuItem> menu{item("First"), separator, disabled, marked, item("Last", {item("Inner")})};
  struct Case {
    std::vector<std::string> keys;
    std::optional<MenuItemPath> chosen;
  };
  const Case cases[] = {
      {{"Down", "Return"}, MenuItemPath{0}},
      {{"Down", "Down", "Return"}, MenuItemPath{3}},
      {{"Down", "Down", "Down", "Right", "Return"}, MenuItemPath{4, 0}},
      {{"Down", "Escape"}, std::nullopt},
  };
  for (const Case& c : cases) {
    std::vector<std::string> args{"keys", self(), "First"};
    args.insert(args.end(), c.keys.begin(), c.keys.end());
    Driver keys(args);
    const auto chosen = platform().popupMenus().popUpNestedAtMouse(menu);
    ASSERT_TRUE(chosen) << chosen.error();
    EXPECT_EQ(*chosen, c.chosen) << c.keys.size() << " keys";
    EXPECT_TRUE(keys.succeeded());
  }
}

TEST_F(X11Ui, AClickOutsideDismissesTheMenu) {
  ASSERT_TRUE(Driver({"move", "640", "500"}).succeeded());
  Driver show({"showing", self(), "Only"});
  std::thread outside([&] {
    if (show.succeeded()) Driver({"click", "5", "5"}).succeeded();
  });
  const auto chosen = platform().popupMenus().popUpAtMouse(std::vector<MenuItem>{item("Only")});
  outside.join();
  ASSERT_TRUE(chosen) << chosen.error();
  EXPECT_EQ(*chosen, std::nullopt);
}

TEST_F(X11Ui, ALongMenuScrollsAndItsLastEntriesCanBeChosen) {
  for (std::size_t size : {100u, 300u}) {
    std::vector<MenuItem> menu;
    for (std::size_t i = 0; i < size; ++i) menu.push_back(item("Entry " + std::to_string(i + 1)));
    Driver choose({"menu", self(), "Entry " + std::to_string(size - 1)});
    const auto chosen = platform().popupMenus().popUpAtMouse(menu);
    ASSERT_TRUE(chosen) << chosen.error();
    EXPECT_EQ(*chosen, std::optional<std::size_t>(size - 2));
  }
}

TEST_F(X11Ui, AMenuOfThousandsOfEntriesShowsThemInGroupsAndAnyCanBeChosen) {
  std::vector<MenuItem> entries;
  for (std::size_t i = 0; i < 5000; ++i) entries.push_back(item("Entry " + std::to_string(i + 1)));
  const std::vector<MenuItem> nested{item("Few", {item("One")}), item("Many", entries)};
  struct Case {
    const std::vector<MenuItem>* menu;
    std::vector<std::string> path;
    MenuItemPath chosen;
  };
  const Case cases[] = {
      {&entries, {"Items 4801\u20135000", "Entry 4999"}, {4998}},
      {&entries, {"Items 1\u2013400", "Entry 1"}, {0}},
      {&nested, {"Many", "Items 401\u2013800", "Entry 800"}, {1, 799}},
  };
  for (const Case& c : cases) {
    std::vector<std::string> args{"menu", self()};
    args.insert(args.end(), c.path.begin(), c.path.end());
    Driver choose(args);
    const auto chosen = platform().popupMenus().popUpNestedAtMouse(*c.menu);
    ASSERT_TRUE(chosen) << chosen.error();
    EXPECT_EQ(*chosen, std::optional<MenuItemPath>(c.chosen)) << c.path.back();
    EXPECT_TRUE(choose.succeeded()) << c.path.back();
  }
}

TEST_F(X11Ui, AHugeMessageStaysUsable) {
  // 100,000 characters scroll inside the dialog; its buttons stay on the
  // screen to be pressed.
  std::string detail;
  while (detail.size() < 100000) detail += "All work and no play makes a long message. ";
  Driver press({"button", self(), "Understood"});
  const auto response = platform().alerts().runModal({"   ", detail, AlertStyle::informational, {"Understood"}});
  ASSERT_TRUE(response) << response.error();
  EXPECT_EQ(*response, alertFirstButtonReturn);
  EXPECT_TRUE(press.succeeded());
}

TEST_F(X11Ui, WorkSentToTheMainThreadRunsWhileTheMessageIsUp) {
  bool ranOnMainThread = false;
  std::thread other([&] {
    // Once the message shows, the main thread is in its loop.
    if (!Driver({"showing", self(), "Ready"}).succeeded()) return;
    platform().mainThread().runSync([&] { ranOnMainThread = platform().mainThread().isMainThread(); });
    Driver({"button", self(), "Ready"}).succeeded();
  });
  const auto response = platform().alerts().runModal({"Waiting", "", AlertStyle::informational, {"Ready"}});
  other.join();
  ASSERT_TRUE(response) << response.error();
  EXPECT_TRUE(ranOnMainThread);
}

}  // namespace
}  // namespace orla::desktop_testing
