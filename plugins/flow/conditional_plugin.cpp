#include "plugins/flow/conditional_plugin.h"

#include "plugins/apps/application_names.h"

#include <unicode/regex.h>

#include <orla/models/icu_support.h>
#include <orla/models/parameter_readers.h>
#include <orla/models/text.h>

namespace orla {

namespace {

std::string pattern(const ActionData& d) { return readStringOr(d, {"pattern"}); }
std::string path(const ActionData& d) { return readStringOr(d, {"path"}); }
std::string appName(const ActionData& d) { return readStringOr(d, {"appName"}); }
std::string envVar(const ActionData& d) { return readStringOr(d, {"envVar"}); }
// These two are compared verbatim: a trailing space may be the point.
std::string expected(const ActionData& d) { return readRawString(d, "expected").value_or(""); }
std::string previousResult(const ActionData& d) {
  return readRawString(d, "_previousResult").value_or("");
}
std::int64_t startHour(const ActionData& d) { return readIntOr(d, {"startHour"}, 0); }
std::int64_t endHour(const ActionData& d) { return readIntOr(d, {"endHour"}, 24); }
std::int64_t weekday(const ActionData& d) { return readIntOr(d, {"dayOfWeek"}, 1); }
bool negate(const ActionData& d) { return readSwitchOr(d, {"negate"}); }

std::unique_ptr<icu::RegexPattern> compile(std::string_view source) {
  UErrorCode status = U_ZERO_ERROR;
  UParseError where{};
  std::unique_ptr<icu::RegexPattern> compiled(
      icu::RegexPattern::compile(unicodeString(source), where, status));
  return U_SUCCESS(status) ? std::move(compiled) : nullptr;
}

// A search that runs away (catastrophic backtracking on a long clipboard)
// stops after this many match steps, roughly a few seconds, and counts as no
// match: a condition that cannot be evaluated is false.
constexpr int32_t kRegexStepLimit = 3000;

// Why the clipboard pattern cannot be used, or none; `compiled` receives the
// pattern when given, so that running the condition compiles it once.
std::optional<std::string> regexProblem(const std::string& source, std::unique_ptr<icu::RegexPattern>* compiled) {
  if (source.empty()) return "Enter a regular expression to match against the clipboard.";
  auto made = compile(source);
  if (!made) return "That regular expression is not valid.";
  if (compiled) *compiled = std::move(made);
  return std::nullopt;
}

bool regexFinds(const icu::RegexPattern& compiled, std::string_view text) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::UnicodeString subject = unicodeString(text);
  std::unique_ptr<icu::RegexMatcher> matcher(compiled.matcher(subject, status));
  if (U_FAILURE(status)) return false;
  matcher->setTimeLimit(kRegexStepLimit, status);
  const bool found = matcher->find(status);
  return U_SUCCESS(status) && found;
}

bool contains(std::string_view haystack, std::string_view needle) {
  return haystack.find(needle) != std::string_view::npos;
}

}  // namespace

ConditionalPlugin::ConditionalPlugin() : ConditionalPlugin(Platform::current()) {}
ConditionalPlugin::ConditionalPlugin(std::shared_ptr<Platform> platform)
    : platform_(std::move(platform)) {}

std::int64_t ConditionalPlugin::conditionType(const ActionData& data) {
  return readIntOr(data, {"conditionType"}, 0);
}

bool ConditionalPlugin::hour(std::int64_t hour, std::int64_t start, std::int64_t end) {
  if (start < end) return start <= hour && hour < end;
  return hour >= start || hour < end;
}

bool ConditionalPlugin::skipsFollowingAction(std::string_view kind,
                                             const PluginResult& result) {
  if (kind != pluginClass) return false;
  switch (result.kind()) {
    case PluginResult::Kind::conditionResult: return !result.conditionValue();
    case PluginResult::Kind::success: return result.message().ends_with(skipSuffix);
    default: return false;
  }
}

std::optional<std::string> ConditionalPlugin::validate(const ActionData& data) const {
  switch (conditionType(data)) {
    case clipboardContains:
      if (pattern(data).empty()) return "Enter the text to look for on the clipboard.";
      return std::nullopt;
    case clipboardMatches: return regexProblem(pattern(data), nullptr);
    case fileExists:
      // Expanding "~" never turns a non-empty path empty, so the trimmed text
      // decides, and validation stays free of the environment.
      if (path(data).empty()) return "Enter a file or folder path to check.";
      return std::nullopt;
    case appRunning:
      if (appName(data).empty()) return "Enter an application name, for example Finder.";
      return std::nullopt;
    case environmentEquals:
      if (envVar(data).empty()) return "Enter an environment variable name, for example HOME.";
      return std::nullopt;
    case hourBetween: {
      const auto start = startHour(data), end = endHour(data);
      if (start < 0 || start > 24 || end < 0 || end > 24) return "Hours must be between 0 and 24.";
      if (start == end) return "End hour must be different from the start hour.";
      return std::nullopt;
    }
    case dayOfWeek: {
      const auto day = weekday(data);
      if (day < 1 || day > 7) return "Choose a day of the week.";
      return std::nullopt;
    }
    case previousResultContains:
      if (pattern(data).empty()) return "Enter the text to look for in the previous command's result.";
      return std::nullopt;
    default:
      return unknownCommandMessage("condition");
  }
}

PluginResult ConditionalPlugin::execute(const ActionData& data) {
  if (conditionType(data) == clipboardMatches) {
    std::unique_ptr<icu::RegexPattern> compiled;
    if (auto problem = regexProblem(pattern(data), &compiled)) return PluginResult::failure(std::move(*problem));
    const bool found = regexFinds(*compiled, platform_->pasteboard().text().value_or(""));
    return PluginResult::conditionResult(found != negate(data));
  }
  if (auto problem = validate(data)) return PluginResult::failure(std::move(*problem));
  return PluginResult::conditionResult(evaluate(conditionType(data), data) != negate(data));
}

bool ConditionalPlugin::evaluate(std::int64_t type, const ActionData& data) const {
  Platform& p = *platform_;
  switch (type) {
    case clipboardContains:
      return contains(p.pasteboard().text().value_or(""), pattern(data));
    case clipboardMatches: {
      std::unique_ptr<icu::RegexPattern> compiled;
      return !regexProblem(pattern(data), &compiled) && regexFinds(*compiled, p.pasteboard().text().value_or(""));
    }
    case fileExists:
      return p.files().itemExists(p.environment().expandTilde(path(data)));
    case appRunning:
      return isAppRunning(appName(data));
    case environmentEquals: {
      auto value = p.environment().variable(envVar(data));
      return value && *value == expected(data);
    }
    case hourBetween: {
      auto now = calendarFields(p.clock().now(), p.clock().timeZone(), p.clock().locale());
      return now && hour(now->hour, startHour(data), endHour(data));
    }
    case dayOfWeek: {
      auto now = calendarFields(p.clock().now(), p.clock().timeZone(), p.clock().locale());
      return now && now->weekday == weekday(data);
    }
    case previousResultContains:
      return contains(previousResult(data), pattern(data));
    default:
      return false;
  }
}

bool ConditionalPlugin::isAppRunning(std::string_view name) const {
  for (const RunningApplication& app : platform_->workspace().runningApplications())
    if (isShownName(app, name) || isOtherName(app, name)) return true;
  return false;
}

}  // namespace orla
