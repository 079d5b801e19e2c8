// InterfacePlugin ("InterfaceShortcut"): finds one control in another
// application's windows, by its title or its accessibility identifier, and
// presses it, sets its text, focuses it, reads its value, or turns it on or
// off. It works through the accessibility interface alone, never the mouse:
// covered controls are reached and the pointer stays where it is.
#pragma once

#include <chrono>
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

class InterfacePlugin : public PluginBase<InterfacePlugin, AccessibilityPlugin> {
 public:
  static constexpr std::string_view pluginClass = "InterfaceShortcut";
  static constexpr std::int64_t press = 1;
  static constexpr std::int64_t setText = 2;
  static constexpr std::int64_t focus = 3;
  static constexpr std::int64_t getValue = 4;
  static constexpr std::int64_t setChecked = 5;

  // Element kinds, as stored.
  static constexpr std::int64_t anyKind = 0;
  static constexpr std::int64_t lastKind = 7;

  // One search pass goes at most this deep below a window and visits at
  // most this many elements over all windows.
  static constexpr int deepestLevel = 40;
  static constexpr std::size_t mostElements = 5000;
  static constexpr auto passInterval = std::chrono::milliseconds(250);
  static constexpr auto activationPoll = std::chrono::milliseconds(50);
  static constexpr int activationPolls = 20;
  static constexpr auto checkPoll = std::chrono::milliseconds(50);
  static constexpr int checkPolls = 20;
  static constexpr double defaultTimeout = 2;
  static constexpr double longestTimeout = 30;
  static constexpr std::size_t longestText = 100000;
  static constexpr std::size_t listedTitles = 12;

  InterfacePlugin();
  explicit InterfacePlugin(std::shared_ptr<Platform> platform);

  static std::int64_t resolvedActionType(const ActionData& data);
  // The names of an element in order, empty ones left out: its title, its
  // description, the text of its title element, its placeholder, and for a
  // label or a link the text it shows.
  static std::vector<std::string> elementNames(const AXReader& reader, const AXElement& element);

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;

 private:
  struct Query;
  struct Pass;
  Pass searchPass(const Query& query, ProcessId pid) const;
  std::string notFound(const Query& query, const Pass& pass, const std::string& appName) const;
  PluginResult act(const Query& query, const AXElement& element, const ActionData& data, const std::string& appName);
  PluginResult readValue(const AXElement& element, const std::string& label, bool secure, const ActionData& data);
  PluginResult turn(const AXElement& element, const std::string& label, const std::string& appName, bool on,
                    bool radio);

  std::shared_ptr<Platform> platform_;
  AXReader reader_;
};

}  // namespace orla
