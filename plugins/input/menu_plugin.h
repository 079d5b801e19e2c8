// MenuPlugin ("MenuShortcut"): works on another application's menu bar
// through the accessibility interface: shows the whole bar, or one of its
// menus, as a pop-up at the pointer (a mirror whose entries press the real
// items), or clicks the item a path names ("File > Save…").
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <orla/models/action_plugin.h>
#include <orla/platform/platform.h>
#include "plugins/input/accessibility_readers.h"
#include "plugins/input/menu_path.h"

namespace orla {

class MenuPlugin : public PluginBase<MenuPlugin, AccessibilityPlugin> {
 public:
  static constexpr std::string_view pluginClass = "MenuShortcut";
  static constexpr std::int64_t showMenuBar = 1;
  static constexpr std::int64_t showSubmenu = 2;
  static constexpr std::int64_t clickItem = 3;
  // How deep the pop-up mirrors go.
  static constexpr int menuBarDepth = 4;
  static constexpr int submenuDepth = 5;
  // How many sibling titles a not-found sentence lists.
  static constexpr std::size_t listedSiblings = 12;
  static constexpr auto openingStep = std::chrono::milliseconds(150);
  static constexpr auto activationPoll = std::chrono::milliseconds(50);
  static constexpr int activationPolls = 20;

  MenuPlugin();
  explicit MenuPlugin(std::shared_ptr<Platform> platform);

  static std::int64_t resolvedActionType(const ActionData& data);
  static std::vector<PathStep> pathSteps(const ActionData& data);
  // None when the settings can be used, else the sentence saying why not.
  static std::optional<std::string> settingsProblem(const ActionData& data);
  // None when the target application is found, else the sentence saying
  // why not (none also when there is simply no application to work on).
  std::optional<std::string> targetApplicationProblem(const ActionData& data) const;

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;

 private:
  struct Target {
    std::optional<RunningApplication> app;
    std::optional<std::string> problem;
  };
  Target findTarget(const ActionData& data) const;
  void bringToFront(const RunningApplication& app);

  // The outcome of walking a path down from the menu bar.
  struct Walk {
    std::optional<AXElement> found;
    std::size_t failedLevel = 0;
    std::vector<AXElement> failedChildren;  // the items of the level not found
    std::vector<AXElement> opened;          // pressed on the way, in order
  };
  // `opening` presses each level but the last and waits before reading the
  // next; `openLast` presses the last too when it opens a menu.
  Walk walk(const AXElement& menuBar, const std::vector<PathStep>& steps, bool opening, bool openLast) const;
  std::optional<AXElement> pick(const std::vector<AXElement>& children, const PathStep& step) const;
  // The quiet walk, then the opening one; on failure everything opened is
  // cancelled and the sentence says what was not found where.
  Checked<AXElement> resolve(const AXElement& menuBar, const std::vector<PathStep>& steps,
                             const std::string& appName) const;
  // The walk behind `resolve`: quiet first, then opening; what it opened is
  // left open for the caller to cancel.
  Walk resolvingWalk(const AXElement& menuBar, const std::vector<PathStep>& steps) const;
  std::string notFound(const std::vector<PathStep>& steps, const Walk& walk, const std::string& appName) const;
  void cancelOpened(const Walk& walk) const;

  PluginResult showSubmenuOf(const AXElement& menuBar, const std::vector<PathStep>& steps,
                             const ActionData& data, const std::string& appName);
  PluginResult click(const AXElement& menuBar, const std::vector<PathStep>& steps, const ActionData& data,
                     const std::string& appName);

  std::shared_ptr<Platform> platform_;
  AXReader reader_;
};

}  // namespace orla
