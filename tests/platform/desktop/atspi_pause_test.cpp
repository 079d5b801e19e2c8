// The pause plugin on the headless desktop, through `orla`: a wait for a
// window that a real application opens a moment after its button is
// pressed over the accessibility bus.
#include <gtest/gtest.h>

#include <deque>
#include <thread>

#include "plugins/input/accessibility_readers.h"
#include "tests/platform/desktop/gtk_app.h"

namespace orla::desktop_testing {
namespace {

using namespace std::chrono_literals;

// The first element of the application's front window with this role and
// title, depth first.
std::optional<AXElement> findInFrontWindow(ProcessId pid, std::string_view role, std::string_view title) {
  AXReader reader(Platform::current()->accessibility());
  const auto window = reader.window(pid, "AXFocusedWindow");
  if (!window) return std::nullopt;
  std::deque<std::pair<AXElement, int>> pending{{*window, 0}};
  while (!pending.empty()) {
    auto [element, depth] = pending.front();
    pending.pop_front();
    for (const AXElement& child : reader.children(element)) {
      if (reader.role(child) == role && reader.title(child) == title) return child;
      if (depth < 12) pending.emplace_back(child, depth + 1);
    }
  }
  return std::nullopt;
}

class AtspiPause : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const std::string why = accessibilityBusUnavailableReason(); !why.empty()) GTEST_SKIP() << why;
  }
};

TEST_F(AtspiPause, WaitsUntilAWindowTitledReportAppears) {
  GtkTestApp app;
  ASSERT_TRUE(app.app().ready());
  const std::string json = R"({"subAction":"window","title":"Report","timeout":8})";
  OrlaRun run = runOrla("PauseShortcut", R"({"subAction":"window","title":"Report","timeout":0.4})");
  EXPECT_EQ(run.output,
            "PauseShortcut: failure: Waited 0.4 seconds, but no window whose title is “Report” appeared. Check the "
            "title and the match, or allow a longer time-out, then click Test again.");
  const auto button = findInFrontWindow(app.app().pid(), "AXButton", "Open Report");
  ASSERT_TRUE(button);
  ASSERT_EQ(Platform::current()->accessibility().performAction(*button, "AXPress"), AXError::success);
  run = runOrla("PauseShortcut", json);
  EXPECT_EQ(run.output, "PauseShortcut: success: The window “Report” is open.");
  EXPECT_EQ(app.lines(2), (std::vector<std::string>{"opened Report"}));
  run = runOrla("PauseShortcut", R"({"subAction":"window","appName":"orla_gtk_test_app","title":"report","until":2,)"
                                 R"("timeout":0.4,"onTimeout":1})");
  EXPECT_EQ(run.output,
            "PauseShortcut: success: Waited 0.4 seconds, but a window whose title is “report” in “orla_gtk_test_app” "
            "is still open. The shortcut continues.");
}

}  // namespace
}  // namespace orla::desktop_testing
