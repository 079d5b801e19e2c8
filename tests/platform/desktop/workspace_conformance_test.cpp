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

}  // namespace
}  // namespace orla::desktop_testing
