// JSON → ActionData → validate, then execute, for every kind on a fresh
// simulated desktop. The first byte picks the kind; the rest is the
// parameters' JSON (fuzz/dictionaries/actions.dict gives the keys), read
// by both readers of parameters, which must agree.
// Kinds that act on the real machine (a shell, the file system, the
// network) are validated only: a fuzzer must not delete files or reach
// servers.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <string_view>

#include <orla/models/json_codable.h>
#include "platform/sim/sim_desktop.h"
#include <orla/plugins/framework/plugin_registry.h>

using namespace orla;

namespace {

const std::set<std::string_view> kValidateOnly = {"CommandShortcut", "FileOperationAction", "WebAPIAction",
                                                  "AIAction",        "SystemShortcut",      "PrintShortcut"};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  const auto table = PluginRegistry::table();
  const PluginInfo& info = table[data[0] % table.size()];
  const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
  auto params = json_params::readStepwise(text, nullptr);
  // The fast reader leaves a text to the stepwise one, or reads the same
  // values and sentences from it.
  if (auto whole = json_params::readWhole(text, nullptr, 0)) {
    if (bool(*whole) != bool(params) || (params ? **whole != *params : whole->error() != params.error())) {
      std::fprintf(stderr, "the two readers of parameters disagree\n");
      std::abort();
    }
  }
  if (!params) return 0;
  auto desktop = std::make_shared<sim::SimDesktop>();
  desktop->setEnvironment({{"HOME", "/nonexistent/orla-fuzz-home"}, {"PATH", "/nonexistent"}});
  auto platform = sim::makeSimPlatform(desktop);
  Platform::setCurrent(platform);
  PluginRegistry registry(platform);
  ActionPlugin* plugin = registry.find(info.pluginClass);
  if (!plugin) std::abort();
  (void)validateAction(*plugin, *params);
  if (!kValidateOnly.count(info.pluginClass)) (void)executeAction(*plugin, *params);
  platform->scheduler().waitUntilIdle();
  return 0;
}
