// The menus of running and recent applications, the recent-applications
// tracker, and the saved and previous front applications.
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "plugins/apps/recent_applications_tracker.h"
#include "tests/plugins/apps/application_test_fixture.h"

namespace orla {
namespace {

using testing::ApplicationTest;

std::string lastMenu(const sim::SimDesktop& desktop) {
  auto entries = desktop.trace("menu");
  for (auto it = entries.rbegin(); it != entries.rend(); ++it)
    if (it->text.starts_with("pop up ")) return it->text.substr(7);
  return {};
}

TEST_F(ApplicationTest, RunningMenuOrdersMarksTheFrontAndSwitches) {
  add("zoom.us", "us.zoom.xos", 203, "/Applications/zoom.us.app", 5);
  RunningApplication helper = app("Helper", "com.example.helper", 204);
  helper.activationPolicy = ActivationPolicy::accessory;
  desktop->addApplication(helper);
  // The host has no launch date: the distant past, last.
  EXPECT_EQ(run({{"actionType", 2}}), PluginResult::silentSuccess());
  EXPECT_EQ(lastMenu(*desktop), "“zoom.us”, ✓“TextEdit”, “Safari”, “Finder”, “Orla Pro”");
  EXPECT_EQ(desktop->trace("menu").back().text, "dismissed");

  desktop->scriptMenuChoice("Finder");
  EXPECT_EQ(run({{"actionType", 2}, {"order", 1}, {"hideOthers", true}}),
            success("Switched to Finder."));
  EXPECT_EQ(lastMenu(*desktop), "“Finder”, “Orla Pro”, “Safari”, ✓“TextEdit”, “zoom.us”");
  EXPECT_EQ(front(), finder);
  EXPECT_TRUE(isHidden(safari));

  desktop->removeAllApplications();
  ASSERT_TRUE(desktop->setHostActivationPolicy(ActivationPolicy::accessory));
  EXPECT_EQ(run({{"actionType", 2}}), failure("No running applications"));
}

TEST_F(ApplicationTest, RecentMenuFollowsActivationsAndLaunchesWhatQuit) {
  EXPECT_EQ(run({{"actionType", 3}}), PluginResult::silentSuccess())
      << "TextEdit, in front at the start";
  EXPECT_EQ(lastMenu(*desktop), "✓“TextEdit”");

  desktop->setFrontmost(safari);
  desktop->setFrontmost(100);  // the host never enters the list
  desktop->setFrontmost(finder);
  install("/Applications/Mail.app", "com.apple.mail", "Mail");
  RecentApplicationsTracker::shared()->record("com.apple.mail");       // installed, not running
  RecentApplicationsTracker::shared()->record("com.example.deleted");  // found nowhere: skipped
  EXPECT_EQ(run({{"actionType", 3}}), PluginResult::silentSuccess());
  EXPECT_EQ(lastMenu(*desktop), "“Mail”, ✓“Finder”, “Safari”, “TextEdit”");
  desktop->scriptMenuChoice("com.apple.mail");
  EXPECT_EQ(run({{"actionType", 3}, {"order", 1}}), success("Launched Mail."));
  EXPECT_EQ(lastMenu(*desktop), "✓“Finder”, “Mail”, “Safari”, “TextEdit”");
  EXPECT_TRUE(pidOf("Mail"));
  EXPECT_EQ(RecentApplicationsTracker::shared()->bundleIDs().front(), "com.apple.mail");

  RecentApplicationsTracker::shared()->reset();
  EXPECT_EQ(run({{"actionType", 3}}), failure("No recent applications"));
}

TEST_F(ApplicationTest, MenusNeedAPopUpService) {
  auto nativePlatform = makeNativePlatform();
  // On a desktop the real menu would wait for a user: orla_desktop_tests
  // work it from outside.
  if (nativePlatform->supports(Capability::popUpMenus)) GTEST_SKIP() << "real pop-up menus: see orla_desktop_tests";
  ApplicationPlugin native(nativePlatform);
  ASSERT_TRUE(ApplicationPlugin::command({{"actionType", 2}}));
  EXPECT_TRUE(native.execute({{"actionType", 2}}).isFailure());
}

TEST(RecentApplicationsTracker, OrderLimitAndTheHost) {
  auto desktop = std::make_shared<sim::SimDesktop>();
  auto platform = sim::makeSimPlatform(desktop);
  auto tracker = std::make_shared<RecentApplicationsTracker>();
  tracker->record("before.start");  // recorded, with no host to compare yet
  tracker->start(platform);
  EXPECT_TRUE(tracker->started());
  tracker->record("");
  tracker->record(desktop->host().bundleIdentifier);
  for (int i = 1; i <= 16; ++i) tracker->record("app." + std::to_string(i));
  tracker->record("app.10");
  const auto ids = tracker->bundleIDs();
  ASSERT_EQ(ids.size(), RecentApplicationsTracker::maxItems);
  EXPECT_EQ(ids.front(), "app.10");
  EXPECT_EQ(ids[1], "app.16");
  EXPECT_EQ(ids.back(), "app.2") << "the oldest ones went";
  EXPECT_EQ(std::count(ids.begin(), ids.end(), "app.10"), 1);

  // Activations arrive through the observer until the tracker is reset.
  desktop->addApplication([] {
    RunningApplication a;
    a.processIdentifier = 300;
    a.bundleIdentifier = "com.example.notes";
    return a;
  }());
  desktop->activate(300, 0);
  EXPECT_EQ(tracker->bundleIDs().front(), "com.example.notes");
  tracker->reset();
  EXPECT_FALSE(tracker->started());
  desktop->activate(100, 0);
  desktop->activate(300, 0);
  EXPECT_TRUE(tracker->bundleIDs().empty());
}

TEST(RecentApplicationsTracker, RecordsFromManyThreadsKeepTheListWhole) {
  RecentApplicationsTracker tracker;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&tracker, t] {
      for (int i = 0; i < 500; ++i) tracker.record("app." + std::to_string((i * 7 + t) % 40));
    });
  for (auto& thread : threads) thread.join();
  auto ids = tracker.bundleIDs();
  EXPECT_EQ(ids.size(), RecentApplicationsTracker::maxItems);
  std::sort(ids.begin(), ids.end());
  EXPECT_EQ(std::adjacent_find(ids.begin(), ids.end()), ids.end()) << "no duplicates";
}

TEST_F(ApplicationTest, SaveFrontAndSwitchBack) {
  EXPECT_EQ(run({{"actionType", 21}}),
            failure("No saved application to switch to. Run Save Front Application first."));
  EXPECT_EQ(run({{"actionType", 20}}),
            success("Saved TextEdit. Switch to Saved Application will bring it back."));
  EXPECT_EQ(ApplicationPlugin::savedApplication(),
            (ProcessRef{textEdit, "com.apple.TextEdit", "/Applications/TextEdit.app", "TextEdit"}));
  desktop->setFrontmost(finder);
  EXPECT_EQ(run({{"actionType", 21}}), success("Switched to TextEdit."));
  EXPECT_EQ(front(), textEdit);
  ASSERT_TRUE(desktop->terminate(textEdit, true));
  EXPECT_EQ(run({{"actionType", 21}}), failure("The previous saved application isn't running."));
  // A new process with the old number is another application.
  add("Notes", "com.apple.Notes", textEdit, "/Applications/Notes.app", 1);
  EXPECT_EQ(run({{"actionType", 21}}), failure("The previous saved application isn't running."));
}

TEST_F(ApplicationTest, SwitchToThePreviousFrontApplication) {
  EXPECT_EQ(run({{"actionType", 22}}), failure("No previous application to switch to"));
  desktop->setFrontmost(safari);
  EXPECT_EQ(ApplicationPlugin::previousFrontApplication()->pid, textEdit);
  EXPECT_EQ(run({{"actionType", 22}}), success("Switched to TextEdit."));
  EXPECT_EQ(run({{"actionType", 22}}), success("Switched to Safari.")) << "back and forth";
  ASSERT_TRUE(desktop->terminate(textEdit, true));
  EXPECT_EQ(run({{"actionType", 22}}),
            failure("The previous front application (TextEdit) isn't running."));
}

}  // namespace
}  // namespace orla
