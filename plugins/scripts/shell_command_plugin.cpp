#include "plugins/scripts/shell_command_plugin.h"

#include <orla/models/text.h>
#include "plugins/scripts/script_files.h"

namespace orla {

namespace {

class StreamedTextSink : public OutputSink {
 public:
  explicit StreamedTextSink(StreamedText& text) : text_(text) {}
  void append(std::string_view bytes) override { text_.append(bytes); }

 private:
  StreamedText& text_;
};

std::string replaceAll(std::string_view text, std::string_view what, std::string_view with) {
  std::string out;
  out.reserve(text.size());
  std::size_t at = 0;
  for (std::size_t found; (found = text.find(what, at)) != std::string_view::npos; at = found + what.size()) {
    out.append(text.substr(at, found - at));
    out.append(with);
  }
  out.append(text.substr(at));
  return out;
}

// Terminal's answers when the user has not let Orla control it.
bool isAutomationRefusal(std::string_view error) {
  const std::string lower = toLowercase(error);
  for (std::string_view sign : {"not authorized", "not permitted", "-1743", "1002"})
    if (lower.find(sign) != std::string::npos) return true;
  return false;
}

}  // namespace

ShellCommandPlugin::ShellCommandPlugin() : ShellCommandPlugin(Platform::current()) {}
ShellCommandPlugin::ShellCommandPlugin(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {}

std::int64_t ShellCommandPlugin::resolvedActionType(const ActionData& data) {
  return resolveCommandNumber(data, commandNames);
}

std::string ShellCommandPlugin::command(const ActionData& data) {
  return readStringOr(data, {"command", "Source", "source", "Command"});
}

std::string ShellCommandPlugin::scriptPath(const ActionData& data) {
  return readStringOr(data, {"scriptPath", "Path", "path", "commandFile"});
}

bool ShellCommandPlugin::runInTerminal(const ActionData& data) {
  return readSwitchOr(data, {"runInTerminal", "InTerminal"});
}

std::string ShellCommandPlugin::terminalScript(std::string_view command) {
  // Backslashes first, so that the ones added before quotes stay single.
  const std::string escaped = replaceAll(replaceAll(command, "\\", "\\\\"), "\"", "\\\"");
  std::string script = "tell application \"Terminal\"\n";
  script += "    activate\n";
  script += "    if (count of windows) is 0 then\n";
  script += "        do script \"" + escaped + "\"\n";
  script += "    else\n";
  script += "        do script \"" + escaped + "\" in front window\n";
  script += "    end if\n";
  script += "end tell";
  return script;
}

std::string ShellCommandPlugin::limitedText(const StreamedText& text) {
  std::string out(text.shown());
  if (text.isCut()) {
    out += "… (";
    out += std::to_string(text.characterCount());
    out += " characters)";
  }
  return out;
}

std::optional<std::string> ShellCommandPlugin::validate(const ActionData& data) const {
  switch (resolvedActionType(data)) {
    case runFile:
      return scriptFileProblem(platform_->environment().expandTilde(scriptPath(data)),
                               "Choose a text file with Browse…");
    case runText:
      if (command(data).empty()) return "Enter a command to run, for example: say hello";
      return std::nullopt;
    default:
      return "Unknown shell command. Choose Type command text or Run command file.";
  }
}

PluginResult ShellCommandPlugin::execute(const ActionData& data) {
  if (auto problem = validate(data)) return PluginResult::failure(*problem);
  std::string text;
  if (resolvedActionType(data) == runFile) {
    auto file = readUtf8File(platform_->environment().expandTilde(scriptPath(data)));
    if (!file) return PluginResult::failure("Cannot read script file: " + file.error());
    text = trimWhitespaceAndNewlines(*file);
    if (text.empty()) return PluginResult::failure("The script file is empty.");
  } else {
    text = command(data);
  }
  return runInTerminal(data) ? runInTerminalWindow(text) : runCaptured(text);
}

PluginResult ShellCommandPlugin::runCaptured(const std::string& command) const {
  // Both outputs are followed as they stream, never kept whole: a command
  // may print gigabytes, of which the message shows 2000 characters.
  StreamedText out(outputLimit), err(outputLimit);
  StreamedTextSink outSink(out), errSink(err);
  auto exit = platform_->processes().run({std::string(shell), {"-c", command}, {}}, outSink, errSink);
  if (!exit) return PluginResult::failure("Failed to launch: " + exit.error());
  out.finish();
  err.finish();
  const std::string output = limitedText(out);
  const std::string errors = limitedText(err);

  if (exit->status != 0) {
    std::string message = "The command exited with status " + std::to_string(exit->status) + ".";
    if (!errors.empty()) message.append("\n").append(errors);
    if (!output.empty()) message.append("\n").append(output);
    return PluginResult::failure(std::move(message));
  }
  if (!output.empty()) return PluginResult::success(errors.empty() ? output : output + "\n" + errors);
  if (!errors.empty()) return PluginResult::success(errors);
  return PluginResult::success("The command finished. It printed nothing.");
}

PluginResult ShellCommandPlugin::runInTerminalWindow(const std::string& command) const {
  const ScriptRun run = runScript(platform_->scripting(), platform_->mainThread(), terminalScript(command));
  switch (run.status) {
    case ScriptRun::Status::unavailable:
      return PluginResult::failure(run.unavailableReason);
    case ScriptRun::Status::notCompiled:
      return PluginResult::failure("Could not build the Terminal script.");
    case ScriptRun::Status::failed: {
      const std::string error = run.error.message && !run.error.message->empty() ? *run.error.message
                                                                                  : std::string("Could not run in Terminal.");
      if (isAutomationRefusal(error))
        return PluginResult::failure(
            "Allow Orla Pro to control Terminal in System Settings → Privacy & Security → Automation, then click "
            "Test again.");
      return PluginResult::failure(error);
    }
    case ScriptRun::Status::finished:
      break;
  }
  return PluginResult::success("Opened Terminal and ran:\n" + command);
}

}  // namespace orla
