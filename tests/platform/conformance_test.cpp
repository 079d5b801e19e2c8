// What every backend must do, run against each one that can run here: the
// simulated desktop always, the native one for the services it offers. A case
// a backend cannot run is skipped by capability.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include <orla/platform/platform.h>
#include "platform/sim/sim_desktop.h"

namespace orla {
namespace {

struct SimBackend {
  static std::shared_ptr<Platform> make() {
    auto desktop = std::make_shared<sim::SimDesktop>();
    desktop->setEnvironment({{"HOME", "/home/ada"}});
    return sim::makeSimPlatform(desktop);
  }
};

struct NativeBackend {
  static std::shared_ptr<Platform> make() { return makeNativePlatform(); }
};

template <class Backend>
class PlatformConformance : public ::testing::Test {
 protected:
  std::shared_ptr<Platform> platform = Backend::make();
};

using Backends = ::testing::Types<SimBackend, NativeBackend>;
class BackendNames {
 public:
  template <class T>
  static std::string GetName(int) {
    return std::is_same_v<T, SimBackend> ? "sim" : "native";
  }
};
TYPED_TEST_SUITE(PlatformConformance, Backends, BackendNames);

TYPED_TEST(PlatformConformance, ClockSleepsAtLeastTheTimeAsked) {
  Clock& clock = this->platform->clock();
  const auto before = clock.monotonicNow();
  const auto wallBefore = clock.now();
  clock.sleep(std::chrono::milliseconds(5));
  EXPECT_GE(clock.monotonicNow() - before, std::chrono::milliseconds(5));
  EXPECT_GE(clock.now(), wallBefore);
  EXPECT_TRUE(isKnownTimeZone(clock.timeZone())) << clock.timeZone();
  EXPECT_FALSE(clock.locale().empty());
  EXPECT_TRUE(calendarFields(clock.now(), clock.timeZone(), clock.locale()));
}

TYPED_TEST(PlatformConformance, NotificationsReachObserversOfThatNameUntilRemoved) {
  NotificationCenter& center = this->platform->notifications();
  std::vector<std::string> seen;
  auto token = center.addObserver("orla.test", [&](const Notification& n) { seen.push_back(n.userInfo.at("k")); });
  center.post({"orla.test", {{"k", "1"}}});
  center.post({"orla.other", {{"k", "2"}}});
  center.removeObserver(token);
  center.post({"orla.test", {{"k", "3"}}});
  EXPECT_EQ(seen, std::vector<std::string>{"1"});
}

TYPED_TEST(PlatformConformance, MainThreadRunsQueuedWorkInOrderOnItself) {
  MainThread& main = this->platform->mainThread();
  EXPECT_TRUE(main.isMainThread());
  std::vector<int> order;
  bool offMain = true;
  std::thread worker([&] {
    offMain = !main.isMainThread();
    main.runAsync([&] { order.push_back(1); });
    main.runAsync([&] { order.push_back(2); });
  });
  worker.join();
  EXPECT_TRUE(offMain);
  EXPECT_TRUE(order.empty());
  EXPECT_EQ(main.runPending(), 2u);
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
  postToMainThread(main, [&] { order.push_back(3); });
  EXPECT_EQ(order.back(), 3) << "on the main thread the work runs at once";
}

// A clipboard is proven by the desktop suites (tests/platform/desktop),
// against another program on the same desktop; here, only a desktop
// without one.
TYPED_TEST(PlatformConformance, PasteboardWithoutADesktopSaysWhyNot) {
  if (this->platform->supports(Capability::pasteboard))
    GTEST_SKIP() << "this desktop has a clipboard: see orla_desktop_tests";
  Pasteboard& pasteboard = this->platform->pasteboard();
  auto written = pasteboard.setText("x");
  ASSERT_FALSE(written);
  EXPECT_TRUE(written.error().ends_with(".")) << written.error();
  EXPECT_EQ(pasteboard.text(), std::nullopt);
  EXPECT_TRUE(pasteboard.snapshot().empty());
  EXPECT_FALSE(pasteboard.restore({}));
}

TYPED_TEST(PlatformConformance, ScriptingCompilesOrSaysItCannot) {
  auto script = this->platform->scripting().compile("return 1");
  if (!this->platform->supports(Capability::appleScript)) {
    ASSERT_FALSE(script);
    EXPECT_TRUE(script.error().ends_with(".")) << script.error();
    return;
  }
  ASSERT_TRUE(script);
  ASSERT_TRUE(script.value());
  const ScriptOutcome outcome = script.value()->execute();
  EXPECT_TRUE(outcome.stringValue || outcome.error);
}

TYPED_TEST(PlatformConformance, WorkspaceListsThisHostOrProcess) {
  if (!this->platform->supports(Capability::workspace)) GTEST_SKIP() << "no workspace";
  const auto apps = this->platform->workspace().runningApplications();
  ASSERT_FALSE(apps.empty());
  const ProcessId host = this->platform->host().processIdentifier();
  EXPECT_TRUE(std::any_of(apps.begin(), apps.end(), [&](auto& a) { return a.processIdentifier == host; }));
  EXPECT_FALSE(this->platform->host().bundleIdentifier().empty());
}

TYPED_TEST(PlatformConformance, FilesAndTildeExpansion) {
  const auto folder = std::filesystem::temp_directory_path() / ("orla-conf-" + std::to_string(::getpid()));
  std::filesystem::create_directories(folder);
  std::ofstream(folder / "file") << "x";
  std::filesystem::create_symlink(folder / "gone", folder / "dangling");
  Files& files = this->platform->files();
  EXPECT_TRUE(files.itemExists((folder / "file").string()));
  EXPECT_TRUE(files.itemExists(folder.string()));
  EXPECT_FALSE(files.itemExists((folder / "missing").string()));
  EXPECT_FALSE(files.itemExists((folder / "dangling").string()));
  EXPECT_FALSE(files.itemExists(""));
  std::filesystem::remove_all(folder);

  Environment& env = this->platform->environment();
  auto home = env.homeDirectory();
  ASSERT_TRUE(home);
  EXPECT_EQ(env.expandTilde("~/x"), *home + "/x");
  EXPECT_EQ(env.variable("ORLA_SURELY_UNSET_VARIABLE"), std::nullopt);
}

TYPED_TEST(PlatformConformance, WorkspaceRefusesWhatCannotBeDoneWithASentence) {
  Workspace& workspace = this->platform->workspace();
  const ProcessId nobody = 0x3FFFFFF0;  // above any process identifier in use
  auto opened = workspace.openApplication("/surely/not/an/Application.app", OpenConfiguration{});
  ASSERT_FALSE(opened);
  EXPECT_TRUE(opened.error().ends_with(".")) << opened.error();
  auto quit = workspace.sendQuitEvent(nobody, std::chrono::seconds(1));
  ASSERT_FALSE(quit);
  EXPECT_TRUE(quit.error().ends_with(".")) << quit.error();
  EXPECT_FALSE(workspace.terminate(nobody));
  EXPECT_FALSE(workspace.forceTerminate(nobody));
  EXPECT_FALSE(workspace.setHiddenThroughProcessManager(nobody, true));
  EXPECT_FALSE(workspace.applicationPath("org.orla.surely.not.installed"));
  EXPECT_TRUE(workspace.itemExists(std::filesystem::temp_directory_path().string()));
  EXPECT_FALSE(workspace.itemExists("/surely/not/here"));
  EXPECT_FALSE(workspace.itemExists(""));
  // An observer can always be added and removed, even where nothing ever
  // comes to the front.
  workspace.removeActivationObserver(workspace.addActivationObserver([](const RunningApplication&) {}));
}

TYPED_TEST(PlatformConformance, MenusAndAlertsAnswerOrSayWhyNot) {
  // A real desktop's menus and messages wait for a user at the screen: the
  // desktop suites work them from outside (orla_desktop_tests).
  if (this->platform->name() != "sim" && this->platform->supports(Capability::popUpMenus))
    GTEST_SKIP() << "real pop-up menus and messages: see orla_desktop_tests";
  std::vector<MenuItem> items(2);
  items[0].title = "One";
  items[0].payload = "1";
  items[1].title = "Two";
  items[1].on = true;
  items[1].payload = "2";
  auto chosen = this->platform->popupMenus().popUpAtMouse(items);
  if (this->platform->supports(Capability::popUpMenus)) {
    ASSERT_TRUE(chosen);
    EXPECT_TRUE(!*chosen || **chosen < items.size());
  } else {
    ASSERT_FALSE(chosen);
    EXPECT_TRUE(chosen.error().ends_with(".")) << chosen.error();
  }
  auto response = this->platform->alerts().runModal(Alert{"Title", "Detail", AlertStyle::informational, {"OK", "Stop"}});
  if (this->platform->supports(Capability::alerts)) {
    ASSERT_TRUE(response);
    EXPECT_TRUE(*response == alertFirstButtonReturn || *response == alertSecondButtonReturn) << *response;
  } else {
    ASSERT_FALSE(response);
    EXPECT_TRUE(response.error().ends_with(".")) << response.error();
  }
}

TYPED_TEST(PlatformConformance, AccessibilityAnswersForTheHostOrRefuses) {
  Accessibility& ax = this->platform->accessibility();
  const ProcessId host = this->platform->host().processIdentifier();
  const AXElement element = ax.applicationElement(host);
  if (!this->platform->supports(Capability::accessibility)) {
    // A desktop may trust this process to post keys (X11 asks no
    // permission) and still offer no interface elements.
    EXPECT_EQ(ax.isProcessTrusted(), this->platform->supports(Capability::keyboardEvents));
    EXPECT_FALSE(ax.copyAttributeValue(element, "AXRole"));
    EXPECT_NE(ax.performAction(element, "AXPress"), AXError::success);
    return;
  }
  if (!ax.isProcessTrusted()) GTEST_SKIP() << "not trusted here";
  EXPECT_EQ(element, ax.applicationElement(host)) << "one application, one element";
  auto role = ax.copyAttributeValue(element, "AXRole");
  ASSERT_TRUE(role);
  EXPECT_EQ(*role->asString(), "AXApplication");
  auto windows = ax.copyAttributeValue(element, "AXWindows");
  ASSERT_TRUE(windows);
  EXPECT_TRUE(windows->asList());
  EXPECT_FALSE(ax.copyAttributeValue(element, "AXSurelyNotAnAttribute"));
}

// What a desktop with screens and a mouse does is proven by the desktop
// suites (tests/platform/desktop), which have the display to themselves;
// here, only a desktop without them.
TYPED_TEST(PlatformConformance, DisplaysAndMouseWithoutADesktopSayWhyNot) {
  if (this->platform->supports(Capability::displays) || this->platform->supports(Capability::mouseEvents))
    GTEST_SKIP() << "this desktop has screens and a mouse: see orla_desktop_tests";
  Displays& displays = this->platform->displays();
  EXPECT_FALSE(displays.mainDisplayBounds());
  EXPECT_TRUE(displays.screens().empty());
  EXPECT_FALSE(displays.mainScreen());
  MouseEvents& mouse = this->platform->mouse();
  auto location = mouse.pointerLocation();
  ASSERT_FALSE(location);
  EXPECT_TRUE(location.error().ends_with(".")) << location.error();
  EXPECT_FALSE(mouse.post({MouseEventType::mouseMoved, {1, 1}, 0, 0}));
  EXPECT_FALSE(mouse.postScrollWheel(1));
}

TYPED_TEST(PlatformConformance, NestedMenusAnswerAPathOrSayWhyNot) {
  // A real desktop's menus and messages wait for a user at the screen: the
  // desktop suites work them from outside (orla_desktop_tests).
  if (this->platform->name() != "sim" && this->platform->supports(Capability::popUpMenus))
    GTEST_SKIP() << "real pop-up menus and messages: see orla_desktop_tests";
  std::vector<MenuItem> items(2);
  items[0].title = "Top";
  items[0].submenu.resize(1);
  items[0].submenu[0].title = "Inner";
  items[1].separator = true;
  auto chosen = this->platform->popupMenus().popUpNestedAtMouse(items);
  if (!this->platform->supports(Capability::popUpMenus)) {
    ASSERT_FALSE(chosen);
    EXPECT_TRUE(chosen.error().ends_with(".")) << chosen.error();
    return;
  }
  ASSERT_TRUE(chosen);
  if (*chosen) {
    EXPECT_EQ(**chosen, (MenuItemPath{0, 0})) << "the one item that can be chosen";
  }
}

TYPED_TEST(PlatformConformance, UserDefaultsKeepValuesAndReadSwitches) {
  UserDefaults& defaults = this->platform->userDefaults();
  const std::string key = "orla.conformance." + std::to_string(::getpid());
  EXPECT_FALSE(defaults.object(key));
  EXPECT_FALSE(defaults.boolValue(key));
  for (const auto& [value, on] : {std::pair<AnyCodable, bool>{true, true}, {std::int64_t{2}, true},
                                  {std::int64_t{0}, false}, {"YES", false}, {false, false}}) {
    defaults.set(key, value);
    EXPECT_EQ(defaults.object(key), value);
    EXPECT_EQ(defaults.boolValue(key), on);
  }
  defaults.remove(key);
  EXPECT_FALSE(defaults.object(key));
}

TYPED_TEST(PlatformConformance, HostActivationPolicyReadsBackWhenTaken) {
  Host& host = this->platform->host();
  const ActivationPolicy before = host.activationPolicy();
  if (host.setActivationPolicy(ActivationPolicy::accessory)) {
    EXPECT_EQ(host.activationPolicy(), ActivationPolicy::accessory);
    EXPECT_TRUE(host.setActivationPolicy(before));
  }
  EXPECT_EQ(host.activationPolicy(), before);
}

}  // namespace
}  // namespace orla

namespace orla {
namespace {

TYPED_TEST(PlatformConformance, ProcessesRunProgramsAndSayWhyOneCannotStart) {
  ASSERT_TRUE(this->platform->supports(Capability::processes));
  Processes& processes = this->platform->processes();
  CapturedOutput out, err;
  auto exit = processes.run({"/bin/sh", {"-c", "printf 'out'; printf 'err' >&2; exit 4"}, {}}, out, err);
  ASSERT_TRUE(exit) << exit.error();
  EXPECT_EQ(*exit, (ProcessExit{ProcessExit::Reason::exited, 4}));
  EXPECT_EQ(out.bytes(), "out");
  EXPECT_EQ(err.bytes(), "err");
  auto missing = processes.run({"/nonexistent/orla-tool", {}, {}}, out, err);
  ASSERT_FALSE(missing);
  EXPECT_EQ(missing.error(), "The file “/nonexistent/orla-tool” doesn’t exist.");
}

TYPED_TEST(PlatformConformance, CompiledScriptFilesLoadOrSayWhyNot) {
  const auto file = std::filesystem::temp_directory_path() / ("orla-conf-" + std::to_string(::getpid()) + ".scpt");
  std::ofstream(file) << "return 1";
  auto loaded = this->platform->scripting().load(file.string());
  std::filesystem::remove(file);
  if (!this->platform->supports(Capability::appleScript)) {
    ASSERT_FALSE(loaded);
    EXPECT_EQ(loaded.error(), "AppleScript is not available on this desktop; it needs macOS.");
    return;
  }
  ASSERT_TRUE(loaded) << loaded.error();
  EXPECT_TRUE(loaded->script);
  auto missing = this->platform->scripting().load("/nonexistent/orla.scpt");
  ASSERT_TRUE(missing);
  EXPECT_FALSE(missing->script);
  EXPECT_TRUE(missing->error.message || missing->error.number);
}

TYPED_TEST(PlatformConformance, SoundsPlayOrSayWhyNot) {
  Sounds& sounds = this->platform->sounds();
  auto named = sounds.systemSound("Ping");
  if (!this->platform->supports(Capability::sound)) {
    ASSERT_FALSE(named);
    EXPECT_TRUE(named.error().ends_with(".")) << named.error();
    EXPECT_FALSE(sounds.soundFile("/nonexistent.aiff"));
    return;
  }
  ASSERT_TRUE(named) << named.error();
  ASSERT_TRUE(named.value());
  named.value()->play();
  auto unknown = sounds.systemSound("Orla No Such Sound");
  ASSERT_TRUE(unknown);
  EXPECT_FALSE(unknown.value());
  auto notSound = sounds.soundFile("/etc/hostname");
  ASSERT_TRUE(notSound);
  EXPECT_FALSE(notSound.value());
}

TYPED_TEST(PlatformConformance, AddressesOpenOrSayWhyNot) {
  auto opened = this->platform->workspace().openURL("shortcuts://run-shortcut?name=Orla");
  // The simulated desktop has a handler for every scheme; a real one may
  // have none for this scheme, and says so.
  if (this->platform->supports(Capability::applicationControl) && this->platform->name() == "sim") {
    EXPECT_TRUE(opened) << opened.error();
    return;
  }
  if (!opened) {
    EXPECT_TRUE(opened.error().ends_with(".")) << opened.error();
  } else {
    EXPECT_TRUE(this->platform->supports(Capability::applicationControl)) << "opened without application control";
  }
}

}  // namespace
}  // namespace orla
