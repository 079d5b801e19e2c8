// ClipboardPlugin ("ClipboardShortcut"): sets the clipboard to a text or the
// date (optionally pasting it), copies or cuts the selection (optionally
// appending), pastes, changes the case of the selection, applies
// search-and-replace rules to it, copies the paths of the Finder selection,
// and saves and restores the whole clipboard.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <orla/models/action_plugin.h>
#include <orla/platform/platform.h>

namespace orla {

// One search-and-replace rule: literal, case-insensitive unless asked.
struct ReplaceRule {
  std::string search;
  std::string replace;
  bool caseSensitive = false;
  friend bool operator==(const ReplaceRule&, const ReplaceRule&) = default;

  // The rules from "rules" (or "Rules"); rules without a search text are
  // left out, since there is nothing to find.
  static std::vector<ReplaceRule> rules(const ActionData& data);
  // `text` with each rule applied in turn to the result of the one before;
  // `found`, when given, tells whether any search text occurred. Fails when
  // the text would grow past the size limit.
  static Checked<std::string> apply(const std::vector<ReplaceRule>& rules, std::string_view text,
                                    bool* found = nullptr);
};

class ClipboardPlugin : public PluginBase<ClipboardPlugin> {
 public:
  static constexpr std::string_view pluginClass = "ClipboardShortcut";

  enum class Command {
    setText = 1,
    setDate,
    copy,
    cut,
    paste,
    uppercase,
    lowercase,
    capitalize,
    replaceInSelection,
    finderSelectionPaths,
    save,
    restore,
  };

  ClipboardPlugin();
  explicit ClipboardPlugin(std::shared_ptr<Platform> platform);

  // The command of "actionType", else "Action", else setText; none for 0,
  // negative numbers and numbers above 12.
  static std::optional<Command> resolvedActionType(const ActionData& data);
  // The AppleScript that answers the POSIX paths of the Finder selection,
  // one per line, or the front window's folder when nothing is selected.
  static std::string_view finderSelectionScript();
  // Forgets what Save Clipboard kept (for tests).
  static void resetSavedClipboard();

  std::optional<std::string> validate(const ActionData& data) const override;
  bool requiresAccessibility(const ActionData& data) const override;
  PluginResult execute(const ActionData& data) override;

 private:
  PluginResult setClipboard(std::string_view text, std::string message, bool pasteAfter);
  PluginResult copyOrCut(Command command, bool append);
  PluginResult changeSelection(Command command, const ActionData& data);
  PluginResult finderPaths();
  PluginResult save();
  PluginResult restore();

  std::shared_ptr<Platform> platform_;
};

}  // namespace orla
