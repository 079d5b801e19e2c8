// JavaScriptPlugin ("JavaScriptAction"): runs a JavaScript program on an
// input text (none, a typed text, the clipboard or the selection) in a
// sandboxed engine and reports the value of its last expression, or puts it
// on the clipboard or pastes it over the selection. File reads and web
// requests, when the action allows them, are made here on the script's
// behalf.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <orla/models/action_plugin.h>
#include <orla/platform/platform.h>

namespace orla {

class JavaScriptPlugin : public PluginBase<JavaScriptPlugin> {
 public:
  static constexpr std::string_view pluginClass = "JavaScriptAction";

  static constexpr std::int64_t inputNone = 0;
  static constexpr std::int64_t inputTyped = 1;
  static constexpr std::int64_t inputClipboard = 2;
  static constexpr std::int64_t inputSelection = 3;
  static constexpr std::int64_t outputMessage = 0;
  static constexpr std::int64_t outputClipboard = 1;
  static constexpr std::int64_t outputReplaceSelection = 2;

  static constexpr std::size_t scriptLimit = 100'000;
  static constexpr std::size_t inputLimit = 1'000'000;
  static constexpr std::size_t fileReadLimit = std::size_t{1} << 20;
  static constexpr std::size_t httpAnswerLimit = std::size_t{1} << 20;
  static constexpr std::chrono::seconds httpRequestLimit{10};
  static constexpr int httpRequestsPerRun = 20;

  JavaScriptPlugin();
  explicit JavaScriptPlugin(std::shared_ptr<Platform> platform);

  // The script, trimmed; empty when absent.
  static std::string script(const ActionData& data);
  static std::int64_t inputSource(const ActionData& data);
  static std::int64_t output(const ActionData& data);
  // The time limit in seconds as given (5 when absent); validation checks
  // the range.
  static double timeLimit(const ActionData& data);
  // The typed text, exactly as stored.
  static std::string inputText(const ActionData& data);
  static bool allowsFileRead(const ActionData& data);
  static bool allowsNetwork(const ActionData& data);

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;
  bool requiresAccessibility(const ActionData& data) const override {
    return inputSource(data) == inputSelection || output(data) == outputReplaceSelection;
  }

 private:
  PluginResult runAndDeliver(const ActionData& data, const std::string& input,
                             const std::optional<PasteboardSnapshot>& saved);

  std::shared_ptr<Platform> platform_;
};

}  // namespace orla
