// The frontmost application is the one whose window has the focus, whether
// the window names its process or the desktop has to find it.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/platform/desktop/desktop_backends.h"

namespace orla::desktop_testing {
namespace {

template <class Backend>
using WorkspaceConformance = DesktopTest<Backend>;
TYPED_TEST_SUITE(WorkspaceConformance, DesktopBackends, DesktopBackendNames);

TYPED_TEST(WorkspaceConformance, TheFrontmostApplicationOwnsTheFocusedWindow) {
  for (const bool announcesProcess : {true, false}) {
    auto receiver = this->backend->receiver(announcesProcess);
    Workspace& workspace = this->platform().workspace();
    const auto front = workspace.frontmostApplication();
    ASSERT_TRUE(front) << "announces its process: " << announcesProcess;
    EXPECT_EQ(front->processIdentifier, receiver->process());
    EXPECT_TRUE(front->active);
    const auto apps = workspace.runningApplications();
    EXPECT_EQ(std::count_if(apps.begin(), apps.end(), [](const RunningApplication& a) { return a.active; }), 1);
    const auto listed = std::find_if(apps.begin(), apps.end(), [&](const RunningApplication& a) {
      return a.processIdentifier == receiver->process();
    });
    ASSERT_NE(listed, apps.end());
    EXPECT_TRUE(listed->active);
  }
}

TYPED_TEST(WorkspaceConformance, AnApplicationWithWindowsIsNamedByItsDesktopEntry) {
  auto receiver = this->backend->receiver();
  auto find = [&] {
    const auto apps = this->platform().workspace().runningApplications();
    const auto it = std::find_if(apps.begin(), apps.end(), [&](const RunningApplication& a) {
      return a.processIdentifier == receiver->process();
    });
    return it == apps.end() ? std::optional<RunningApplication>() : *it;
  };
  const auto app = find();
  ASSERT_TRUE(app);
  EXPECT_EQ(app->localizedName, kTestWindowName);
  EXPECT_EQ(app->bundleIdentifier, kTestWindowBundle);
  EXPECT_EQ(app->activationPolicy, ActivationPolicy::regular);
  EXPECT_FALSE(app->hidden);
  if (!TypeParam::minimizedMeansHidden) return;
  Accessibility& ax = this->platform().accessibility();
  const auto window = ax.copyAttributeValue(ax.applicationElement(receiver->process()), "AXFocusedWindow");
  ASSERT_TRUE(window);
  ASSERT_EQ(ax.setAttributeValue(*window->asElement(), "AXMinimized", true), AXError::success);
  EXPECT_TRUE(find()->hidden) << "every window minimized";
}

}  // namespace
}  // namespace orla::desktop_testing
