// A simulated desktop with a few applications, for the application plugin's
// tests: Finder (oldest), Safari and TextEdit, launched in that order, each
// installed at its bundle path; TextEdit in front.
#pragma once

#include <memory>

#include "plugins/apps/application_plugin.h"
#include "tests/sim_fixture.h"

namespace orla::testing {

class ApplicationTest : public SimTest {
 protected:
  static constexpr ProcessId finder = 200, safari = 201, textEdit = 202;

  ApplicationTest() {
    ApplicationPlugin::resetSharedState();
    add("Finder", "com.apple.finder", finder, "/System/Library/CoreServices/Finder.app", 60);
    add("Safari", "com.apple.Safari", safari, "/Applications/Safari.app", 30);
    add("TextEdit", "com.apple.TextEdit", textEdit, "/Applications/TextEdit.app", 10);
    desktop->setFrontmost(textEdit);
  }
  ~ApplicationTest() override {
    plugin_.reset();
    ApplicationPlugin::resetSharedState();
  }

  // A running application launched `minutesAgo`, installed at `path`.
  void add(std::string name, std::string id, ProcessId pid, std::string path, int minutesAgo) {
    RunningApplication a = app(std::move(name), std::move(id), pid);
    a.bundlePath = std::move(path);
    a.launchDate = desktop->now() - std::chrono::minutes(minutesAgo);
    desktop->addApplication(std::move(a));
  }

  void install(std::string path, std::string id, std::string name,
               std::optional<std::chrono::microseconds> delay = std::chrono::microseconds(0),
               sim::QuitBehaviour quit = sim::QuitBehaviour::quits) {
    sim::SimApplicationBundle bundle;
    bundle.path = std::move(path);
    bundle.bundleIdentifier = std::move(id);
    bundle.name = std::move(name);
    bundle.launchDelay = delay;
    bundle.quit = quit;
    desktop->installApplication(std::move(bundle));
  }

  // One plugin for the whole test, so that it follows the activations.
  ApplicationPlugin& plugin() {
    if (!plugin_) plugin_ = std::make_unique<ApplicationPlugin>(platform);
    return *plugin_;
  }
  PluginResult run(const ActionData& data) { return plugin().execute(data); }

  std::optional<ProcessId> front() const {
    auto f = desktop->frontmostApplication();
    return f ? std::optional(f->processIdentifier) : std::nullopt;
  }
  bool isRunning(ProcessId pid) const {
    for (const auto& a : desktop->applications())
      if (a.processIdentifier == pid) return true;
    return false;
  }
  bool isHidden(ProcessId pid) const {
    for (const auto& a : desktop->applications())
      if (a.processIdentifier == pid) return a.hidden;
    return false;
  }
  std::optional<ProcessId> pidOf(std::string_view name) const {
    for (const auto& a : desktop->applications())
      if (a.localizedName == name) return a.processIdentifier;
    return std::nullopt;
  }
  // The virtual time that passed since `start`.
  std::chrono::milliseconds elapsedSince(Clock::Monotonic start) const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(desktop->monotonicNow() - start);
  }
  std::size_t count(std::string_view category) const { return desktop->trace(category).size(); }

  static PluginResult success(std::string m) { return PluginResult::success(std::move(m)); }
  static PluginResult failure(std::string m) { return PluginResult::failure(std::move(m)); }

 private:
  std::unique_ptr<ApplicationPlugin> plugin_;
};

}  // namespace orla::testing
