#include "plugins/apps/print_plugin.h"

#include <algorithm>
#include <filesystem>

#include <orla/models/text.h>
#include "plugins/apps/finder_selection.h"
#include "plugins/apps/tool_run.h"

namespace orla {

namespace fs = std::filesystem;

namespace {

std::string withFullStop(std::string text) {
  if (!text.empty() && text.back() != '.' && text.back() != '!' && text.back() != '?') text += '.';
  return text;
}

std::string printerNotFound(std::string_view name) {
  std::string text = "The printer “";
  text += name;
  text += "” can't be found. Check the name in System Settings → Printers & Scanners.";
  return text;
}

}  // namespace

PrintPlugin::PrintPlugin() : PrintPlugin(Platform::current()) {}
PrintPlugin::PrintPlugin(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {}

std::int64_t PrintPlugin::commandNumber(const ActionData& data) {
  if (auto name = readString(data, {"subAction"}))
    for (const CommandName& entry : commandNames)
      if (entry.name == *name) return entry.number;
  // Zero and negative numbers are raised to the first command.
  return std::max<std::int64_t>(1, readIntOr(data, {"actionType", "Action"}, 1));
}

std::optional<PrintPlugin::Command> PrintPlugin::command(const ActionData& data) {
  const std::int64_t number = commandNumber(data);
  if (number > 4) return std::nullopt;
  return static_cast<Command>(number);
}

std::string_view PrintPlugin::subAction(Command command) {
  switch (command) {
    case Command::setDefaultPrinter: return "default";
    case Command::printerMenu: return "menu";
    case Command::printSelection: return "selection";
    case Command::printFolder: return "folder";
  }
  return "default";
}

std::string PrintPlugin::printerName(const ActionData& data) {
  return readStringOr(data, {"printerName", "Printer", "printer"});
}

std::string PrintPlugin::folderPath(const ActionData& data) { return readStringOr(data, {"folderPath", "Path", "path"}); }

const std::set<std::string, std::less<>>& PrintPlugin::documentExtensions() {
  static const std::set<std::string, std::less<>> extensions{
      "pdf", "txt", "rtf", "rtfd", "html", "htm", "csv", "png", "jpg", "jpeg", "tif", "tiff",
      "gif", "heic", "doc", "docx", "pages", "numbers", "key", "ppt", "pptx", "xls", "xlsx"};
  return extensions;
}

bool PrintPlugin::isDocumentFile(const std::string& path) {
  std::error_code ec;
  const auto status = fs::status(path, ec);
  if (ec || !fs::exists(status) || fs::is_directory(status)) return false;
  std::string extension = fs::path(path).extension().string();
  if (extension.empty()) return false;
  return documentExtensions().count(toLowercase(std::string_view(extension).substr(1))) > 0;
}

std::vector<std::string> PrintPlugin::printerNames() const {
  std::vector<std::string> names = platform_->printers().printerNames();
  std::sort(names.begin(), names.end());
  return names;
}

std::optional<std::string> PrintPlugin::matchPrinter(std::string_view name) const {
  name = trimWhitespaceAndNewlines(name);
  for (const std::string& printer : printerNames())
    if (equalsIgnoringCase(printer, name)) return printer;
  return std::nullopt;
}

std::optional<std::string> PrintPlugin::validate(const ActionData& data) const {
  const auto cmd = command(data);
  if (!cmd) return unknownCommandMessage("print command");
  const std::string printer = printerName(data);
  if (*cmd == Command::setDefaultPrinter && printer.empty()) return "Enter the printer name.";
  // The print system is asked here: a name it does not know is the one
  // mistake worth catching while the action is edited.
  if (*cmd != Command::printerMenu && !printer.empty() && !matchPrinter(printer)) return printerNotFound(printer);
  if (*cmd == Command::printFolder) {
    const std::string folder = folderPath(data);
    if (folder.empty()) return "Choose the folder whose documents to print.";
    const std::string path = platform_->environment().expandTilde(folder);
    if (!platform_->files().itemExists(path)) return "The folder “" + path + "” can't be found. Choose it again with Browse…";
    std::error_code ec;
    if (!fs::is_directory(path, ec)) return "“" + path + "” is a file, not a folder.";
  }
  return std::nullopt;
}

PluginResult PrintPlugin::execute(const ActionData& data) {
  if (auto problem = validate(data)) return PluginResult::failure(std::move(*problem));
  const std::string name = printerName(data);
  const auto printer = name.empty() ? std::nullopt : matchPrinter(name);
  switch (*command(data)) {
    case Command::setDefaultPrinter: return setDefault(*printer);
    case Command::printerMenu: return printerMenu();
    case Command::printSelection: return printSelection(printer);
    case Command::printFolder: return printFolder(platform_->environment().expandTilde(folderPath(data)), printer);
  }
  return PluginResult::failure(unknownCommandMessage("print command"));
}

PluginResult PrintPlugin::setDefault(const std::string& printer) {
  auto run = runTool(platform_->processes(), lpoptions, {"-d", printer});
  if (run && run->status == 0 && !run->signalled) return PluginResult::success("The default printer is now “" + printer + "”.");
  const std::string detail = run ? run->message() : run.error();
  std::string message = "Could not set the default printer to “" + printer + "”";
  if (!detail.empty()) message += ": " + detail;
  return PluginResult::failure(withFullStop(message));
}

std::optional<std::string> PrintPlugin::defaultPrinter() {
  auto run = runTool(platform_->processes(), lpstat, {"-d"});
  if (!run || run->status != 0) return std::nullopt;
  // "system default destination: Office"; without a default there is no colon.
  const auto colon = run->output.find(':');
  if (colon == std::string::npos) return std::nullopt;
  std::string name(trimWhitespaceAndNewlines(std::string_view(run->output).substr(colon + 1)));
  if (name.empty()) return std::nullopt;
  return name;
}

PluginResult PrintPlugin::printerMenu() {
  const auto printers = printerNames();
  if (printers.empty()) return PluginResult::failure("No printers are set up. Add one in System Settings → Printers & Scanners.");
  const auto current = defaultPrinter();
  std::vector<MenuItem> items;
  for (const std::string& name : printers) {
    MenuItem item;
    item.title = name;
    item.on = current == name;
    item.payload = name;
    items.push_back(std::move(item));
  }
  const auto chosen = platform_->popupMenus().popUpAtMouse(items);
  if (!chosen) return PluginResult::failure(chosen.error());
  if (!*chosen || **chosen >= printers.size())
    return PluginResult::success("Closed the printer menu without choosing a printer.");
  return setDefault(printers[**chosen]);
}

PluginResult PrintPlugin::printSelection(const std::optional<std::string>& printer) {
  const ScriptRun run = readFinderSelection(*platform_);
  switch (run.status) {
    case ScriptRun::Status::notCompiled: return PluginResult::failure("Could not ask Finder for the selection.");
    case ScriptRun::Status::unavailable: return PluginResult::failure(run.unavailableReason);
    case ScriptRun::Status::failed:
      if (errorMentions(scriptErrorText(run.error), {"not authorized", "not permitted", "-1743"}))
        return PluginResult::failure(
            "Allow Orla Pro to control Finder in System Settings → Privacy & Security → Automation, then click Test "
            "again.");
      return PluginResult::failure("Could not read the Finder selection.");
    case ScriptRun::Status::finished: break;
  }
  std::vector<std::string> documents;
  for (const std::string& path : answerLines(run.stringValue.value_or("")))
    if (isDocumentFile(path)) documents.push_back(path);
  if (documents.empty())
    return PluginResult::failure(
        "No document is selected. Select one or more files in Finder (PDF, image, or text), then click Test again.");
  return print(documents, printer);
}

PluginResult PrintPlugin::printFolder(const std::string& folder, const std::optional<std::string>& printer) {
  std::vector<std::string> documents;
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(folder, ec)) {
    const std::string name = entry.path().filename().string();
    if (name.starts_with(".")) continue;
    if (isDocumentFile(entry.path().string())) documents.push_back(entry.path().string());
  }
  if (documents.empty()) return PluginResult::failure("That folder has no documents to print (PDF, image, or text).");
  // In name order, as the folder lists them to the user.
  std::sort(documents.begin(), documents.end());
  return print(documents, printer);
}

PluginResult PrintPlugin::print(const std::vector<std::string>& documents, const std::optional<std::string>& printer) {
  std::size_t sent = 0;
  std::vector<std::string> failed;
  for (const std::string& document : documents) {
    std::vector<std::string> arguments;
    if (printer) arguments = {"-P", *printer};
    arguments.push_back(document);
    auto run = runTool(platform_->processes(), lpr, std::move(arguments));
    if (run && run->status == 0 && !run->signalled) ++sent;
    else failed.push_back(fs::path(document).filename().string());
  }
  if (sent == 0)
    return PluginResult::failure(std::string("Could not print ") +
                                 (documents.size() == 1 ? "that document" : "those documents") +
                                 ". Check that a printer is available.");
  std::string report = sent == 1 ? "Sent 1 document to the printer." : "Sent " + std::to_string(sent) + " documents to the printer.";
  if (printer) report += " Printer: " + *printer + ".";
  if (!failed.empty()) {
    report += "\nCould not print: ";
    for (std::size_t i = 0; i < failed.size(); ++i) report += (i ? ", " : "") + failed[i];
    report += ".";
  }
  return PluginResult::success(std::move(report));
}

}  // namespace orla
