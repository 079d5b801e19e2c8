// The accessibility interface over the accessibility bus, against the GTK 3
// test application on the headless desktop (run with the harness's
// environment: eval "$(scripts/desktop-harness start)"):
//   - a menu click by a three-level path (File > Export > PDF), quiet walk;
//   - finding a button by title among 1,000 in a window, the way a search
//     pass goes (depth first, children with their titles);
//   - the UI element action finding the last of those 1,000 buttons by
//     title (reading its value, so that nothing is pressed), with the kind
//     "button" and with any kind;
//   - one bus round trip (an element's state);
//   - listing 1,000 children with their names, the names asked for
//     together.
// Each reports the bus calls it makes per iteration ("calls").
#include <benchmark/benchmark.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <deque>
#include <thread>

#include "platform/linux/atspi_accessibility.h"
#include "plugins/input/accessibility_readers.h"
#include "plugins/input/interface_plugin.h"
#include "plugins/input/menu_plugin.h"

extern char** environ;

namespace {

using orla::AXElement;
using orla::AXReader;

// The test application, with 1,000 buttons, for the whole run.
struct TestApp {
  TestApp() {
    ::setenv("ORLA_GTK_TEST_BUTTONS", "1000", 1);
    ::unsetenv("NO_AT_BRIDGE");
    const std::string log = "/dev/null";
    char* argv[] = {const_cast<char*>(ORLA_GTK_TEST_APP), const_cast<char*>(log.c_str()), nullptr};
    if (posix_spawn(&pid, argv[0], nullptr, nullptr, argv, environ) != 0) pid = 0;
    AXReader reader(orla::Platform::current()->accessibility());
    for (int i = 0; i < 300 && pid > 0; ++i) {
      if (auto bar = reader.menuBar(pid); bar && !reader.children(*bar).empty()) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
  }
  ~TestApp() {
    if (pid <= 0) return;
    ::kill(pid, SIGTERM);
    ::waitpid(pid, nullptr, 0);
  }
  pid_t pid = 0;
};

TestApp& app() {
  static TestApp instance;
  return instance;
}

std::uint64_t calls() { return orla::linux_desktop::atspiRoundTrips(orla::Platform::current()->accessibility()); }

bool ready(benchmark::State& state) {
  if (!orla::Platform::current()->supports(orla::Capability::menuBars)) {
    state.SkipWithError("no accessibility bus: run under scripts/desktop-harness");
    return false;
  }
  if (app().pid <= 0) {
    state.SkipWithError("the test application did not start");
    return false;
  }
  return true;
}

void BM_MenuClickThreeLevels(benchmark::State& state) {
  if (!ready(state)) return;
  orla::MenuPlugin plugin;
  const orla::ActionData data{{"applicationPath", "orla_gtk_test_app"}, {"menuPath", "File > Export > PDF"}};
  const auto before = calls();
  for (auto _ : state) {
    auto result = plugin.execute(data);
    if (result.kind() != orla::PluginResult::Kind::silentSuccess) state.SkipWithError(result.message().c_str());
  }
  state.counters["calls"] = double(calls() - before) / double(state.iterations());
}
BENCHMARK(BM_MenuClickThreeLevels)->Unit(benchmark::kMillisecond)->UseRealTime();

// Depth first through the front window, children with their titles, as a
// search pass visits them.
std::optional<AXElement> findByTitle(AXReader& reader, const AXElement& window, const std::string& title) {
  std::vector<AXElement> stack{window};
  while (!stack.empty()) {
    const AXElement element = stack.back();
    stack.pop_back();
    auto children = reader.children(element);
    for (const AXElement& child : children)
      if (reader.title(child) == title) return child;
    for (auto it = children.rbegin(); it != children.rend(); ++it) stack.push_back(*it);
  }
  return std::nullopt;
}

void BM_FindByTitleAmong1000(benchmark::State& state) {
  if (!ready(state)) return;
  AXReader reader(orla::Platform::current()->accessibility());
  const auto window = reader.window(app().pid, "AXFocusedWindow");
  if (!window) return state.SkipWithError("no window");
  const auto before = calls();
  for (auto _ : state)
    if (!findByTitle(reader, *window, "Button 1000")) state.SkipWithError("not found");
  state.counters["calls"] = double(calls() - before) / double(state.iterations());
}
BENCHMARK(BM_FindByTitleAmong1000)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_InterfaceFindAmong1000(benchmark::State& state) {
  if (!ready(state)) return;
  orla::InterfacePlugin plugin;
  const orla::ActionData data{{"applicationPath", "orla_gtk_test_app"},
                              {"title", "Button 1000"},
                              {"subAction", "read"},
                              {"elementKind", state.range(0)},
                              {"timeout", 0}};
  const auto before = calls();
  for (auto _ : state) {
    auto result = plugin.execute(data);
    if (result.kind() != orla::PluginResult::Kind::success) state.SkipWithError(result.message().c_str());
  }
  state.counters["calls"] = double(calls() - before) / double(state.iterations());
}
BENCHMARK(BM_InterfaceFindAmong1000)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_OneRoundTrip(benchmark::State& state) {
  if (!ready(state)) return;
  AXReader reader(orla::Platform::current()->accessibility());
  const auto bar = reader.menuBar(app().pid);
  if (!bar) return state.SkipWithError("no menu bar");
  const auto before = calls();
  for (auto _ : state) benchmark::DoNotOptimize(reader.isEnabled(*bar));
  state.counters["calls"] = double(calls() - before) / double(state.iterations());
}
BENCHMARK(BM_OneRoundTrip)->Unit(benchmark::kMicrosecond)->UseRealTime();

// The panel of 1,000 buttons: the flow box inside the last scroll pane.
std::optional<AXElement> buttonPanel(AXReader& reader) {
  const auto window = reader.window(app().pid, "AXFocusedWindow");
  if (!window) return std::nullopt;
  std::deque<AXElement> pending{*window};
  while (!pending.empty()) {
    const AXElement element = pending.front();
    pending.pop_front();
    const auto children = reader.children(element);
    if (children.size() >= 1000) return element;
    for (const AXElement& child : children) pending.push_back(child);
  }
  return std::nullopt;
}

void BM_List1000WithNames_GDBus(benchmark::State& state) {
  if (!ready(state)) return;
  AXReader reader(orla::Platform::current()->accessibility());
  const auto panel = buttonPanel(reader);
  if (!panel) return state.SkipWithError("no panel of buttons");
  const auto before = calls();
  for (auto _ : state) {
    std::size_t named = 0;
    for (const AXElement& child : reader.children(*panel)) named += !reader.title(child).empty();
    benchmark::DoNotOptimize(named);
  }
  state.counters["calls"] = double(calls() - before) / double(state.iterations());
}
BENCHMARK(BM_List1000WithNames_GDBus)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
