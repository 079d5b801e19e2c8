// KeyShortcutPlugin ("KeyShortcut"): sends one key stroke, or modifier keys
// alone, to the frontmost application: type it (press and release), press
// and hold it, or release it. Each modifier is a key event of its own, so
// the application sees what a physical keyboard would send.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <orla/models/action_plugin.h>
#include <orla/platform/platform.h>

namespace orla {

class KeyShortcutPlugin : public PluginBase<KeyShortcutPlugin, AccessibilityPlugin> {
 public:
  static constexpr std::string_view pluginClass = "KeyShortcut";
  static constexpr std::int64_t actionTypeKey = 1;
  static constexpr std::int64_t actionPressKey = 2;
  static constexpr std::int64_t actionReleaseKey = 3;

  // The parameter keys.
  struct Keys {
    static constexpr std::string_view actionType = "actionType";
    static constexpr std::string_view action = "Action";
    static constexpr std::string_view keyDown = "keyDown";
    static constexpr std::string_view keyUp = "keyUp";
    static constexpr std::string_view keycode = "keycode";
    static constexpr std::string_view keycodeLegacy = "Keycode";
    static constexpr std::string_view modifiers = "modifiers";
    static constexpr std::string_view hasKey = "hasKey";
    static constexpr std::string_view asciiCode = "asciiCode";
    static constexpr std::string_view asciiCodeLegacy = "AsciiCode";
  };

  // The command after reading the parameters.
  struct Resolved {
    std::int64_t actionType = actionTypeKey;
    std::optional<std::int64_t> keycode;  // none: modifiers only
    std::uint64_t modifiers = 0;          // masked to the six modifier bits

    bool hasKey() const { return keycode.has_value(); }
    bool hasModifiers() const { return modifiers != 0; }
    bool isEmpty() const { return !hasKey() && !hasModifiers(); }
    std::string displayString() const;
  };

  KeyShortcutPlugin();
  explicit KeyShortcutPlugin(std::shared_ptr<Platform> platform);

  static Resolved resolve(const ActionData& data);

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;

 private:
  std::shared_ptr<Platform> platform_;
};

}  // namespace orla
