#include "plugins/apps/finder_window_plugin.h"

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include <orla/models/parameter_readers.h>
#include <orla/models/text.h>
#include <orla/models/url.h>
#include <orla/platform/finder_scripts.h>
#include "plugins/apps/finder_selection.h"

namespace orla {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kNotAllowed =
    "Orla Pro is not allowed to control Finder. Allow it in System Settings → Privacy & Security → Automation → Orla "
    "Pro → Finder, then try again.";

bool isRefusal(std::string_view error) {
  return errorMentions(error, {"not authorized", "not allowed", "not permitted", "-1743", "erraeeventnotpermitted"});
}

std::optional<std::int64_t> commandInteger(const ActionData& data) {
  // "Action" is the older key, read only when "actionType" holds no integer;
  // 0 is the first command, as in every plugin's numbering.
  auto number = readInt(data, {"actionType", "Action"});
  if (number && *number == 0) return 1;
  return number;
}

// The key as written, then capitalised: "viewType", "ViewType".
std::string capitalised(std::string_view key) {
  std::string out(key);
  if (!out.empty()) out[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(out[0])));
  return out;
}

std::optional<double> number(const ActionData& data, std::string_view key) {
  const std::string upper = capitalised(key);
  return readDouble(data, {key, upper});
}

bool flag(const ActionData& data, std::string_view key) {
  const std::string upper = capitalised(key);
  return readSwitchOr(data, {key, upper});
}

// Up to four numbers in a text such as "{{100, 100}, {800, 600}}" or "100,100,800,600".
std::vector<double> numbersIn(const std::string& text) {
  std::vector<double> numbers;
  const char* at = text.c_str();
  while (*at) {
    if (std::isdigit(static_cast<unsigned char>(*at)) ||
        ((*at == '-' || *at == '+' || *at == '.') && std::isdigit(static_cast<unsigned char>(at[1])))) {
      char* end = nullptr;
      numbers.push_back(std::strtod(at, &end));
      at = end;
    } else {
      ++at;
    }
  }
  return numbers;
}

std::optional<WindowRect> rectFrom(const AnyCodable& value) {
  std::vector<double> parts;
  if (const AnyArray* list = value.asArray()) {
    for (const AnyCodable& item : *list)
      if (auto n = toDouble(item)) parts.push_back(*n);
  } else if (const AnyDictionary* object = value.asDictionary()) {
    for (Keys keys : {Keys{"x"}, Keys{"y"}, Keys{"width", "w"}, Keys{"height", "h"}})
      if (auto n = readDouble(*object, keys)) parts.push_back(*n);
  } else if (const std::string* text = value.asString()) {
    parts = numbersIn(*text);
  }
  if (parts.size() != 4) return std::nullopt;
  return WindowRect{parts[0], parts[1], parts[2], parts[3]};
}

long rounded(double value) { return std::lround(value); }

std::string viewName(int viewType) {
  switch (viewType) {
    case 1: return "list view";
    case 2: return "column view";
    default: return "icon view";
  }
}

std::string withoutTrailingSlash(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

bool isFolder(const std::string& path) {
  std::error_code ec;
  return fs::is_directory(path, ec);
}

}  // namespace

FinderWindowOptions FinderWindowOptions::from(const ActionData& data) {
  FinderWindowOptions options;
  if (auto view = readInt(data, {"viewType", "ViewType"}); view && *view >= 0 && *view <= 2)
    options.viewType = static_cast<int>(*view);
  options.newWindow = flag(data, "newWindow");
  options.closeAll = flag(data, "closeAll");
  options.customWindow = flag(data, "customWindow");
  for (std::string_view key : {"windowRect", "WindowRect"})
    if (const AnyCodable* value = lookup(data, key))
      if (auto rect = rectFrom(*value)) {
        options.windowRect = *rect;
        break;
      }
  if (auto x = number(data, "windowX")) options.windowRect.x = *x;
  if (auto y = number(data, "windowY")) options.windowRect.y = *y;
  if (auto w = number(data, "windowW")) options.windowRect.width = *w;
  if (auto h = number(data, "windowH")) options.windowRect.height = *h;
  if (options.customWindow && (!(options.windowRect.width > 0) || !(options.windowRect.height > 0)))
    options.customRectProblem =
        "Custom window size needs a width and height greater than 0 (or turn Custom window size off).";
  return options;
}

FinderWindowPlugin::FinderWindowPlugin() : FinderWindowPlugin(Platform::current()) {}
FinderWindowPlugin::FinderWindowPlugin(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {}

std::optional<FinderWindowPlugin::Command> FinderWindowPlugin::command(const ActionData& data) {
  if (auto number = commandInteger(data)) {
    if (*number == 1) return Command::showFolder;
    if (*number == 2) return Command::showSelection;
    return std::nullopt;
  }
  const auto name = readRawString(data, "subAction");
  if (name == "showFolder" || name == "show") return Command::showFolder;
  if (name == "showSelection" || name == "selection" || name == "currentSelection" || name == "currentNavigation")
    return Command::showSelection;
  return folderPath(data).empty() ? Command::showSelection : Command::showFolder;
}

std::int64_t FinderWindowPlugin::commandNumber(const ActionData& data) { return commandInteger(data).value_or(0); }

std::string_view FinderWindowPlugin::title(Command command) {
  return command == Command::showFolder ? "Show Folder" : "Show Current Selection";
}

std::string FinderWindowPlugin::folderPath(const ActionData& data) {
  std::string path = readStringOr(data, {"path", "folderPath", "Path"});
  if (path.starts_with("file:"))
    if (auto file = filePathFromURL(path)) path = *file;
  return path;
}

std::string FinderWindowPlugin::expandedFolder(const ActionData& data) const {
  return platform_->environment().expandTilde(folderPath(data));
}

std::string FinderWindowPlugin::stringLiteral(std::string_view text) {
  std::string literal = "\"";
  for (char c : text) {
    switch (c) {
      case '\\': literal += "\\\\"; break;
      case '"': literal += "\\\""; break;
      // Line breaks as escapes, so every statement stays on its own line.
      case '\n': literal += "\\n"; break;
      case '\r': literal += "\\r"; break;
      default: literal += c;
    }
  }
  literal += '"';
  return literal;
}

std::string FinderWindowPlugin::script(std::string_view folder, const FinderWindowOptions& options) {
  const std::string target = "POSIX file " + stringLiteral(folder) + " as alias";
  std::string s = "tell application \"Finder\"\n";
  if (options.closeAll) s += "    close every Finder window\n";
  if (options.newWindow) {
    s += "    set w to make new Finder window\n";
    s += "    set target of w to " + target + "\n";
  } else {
    s += "    if (count of Finder windows) is 0 then\n";
    s += "        set w to make new Finder window\n";
    s += "        set target of w to " + target + "\n";
    s += "    else\n";
    s += "        set target of front Finder window to " + target + "\n";
    s += "    end if\n";
  }
  if (options.viewType) s += "    set current view of front Finder window to " + viewName(*options.viewType) + "\n";
  if (options.customWindow) {
    const WindowRect& r = options.windowRect;
    s += "    set bounds of front Finder window to {" + std::to_string(rounded(r.x)) + ", " + std::to_string(rounded(r.y)) +
         ", " + std::to_string(rounded(r.x + r.width)) + ", " + std::to_string(rounded(r.y + r.height)) + "}\n";
  }
  s += "end tell";
  return s;
}

std::optional<std::string> FinderWindowPlugin::validate(const ActionData& data) const {
  const auto cmd = command(data);
  if (!cmd)
    return "Unknown Finder navigation command " + std::to_string(commandNumber(data)) +
           ". Choose a command from the menu.";
  if (*cmd == Command::showFolder) {
    if (folderPath(data).empty()) return "No folder chosen. Click Browse… and pick the folder to show in Finder.";
    const std::string folder = expandedFolder(data);
    if (!platform_->files().itemExists(folder))
      return "The folder \"" + folder + "\" can't be found. Choose it again with Browse…";
    if (!isFolder(folder)) return "The folder \"" + folder + "\" is a file, not a folder. Choose a folder with Browse…";
  }
  if (auto problem = FinderWindowOptions::from(data).customRectProblem) return problem;
  return std::nullopt;
}

PluginResult FinderWindowPlugin::execute(const ActionData& data) {
  if (auto problem = validate(data)) return PluginResult::failure(std::move(*problem));
  const FinderWindowOptions options = FinderWindowOptions::from(data);
  if (*command(data) == Command::showFolder) return showFolder(expandedFolder(data), options);
  return showSelection(options);
}

FinderWindowPlugin::Shown FinderWindowPlugin::show(const std::string& folder, const FinderWindowOptions& options) {
  const ScriptRun run = runScript(platform_->scripting(), platform_->mainThread(), script(folder, options));
  std::string error;
  switch (run.status) {
    case ScriptRun::Status::finished: return {true, {}};
    case ScriptRun::Status::notCompiled: return {false, "Could not build the Finder script."};
    case ScriptRun::Status::unavailable: error = run.unavailableReason; break;
    case ScriptRun::Status::failed:
      error = run.error.message && !run.error.message->empty() ? *run.error.message : "Could not talk to Finder.";
      break;
  }
  // The folder is shown anyway; only the view and window options are lost.
  Checked<void> revealed;
  platform_->mainThread().runSync([&] { revealed = platform_->fileWorkspace().reveal(folder); });
  if (!revealed) return {false, "Finder could not show \"" + folder + "\""};
  if (isRefusal(error))
    return {true,
            "The view and window options were skipped because Orla Pro is not allowed to control Finder. Allow it in "
            "System Settings → Privacy & Security → Automation → Orla Pro → Finder, then try again."};
  return {true, "The view and window options were skipped because Finder reported: " + error};
}

namespace {

std::string describe(const FinderWindowOptions& options, bool inNewWindow) {
  std::string text = inNewWindow ? "new window" : "front window";
  if (options.viewType) text += ", " + viewName(*options.viewType);
  if (options.customWindow) {
    const WindowRect& r = options.windowRect;
    text += ", size " + std::to_string(rounded(r.width)) + "×" + std::to_string(rounded(r.height)) + " at " +
            std::to_string(rounded(r.x)) + ", " + std::to_string(rounded(r.y));
  }
  if (options.closeAll) text += ", other Finder windows closed";
  return text;
}

}  // namespace

PluginResult FinderWindowPlugin::showFolder(const std::string& folder, const FinderWindowOptions& options) {
  const Shown shown = show(folder, options);
  if (!shown.shown) return PluginResult::failure(shown.note);
  if (!shown.note.empty()) return PluginResult::success(shown.note);
  return PluginResult::success("Finder now shows " + folder + " (" +
                               describe(options, options.newWindow || options.closeAll) + ").");
}

PluginResult FinderWindowPlugin::showSelection(const FinderWindowOptions& options) {
  auto failedRead = [](const ScriptRun& run) -> std::optional<PluginResult> {
    std::string error;
    switch (run.status) {
      case ScriptRun::Status::finished: return std::nullopt;
      case ScriptRun::Status::notCompiled: error = "Could not build the Finder script."; break;
      case ScriptRun::Status::unavailable: error = run.unavailableReason; break;
      case ScriptRun::Status::failed: error = scriptErrorText(run.error); break;
    }
    if (isRefusal(error)) return PluginResult::failure(std::string(kNotAllowed));
    return PluginResult::failure("Could not read the Finder selection: " + error);
  };
  const ScriptRun selection = readFinderSelection(*platform_);
  if (auto failed = failedRead(selection)) return *failed;
  const auto selected = answerLines(selection.stringValue.value_or(""));
  std::vector<std::string> folders;
  for (std::string path : selected) {
    if (path.starts_with("file:"))
      if (auto file = filePathFromURL(path)) path = *file;
    path = withoutTrailingSlash(platform_->environment().expandTilde(path));
    if (isFolder(path) && !platform_->fileWorkspace().isPackage(path)) folders.push_back(std::move(path));
  }
  if (!selected.empty() && folders.empty())
    return PluginResult::failure(
        "No folder is selected. Select one or more folders in Finder (a selected file does not count), or select "
        "nothing to show the front Finder window's folder.");

  // Whether the first folder finds a front window to reuse.
  const ScriptRun front = runScript(platform_->scripting(), platform_->mainThread(), kFinderFrontFolderScript);
  if (auto failed = failedRead(front)) return *failed;
  const std::string frontFolder = withoutTrailingSlash(std::string(trimWhitespaceAndNewlines(front.stringValue.value_or(""))));
  if (folders.empty()) {
    if (frontFolder.empty())
      return PluginResult::failure(
          "No folder is selected. Open a Finder window or select a folder in Finder, then try again.");
    folders.push_back(frontFolder);
  }

  std::size_t newWindows = 0;
  std::vector<std::string> shownFolders, notes;
  for (std::size_t i = 0; i < folders.size(); ++i) {
    // The first may reuse the front window; the others each get a window of
    // their own, and none closes the ones opened before it.
    FinderWindowOptions each = options;
    if (i > 0) {
      each.newWindow = true;
      each.closeAll = false;
    }
    const Shown shown = show(folders[i], each);
    if (!shown.note.empty()) notes.push_back(shown.note);
    if (!shown.shown) continue;
    shownFolders.push_back(folders[i]);
    if (each.newWindow || each.closeAll || frontFolder.empty()) ++newWindows;
  }
  if (shownFolders.empty()) {
    std::string message;
    for (const std::string& note : notes) message += (message.empty() ? "" : "\n") + note;
    return PluginResult::failure(message);
  }
  std::string report = "Opened " + std::to_string(newWindows) + " new Finder window" + (newWindows == 1 ? "" : "s") +
                       "; Finder now shows ";
  for (std::size_t i = 0; i < shownFolders.size(); ++i) report += (i ? ", " : "") + shownFolders[i];
  report += ".";
  for (const std::string& note : notes) report += "\n" + note;
  return PluginResult::success(std::move(report));
}

}  // namespace orla
