#include "plugins/scripts/javascript_plugin.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include <orla/models/graphemes.h>
#include <orla/models/parameter_readers.h>
#include <orla/models/text.h>
#include <orla/models/url.h>
#include <orla/models/utf8.h>
#include "plugins/flow/pause_plugin.h"
#include "plugins/input/typing_target.h"
#include "plugins/text/clipboard_mechanics.h"
#include "plugins/text/text_transforms.h"

namespace orla {

namespace {

constexpr std::string_view kTryAgain = ". Fix it, then click Test again.";

// Whether `text` has more than `limit` characters; the byte length bounds
// the count from above, so most texts need no counting at all.
bool longerThan(std::string_view text, std::size_t limit) {
  return text.size() > limit && graphemeCount(text) > limit;
}

// What the script may ask of the outside world, carried out here with the
// action's switches and the run's limits.
class ActionHostFunctions : public JavaScriptHostFunctions {
 public:
  ActionHostFunctions(Platform& platform, bool fileRead, bool network)
      : platform_(platform), fileRead_(fileRead), network_(network) {}

  bool allowsFileRead() const override { return fileRead_; }
  bool allowsNetwork() const override { return network_; }

  Checked<std::string> readTextFile(const std::string& path) override {
    const std::string prefix = "Cannot read " + path + ": ";
    const std::filesystem::path file = platform_.environment().expandTilde(path);
    std::error_code error;
    const auto status = std::filesystem::status(file, error);
    if (error || !std::filesystem::exists(status)) return fail(prefix + "there is no such file");
    if (std::filesystem::is_directory(status)) return fail(prefix + "it is a folder");
    std::ifstream in(file, std::ios::binary);
    if (!in) return fail(prefix + "it cannot be opened");
    std::string text(JavaScriptPlugin::fileReadLimit + 1, '\0');
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(in.gcount()));
    if (text.size() > JavaScriptPlugin::fileReadLimit) return fail(prefix + "it is larger than 1 MiB");
    if (!isValidUtf8(text)) return fail(prefix + "it is not UTF-8 text");
    return text;
  }

  Checked<std::string> httpGet(const std::string& url, std::chrono::duration<double> left) override {
    if (requests_ >= JavaScriptPlugin::httpRequestsPerRun)
      return fail("httpGet makes at most 20 requests in one run");
    const auto parts = parseUrl(url);
    if (!parts || (parts->scheme != "http" && parts->scheme != "https") || parts->host.empty())
      return fail("httpGet takes only http and https addresses");
    ++requests_;
    HttpRequest request;
    request.url = url;
    request.timeout = std::min<std::chrono::duration<double>>(left, JavaScriptPlugin::httpRequestLimit);
    request.maxResponseBytes = JavaScriptPlugin::httpAnswerLimit;
    auto task = platform_.http().start(std::move(request));
    if (!task->wait(std::min<std::chrono::duration<double>>(left, JavaScriptPlugin::httpRequestLimit))) {
      task->cancel();
      return fail("The request took too long and was stopped");
    }
    const HttpResponse response = task->response();
    if (response.error) return fail(*response.error);
    if (response.bodyCut) return fail("The answer is larger than 1 MiB");
    if (response.statusCode < 200 || response.statusCode > 299) return fail("HTTP " + std::to_string(response.statusCode));
    return response.body;
  }

 private:
  Platform& platform_;
  bool fileRead_, network_;
  int requests_ = 0;
};

// The failure sentence of each way a run can end without a result; none for
// a run that has one.
std::optional<std::string> failureOf(const JavaScriptOutcome& outcome, double limit) {
  using Kind = JavaScriptOutcome::Kind;
  const std::string onLine = outcome.line ? " on line " + std::to_string(*outcome.line) : std::string();
  switch (outcome.kind) {
    case Kind::value:
    case Kind::none:
      return std::nullopt;
    case Kind::syntaxError:
      return "The script has a syntax error on line " + std::to_string(outcome.line.value_or(1)) + ": " +
             outcome.message + std::string(kTryAgain);
    case Kind::thrown: {
      std::string text = transforms::displayCut(outcome.message, 400);
      if (!text.empty() && text.back() == '.') text.pop_back();
      return "The script stopped with an error" + onLine + ": " + text + std::string(kTryAgain);
    }
    case Kind::timedOut:
      return "The script ran longer than its time limit of " + PausePlugin::formatSeconds(limit) +
             " and was stopped. Make it faster, or raise the time limit (at most 60 seconds).";
    case Kind::memoryExceeded:
      return "The script used more than 256 MB of memory and was stopped. Make it use less memory, then click Test "
             "again.";
    case Kind::neverSettled:
      return "The script returned a promise that never settled. Timers and events do not run here; return the "
             "value itself.";
    case Kind::resultTooLong:
      return "The script's result is longer than 1,000,000 characters. Return a shorter text.";
    case Kind::failedToStart:
      return "The JavaScript engine could not be started. Reinstall Orla, then click Test again.";
    case Kind::endedUnexpectedly:
      break;
  }
  return "The JavaScript engine stopped unexpectedly while running the script. Simplify the script, then click Test "
         "again.";
}

}  // namespace

JavaScriptPlugin::JavaScriptPlugin() : JavaScriptPlugin(Platform::current()) {}
JavaScriptPlugin::JavaScriptPlugin(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {}

std::string JavaScriptPlugin::script(const ActionData& data) {
  return readStringOr(data, {"script", "Script", "javascript", "source", "Source"});
}

std::int64_t JavaScriptPlugin::inputSource(const ActionData& data) { return readIntOr(data, {"inputSource"}, 0); }
std::int64_t JavaScriptPlugin::output(const ActionData& data) { return readIntOr(data, {"output", "Output"}, 0); }
double JavaScriptPlugin::timeLimit(const ActionData& data) { return readDoubleOr(data, {"timeLimit", "timeout"}, 5); }
bool JavaScriptPlugin::allowsFileRead(const ActionData& data) { return readSwitchOr(data, {"allowFileRead"}); }
bool JavaScriptPlugin::allowsNetwork(const ActionData& data) { return readSwitchOr(data, {"allowNetwork"}); }

std::string JavaScriptPlugin::inputText(const ActionData& data) {
  for (std::string_view key : {"inputText", "text"})
    if (auto text = readRawString(data, key)) return *text;
  return {};
}

std::optional<std::string> JavaScriptPlugin::validate(const ActionData& data) const {
  const std::string source = script(data);
  if (source.empty()) return "Enter the JavaScript to run, for example: input.toUpperCase().";
  if (longerThan(source, scriptLimit))
    return "The script is longer than 100,000 characters. Shorten it, then click Test again.";
  const std::int64_t from = inputSource(data), to = output(data);
  if (from < inputNone || from > inputSelection) return "Choose the input from the menu.";
  if (to < outputMessage || to > outputReplaceSelection) return "Choose where the result goes from the menu.";
  if (from == inputTyped && trimWhitespaceAndNewlines(inputText(data)).empty())
    return "Type the input text in the box, or choose another input.";
  const double limit = timeLimit(data);
  if (!(limit >= 0.1 && limit <= 60)) return "The time limit must be between 0.1 and 60 seconds.";
  return std::nullopt;
}

PluginResult JavaScriptPlugin::execute(const ActionData& data) {
  if (auto problem = validate(data)) return PluginResult::failure(*problem);
  Platform& p = *platform_;
  if (!p.supports(Capability::javaScript))
    return PluginResult::failure("JavaScript is not available on this desktop in this build of Orla.");
  const std::int64_t from = inputSource(data);
  ClipboardMechanics clipboard(p);

  std::optional<PasteboardSnapshot> saved;
  if (requiresAccessibility(data)) {
    if (!p.accessibility().isProcessTrusted())
      return PluginResult::failure(
          "Accessibility permission is required to read or replace the selection (Orla sends \u2318C and \u2318V). "
          "Enable Orla Pro in System Settings \u2192 Privacy & Security \u2192 Accessibility, or choose another "
          "input and output.");
    if (!ensureTypingTarget(p))
      return PluginResult::failure(
          from == inputSelection
              ? "No app to read the selection from. Click into the app with the text you want, then click Test again."
              : "No app to paste into. Click into the app with the text you want, then click Test again.");
    saved = clipboard.snapshot();
  }
  // From here every way out puts back what the user had on the clipboard,
  // except a result that is meant to stay there.
  const auto restoring = [&](PluginResult result) {
    if (saved) (void)clipboard.restore(*saved);
    return result;
  };

  std::string input;
  if (from == inputTyped) {
    input = inputText(data);
  } else if (from == inputClipboard) {
    auto text = clipboard.readText();
    if (!text || text->empty())
      return PluginResult::failure("The clipboard has no text. Copy some text first, or choose another input.");
    input = std::move(*text);
  } else if (from == inputSelection) {
    CopiedSelection copied = clipboard.copySelection();
    switch (copied.outcome) {
      case CopiedSelection::Outcome::eventsFailed: return restoring(PluginResult::failure(std::string(kKeyEventsFailed)));
      case CopiedSelection::Outcome::nothingCopied:
        return restoring(PluginResult::failure(
            "Nothing was copied. Select some text in the target app first (the app in front before you clicked "
            "Test), then try again."));
      case CopiedSelection::Outcome::notText:
        return restoring(PluginResult::failure(
            "The selection was copied but it is not text (an image or file). Orla can only transform text."));
      case CopiedSelection::Outcome::text: break;
    }
    if (copied.text.empty()) return restoring(PluginResult::failure("The selection is empty. Select some text first."));
    input = std::move(copied.text);
  }
  if (longerThan(input, inputLimit))
    return restoring(PluginResult::failure("The input is longer than 1,000,000 characters. Use a shorter text."));
  return runAndDeliver(data, input, saved);
}

PluginResult JavaScriptPlugin::runAndDeliver(const ActionData& data, const std::string& input,
                                             const std::optional<PasteboardSnapshot>& saved) {
  Platform& p = *platform_;
  ClipboardMechanics clipboard(p);
  const auto restoring = [&](PluginResult result) {
    if (saved) (void)clipboard.restore(*saved);
    return result;
  };
  const double limit = timeLimit(data);
  JavaScriptLimits limits;
  limits.time = std::chrono::duration<double>(limit);
  ActionHostFunctions host(p, allowsFileRead(data), allowsNetwork(data));
  JavaScriptOutcome outcome = p.javaScript().run(script(data), input, limits, host);
  if (auto failure = failureOf(outcome, limit)) return restoring(PluginResult::failure(*failure));

  // Without a value, what the script printed is its result.
  std::optional<std::string> result;
  if (outcome.kind == JavaScriptOutcome::Kind::value) {
    result = std::move(outcome.value);
  } else if (!outcome.console.empty()) {
    std::string joined;
    for (const std::string& line : outcome.console) joined.append(joined.empty() ? "" : "\n").append(line);
    result = std::move(joined);
  }

  switch (output(data)) {
    case outputClipboard: {
      if (!result || result->empty())
        return restoring(
            PluginResult::success("The script finished without a result, so the clipboard was left as it was."));
      if (auto written = clipboard.writeText(*result); !written) return restoring(PluginResult::failure(written.error()));
      return PluginResult::success("JavaScript result (now on the clipboard):\n" + transforms::displayCut(*result, 400));
    }
    case outputReplaceSelection: {
      if (!result || result->empty())
        return restoring(PluginResult::success("The script finished without a result, so nothing was pasted."));
      if (auto written = clipboard.writeText(*result); !written) return restoring(PluginResult::failure(written.error()));
      clipboard.wait(std::chrono::milliseconds(50));
      const Checked<void> pasted = clipboard.postCommandChord(key_codes::v);
      clipboard.wait(std::chrono::milliseconds(250));
      if (!pasted) return restoring(PluginResult::failure(pasted.error()));
      return restoring(PluginResult::silentSuccess());
    }
    default:
      break;
  }
  if (!result) return restoring(PluginResult::success("The script finished without a result."));
  const std::string_view trimmed = trimWhitespaceAndNewlines(*result);
  if (trimmed.empty()) return restoring(PluginResult::success("The script returned an empty text."));
  return restoring(PluginResult::success(transforms::displayCut(trimmed, 2000)));
}

}  // namespace orla
