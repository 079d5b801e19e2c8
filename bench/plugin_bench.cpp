// Micro-benchmarks of the paths a host takes on every edit and every run:
// `validate` of each plugin in the build, `execute` of the conditional,
// application and message plugins on the simulated desktop, the registry's
// lookup and construction, and the parameter readers every plugin is built
// from.
//
// The host calls `validate` on every keystroke in its editor, so it must stay
// far below a frame; the figures here are what bench/README.md records.
#include <benchmark/benchmark.h>

#include <array>
#include <memory>
#include <string>

#include <orla/models/key_code_map.h>
#include <orla/models/parameter_readers.h>
#include "platform/sim/sim_desktop.h"
#include "plugins/apps/application_plugin.h"
#include "plugins/apps/recent_applications_tracker.h"
#include "plugins/flow/conditional_plugin.h"
#include <orla/plugins/framework/orla_plugin.h>
#include <orla/plugins/framework/plugin_registry.h>
#include "plugins/input/message_plugin.h"
#include "plugins/text/type_text_plugin.h"

namespace {

using orla::ActionData;
using orla::ConditionalPlugin;
using orla::OrlaPlugin;
using orla::PluginRegistry;

std::shared_ptr<orla::sim::SimDesktop> simDesktop() {
  return std::make_shared<orla::sim::SimDesktop>();
}

std::shared_ptr<orla::Platform> simPlatform(std::shared_ptr<orla::sim::SimDesktop> desktop) {
  return orla::sim::makeSimPlatform(std::move(desktop));
}

// A desktop with the host and twenty other applications, as a busy session has.
std::shared_ptr<orla::sim::SimDesktop> busyDesktop() {
  auto desktop = simDesktop();
  for (int i = 0; i < 20; ++i) {
    orla::RunningApplication app;
    app.processIdentifier = 1000 + i;
    app.localizedName = "Application " + std::to_string(i);
    app.bundleIdentifier = "com.example.application" + std::to_string(i);
    app.bundlePath = "/Applications/" + app.localizedName + ".app";
    app.executablePath = app.bundlePath + "/Contents/MacOS/" + app.localizedName;
    desktop->addApplication(std::move(app));
  }
  desktop->setClipboardText("The quick brown fox jumps over the lazy dog; order #4521 shipped.");
  return desktop;
}

template <class Plugin>
void runValidate(benchmark::State& state, const ActionData& data) {
  const Plugin plugin(simPlatform(simDesktop()));
  if (plugin.validate(data)) state.SkipWithError("the parameters were expected to be valid");
  for (auto _ : state) {
    auto problem = plugin.validate(data);
    benchmark::DoNotOptimize(problem);
  }
}

// ---- validate -------------------------------------------------------------

void BM_OrlaValidate_Empty(benchmark::State& state) {
  runValidate<OrlaPlugin>(state, {});
}
BENCHMARK(BM_OrlaValidate_Empty);

void BM_OrlaValidate_SubAction(benchmark::State& state) {
  // The last name in the command table, so the whole table is searched.
  runValidate<OrlaPlugin>(state, {{"subAction", "runShortcut"}, {"shortcutName", "  Daily notes  "}});
}
BENCHMARK(BM_OrlaValidate_SubAction);

void BM_ConditionalValidate_ClipboardContains(benchmark::State& state) {
  runValidate<ConditionalPlugin>(state, {{"conditionType", 0}, {"pattern", "invoice"}});
}
BENCHMARK(BM_ConditionalValidate_ClipboardContains);

void BM_ConditionalValidate_ClipboardMatches(benchmark::State& state) {
  runValidate<ConditionalPlugin>(state, {{"conditionType", 1}, {"pattern", "a+b"}});
}
BENCHMARK(BM_ConditionalValidate_ClipboardMatches);

void BM_ConditionalValidate_ClipboardMatchesLonger(benchmark::State& state) {
  runValidate<ConditionalPlugin>(
      state, {{"conditionType", 1}, {"pattern", R"(^order #\d{4,}\s+(shipped|pending)$)"}});
}
BENCHMARK(BM_ConditionalValidate_ClipboardMatchesLonger);

void BM_ConditionalValidate_HourBetween(benchmark::State& state) {
  runValidate<ConditionalPlugin>(state, {{"conditionType", 5}, {"startHour", 9}, {"endHour", 17}});
}
BENCHMARK(BM_ConditionalValidate_HourBetween);

void BM_ConditionalValidate_PreviousResult(benchmark::State& state) {
  runValidate<ConditionalPlugin>(state, {{"conditionType", 7}, {"pattern", "OK"}});
}
BENCHMARK(BM_ConditionalValidate_PreviousResult);

// ---- execute on the simulated desktop --------------------------------------

void runExecute(benchmark::State& state, const ActionData& data) {
  ConditionalPlugin plugin(simPlatform(busyDesktop()));
  if (plugin.execute(data).kind() == orla::PluginResult::Kind::failure)
    state.SkipWithError("the condition was expected to evaluate");
  for (auto _ : state) {
    auto result = plugin.execute(data);
    benchmark::DoNotOptimize(result);
  }
}

void BM_ConditionalExecute_ClipboardContains(benchmark::State& state) {
  runExecute(state, {{"conditionType", 0}, {"pattern", "order #"}});
}
BENCHMARK(BM_ConditionalExecute_ClipboardContains);

void BM_ConditionalExecute_AppRunning20(benchmark::State& state) {
  // Absent, so every one of the 21 applications is compared by both names.
  runExecute(state, {{"conditionType", 3}, {"appName", "Finder"}});
}
BENCHMARK(BM_ConditionalExecute_AppRunning20);

void BM_ConditionalExecute_HourBetween(benchmark::State& state) {
  runExecute(state, {{"conditionType", 5}, {"startHour", 9}, {"endHour", 17}});
}
BENCHMARK(BM_ConditionalExecute_HourBetween);

void BM_ConditionalExecute_DayOfWeek(benchmark::State& state) {
  runExecute(state, {{"conditionType", 6}, {"dayOfWeek", 2}});
}
BENCHMARK(BM_ConditionalExecute_DayOfWeek);

void BM_ConditionalExecute_ClipboardMatches(benchmark::State& state) {
  runExecute(state, {{"conditionType", 1}, {"pattern", "order #\\d+"}});
}
BENCHMARK(BM_ConditionalExecute_ClipboardMatches);

// ---- registry -------------------------------------------------------------

void BM_RegistryFind_Hit(benchmark::State& state) {
  const PluginRegistry registry(simPlatform(simDesktop()));
  std::string_view kind = "OrlaShortcut";
  for (auto _ : state) {
    benchmark::DoNotOptimize(kind);
    auto* plugin = registry.find(kind);
    benchmark::DoNotOptimize(plugin);
  }
}
BENCHMARK(BM_RegistryFind_Hit);

void BM_RegistryFind_Miss(benchmark::State& state) {
  const PluginRegistry registry(simPlatform(simDesktop()));
  std::string_view kind = "OrlaShortcutz";
  for (auto _ : state) {
    benchmark::DoNotOptimize(kind);
    auto* plugin = registry.find(kind);
    benchmark::DoNotOptimize(plugin);
  }
}
BENCHMARK(BM_RegistryFind_Miss);

void BM_RegistryConstruct(benchmark::State& state) {
  // The platform is made once: a host builds one and hands it to its registry.
  const auto platform = simPlatform(simDesktop());
  for (auto _ : state) {
    PluginRegistry registry(platform);
    benchmark::DoNotOptimize(registry);
  }
}
BENCHMARK(BM_RegistryConstruct);

// ---- parameter readers ----------------------------------------------------

constexpr std::array<orla::CommandName, 4> kNames{{
    {"open", 1}, {"close", 2}, {"toggle", 3}, {"reset", 4},
}};

void BM_ResolveCommandNumber_SubAction(benchmark::State& state) {
  const ActionData data{{"subAction", "reset"}, {"actionType", 2}};
  for (auto _ : state) benchmark::DoNotOptimize(orla::resolveCommandNumber(data, kNames));
}
BENCHMARK(BM_ResolveCommandNumber_SubAction);

void BM_ResolveCommandNumber_ActionType(benchmark::State& state) {
  const ActionData data{{"actionType", "  3 "}};
  for (auto _ : state) benchmark::DoNotOptimize(orla::resolveCommandNumber(data, kNames));
}
BENCHMARK(BM_ResolveCommandNumber_ActionType);

void BM_ReadString_FirstKey(benchmark::State& state) {
  const ActionData data{{"shortcutName", "  Daily notes \n"}};
  for (auto _ : state)
    benchmark::DoNotOptimize(orla::readString(data, {"shortcutName", "shortcut", "Name"}));
}
BENCHMARK(BM_ReadString_FirstKey);

void BM_ReadString_LastAlias(benchmark::State& state) {
  // The first two aliases are absent or blank, so all three are tried.
  const ActionData data{{"shortcut", "   "}, {"Name", "Daily notes"}};
  for (auto _ : state)
    benchmark::DoNotOptimize(orla::readString(data, {"shortcutName", "shortcut", "Name"}));
}
BENCHMARK(BM_ReadString_LastAlias);

// ---- key display ------------------------------------------------------------

void BM_KeyCodeMap_DisplayString(benchmark::State& state) {
  // What the key-shortcut editor shows on every edit: a clipboard chord, a
  // three-key chord, every modifier at once (past the short-string buffer),
  // a keypad key and an unknown code. One iteration formats all five.
  struct Combo {
    std::int64_t keyCode;
    std::uint64_t modifiers;
  };
  constexpr std::array<Combo, 5> kCombos{{
      {8, 0x100000},        // ⌘C
      {40, 0x180000},       // ⌥⌘K
      {0, 0x9F0000},        // fn⇪⌃⌥⇧⌘A
      {83, 0x100000},       // ⌘Keypad 1
      {130, 0x40000},       // ⌃Key 130
  }};
  for (auto _ : state) {
    for (const auto& combo : kCombos) {
      auto shown = orla::KeyCodeMap::displayString(combo.keyCode, combo.modifiers);
      benchmark::DoNotOptimize(shown);
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kCombos.size()));
}
BENCHMARK(BM_KeyCodeMap_DisplayString);

// Typing mode: a 100,000-character text (mixed Latin, accented letters and
// emoji) turned into key events. The simulated clock's sleeps return at once,
// so the figure is event generation and posting alone; the desktop's record
// is cleared between runs so memory stays flat.
std::string typingText() {
  const std::string piece = "Grüße, caf\u00E9 e\u0301 \U0001F44D\U0001F3FD ok. ";
  std::string text;
  while (text.size() < 100000) text += piece;
  return text;
}

void BM_TypeText_Graphemes100k(benchmark::State& state) {
  const std::string text = typingText();
  size_t clusters = 0;
  for (auto _ : state) {
    auto parts = orla::graphemeClusters(text);
    clusters = parts.size();
    benchmark::DoNotOptimize(parts);
  }
  state.counters["characters/s"] = benchmark::Counter(static_cast<double>(clusters), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_TypeText_Graphemes100k)->Unit(benchmark::kMillisecond);

void BM_TypeText_Execute100k(benchmark::State& state) {
  auto desktop = simDesktop();
  orla::RunningApplication editor;
  editor.processIdentifier = 300;
  editor.bundleIdentifier = "com.apple.TextEdit";
  desktop->addApplication(editor);
  desktop->setFrontmost(300);
  orla::TypeTextPlugin plugin(simPlatform(desktop));
  const ActionData data{{"text", typingText()}};
  size_t events = 0;
  for (auto _ : state) {
    state.PauseTiming();
    desktop->clearTrace();
    desktop->clearKeyEvents();
    state.ResumeTiming();
    auto result = plugin.execute(data);
    benchmark::DoNotOptimize(result);
    events = desktop->keyEvents().size();
  }
  state.counters["events/s"] = benchmark::Counter(static_cast<double>(events), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_TypeText_Execute100k)->Unit(benchmark::kMillisecond);

// ---- applications and messages ---------------------------------------------

void BM_ApplicationValidate_QuitOne(benchmark::State& state) {
  runValidate<orla::ApplicationPlugin>(state, {{"actionType", 16}, {"appName", " Safari "}, {"force", true}});
}
BENCHMARK(BM_ApplicationValidate_QuitOne);

void BM_MessageValidate(benchmark::State& state) {
  runValidate<orla::MessagePlugin>(state, {{"subAction", "dialog"}, {"title", "Done"}});
}
BENCHMARK(BM_MessageValidate);

// Switch to the next of 20 applications, each time: the list is read,
// sorted by launch date, and the next one activated on the simulated
// desktop (which answers at once, so no activation poll sleeps).
void BM_ApplicationExecute_SwitchNext20(benchmark::State& state) {
  auto desktop = busyDesktop();
  for (const auto& app : desktop->applications()) {
    auto dated = app;
    dated.launchDate = desktop->now() - std::chrono::minutes(app.processIdentifier % 17);
    if (app.processIdentifier != desktop->host().processIdentifier) desktop->addApplication(dated);
  }
  desktop->setFrontmost(1000);
  orla::ApplicationPlugin plugin(simPlatform(desktop));
  const ActionData data{{"actionType", 4}};
  for (auto _ : state) {
    auto result = plugin.execute(data);
    benchmark::DoNotOptimize(result);
    desktop->clearTrace();  // the recorder would otherwise grow without end
  }
  orla::ApplicationPlugin::resetSharedState();
}
BENCHMARK(BM_ApplicationExecute_SwitchNext20);

// A name that runs nowhere, found in the fourth application folder: 21
// case-insensitive comparisons, then four look-ups.
void BM_ApplicationResolveTarget_InFolders(benchmark::State& state) {
  auto desktop = busyDesktop();
  orla::sim::SimApplicationBundle bundle;
  bundle.path = "/Applications/Utilities/Disk Utility.app";
  bundle.bundleIdentifier = "com.apple.DiskUtility";
  desktop->installApplication(bundle);
  const orla::ApplicationPlugin plugin(simPlatform(desktop));
  const ActionData data{{"actionType", 6}, {"appName", "Disk Utility.app"}};
  if (!plugin.resolveTarget(data)) state.SkipWithError("the application was expected to be found");
  for (auto _ : state) {
    auto target = plugin.resolveTarget(data);
    benchmark::DoNotOptimize(target);
  }
  orla::ApplicationPlugin::resetSharedState();
}
BENCHMARK(BM_ApplicationResolveTarget_InFolders);

// Recording an activation into a full list of 15.
void BM_RecentTracker_Record(benchmark::State& state) {
  orla::RecentApplicationsTracker tracker;
  std::array<std::string, 16> ids;
  for (std::size_t i = 0; i < ids.size(); ++i) ids[i] = "com.example.application" + std::to_string(i);
  std::size_t next = 0;
  for (auto _ : state) {
    tracker.record(ids[next]);
    next = (next + 1) % ids.size();
  }
}
BENCHMARK(BM_RecentTracker_Record);

// A message answered at once by the simulated desktop, with a menu-bar host
// switched to regular and back.
void BM_MessageExecute(benchmark::State& state) {
  auto desktop = simDesktop();
  auto host = desktop->host();
  host.activationPolicy = orla::ActivationPolicy::accessory;
  desktop->setHost(host);
  orla::MessagePlugin plugin(simPlatform(desktop));
  const ActionData data{{"title", "Done"}, {"message1", "The export finished."}, {"button2", "Stop"}};
  for (auto _ : state) {
    auto result = plugin.execute(data);
    benchmark::DoNotOptimize(result);
    desktop->clearTrace();
  }
}
BENCHMARK(BM_MessageExecute);

}  // namespace

BENCHMARK_MAIN();
