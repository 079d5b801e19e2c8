// AppleScriptPlugin ("AppleScriptShortcut"): runs an AppleScript typed into
// the action, or taken from a file (a compiled script, or a text file of
// source), and reports the text of its result.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <orla/models/action_plugin.h>
#include <orla/models/parameter_readers.h>
#include <orla/platform/platform.h>

namespace orla {

class AppleScriptPlugin : public PluginBase<AppleScriptPlugin> {
 public:
  static constexpr std::string_view pluginClass = "AppleScriptShortcut";
  static constexpr std::int64_t runText = 1;
  static constexpr std::int64_t runFile = 2;
  static constexpr std::array<CommandName, 6> commandNames{{{"runText", runText},
                                                            {"text", runText},
                                                            {"scriptText", runText},
                                                            {"runFile", runFile},
                                                            {"file", runFile},
                                                            {"scriptFile", runFile}}};

  AppleScriptPlugin();
  explicit AppleScriptPlugin(std::shared_ptr<Platform> platform);

  static std::int64_t resolvedActionType(const ActionData& data);
  // The script text, trimmed; empty when absent.
  static std::string script(const ActionData& data);
  // The script file's path as stored, trimmed; "~" is expanded on use.
  static std::string scriptPath(const ActionData& data);
  // Whether a file is a compiled script by its extension (".scpt",
  // ".scptd", in any capitals) rather than source text.
  static bool isCompiledScriptPath(std::string_view path);

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;

 private:
  PluginResult runFromFile(const std::string& path) const;
  PluginResult compileAndRun(std::string_view source) const;

  std::shared_ptr<Platform> platform_;
};

}  // namespace orla
