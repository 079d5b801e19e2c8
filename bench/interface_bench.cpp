// Benchmarks of the menu, window and mouse plugins on the simulated desktop,
// part of `orla_bench`: validation as the editor calls it, the path walks of
// the menu plugin over a full menu bar, the pop-up mirror, tiling, and the
// event run of a long drag. The simulated desktop answers every
// accessibility call at once and records it, so these figures are the
// plugins' own work plus the simulation's; on a real desktop each
// accessibility call is an inter-process message of tens of microseconds.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include <orla/models/window_tiling.h>
#include "platform/sim/sim_desktop.h"
#include "plugins/input/menu_path.h"
#include "plugins/input/menu_plugin.h"
#include "plugins/input/mouse_plugin.h"
#include "plugins/input/window_plugin.h"

namespace {

using orla::ActionData;
using orla::AnyArray;
using orla::AnyDictionary;
using orla::sim::SimMenuItem;
using orla::sim::SimWindow;

constexpr orla::ProcessId kApp = 300;

// An application in front with eight menus of twenty items each, the
// second menu of each holding a submenu of twenty, and "Recent" filling
// only when opened; two windows.
std::shared_ptr<orla::sim::SimDesktop> interfaceDesktop() {
  auto desktop = std::make_shared<orla::sim::SimDesktop>();
  orla::RunningApplication app;
  app.processIdentifier = kApp;
  app.localizedName = "Pages";
  app.bundleIdentifier = "com.apple.iWork.Pages";
  desktop->addApplication(app);
  desktop->setFrontmost(kApp);
  std::vector<SimMenuItem> bar;
  for (const char* title : {"", "Pages", "File", "Edit", "Insert", "Format", "Arrange", "View"}) {
    SimMenuItem menu{.title = title};
    for (int i = 1; i <= 20; ++i) {
      SimMenuItem item{.title = std::string(title) + " Command " + std::to_string(i) + "…"};
      if (i == 2)
        for (int j = 1; j <= 20; ++j) item.items.push_back({.title = "Choice " + std::to_string(j)});
      menu.items.push_back(std::move(item));
    }
    bar.push_back(std::move(menu));
  }
  bar[2].items.push_back({.title = "Recent", .items = {{.title = "Report.pages"}}, .fillsWhenOpened = true});
  desktop->ui().setMenuBar(kApp, bar);
  desktop->ui().setWindows(kApp, {SimWindow{.title = "Report", .frame = {100, 100, 900, 700}},
                                  SimWindow{.title = "Notes", .frame = {300, 200, 600, 400}}});
  return desktop;
}

template <class Plugin>
void runExecute(benchmark::State& state, const ActionData& data) {
  auto desktop = interfaceDesktop();
  Plugin plugin(orla::sim::makeSimPlatform(desktop));
  if (plugin.execute(data).isFailure()) state.SkipWithError("the action was expected to succeed");
  for (auto _ : state) {
    auto result = plugin.execute(data);
    benchmark::DoNotOptimize(result);
    desktop->clearTrace();
  }
}

void BM_MenuValidate_Path(benchmark::State& state) {
  const orla::MenuPlugin plugin(orla::sim::makeSimPlatform(interfaceDesktop()));
  const ActionData data{{"menuPath", "File > Export > PDF..."}};
  for (auto _ : state) {
    auto problem = plugin.validate(data);
    benchmark::DoNotOptimize(problem);
  }
}
BENCHMARK(BM_MenuValidate_Path);

void BM_MenuTitleMatches(benchmark::State& state) {
  for (auto _ : state) {
    bool matches = orla::titleMatches("Export as PDF…", "export as pdf...", orla::Selection::nameFull);
    benchmark::DoNotOptimize(matches);
  }
}
BENCHMARK(BM_MenuTitleMatches);

// The last menu's last item's submenu's last choice: every title on the way
// is read and compared.
void BM_MenuExecute_ClickByName(benchmark::State& state) {
  runExecute<orla::MenuPlugin>(state, {{"menuPath", "View > view command 2... > choice 20"}});
}
BENCHMARK(BM_MenuExecute_ClickByName);

void BM_MenuExecute_ClickByIndex(benchmark::State& state) {
  runExecute<orla::MenuPlugin>(state, {{"menuPath", "8 > 2 > 20"}, {"matchType", 0}});
}
BENCHMARK(BM_MenuExecute_ClickByIndex);

// The quiet walk fails, the opening walk presses two menus (its 150 ms
// waits are virtual here) and finds the item.
void BM_MenuExecute_OpeningWalk(benchmark::State& state) {
  runExecute<orla::MenuPlugin>(state, {{"menuPath", "File > Recent > Report.pages"}});
}
BENCHMARK(BM_MenuExecute_OpeningWalk);

// The mirror of the whole bar: 8 menus, 160 items and 160 choices, each an
// element read for its role, title, state and submenu; dismissed.
void BM_MenuExecute_MenuBarPopUp(benchmark::State& state) {
  runExecute<orla::MenuPlugin>(state, {{"subAction", "fullBar"}});
}
BENCHMARK(BM_MenuExecute_MenuBarPopUp);

void BM_WindowTilePositionParse(benchmark::State& state) {
  for (auto _ : state) {
    auto position = orla::WindowTilePosition::parse("Top-Right quarter");
    benchmark::DoNotOptimize(position);
  }
}
BENCHMARK(BM_WindowTilePositionParse);

void BM_WindowValidate_Tile(benchmark::State& state) {
  const orla::WindowPlugin plugin(orla::sim::makeSimPlatform(interfaceDesktop()));
  const ActionData data{{"position", "left two thirds"}};
  for (auto _ : state) {
    auto problem = plugin.validate(data);
    benchmark::DoNotOptimize(problem);
  }
}
BENCHMARK(BM_WindowValidate_Tile);

void BM_WindowExecute_Tile(benchmark::State& state) {
  runExecute<orla::WindowPlugin>(state, {{"position", "left two thirds"}});
}
BENCHMARK(BM_WindowExecute_Tile);

void BM_WindowExecute_ResizeFromCorner(benchmark::State& state) {
  runExecute<orla::WindowPlugin>(state, {{"subAction", "resize"}, {"width", 640}, {"height", 480}, {"origin", 2}});
}
BENCHMARK(BM_WindowExecute_ResizeFromCorner);

void BM_MouseValidate(benchmark::State& state) {
  const orla::MousePlugin plugin(orla::sim::makeSimPlatform(interfaceDesktop()));
  const ActionData data{{"movements", AnyArray{AnyDictionary{{"moveType", 0}, {"x", 10}, {"y", 20}},
                                               AnyDictionary{{"moveType", 6}, {"x", 400}, {"y", 20}}}}};
  for (auto _ : state) {
    auto problem = plugin.validate(data);
    benchmark::DoNotOptimize(problem);
  }
}
BENCHMARK(BM_MouseValidate);

// 1000 points: 33 dragged events and 32 waits, against the focused window.
void BM_MouseExecute_LongDrag(benchmark::State& state) {
  runExecute<orla::MousePlugin>(
      state, {{"subAction", "focus"},
              {"movements", AnyArray{AnyDictionary{{"moveType", 5}, {"x", 10}, {"y", 10}},
                                     AnyDictionary{{"moveType", 10}, {"x", 1000}, {"y", 0}}}}});
}
BENCHMARK(BM_MouseExecute_LongDrag);

}  // namespace
