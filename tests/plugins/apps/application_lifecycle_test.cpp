// Hiding, showing, quitting and relaunching, one application or the
// background ones, with the deadlines on the virtual clock.
#include <gtest/gtest.h>

#include "tests/plugins/apps/application_test_fixture.h"

namespace orla {
namespace {

using namespace std::chrono_literals;
using sim::QuitBehaviour;
using testing::ApplicationTest;

TEST_F(ApplicationTest, QuitAsksWithTheQuitEventAndWaitsTwelveSeconds) {
  struct Case {
    const char* name;
    QuitBehaviour behaviour;
    bool force;
    PluginResult result;
    std::chrono::milliseconds elapsed;
  };
  const Case cases[] = {
      {"quits", QuitBehaviour::quits, false, success("Quit TextEdit."), 0ms},
      {"asks to save", QuitBehaviour::asksToSave, false,
       failure("TextEdit did not quit (it may be asking to save documents). Turn on Force to quit "
               "without asking."),
       12000ms},
      {"asks to save, forced", QuitBehaviour::asksToSave, true, success("Quit TextEdit."), 0ms},
      {"hangs, forced", QuitBehaviour::refuses, true,
       failure("TextEdit did not quit (it may be asking to save documents)."), 12000ms},
  };
  for (const Case& c : cases) {
    add("TextEdit", "com.apple.TextEdit", textEdit, "/Applications/TextEdit.app", 10);
    desktop->setQuitBehaviour(textEdit, c.behaviour);
    desktop->setFrontmost(textEdit);
    desktop->clearTrace();
    const auto start = desktop->monotonicNow();
    EXPECT_EQ(run({{"actionType", 14}, {"force", c.force}}), c.result) << c.name;
    EXPECT_EQ(elapsedSince(start), c.elapsed) << c.name;
    EXPECT_EQ(count("quitEvent"), c.force ? 0u : 1u) << c.name;
    EXPECT_EQ(count("forceTerminate"), c.force ? 1u : 0u) << c.name;
    if (!c.force) {
      EXPECT_EQ(desktop->trace("quitEvent").at(0).text, "pid=202 timeout=1000ms") << c.name;
    }
  }
}

TEST_F(ApplicationTest, AQuitEventThatTimesOutFallsBackToTermination) {
  desktop->setAnswersAppleEvents(safari, false);
  EXPECT_EQ(run({{"actionType", 16}, {"appName", "Safari"}}), success("Quit Safari."));
  EXPECT_EQ(count("terminate"), 1u);
  EXPECT_FALSE(isRunning(safari));
}

TEST_F(ApplicationTest, FrontCommandsWithNothingInFront) {
  desktop->setFrontmost(std::nullopt);
  const std::pair<int, const char*> cases[] = {
      {7, "No front application to show"},  {11, "No front application to hide"},
      {14, "No front application to quit"}, {17, "No front application to relaunch"},
      {20, "No front application to save"},
  };
  for (const auto& [type, sentence] : cases)
    EXPECT_EQ(run({{"actionType", type}}), failure(sentence)) << type;
}

TEST_F(ApplicationTest, BackgroundCommandsSpareTheHostAndTheFrontApplication) {
  EXPECT_EQ(run({{"actionType", 12}}), success("Hid Finder and Safari."));
  EXPECT_TRUE(isHidden(finder));
  EXPECT_TRUE(isHidden(safari));
  EXPECT_FALSE(isHidden(textEdit));
  EXPECT_EQ(run({{"actionType", 12}}), failure("No background applications to hide."));

  EXPECT_EQ(run({{"actionType", 8}}), success("Showed Finder and Safari."));
  EXPECT_EQ(run({{"actionType", 8}}), failure("No hidden background applications to show."));
  EXPECT_EQ(run({{"actionType", 9}}), failure("No hidden applications to show."));

  desktop->setQuitBehaviour(safari, QuitBehaviour::asksToSave);
  EXPECT_EQ(run({{"actionType", 15}}),
            success("Quit Finder. Still running: Safari (may be asking to save documents)."));
  EXPECT_TRUE(isRunning(textEdit));
  EXPECT_TRUE(isRunning(100)) << "the host";
  EXPECT_EQ(run({{"actionType", 15}}),
            failure("Still running: Safari (may be asking to save documents). Turn on Force to "
                    "quit without asking."));
  EXPECT_EQ(run({{"actionType", 15}, {"Force", 1}}), success("Quit Safari."));
  EXPECT_EQ(run({{"actionType", 15}}), failure("No background applications to quit."));
  EXPECT_EQ(run({{"actionType", 18}}), failure("No background applications to relaunch."));
  for (const char* category : {"hide", "quitEvent", "terminate", "forceTerminate"})
    for (const auto& entry : desktop->trace(category)) {
      EXPECT_EQ(entry.text.find("pid=100"), std::string::npos) << category;
      EXPECT_EQ(entry.text.find("pid=202"), std::string::npos) << category;
    }
}

TEST_F(ApplicationTest, HidingTriesEachWayInTurn) {
  // Finder ignores its own hide request; the accessibility attribute works.
  desktop->setHidingWays(finder,
                         sim::hiding_ways::accessibility | sim::hiding_ways::processManager);
  EXPECT_EQ(run({{"actionType", 13}, {"appName", "Finder"}}), success("Hid Finder."));
  EXPECT_EQ(desktop->trace("hide"),
            (std::vector<sim::TraceEntry>{{"hide", "pid=200 by request"},
                                          {"hide", "pid=200 by accessibility"}}));
  // Without the permission it falls to the process manager.
  desktop->clearTrace();
  desktop->setAccessibilityTrusted(false);
  desktop->setHidingWays(safari,
                         sim::hiding_ways::accessibility | sim::hiding_ways::processManager);
  EXPECT_EQ(run({{"actionType", 13}, {"appName", "Safari"}}), success("Hid Safari."));
  EXPECT_EQ(count("hide"), 3u);
  // Nothing works.
  desktop->setHidingWays(textEdit, 0);
  EXPECT_EQ(run({{"actionType", 11}}), failure("Could not hide TextEdit"));
  EXPECT_FALSE(isHidden(textEdit));
}

TEST_F(ApplicationTest, ShowingOneOrTheFront) {
  EXPECT_EQ(run({{"actionType", 10}, {"appName", "Safari"}}), success("Safari is not hidden."));
  ASSERT_TRUE(desktop->setHidden(safari, true, sim::hiding_ways::request));
  const auto start = desktop->monotonicNow();
  EXPECT_EQ(run({{"actionType", 10}, {"appName", "Safari"}}), success("Showed Safari."));
  EXPECT_EQ(elapsedSince(start), 200ms) << "one look after the requests";
  ASSERT_TRUE(desktop->setHidden(finder, true, sim::hiding_ways::request));
  desktop->setHidingWays(finder, 0);
  EXPECT_EQ(run({{"actionType", 9}}), failure("Could not show Finder."));
  EXPECT_EQ(run({{"actionType", 7}}), success("Showed TextEdit."));
}

TEST_F(ApplicationTest, RelaunchComesBackOrSaysWhyNot) {
  const auto start = desktop->monotonicNow();
  EXPECT_EQ(run({{"actionType", 17}}), success("Relaunched TextEdit."));
  EXPECT_FALSE(isRunning(textEdit));
  const auto again = pidOf("TextEdit");
  ASSERT_TRUE(again);
  EXPECT_EQ(front(), again);
  EXPECT_EQ(elapsedSince(start), 500ms) << "the pause before reopening";

  // Installed so that it never comes back: four attempts of three seconds.
  install("/Applications/Safari.app", "com.apple.Safari", "Safari", std::nullopt);
  desktop->clearTrace();
  EXPECT_EQ(run({{"actionType", 19}, {"appName", "Safari"}}),
            failure("Safari quit but did not come back"));
  EXPECT_EQ(count("open"), 4u);

  RunningApplication bare = app("Bare", "com.example.bare", 300);
  desktop->addApplication(bare);
  EXPECT_EQ(run({{"actionType", 19}, {"appName", "Bare"}}),
            failure("Cannot relaunch Bare \u2014 no bundle URL"));

  desktop->setQuitBehaviour(finder, QuitBehaviour::refuses);
  EXPECT_EQ(run({{"actionType", 19}, {"appName", "Finder"}}),
            failure("Could not quit Finder in order to relaunch it"));
  EXPECT_EQ(run({{"actionType", 19}, {"appName", "Calendar"}}),
            failure("Application 'Calendar' not found"));
}

TEST_F(ApplicationTest, RelaunchWithForceWaitsSixSecondsThenForces) {
  desktop->setQuitBehaviour(safari, QuitBehaviour::asksToSave);
  auto start = desktop->monotonicNow();
  EXPECT_EQ(run({{"actionType", 19}, {"appName", "Safari"}}), success("Relaunched Safari."));
  // Twelve seconds of asking, then forced, then the half-second pause.
  EXPECT_EQ(elapsedSince(start), 12500ms);

  desktop->setQuitBehaviour(*pidOf("Safari"), QuitBehaviour::refuses);
  start = desktop->monotonicNow();
  EXPECT_EQ(run({{"actionType", 19}, {"appName", "Safari"}, {"force", true}}),
            failure("Could not quit Safari in order to relaunch it"));
  EXPECT_EQ(elapsedSince(start), 12000ms) << "six seconds forced, six more after forcing again";
}

TEST_F(ApplicationTest, TheHostNeverRelaunchesItself) {
  desktop->setFrontmost(100);
  EXPECT_EQ(run({{"actionType", 17}}), failure("Orla does not relaunch itself."));
  EXPECT_EQ(count("quitEvent"), 0u);
  EXPECT_EQ(run({{"actionType", 18}}), success("Relaunched Finder, Safari and TextEdit."));
  EXPECT_TRUE(desktop->hostIsFrontmost()) << "background relaunches open without activating";
}

}  // namespace
}  // namespace orla
