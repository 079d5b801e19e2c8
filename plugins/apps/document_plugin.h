// DocumentPlugin ("DocumentShortcut"): opens a document with its own
// application or a chosen one, opens the documents selected in the Finder
// with a chosen application, and pops up a menu of recent documents (its own
// first, then the system's).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <orla/models/action_plugin.h>
#include <orla/platform/platform.h>
#include "plugins/apps/recent_documents.h"

namespace orla {

// What reading the Finder selection gave: the paths, or why there are none.
struct FinderSelection {
  std::vector<std::string> paths;
  std::optional<std::string> failure;
};

class DocumentPlugin : public PluginBase<DocumentPlugin> {
 public:
  static constexpr std::string_view pluginClass = "DocumentShortcut";
  // 4 is left out on purpose: saved actions use it as a second spelling of
  // 5 (see `command`), never as a command of its own.
  enum class Command { open = 1, openWith = 2, recentMenu = 3, openSelectionWith = 5 };

  DocumentPlugin();
  explicit DocumentPlugin(std::shared_ptr<Platform> platform);

  // 1, 2, 3 and 5 give their commands; anything else (4 included) none.
  static std::optional<Command> commandFromRawValue(std::int64_t rawValue);
  static std::string_view title(Command command);

  // The integer of "actionType" (else "Action"): 1, 2, 3 and 4 or 5; 0 leaves
  // it to "subAction" ("open", "openWith", "recent", "openSelection" or
  // "selection"; anything else is Open Document). Any other integer is no
  // command.
  static std::optional<Command> command(const ActionData& data);
  // The integer that decided, for the unknown-command sentence.
  static std::int64_t commandNumber(const ActionData& data);

  static std::string documentPath(const ActionData& data);
  static std::string applicationPath(const ActionData& data);
  static std::int64_t order(const ActionData& data);

  // The application bundle for a path, a name, a bundle identifier or the
  // name of a running application; none when nothing matches.
  std::optional<std::string> resolveApplication(std::string_view text) const;
  // The existing items selected in the Finder, by script or, when scripting
  // finds nothing or is refused, through the accessibility interface.
  FinderSelection finderSelection() const;

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;

 private:
  // Opens one document; the failure sentence, or none.
  std::optional<std::string> openDocument(const std::string& path, const std::optional<std::string>& application);
  PluginResult open(const ActionData& data);
  PluginResult recentMenu(const ActionData& data);
  PluginResult openSelection(const ActionData& data);
  std::vector<std::string> selectionThroughAccessibility() const;

  std::shared_ptr<Platform> platform_;
};

// The target of the recent-documents menu: opens the chosen document with
// its own application.
class DocumentPopupTarget {
 public:
  explicit DocumentPopupTarget(std::function<std::optional<std::string>(const std::string&)> open)
      : open_(std::move(open)) {}
  PluginResult choose(const RecentDocumentItem& item);

 private:
  std::function<std::optional<std::string>(const std::string&)> open_;
};

}  // namespace orla
