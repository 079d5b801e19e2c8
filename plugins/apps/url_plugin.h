// URLPlugin ("URLShortcut"): opens an address with the system's handler for
// its scheme or with a chosen application, and starts a new e-mail through
// a "mailto:" address. It never guesses a scheme: an address typed without
// one is refused with advice.
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

class URLPlugin : public PluginBase<URLPlugin> {
 public:
  static constexpr std::string_view pluginClass = "URLShortcut";
  enum class Command { openURL = 1, mailto = 2 };
  static constexpr std::array<CommandName, 5> commandNames{
      {{"openURL", 1}, {"open", 1}, {"email", 2}, {"mailto", 2}, {"mail", 2}}};

  URLPlugin();
  explicit URLPlugin(std::shared_ptr<Platform> platform);

  // A known "subAction", else "actionType" then "Action" (0 and absence
  // mean Open URL); none for a number that is neither command.
  static std::int64_t commandNumber(const ActionData& data);
  static std::optional<Command> command(const ActionData& data);

  static std::string url(const ActionData& data);
  // "address", "Address", "to"; else a "url" that begins with "mailto:",
  // without that prefix.
  static std::string recipient(const ActionData& data);
  static std::string subject(const ActionData& data);
  static std::string body(const ActionData& data);
  static std::string application(const ActionData& data);

  // The URL to open for the typed text; none when it has no scheme (a host
  // and port such as "example.com:8080" counts as having none) or cannot be
  // made into a URL. A text that does not parse is percent-encoded once.
  static std::optional<std::string> resolvedURL(std::string_view text);
  // "mailto:" with the recipient, then "?subject=…&body=…" for the parts
  // given, each percent-encoded so that "&", "+", "?", "=" and "#" arrive
  // as written.
  static std::optional<std::string> mailURL(std::string_view recipient, std::string_view subject,
                                            std::string_view body);

  // The application bundle for a name, path or bundle identifier; none when
  // nothing matches.
  std::optional<std::string> resolvedApplicationURL(std::string_view application) const;

  PluginResult execute(const ActionData& data) override;
  std::optional<std::string> validate(const ActionData& data) const override;

 private:
  PluginResult open(const std::string& url, const std::string& application, const std::string& done);

  std::shared_ptr<Platform> platform_;
};

}  // namespace orla
