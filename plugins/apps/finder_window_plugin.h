// FinderWindowPlugin ("FinderWindowShortcut"): shows a chosen folder, or
// the folders selected in the Finder, in Finder windows, optionally in a new
// window, with a chosen view and window rectangle, after optionally closing
// the other Finder windows. It drives the Finder with generated scripts and
// falls back to the workspace's reveal when scripting is refused.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <orla/models/action_plugin.h>
#include <orla/platform/platform.h>

namespace orla {

struct WindowRect {
  double x = 100, y = 100, width = 800, height = 600;  // left, top, width, height in points
  friend bool operator==(const WindowRect&, const WindowRect&) = default;
};

struct FinderWindowOptions {
  std::optional<int> viewType;  // 0 icon, 1 list, 2 column; none leaves the view alone
  bool newWindow = false;
  bool closeAll = false;
  bool customWindow = false;
  WindowRect windowRect;
  std::optional<std::string> customRectProblem;

  // Each key is read as written and capitalised ("viewType", "ViewType").
  // "windowRect" (a list [x, y, w, h], an object with x, y, width and height,
  // or a text holding four numbers) is the base; "windowX", "windowY",
  // "windowW" and "windowH" override its parts.
  static FinderWindowOptions from(const ActionData& data);
};

class FinderWindowPlugin : public PluginBase<FinderWindowPlugin> {
 public:
  static constexpr std::string_view pluginClass = "FinderWindowShortcut";
  enum class Command { showFolder = 1, showSelection = 2 };

  FinderWindowPlugin();
  explicit FinderWindowPlugin(std::shared_ptr<Platform> platform);

  // The number in "actionType", then "Action" (0 counts as none); else the
  // name in "subAction"; else Show Folder when a folder is given and Show
  // Current Selection when none is.
  static std::optional<Command> command(const ActionData& data);
  static std::int64_t commandNumber(const ActionData& data);
  static std::string_view title(Command command);
  // Trimmed, a "file:" URL turned into its path, "~" not yet expanded.
  static std::string folderPath(const ActionData& data);

  // The script that shows `folder` with `options`.
  static std::string script(std::string_view folder, const FinderWindowOptions& options);
  // A text as an AppleScript string literal, quotes included.
  static std::string stringLiteral(std::string_view text);

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;

 private:
  struct Shown {
    bool shown = false;
    std::string note;  // why the options were skipped, or why nothing was shown
  };
  Shown show(const std::string& folder, const FinderWindowOptions& options);
  PluginResult showFolder(const std::string& folder, const FinderWindowOptions& options);
  PluginResult showSelection(const FinderWindowOptions& options);
  std::string expandedFolder(const ActionData& data) const;

  std::shared_ptr<Platform> platform_;
};

}  // namespace orla
