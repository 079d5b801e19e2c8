// A simulated desktop for plugin tests: fresh per test, with a known time
// zone, locale and environment.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include <ostream>

#include <orla/models/plugin_result.h>
#include <orla/models/typing_target_context.h>
#include "platform/sim/sim_desktop.h"

namespace orla {

// Readable results in failure messages.
inline void PrintTo(const PluginResult& result, std::ostream* out) {
  *out << kindName(result.kind());
  if (result.hasMessage()) *out << " \"" << result.message() << "\"";
  if (result.kind() == PluginResult::Kind::conditionResult) *out << (result.conditionValue() ? " true" : " false");
}

inline void PrintTo(const PasteboardRepresentation& r, std::ostream* out) {
  *out << r.type << ": " << ::testing::PrintToString(r.bytes);
}

inline void PrintTo(const PasteboardItem& item, std::ostream* out) {
  *out << ::testing::PrintToString(item.representations);
}

}  // namespace orla

namespace orla::sim {

inline void PrintTo(const TraceEntry& entry, std::ostream* out) {
  *out << entry.category << " \"" << entry.text << "\"";
}

}  // namespace orla::sim

namespace orla::testing {

class SimTest : public ::testing::Test {
 protected:
  SimTest()
      : desktop(std::make_shared<sim::SimDesktop>()), platform(sim::makeSimPlatform(desktop)) {
    desktop->setEnvironment({{"HOME", "/home/ada"}, {"LANG", "en_US.UTF-8"}});
    desktop->setTimeZone("Europe/Paris");
    TypingTargetContext::setLastUserAppBundleID(std::nullopt);
  }

  RunningApplication app(std::string name, std::string bundleIdentifier, ProcessId pid) {
    RunningApplication a;
    a.localizedName = std::move(name);
    a.bundleIdentifier = std::move(bundleIdentifier);
    a.processIdentifier = pid;
    return a;
  }

  std::shared_ptr<sim::SimDesktop> desktop;
  std::shared_ptr<Platform> platform;
};

}  // namespace orla::testing
