// PrintPlugin ("PrintShortcut"): sets the system's default printer, pops up
// a menu of printers, and prints the documents selected in the Finder or
// the documents of a folder, through the system's command-line printing
// tools.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <orla/models/action_plugin.h>
#include <orla/models/parameter_readers.h>
#include <orla/platform/platform.h>

namespace orla {

class PrintPlugin : public PluginBase<PrintPlugin> {
 public:
  static constexpr std::string_view pluginClass = "PrintShortcut";
  enum class Command { setDefaultPrinter = 1, printerMenu = 2, printSelection = 3, printFolder = 4 };
  static constexpr std::array<CommandName, 10> commandNames{{{"default", 1},
                                                             {"setDefault", 1},
                                                             {"setDefaultPrinter", 1},
                                                             {"menu", 2},
                                                             {"printersMenu", 2},
                                                             {"showMenu", 2},
                                                             {"selection", 3},
                                                             {"printSelection", 3},
                                                             {"folder", 4},
                                                             {"printFolder", 4}}};
  static constexpr std::string_view lpr = "/usr/bin/lpr";
  static constexpr std::string_view lpstat = "/usr/bin/lpstat";
  static constexpr std::string_view lpoptions = "/usr/bin/lpoptions";

  PrintPlugin();
  explicit PrintPlugin(std::shared_ptr<Platform> platform);

  // A known "subAction" (trimmed) wins; else "actionType", then "Action",
  // raised to at least 1; nothing at all is 1. Above 4 is unknown.
  static std::int64_t commandNumber(const ActionData& data);
  static std::optional<Command> command(const ActionData& data);
  static std::string_view subAction(Command command);

  static std::string printerName(const ActionData& data);
  // Trimmed, "~" not yet expanded.
  static std::string folderPath(const ActionData& data);

  // The printable extensions, lowercase.
  static const std::set<std::string, std::less<>>& documentExtensions();
  // An existing item that is not a folder, with a printable extension in
  // any case.
  static bool isDocumentFile(const std::string& path);

  // The system's printers, sorted.
  std::vector<std::string> printerNames() const;
  // The first printer whose name equals the trimmed `name` ignoring case.
  std::optional<std::string> matchPrinter(std::string_view name) const;

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;

 private:
  PluginResult setDefault(const std::string& printer);
  PluginResult printerMenu();
  PluginResult printSelection(const std::optional<std::string>& printer);
  PluginResult printFolder(const std::string& folder, const std::optional<std::string>& printer);
  PluginResult print(const std::vector<std::string>& documents, const std::optional<std::string>& printer);
  std::optional<std::string> defaultPrinter();

  std::shared_ptr<Platform> platform_;
};

}  // namespace orla
