// The frontmost application is the one whose window has the focus, whether
// the window names its process or the desktop has to find it; applications
// are activated, hidden and shown, quit and launched, as the test
// application sees it.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <thread>

#include "tests/platform/desktop/desktop_backends.h"
#include "tests/support/temp_folder.h"

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

using namespace std::chrono_literals;

// Whether `done` holds within a few seconds; the simulated desktop answers
// at once, a window manager a moment later.
bool eventually(const std::function<bool()>& done) {
  const auto end = std::chrono::steady_clock::now() + 5s;
  while (!done()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(10ms);
  }
  return true;
}

std::optional<RunningApplication> running(Workspace& workspace, ProcessId pid) {
  for (RunningApplication& app : workspace.runningApplications())
    if (app.processIdentifier == pid && !app.terminated) return std::move(app);
  return std::nullopt;
}

std::vector<ProcessId> copiesOf(Workspace& workspace, std::string_view bundleIdentifier) {
  std::vector<ProcessId> pids;
  for (const RunningApplication& app : workspace.runningApplications())
    if (app.bundleIdentifier == bundleIdentifier && !app.terminated) pids.push_back(app.processIdentifier);
  return pids;
}

bool isFront(Workspace& workspace, ProcessId pid) {
  const auto front = workspace.frontmostApplication();
  return front && front->processIdentifier == pid;
}

TYPED_TEST(WorkspaceConformance, ApplicationsComeToTheFrontHideAndShow) {
  auto receiver = this->backend->receiver();
  auto applications = this->backend->applications();
  const ProcessId app = applications->start();
  Workspace& workspace = this->platform().workspace();
  ASSERT_TRUE(workspace.activate(receiver->process(), activation_options::ignoringOtherApps));
  ASSERT_TRUE(eventually([&] { return isFront(workspace, receiver->process()); }));

  std::vector<ProcessId> seen;
  const auto token = workspace.addActivationObserver([&](const RunningApplication& front) {
    EXPECT_TRUE(front.active);
    seen.push_back(front.processIdentifier);
  });
  for (const unsigned options : {activation_options::ignoringOtherApps,
                                 activation_options::ignoringOtherApps | activation_options::allWindows}) {
    ASSERT_TRUE(workspace.activate(app, options)) << "options " << options;
    EXPECT_TRUE(eventually([&] { return isFront(workspace, app); })) << "options " << options;
  }
  ASSERT_TRUE(workspace.activate(receiver->process(), activation_options::ignoringOtherApps));
  EXPECT_TRUE(eventually([&] { return isFront(workspace, receiver->process()); }));
  workspace.removeActivationObserver(token);
  EXPECT_EQ(seen, (std::vector<ProcessId>{app, receiver->process()})) << "once for each change of the front";

  // Hidden, the front application leaves the front; shown again, it is
  // there as before.
  ASSERT_TRUE(workspace.activate(app, activation_options::ignoringOtherApps));
  ASSERT_TRUE(eventually([&] { return isFront(workspace, app); }));
  ASSERT_TRUE(workspace.hide(app));
  EXPECT_TRUE(eventually([&] { return running(workspace, app) && running(workspace, app)->hidden; }));
  EXPECT_FALSE(isFront(workspace, app));
  ASSERT_TRUE(workspace.unhide(app));
  EXPECT_TRUE(eventually([&] { return running(workspace, app) && !running(workspace, app)->hidden; }));
}

TYPED_TEST(WorkspaceConformance, ApplicationsQuitPolitelyOrByForce) {
  auto applications = this->backend->applications();
  Workspace& workspace = this->platform().workspace();
  struct Case {
    const char* name;
    bool asksToSave;
    std::function<bool(ProcessId)> quit;
    bool ends;
  };
  const Case cases[] = {
      {"quit request", false, [&](ProcessId pid) { return workspace.sendQuitEvent(pid, 1s).ok(); }, true},
      {"quit request with unsaved work", true, [&](ProcessId pid) { return workspace.sendQuitEvent(pid, 300ms).ok(); },
       false},
      {"termination request", false, [&](ProcessId pid) { return workspace.terminate(pid); }, true},
      {"forced termination with unsaved work", true, [&](ProcessId pid) { return workspace.forceTerminate(pid); },
       true},
  };
  for (const Case& c : cases) {
    const ProcessId app = applications->start(c.asksToSave);
    ASSERT_TRUE(running(workspace, app)) << c.name;
    EXPECT_TRUE(c.quit(app)) << c.name;
    if (c.ends) {
      EXPECT_TRUE(eventually([&] { return !running(workspace, app); })) << c.name;
      continue;
    }
    EXPECT_TRUE(running(workspace, app)) << c.name << ": it keeps its window and runs";
    EXPECT_TRUE(workspace.forceTerminate(app)) << c.name;
    EXPECT_TRUE(eventually([&] { return !running(workspace, app); })) << c.name;
  }
  const auto nobody = workspace.sendQuitEvent(999999, 100ms);
  ASSERT_FALSE(nobody);
  EXPECT_TRUE(nobody.error().ends_with(".")) << nobody.error();
}

TYPED_TEST(WorkspaceConformance, ApplicationsLaunchFromWhereTheyAreInstalled) {
  auto receiver = this->backend->receiver();
  auto applications = this->backend->applications();
  Workspace& workspace = this->platform().workspace();
  const std::string path = applications->installedPath();
  EXPECT_EQ(workspace.applicationPath(kTestAppBundle), path);
  ASSERT_TRUE(copiesOf(workspace, kTestAppBundle).empty());

  const auto opened = workspace.openApplication(path, OpenConfiguration{true});
  ASSERT_TRUE(opened) << opened.error();
  ASSERT_TRUE(eventually([&] { return copiesOf(workspace, kTestAppBundle).size() == 1; }));
  const ProcessId app = copiesOf(workspace, kTestAppBundle).front();
  const auto launched = running(workspace, app);
  ASSERT_TRUE(launched);
  EXPECT_EQ(launched->localizedName, kTestAppName);
  EXPECT_EQ(launched->bundlePath, path);
  EXPECT_EQ(launched->activationPolicy, ActivationPolicy::regular);

  // Opened again, by where it is or by its identifier, the running copy
  // comes to the front instead of a second one starting.
  const std::function<Checked<void>()> reopen[] = {
      [&] { return workspace.openApplication(path, OpenConfiguration{true}); },
      [&] { return workspace.openApplicationWithBundleIdentifier(kTestAppBundle, OpenConfiguration{true}); },
  };
  for (const auto& open : reopen) {
    ASSERT_TRUE(workspace.activate(receiver->process(), activation_options::ignoringOtherApps));
    ASSERT_TRUE(eventually([&] { return isFront(workspace, receiver->process()); }));
    const auto again = open();
    ASSERT_TRUE(again) << again.error();
    EXPECT_TRUE(eventually([&] { return isFront(workspace, app); }));
    EXPECT_EQ(copiesOf(workspace, kTestAppBundle), std::vector<ProcessId>{app});
  }
  EXPECT_TRUE(workspace.forceTerminate(app));
  ASSERT_TRUE(eventually([&] { return copiesOf(workspace, kTestAppBundle).empty(); }));

  for (const auto& missing : {workspace.openApplication("/surely/not/here/Orla Missing.app", OpenConfiguration{true}),
                              workspace.openApplicationWithBundleIdentifier("org.orla.surely.not.installed",
                                                                            OpenConfiguration{true})}) {
    ASSERT_FALSE(missing);
    EXPECT_TRUE(missing.error().ends_with(".")) << missing.error();
  }
  EXPECT_FALSE(workspace.applicationPath("org.orla.surely.not.installed"));
}

// On Linux an application also opens by its executable, and by the name of
// its desktop entry.
TYPED_TEST(WorkspaceConformance, ApplicationsLaunchByExecutableOrName) {
  if (!TypeParam::opensExecutables) GTEST_SKIP() << "applications here are bundles";
  auto applications = this->backend->applications();
  Workspace& workspace = this->platform().workspace();
  const std::function<Checked<void>()> opens[] = {
      [&] { return workspace.openApplication(ORLA_TEST_APP, OpenConfiguration{true}); },
      [&] { return workspace.openApplicationWithBundleIdentifier(kTestAppName, OpenConfiguration{true}); },
      [&] { return workspace.openApplicationWithBundleIdentifier("org.orla.TestApplication", OpenConfiguration{true}); },
  };
  for (const auto& open : opens) {
    ASSERT_TRUE(copiesOf(workspace, kTestAppBundle).empty());
    const auto opened = open();
    ASSERT_TRUE(opened) << opened.error();
    ASSERT_TRUE(eventually([&] { return copiesOf(workspace, kTestAppBundle).size() == 1; }));
    const ProcessId app = copiesOf(workspace, kTestAppBundle).front();
    // It does not hold this program's output open.
    for (const char* output : {"1", "2"}) {
      std::error_code ec;
      EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(app) + "/fd/" + output, ec), "/dev/null")
          << "descriptor " << output;
    }
    EXPECT_TRUE(workspace.forceTerminate(app));
    ASSERT_TRUE(eventually([&] { return copiesOf(workspace, kTestAppBundle).empty(); }));
  }
  testing::TempFolder folder{"orla-not-an-application"};
  const std::string notes = folder.write("notes.txt", "not a program");
  const auto notAnApplication = workspace.openApplication(notes, OpenConfiguration{true});
  ASSERT_FALSE(notAnApplication);
  EXPECT_EQ(notAnApplication.error(), "“notes.txt” is not an application.");
}

}  // namespace
}  // namespace orla::desktop_testing
