// Deferred parts of a platform: loaded the first time one of their
// services or capabilities is asked for, in order, once; and a registry
// that makes its plugins on first use loads none of what other plugins
// would touch.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include <orla/platform/focus_modes.h>
#include <orla/plugins/framework/plugin_registry.h>
#include "platform/sim/sim_desktop.h"

namespace orla {
namespace {

using Service = Platform::Service;

// Two parts over the simulated desktop's services, counting their loads.
// The first brings the workspace and files, deciding focusModes (offered);
// the second brings the keyboard and the workspace again, deciding
// keyboardEvents (offered) and menuBars (not offered).
struct CountedParts {
  std::vector<int> loads = std::vector<int>(2, 0);
  std::shared_ptr<Platform> platform;

  CountedParts() {
    std::vector<Platform::DeferredPart> parts;
    parts.push_back({{Service::workspace, Service::files},
                     {Capability::focusModes},
                     [this](Platform::Services&, std::set<Capability>& offered) {
                       ++loads[0];
                       offered.insert({Capability::focusModes, Capability::sessionControl});
                     }});
    parts.push_back({{Service::keyboard, Service::workspace},
                     {Capability::keyboardEvents, Capability::menuBars},
                     [this](Platform::Services&, std::set<Capability>& offered) {
                       ++loads[1];
                       offered.insert(Capability::keyboardEvents);
                     }});
    platform = sim::makeSimPlatform(std::make_shared<sim::SimDesktop>(), std::move(parts));
  }
};

TEST(DeferredParts, LoadWhenAskedInOrderOnce) {
  struct Case {
    const char* what;
    std::function<void(Platform&)> ask;
    std::vector<int> loads;
  };
  const std::vector<Case> cases{
      {"a service of neither part", [](Platform& p) { p.clock(); p.processes(); p.pasteboard(); }, {0, 0}},
      {"a capability neither part decides", [](Platform& p) { EXPECT_TRUE(p.supports(Capability::http)); }, {0, 0}},
      {"a service of the first part only", [](Platform& p) { p.files(); }, {1, 0}},
      {"a capability the first part decides", [](Platform& p) { EXPECT_TRUE(p.supports(Capability::focusModes)); },
       {1, 0}},
      {"a service of the second part loads the first too", [](Platform& p) { p.keyboard(); }, {1, 1}},
      {"a service of both parts waits for the last", [](Platform& p) { p.workspace(); }, {1, 1}},
      {"a capability decided but not offered", [](Platform& p) { EXPECT_FALSE(p.supports(Capability::menuBars)); },
       {1, 1}},
      {"asked again", [](Platform& p) { p.files(); p.keyboard(); p.supports(Capability::keyboardEvents); }, {1, 1}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    CountedParts parts;
    c.ask(*parts.platform);
    c.ask(*parts.platform);
    EXPECT_EQ(parts.loads, c.loads);
  }
}

TEST(DeferredParts, OnlyDecidedCapabilitiesCountAndGivenOnesAreKept) {
  CountedParts parts;
  EXPECT_TRUE(parts.platform->supports(Capability::focusModes));
  // Offered by the first part but not among what it decides.
  EXPECT_FALSE(parts.platform->supports(Capability::sessionControl));
  // Given by the simulated desktop and decided by no part.
  EXPECT_TRUE(parts.platform->supports(Capability::appleScript));
  EXPECT_TRUE(parts.platform->supports(Capability::keyboardEvents));
  // The simulated desktop gave menuBars; the second part decides it and did
  // not offer it.
  EXPECT_FALSE(parts.platform->supports(Capability::menuBars));
}

TEST(DeferredParts, ManyThreadsAskingLoadOnce) {
  CountedParts parts;
  std::atomic<bool> go{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i)
    threads.emplace_back([&, i] {
      while (!go) std::this_thread::yield();
      if (i % 2) parts.platform->keyboard();
      else EXPECT_TRUE(parts.platform->supports(Capability::keyboardEvents));
    });
  go = true;
  for (auto& t : threads) t.join();
  EXPECT_EQ(parts.loads, (std::vector<int>{1, 1}));
}

// A part may decide a capability whose service a later part brings (the
// settings say focus modes can be read; the module that reads them comes
// later): the service waits for that part, with no placeholder meanwhile
// that would take the capability back.
TEST(DeferredParts, ACapabilityDecidedBeforeItsServiceKeepsIt) {
  struct ReadableModes : FocusModes {
    Checked<FocusModeState> state() override { return FocusModeState{{"Work"}, "Work"}; }
    Checked<void> setMode(std::string_view, bool) override { return {}; }
    bool needsAccessibility() const override { return false; }
  };
  std::vector<Platform::DeferredPart> parts;
  parts.push_back({{}, {Capability::focusModes}, [](Platform::Services&, std::set<Capability>& offered) {
                     offered.insert(Capability::focusModes);
                   }});
  parts.push_back({{Service::focusModes}, {}, [](Platform::Services& services, std::set<Capability>&) {
                     services.focusModes = std::make_unique<ReadableModes>();
                   }});
  Platform platform("parts", Platform::Services{}, {}, std::move(parts));
  EXPECT_TRUE(platform.supports(Capability::focusModes));
  auto state = platform.focusModes().state();
  ASSERT_TRUE(state) << state.error();
  EXPECT_EQ(state->active, "Work");
  EXPECT_TRUE(platform.supports(Capability::focusModes));
}

// A host that runs one action makes only its plugin: a shell command does
// not load what the application plugin's following of the front
// application needs; making every plugin at once does.
TEST(DeferredParts, RegistryOnFirstUseMakesOnlyWhatItFinds) {
  {
    CountedParts parts;
    PluginRegistry registry(parts.platform, PluginRegistry::Making::onFirstUse);
    ASSERT_NE(registry.find("CommandShortcut"), nullptr);
    EXPECT_EQ(registry.find("CommandShortcut"), registry.find("CommandShortcut"));
    EXPECT_EQ(registry.find("NoSuchKind"), nullptr);
    EXPECT_EQ(parts.loads, (std::vector<int>{0, 0}));
    ASSERT_NE(registry.find("ApplicationShortcut"), nullptr);
    EXPECT_EQ(parts.loads, (std::vector<int>{1, 1}));
  }
  CountedParts parts;
  PluginRegistry registry(parts.platform);
  EXPECT_EQ(parts.loads, (std::vector<int>{1, 1}));
}

}  // namespace
}  // namespace orla
