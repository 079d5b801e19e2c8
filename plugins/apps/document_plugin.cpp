#include "plugins/apps/document_plugin.h"

#include <algorithm>
#include <filesystem>

#include <orla/models/parameter_readers.h>
#include <orla/models/text.h>
#include <orla/models/url.h>
#include <orla/platform/finder_scripts.h>
#include "plugins/apps/finder_selection.h"
#include "plugins/apps/open_request.h"

namespace orla {

namespace fs = std::filesystem;

namespace {

// Where a name is looked for as "<name>.app", after the user's own
// Applications folder.
constexpr std::string_view kApplicationFolders[] = {"/Applications/", "/System/Applications/",
                                                    "/System/Applications/Utilities/", "/Applications/Utilities/",
                                                    "/System/Library/CoreServices/"};

std::optional<std::int64_t> decidingInteger(const ActionData& data) {
  for (std::string_view key : {"actionType", "Action"}) {
    const AnyCodable* value = lookup(data, key);
    if (!value) continue;
    if (auto number = value->intValue()) {
      if (*number == 0) return std::nullopt;  // leaves the choice to "subAction"
      return number;
    }
  }
  return std::nullopt;
}

std::string fileName(const std::string& path) {
  const std::string name = fs::path(standardizedDocumentPath(path)).filename().string();
  return name.empty() ? path : name;
}

bool endsWithApp(std::string_view text) {
  return text.size() >= 4 && equalsIgnoringCase(text.substr(text.size() - 4), ".app");
}

std::string withoutExtension(const std::string& path) { return fs::path(path).stem().string(); }

}  // namespace

DocumentPlugin::DocumentPlugin() : DocumentPlugin(Platform::current()) {}
DocumentPlugin::DocumentPlugin(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {}

std::optional<DocumentPlugin::Command> DocumentPlugin::commandFromRawValue(std::int64_t rawValue) {
  switch (rawValue) {
    case 1: return Command::open;
    case 2: return Command::openWith;
    case 3: return Command::recentMenu;
    case 5: return Command::openSelectionWith;
    default: return std::nullopt;
  }
}

std::string_view DocumentPlugin::title(Command command) {
  switch (command) {
    case Command::open: return "Open Document";
    case Command::openWith: return "Open Document with App";
    case Command::recentMenu: return "Open Recent Documents Menu";
    case Command::openSelectionWith: return "Open Selection with App";
  }
  return "Open Document";
}

std::optional<DocumentPlugin::Command> DocumentPlugin::command(const ActionData& data) {
  if (auto number = decidingInteger(data)) {
    if (*number == 4) return Command::openSelectionWith;
    return commandFromRawValue(*number);
  }
  const auto name = readRawString(data, "subAction");
  if (name == "openWith") return Command::openWith;
  if (name == "recent") return Command::recentMenu;
  if (name == "openSelection" || name == "selection") return Command::openSelectionWith;
  return Command::open;
}

std::int64_t DocumentPlugin::commandNumber(const ActionData& data) { return decidingInteger(data).value_or(0); }

std::string DocumentPlugin::documentPath(const ActionData& data) {
  return readStringOr(data, {"documentPath", "DocPath", "path"});
}

std::string DocumentPlugin::applicationPath(const ActionData& data) {
  return readStringOr(data, {"applicationPath", "appName", "AppName", "AppPath"});
}

std::int64_t DocumentPlugin::order(const ActionData& data) { return readIntOr(data, {"order", "Order"}, 0); }

std::optional<std::string> DocumentPlugin::resolveApplication(std::string_view text) const {
  if (text.empty()) return std::nullopt;
  const std::string expanded = platform_->environment().expandTilde(text);
  Workspace& workspace = platform_->workspace();
  FileWorkspace& files = platform_->fileWorkspace();
  // A bundle at the path; on desktops without ".app" bundles, whatever loads
  // as an application there.
  if (workspace.itemExists(expanded) &&
      (endsWithApp(expanded) || files.isPackage(expanded) || files.bundleIdentifier(expanded)))
    return expanded;

  std::string name = fs::path(expanded).filename().string();
  if (!endsWithApp(name)) name += ".app";
  std::vector<std::string> folders;
  if (auto home = platform_->environment().homeDirectory()) folders.push_back(*home + "/Applications/");
  folders.insert(folders.end(), std::begin(kApplicationFolders), std::end(kApplicationFolders));
  for (const std::string& folder : folders)
    if (workspace.itemExists(folder + name)) return folder + name;

  const std::string given(text);
  if (given.find('.') != std::string::npos)
    if (auto path = workspace.applicationPath(given)) return path;

  for (const RunningApplication& app : workspace.runningApplications()) {
    if (app.bundlePath.empty()) continue;
    if (equalsIgnoringCase(app.localizedName, given) ||
        equalsIgnoringCase(withoutExtension(standardizedDocumentPath(app.bundlePath)), given))
      return app.bundlePath;
  }
  return std::nullopt;
}

std::optional<std::string> DocumentPlugin::validate(const ActionData& data) const {
  const auto cmd = command(data);
  if (!cmd) return "Unknown document command " + std::to_string(commandNumber(data)) + ". Choose a command from the menu.";
  if (*cmd == Command::open || *cmd == Command::openWith) {
    const std::string path = documentPath(data);
    if (path.empty()) return "Choose the document to open with Browse…";
    const std::string expanded = platform_->environment().expandTilde(path);
    if (!platform_->files().itemExists(expanded))
      return "The document \"" + expanded + "\" can't be found. Choose it again with Browse…";
  }
  const std::string app = applicationPath(data);
  if (!app.empty() && !resolveApplication(app))
    return "The application \"" + app +
           "\" can't be found. Choose it again with Browse Apps, or leave it blank for the default application.";
  return std::nullopt;
}

PluginResult DocumentPlugin::execute(const ActionData& data) {
  if (auto problem = validate(data)) return PluginResult::failure(std::move(*problem));
  switch (*command(data)) {
    case Command::open:
    case Command::openWith: return open(data);
    case Command::recentMenu: return recentMenu(data);
    case Command::openSelectionWith: return openSelection(data);
  }
  return PluginResult::failure("Unknown document command " + std::to_string(commandNumber(data)) +
                               ". Choose a command from the menu.");
}

std::optional<std::string> DocumentPlugin::openDocument(const std::string& path,
                                                        const std::optional<std::string>& application) {
  const std::string standard = standardizedDocumentPath(path);
  const std::string name = fileName(standard);
  if (application) {
    const std::string app = applicationDisplayName(*platform_, *application);
    const OpenAnswer answer = openWithApplication(*platform_, {fileURLFromPath(standard)}, *application, true);
    if (answer.kind == OpenAnswer::Kind::failed) return app + " could not open \"" + name + "\"";
    // The system always answers in the end; the wait stops at the same
    // deadline as opening an address, so a hung application cannot hold the
    // shortcut forever.
    if (answer.kind == OpenAnswer::Kind::unanswered)
      return "Asked " + app + " to open \"" + name + "\", but it did not answer within " +
             std::to_string(kOpenWithApplicationLimit.count()) + " seconds.";
  } else {
    Checked<void> opened;
    platform_->mainThread().runSync([&] { opened = platform_->fileWorkspace().openDocument(standard); });
    if (!opened)
      return "Unable to open \"" + name +
             "\". No application is set to open this kind of file. Use Open Document with App to choose one.";
  }
  RecentDocumentsTracker::shared().record(standard);
  return std::nullopt;
}

PluginResult DocumentPlugin::open(const ActionData& data) {
  const std::string path = platform_->environment().expandTilde(documentPath(data));
  const std::string app = applicationPath(data);
  const auto application = app.empty() ? std::nullopt : resolveApplication(app);
  if (auto problem = openDocument(path, application)) return PluginResult::failure(std::move(*problem));
  std::string report = "Opened " + fileName(path);
  if (application) report += " with " + applicationDisplayName(*platform_, *application);
  return PluginResult::success(report + ".");
}

PluginResult DocumentPopupTarget::choose(const RecentDocumentItem& item) {
  if (auto problem = open_(item.path)) return PluginResult::failure(std::move(*problem));
  return PluginResult::success("Opened " + item.name + ".");
}

PluginResult DocumentPlugin::recentMenu(const ActionData& data) {
  const auto items = recentDocumentItems(*platform_, order(data) == 1);
  std::vector<MenuItem> menu;
  for (const RecentDocumentItem& item : items) {
    MenuItem entry;
    entry.title = item.name;
    entry.iconFilePath = item.path;
    entry.payload = item.path;
    menu.push_back(std::move(entry));
  }
  if (menu.empty()) {
    MenuItem none;
    none.title = "No recent documents";
    none.enabled = false;
    menu.push_back(std::move(none));
  }
  const auto chosen = platform_->popupMenus().popUpAtMouse(menu);
  if (!chosen) return PluginResult::failure(chosen.error());
  if (!*chosen || **chosen >= items.size()) return PluginResult::silentSuccess();
  DocumentPopupTarget target([this](const std::string& path) { return openDocument(path, std::nullopt); });
  return target.choose(items[**chosen]);
}

std::vector<std::string> DocumentPlugin::selectionThroughAccessibility() const {
  std::vector<std::string> paths;
  auto urls = platform_->fileWorkspace().selectedItemURLs(kFinderBundleIdentifier);
  if (!urls) return paths;
  for (const std::string& url : *urls) {
    auto path = filePathFromURL(url);
    if (path && platform_->files().itemExists(*path)) paths.push_back(*path);
  }
  return paths;
}

FinderSelection DocumentPlugin::finderSelection() const {
  const ScriptRun run = readFinderSelection(*platform_);
  if (run.status == ScriptRun::Status::finished) {
    FinderSelection selection;
    for (std::string line : answerLines(run.stringValue.value_or(""))) {
      if (line.starts_with("file:")) {
        // An address the parser refuses is encoded once and tried again.
        auto path = filePathFromURL(line);
        if (!path) path = filePathFromURL(percentEncode(line, URLCharacterSet::fragmentAllowed()));
        if (!path) continue;
        line = std::move(*path);
      }
      line = platform_->environment().expandTilde(line);
      if (platform_->files().itemExists(line)) selection.paths.push_back(std::move(line));
    }
    if (selection.paths.empty()) selection.paths = selectionThroughAccessibility();
    return selection;
  }
  std::string error;
  if (run.status == ScriptRun::Status::failed) error = run.error.message.value_or("");
  if (run.status == ScriptRun::Status::unavailable) error = run.unavailableReason;
  // "errAEEventNotPermitted" keeps its capitals, as the system spells it.
  if (errorMentions(error, {"not authorized", "not allowed", "osstatus", "-1743", "errAEEventNotPermitted"})) {
    if (auto paths = selectionThroughAccessibility(); !paths.empty()) return {std::move(paths), std::nullopt};
    return {{},
            "Allow Orla to control Finder: System Settings → Privacy & Security → Automation. Then select a file in "
            "Finder and run this again."};
  }
  if (error.empty()) error = "Could not read the Finder selection.";
  return {{}, std::move(error)};
}

PluginResult DocumentPlugin::openSelection(const ActionData& data) {
  FinderSelection selection = finderSelection();
  if (selection.failure) return PluginResult::failure(std::move(*selection.failure));
  std::vector<std::string> documents;
  for (const std::string& path : selection.paths)
    if (isDocument(*platform_, standardizedDocumentPath(path))) documents.push_back(path);
  if (documents.empty()) {
    if (!selection.paths.empty())
      return PluginResult::failure(
          "No document is selected. The Finder selection is a folder or an application; select a file and try again.");
    return PluginResult::failure("No document is selected. Select a file in Finder, then click Test again.");
  }
  const std::string app = applicationPath(data);
  const auto application = app.empty() ? std::nullopt : resolveApplication(app);
  std::size_t opened = 0;
  std::string failures;
  for (const std::string& document : documents) {
    if (auto problem = openDocument(document, application)) {
      failures += "\n" + *problem;
    } else {
      ++opened;
    }
  }
  if (opened == 0) return PluginResult::failure("Unable to open any document!");
  return PluginResult::success("Opened " + std::to_string(opened) + " of " + std::to_string(documents.size()) +
                               " selected document(s)." + failures);
}

}  // namespace orla
