#include "plugins/flow/pause_plugin.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>

#include <orla/models/parameter_readers.h>
#include <orla/models/text.h>
#include "plugins/input/accessibility_readers.h"
#include "plugins/input/menu_path.h"

namespace orla {

namespace {

constexpr std::array<CommandName, 7> kCommands{{{"time", PausePlugin::waitTime},
                                                {"delay", PausePlugin::waitTime},
                                                {"wait", PausePlugin::waitTime},
                                                {"application", PausePlugin::waitApplication},
                                                {"app", PausePlugin::waitApplication},
                                                {"window", PausePlugin::waitWindow},
                                                {"windowTitle", PausePlugin::waitWindow}}};

const Keys kSeconds{"seconds", "Seconds", "delay", "Delay", "time"};
const Keys kApplication{"appName", "AppName", "applicationPath", "AppPath", "application", "Application"};
const Keys kUntil{"until", "Until"};
const Keys kTitle{"windowTitle", "title", "Title"};
const Keys kMatchType{"matchType", "MatchType"};
const Keys kTimeout{"timeout", "Timeout", "maxWait"};
const Keys kOnTimeout{"onTimeout", "OnTimeout"};

enum Until : std::int64_t { present = 0, inFront = 1, gone = 2 };
enum OnTimeout : std::int64_t { failAtTimeout = 0, continueAtTimeout = 1, endQuietly = 2 };

std::chrono::microseconds micros(double seconds) {
  return std::chrono::microseconds(std::llround(seconds * 1e6));
}

Selection matchTypeOf(const ActionData& data) {
  const auto raw = readInt(data, kMatchType).value_or(2);
  return raw >= 2 && raw <= 5 ? static_cast<Selection>(raw) : Selection::nameFull;
}

}  // namespace

// What one wait looks for, read once.
struct PausePlugin::Condition {
  std::int64_t command = waitApplication;
  std::int64_t until = present;
  std::string application;  // expanded; empty for none
  std::string shownName;    // D
  std::string title;
  Selection match = Selection::nameFull;
  // Made once: the title is folded for matching once per wait, not per test.
  std::optional<NameMatcher> matcher;

  // W: the phrase that names the awaited window.
  std::string windowPhrase() const {
    if (title.empty()) return "of " + orla::quoted(shownName);
    static constexpr std::array<const char*, 4> verbs{"is", "contains", "starts with", "ends with"};
    std::string phrase = "whose title ";
    phrase.append(verbs[static_cast<std::size_t>(match) - 2]).append(" ").append(orla::quoted(title));
    if (!application.empty()) phrase.append(" in ").append(orla::quoted(shownName));
    return phrase;
  }
};

PausePlugin::PausePlugin() : PausePlugin(Platform::current()) {}
PausePlugin::PausePlugin(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {}

std::int64_t PausePlugin::resolvedActionType(const ActionData& data) { return resolveCommandNumber(data, kCommands); }

std::optional<double> PausePlugin::seconds(const ActionData& data) { return readDouble(data, kSeconds); }

double PausePlugin::timeout(const ActionData& data) { return readDouble(data, kTimeout).value_or(defaultTimeout); }

std::string PausePlugin::formatSeconds(double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.3f", value);
  std::string text = buffer;
  if (text.find('.') != std::string::npos) {
    while (text.back() == '0') text.pop_back();
    if (text.back() == '.') text.pop_back();
  }
  return text + (text == "1" ? " second" : " seconds");
}

std::optional<std::string> PausePlugin::validate(const ActionData& data) const {
  const std::int64_t command = resolvedActionType(data);
  if (command < waitTime || command > waitWindow) return unknownCommandMessage("Pause / Wait command");
  if (command == waitTime) {
    const auto s = seconds(data);
    if (!s) return "Enter how many seconds to wait, for example 1.5.";
    if (*s <= 0 || *s > longestWait) return "The pause must be more than 0 and at most 3600 seconds (one hour).";
    return std::nullopt;
  }
  const bool noApplication = readStringOr(data, kApplication).empty();
  if (command == waitApplication && noApplication) return "Enter the application to wait for, for example Safari.";
  if (command == waitWindow && noApplication && readStringOr(data, kTitle).empty())
    return "Enter the window title to wait for, or the application whose window to wait for.";
  const auto until = readIntOr(data, kUntil, present);
  if (until < present || until > gone) return "Choose what to wait for from the menu.";
  if (const auto t = readDouble(data, kTimeout); t && (*t <= 0 || *t > longestWait))
    return "The time-out must be more than 0 and at most 3600 seconds (one hour).";
  const auto onTimeout = readIntOr(data, kOnTimeout, failAtTimeout);
  if (onTimeout < failAtTimeout || onTimeout > endQuietly) return "Choose what happens after the time-out from the menu.";
  return std::nullopt;
}

bool PausePlugin::applicationMatches(const RunningApplication& app, const Condition& c) const {
  if (app.terminated) return false;
  if (c.application.starts_with("/")) {
    const auto standard = [](std::string_view path) {
      if (path.empty()) return std::string();
      std::string normal = std::filesystem::path(path).lexically_normal().string();
      while (normal.size() > 1 && normal.back() == '/') normal.pop_back();
      return normal;
    };
    const std::string wanted = standard(c.application);
    return standard(app.bundlePath) == wanted || standard(app.executablePath) == wanted;
  }
  std::string name = c.application;
  if (name.ends_with(".app")) name.resize(name.size() - 4);
  return equalsIgnoringCase(app.localizedName, name) || equalsIgnoringCase(app.bundleIdentifier, name);
}

std::optional<std::string> PausePlugin::testApplication(const Condition& c) const {
  Workspace& workspace = platform_->workspace();
  const std::string d = orla::quoted(c.shownName);
  if (c.until == inFront) {
    const auto front = workspace.frontmostApplication();
    if (front && applicationMatches(*front, c)) return d + " is in front.";
    return std::nullopt;
  }
  const auto running = workspace.runningApplications();
  const bool runs = std::any_of(running.begin(), running.end(), [&](const auto& a) { return applicationMatches(a, c); });
  if (c.until == present && runs) return d + " is running.";
  if (c.until == gone && !runs) return d + " is not running.";
  return std::nullopt;
}

std::optional<std::string> PausePlugin::testWindow(const Condition& c) const {
  AXReader reader(platform_->accessibility());
  const auto titleMatches = [&](const std::string& title) { return c.title.empty() || c.matcher->matches(title); };
  if (c.until == inFront) {
    const auto front = platform_->workspace().frontmostApplication();
    if (!front || (!c.application.empty() && !applicationMatches(*front, c))) return std::nullopt;
    const auto window = reader.window(front->processIdentifier, "AXFocusedWindow");
    if (!window) return std::nullopt;
    const std::string title = reader.string(*window, "AXTitle").value_or("");
    if (!titleMatches(title)) return std::nullopt;
    if (title.empty()) return "A window of " + orla::quoted(front->localizedName) + " is in front.";
    return "The window " + orla::quoted(title) + " is in front.";
  }
  for (const RunningApplication& app : platform_->workspace().runningApplications()) {
    if (app.terminated || app.activationPolicy != ActivationPolicy::regular) continue;
    if (!c.application.empty() && !applicationMatches(app, c)) continue;
    for (const AXElement& window : reader.windows(app.processIdentifier)) {
      const std::string title = reader.string(window, "AXTitle").value_or("");
      if (!titleMatches(title)) continue;
      if (c.until == gone) return std::nullopt;
      if (title.empty()) return "A window of " + orla::quoted(app.localizedName) + " is open.";
      return "The window " + orla::quoted(title) + " is open.";
    }
  }
  if (c.until == gone) return "No window " + c.windowPhrase() + " is open.";
  return std::nullopt;
}

std::optional<std::string> PausePlugin::test(const Condition& c) const {
  return c.command == waitApplication ? testApplication(c) : testWindow(c);
}

PluginResult PausePlugin::execute(const ActionData& data) {
  if (auto problem = validate(data)) return PluginResult::failure(std::move(*problem));
  const std::int64_t command = resolvedActionType(data);
  Clock& clock = platform_->clock();
  if (command == waitTime) {
    const double s = *seconds(data);
    clock.sleep(micros(s));
    return PluginResult::success("Waited " + formatSeconds(s) + ".");
  }
  if (command == waitWindow) {
    if (!platform_->supports(Capability::accessibility))
      return PluginResult::failure(std::string(kAccessibilityUnavailable));
    if (!platform_->accessibility().isProcessTrusted())
      return PluginResult::failure(
          "Accessibility permission is required to wait for a window. Enable Orla Pro in System Settings → "
          "Privacy & Security → Accessibility.");
  }
  Condition c;
  c.command = command;
  c.until = readIntOr(data, kUntil, present);
  const std::string typed = readStringOr(data, kApplication);
  c.application = typed.empty() ? typed : platform_->environment().expandTilde(typed);
  c.shownName = typed;
  if (c.application.starts_with("/")) {
    c.shownName = std::filesystem::path(c.application).lexically_normal().filename().string();
    if (c.shownName.empty()) c.shownName = std::filesystem::path(c.application).parent_path().filename().string();
    if (c.shownName.ends_with(".app")) c.shownName.resize(c.shownName.size() - 4);
  }
  c.title = readStringOr(data, kTitle);
  c.match = matchTypeOf(data);
  c.matcher.emplace(c.title, c.match);

  const double limit = timeout(data);
  const auto deadline = micros(limit);
  const auto start = clock.monotonicNow();
  for (;;) {
    if (auto holds = test(c)) return PluginResult::success(std::move(*holds));
    const auto elapsed = std::chrono::duration_cast<std::chrono::microseconds>(clock.monotonicNow() - start);
    if (elapsed >= deadline) break;
    clock.sleep(std::min<std::chrono::microseconds>(pollInterval, deadline - elapsed));
  }
  const std::string n = formatSeconds(limit);
  const std::string d = orla::quoted(c.shownName);
  std::string fact, advice;
  if (command == waitApplication) {
    static constexpr std::array<const char*, 3> facts{" is not running", " did not come to the front", " is still running"};
    static constexpr std::array<const char*, 3> advices{
        "Launch it, or allow a longer time-out, then click Test again.",
        "Bring it to the front, or allow a longer time-out, then click Test again.",
        "Quit it, or allow a longer time-out, then click Test again."};
    fact = "Waited " + n + ", but " + d + facts[static_cast<std::size_t>(c.until)];
    advice = advices[static_cast<std::size_t>(c.until)];
  } else {
    const std::string w = c.windowPhrase();
    static constexpr std::array<const char*, 3> advices{
        "Check the title and the match, or allow a longer time-out, then click Test again.",
        "Bring it to the front, or allow a longer time-out, then click Test again.",
        "Close it, or allow a longer time-out, then click Test again."};
    if (c.until == present) fact = "Waited " + n + ", but no window " + w + " appeared";
    else if (c.until == inFront) fact = "Waited " + n + ", but no window " + w + " came to the front";
    else fact = "Waited " + n + ", but a window " + w + " is still open";
    advice = advices[static_cast<std::size_t>(c.until)];
  }
  switch (readIntOr(data, kOnTimeout, failAtTimeout)) {
    case continueAtTimeout: return PluginResult::success(fact + ". The shortcut continues.");
    case endQuietly: return PluginResult::stopSequence();
    default: return PluginResult::failure(fact + ". " + advice);
  }
}

}  // namespace orla
