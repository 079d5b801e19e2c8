// TypeTextPlugin ("KeyboardShortcut"): puts a text into the application the
// user works in, typed as key events one character at a time or pasted
// through the clipboard. The text is a custom one, the date in a chosen
// format, a file's contents, or the clipboard's text.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include <orla/models/action_plugin.h>
#include <orla/models/checked.h>
#include <orla/platform/platform.h>
#include "plugins/text/command_date_formatter.h"

namespace orla {

struct TypeTextPreview {
  std::string text;
  std::string sourceLabel;  // "Type custom text", ...
  friend bool operator==(const TypeTextPreview&, const TypeTextPreview&) = default;
};

// The preview, or the sentence that says why there is none.
using TypeTextPreviewResult = Checked<TypeTextPreview>;

class TypeTextPlugin : public PluginBase<TypeTextPlugin, AccessibilityPlugin> {
 public:
  static constexpr std::string_view pluginClass = "KeyboardShortcut";
  static constexpr std::string_view defaultDateFormat = CommandDateFormatter::defaultFormat;

  TypeTextPlugin();
  explicit TypeTextPlugin(std::shared_ptr<Platform> platform);

  // The text the action would type at `date`, for the host's editor. The
  // clipboard, files, locale and time zone are read from `platform`.
  static TypeTextPreviewResult preview(const ActionData& data, TimePoint date, Platform& platform);
  static TypeTextPreviewResult preview(const ActionData& data, TimePoint date);
  static std::string dateFormatForEditing(const ActionData& data);
  // The pause after each character.
  static std::chrono::microseconds delayPerCharacter(const ActionData& data);

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;

 private:
  PluginResult paste(const std::string& text);
  PluginResult type(const std::string& text, std::chrono::microseconds delay);

  std::shared_ptr<Platform> platform_;
};

// The user-perceived characters of `text` (extended grapheme clusters), each
// as the UTF-16 units a key event carries.
std::vector<std::u16string> graphemeClusters(std::string_view text);

}  // namespace orla
