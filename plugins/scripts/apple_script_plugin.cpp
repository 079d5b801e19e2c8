#include "plugins/scripts/apple_script_plugin.h"

#include <filesystem>

#include <orla/models/text.h>
#include "plugins/scripts/script_files.h"

namespace orla {

namespace {

PluginResult reportRun(Script& script) {
  const ScriptOutcome outcome = script.execute();
  if (outcome.error) return PluginResult::failure(scriptErrorText(*outcome.error));
  const std::string_view text = outcome.stringValue ? trimWhitespaceAndNewlines(*outcome.stringValue) : "";
  if (text.empty()) return PluginResult::success("The script finished.");
  return PluginResult::success(std::string(text));
}

}  // namespace

AppleScriptPlugin::AppleScriptPlugin() : AppleScriptPlugin(Platform::current()) {}
AppleScriptPlugin::AppleScriptPlugin(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {}

std::int64_t AppleScriptPlugin::resolvedActionType(const ActionData& data) {
  return resolveCommandNumber(data, commandNames);
}

std::string AppleScriptPlugin::script(const ActionData& data) {
  return readStringOr(data, {"script", "Source", "source", "Script"});
}

std::string AppleScriptPlugin::scriptPath(const ActionData& data) {
  return readStringOr(data, {"scriptPath", "Path", "path", "scriptFile"});
}

bool AppleScriptPlugin::isCompiledScriptPath(std::string_view path) {
  std::string extension = std::filesystem::path(path).extension().string();
  if (!extension.empty()) extension.erase(0, 1);
  extension = toLowercase(extension);
  return extension == "scpt" || extension == "scptd";
}

std::optional<std::string> AppleScriptPlugin::validate(const ActionData& data) const {
  switch (resolvedActionType(data)) {
    case runFile:
      return scriptFileProblem(platform_->environment().expandTilde(scriptPath(data)),
                               "Choose a .scpt or .applescript file with Browse…");
    case runText:
      if (script(data).empty()) return "Enter an AppleScript, for example: beep";
      return std::nullopt;
    default:
      return "Unknown AppleScript command. Choose Enter script text or Run script file.";
  }
}

PluginResult AppleScriptPlugin::execute(const ActionData& data) {
  if (auto problem = validate(data)) return PluginResult::failure(*problem);
  // Scripts run on the main thread; a caller elsewhere waits for them.
  std::optional<PluginResult> result;
  platform_->mainThread().runSync([&] {
    result = resolvedActionType(data) == runFile
                 ? runFromFile(platform_->environment().expandTilde(scriptPath(data)))
                 : compileAndRun(script(data));
  });
  return std::move(*result);
}

PluginResult AppleScriptPlugin::runFromFile(const std::string& path) const {
  if (isCompiledScriptPath(path)) {
    auto loaded = platform_->scripting().load(path);
    if (!loaded) return PluginResult::failure(loaded.error());
    if (!loaded->script) return PluginResult::failure(scriptErrorText(loaded->error));
    return reportRun(*loaded.value().script);
  }
  auto file = readUtf8File(path);
  if (!file) return PluginResult::failure("Cannot read script file: " + file.error());
  const std::string_view source = trimWhitespaceAndNewlines(*file);
  if (source.empty()) return PluginResult::failure("The script file is empty.");
  return compileAndRun(source);
}

PluginResult AppleScriptPlugin::compileAndRun(std::string_view source) const {
  auto compiled = platform_->scripting().compile(source);
  if (!compiled) return PluginResult::failure(compiled.error());
  if (!compiled.value()) return PluginResult::failure("The AppleScript could not be compiled.");
  return reportRun(*compiled.value());
}

}  // namespace orla
