// ShellCommandPlugin ("CommandShortcut"): runs a command line, typed into
// the action or read from a file, through the Z shell with its output
// captured and reported, or visibly in a Terminal window.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <orla/models/action_plugin.h>
#include <orla/models/parameter_readers.h>
#include <orla/models/streamed_text.h>
#include <orla/platform/platform.h>

namespace orla {

class ShellCommandPlugin : public PluginBase<ShellCommandPlugin> {
 public:
  static constexpr std::string_view pluginClass = "CommandShortcut";
  static constexpr std::string_view shell = "/bin/zsh";
  // Each output is shown up to this many characters.
  static constexpr std::size_t outputLimit = 2000;
  static constexpr std::int64_t runText = 1;
  static constexpr std::int64_t runFile = 2;
  static constexpr std::array<CommandName, 4> commandNames{{
      {"runText", runText}, {"text", runText}, {"runFile", runFile}, {"file", runFile}}};

  ShellCommandPlugin();
  explicit ShellCommandPlugin(std::shared_ptr<Platform> platform);

  static std::int64_t resolvedActionType(const ActionData& data);
  // The command text, trimmed; empty when absent.
  static std::string command(const ActionData& data);
  // The script file's path as stored, trimmed; "~" is expanded on use.
  static std::string scriptPath(const ActionData& data);
  static bool runInTerminal(const ActionData& data);

  // The script that has Terminal run `command` in a new window, or in the
  // front one when it has one.
  static std::string terminalScript(std::string_view command);
  // An output as the messages show it: whole up to `outputLimit`
  // characters, otherwise cut with its full length in characters after it.
  static std::string limitedText(const StreamedText& text);

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;

 private:
  PluginResult runCaptured(const std::string& command) const;
  PluginResult runInTerminalWindow(const std::string& command) const;

  std::shared_ptr<Platform> platform_;
};

}  // namespace orla
