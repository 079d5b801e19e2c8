#include "plugins/input/interface_plugin.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <set>

#include <orla/models/graphemes.h>
#include <orla/models/parameter_readers.h>
#include <orla/models/text.h>
#include "plugins/input/target_application.h"
#include "plugins/text/clipboard_mechanics.h"
#include "plugins/text/text_transforms.h"

namespace orla {

namespace {

constexpr std::array<CommandName, 11> kCommands{{{"press", InterfacePlugin::press},
                                                 {"click", InterfacePlugin::press},
                                                 {"setValue", InterfacePlugin::setText},
                                                 {"setText", InterfacePlugin::setText},
                                                 {"fill", InterfacePlugin::setText},
                                                 {"focus", InterfacePlugin::focus},
                                                 {"getValue", InterfacePlugin::getValue},
                                                 {"read", InterfacePlugin::getValue},
                                                 {"copyValue", InterfacePlugin::getValue},
                                                 {"setChecked", InterfacePlugin::setChecked},
                                                 {"check", InterfacePlugin::setChecked}}};

const Keys kTitle{"elementTitle", "title", "Title", "name"};
const Keys kIdentifier{"elementIdentifier", "identifier", "Identifier"};
const Keys kKind{"elementKind", "role"};
const Keys kOccurrence{"occurrence", "index"};
const Keys kTimeout{"timeout", "Timeout"};
constexpr std::array<std::string_view, 3> kTextKeys{"text", "value", "Text"};

struct KindInfo {
  std::string_view noun;
  std::array<std::string_view, 3> roles;
};
constexpr std::array<KindInfo, 8> kKinds{{
    {"element", {}},
    {"button", {"AXButton", "AXMenuButton"}},
    {"text field", {"AXTextField", "AXTextArea", "AXComboBox"}},
    {"checkbox", {"AXCheckBox"}},
    {"radio button", {"AXRadioButton"}},
    {"pop-up button", {"AXPopUpButton"}},
    {"link", {"AXLink"}},
    {"text", {"AXStaticText"}},
}};

bool roleOfKind(std::string_view role, std::int64_t kind) {
  if (kind == InterfacePlugin::anyKind) return true;
  const auto& roles = kKinds[static_cast<std::size_t>(kind)].roles;
  return !role.empty() && std::find(roles.begin(), roles.end(), role) != roles.end();
}

// The kinds whose titles a not-found sentence lists: for "any element",
// what a user can act on.
bool listedRole(std::string_view role, std::int64_t kind) {
  if (kind != InterfacePlugin::anyKind) return roleOfKind(role, kind);
  for (std::int64_t k = 1; k <= 6; ++k)
    if (roleOfKind(role, k)) return true;
  return false;
}

std::string textOf(const ActionData& data) {
  for (std::string_view key : kTextKeys)
    if (auto text = readRawString(data, key)) return *text;
  return {};
}

std::chrono::microseconds micros(double seconds) { return std::chrono::microseconds(std::llround(seconds * 1e6)); }

// "3" for an integral number, else the shortest decimal that reads back as
// the same number.
std::string numberText(double value) {
  char buffer[64];
  if (std::isfinite(value) && value == std::trunc(value) && std::abs(value) < 9e15) {
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, static_cast<long long>(value)).ptr;
    return std::string(buffer, end);
  }
  const auto end = std::to_chars(buffer, buffer + sizeof buffer, value).ptr;
  return std::string(buffer, end);
}

}  // namespace

// What the user asked for, read once per run.
struct InterfacePlugin::Query {
  std::int64_t command = press;
  std::string title;
  std::string identifier;
  Selection match = Selection::nameFull;
  std::int64_t kind = anyKind;
  std::int64_t occurrence = 1;
  std::optional<NameMatcher> matcher;
};

// What one pass over the windows saw.
struct InterfacePlugin::Pass {
  std::optional<AXElement> found;
  std::int64_t candidates = 0;
  std::vector<AXElement> listed;  // of the listed kinds, in visiting order
  bool unanswered = false;         // a window's application did not answer in time
  bool unpublished = false;        // the application does not publish its controls
};

InterfacePlugin::InterfacePlugin() : InterfacePlugin(Platform::current()) {}
InterfacePlugin::InterfacePlugin(std::shared_ptr<Platform> platform)
    : platform_(std::move(platform)), reader_(platform_->accessibility()) {}

std::int64_t InterfacePlugin::resolvedActionType(const ActionData& data) { return resolveCommandNumber(data, kCommands); }

std::vector<std::string> InterfacePlugin::elementNames(const AXReader& reader, const AXElement& element) {
  std::vector<std::string> names;
  const auto add = [&](std::optional<std::string> name) {
    if (name) names.push_back(std::move(*name));
  };
  add(reader.string(element, "AXTitle"));
  add(reader.string(element, "AXDescription"));
  if (const auto label = reader.element(element, "AXTitleUIElement")) add(reader.string(*label, "AXValue"));
  add(reader.string(element, "AXPlaceholderValue"));
  const std::string role = reader.role(element);
  if (role == "AXStaticText" || role == "AXLink") add(reader.string(element, "AXValue"));
  return names;
}

std::optional<std::string> InterfacePlugin::validate(const ActionData& data) const {
  const std::int64_t command = resolvedActionType(data);
  if (command < press || command > setChecked) return unknownCommandMessage("UI Element command");
  if (readStringOr(data, kTitle).empty() && readStringOr(data, kIdentifier).empty())
    return "Enter the title or the identifier of the element, for example OK.";
  const std::int64_t kind = readIntOr(data, kKind, anyKind);
  if (kind < anyKind || kind > lastKind) return "Choose the kind of element from the menu.";
  if (readIntOr(data, kOccurrence, 1) < 1)
    return "The occurrence must be 1 or more (1 is the first matching element).";
  if (const auto t = readDouble(data, kTimeout); t && (*t < 0 || *t > longestTimeout))
    return "The time-out must be between 0 and 30 seconds.";
  if (command == setText) {
    const std::string text = textOf(data);
    if (text.size() > longestText && graphemeCount(text) > longestText)
      return "The text is longer than 100,000 characters. Shorten it, or paste it with the Clipboard action.";
  }
  return std::nullopt;
}

InterfacePlugin::Pass InterfacePlugin::searchPass(const Query& q, ProcessId pid) const {
  Pass pass;
  std::vector<AXElement> windows;
  const AXElement app = reader_.accessibility().applicationElement(pid);
  if (auto focused = reader_.element(app, "AXFocusedWindow")) windows.push_back(std::move(*focused));
  for (AXElement& window : reader_.elements(app, "AXWindows"))
    if (std::find(windows.begin(), windows.end(), window) == windows.end()) windows.push_back(std::move(window));

  // One element: whether it is the one, and whether it is listed.
  const auto visit = [&](const AXElement& element) {
    const std::string role = reader_.role(element);
    if (listedRole(role, q.kind)) pass.listed.push_back(element);
    bool candidate = roleOfKind(role, q.kind);
    if (candidate && !q.identifier.empty())
      candidate = reader_.string(element, "AXIdentifier").value_or("") == q.identifier;
    if (candidate && !q.title.empty()) {
      const auto names = elementNames(reader_, element);
      candidate = std::any_of(names.begin(), names.end(), [&](const std::string& n) { return q.matcher->matches(n); });
    }
    if (candidate && ++pass.candidates == q.occurrence) pass.found = element;
    return pass.found.has_value();
  };
  const auto limitReached = [&] { return Pass{std::nullopt, pass.candidates, std::move(pass.listed)}; };
  std::vector<std::string> roles;
  if (q.kind != anyKind)
    for (std::string_view role : kKinds[static_cast<std::size_t>(q.kind)].roles)
      if (!role.empty()) roles.emplace_back(role);

  std::size_t visited = 0;
  for (const AXElement& window : windows) {
    // Where the desktop can hand over a whole window in one request, the
    // elements of the kind come with their names; the 40 levels are not
    // known there, only the count.
    auto quick = reader_.accessibility().descendants(window, roles, mostElements - visited);
    if (quick) {
      for (const AXElement& element : quick->elements)
        if (visit(element)) return pass;
      visited += quick->counted;
      if (visited > mostElements) return limitReached();
      continue;
    }
    // Walking a window whose application does not answer, or does not
    // publish what is in it, would only find nothing more slowly.
    if (quick.error() == AXError::cannotComplete || quick.error() == AXError::apiDisabled) {
      (quick.error() == AXError::cannotComplete ? pass.unanswered : pass.unpublished) = true;
      continue;
    }
    // Depth-first, in the order of the children; the window is no candidate.
    std::vector<std::pair<AXElement, int>> stack;
    const auto pushChildren = [&](const AXElement& parent, int level) {
      std::vector<AXElement> children = reader_.children(parent);
      for (auto it = children.rbegin(); it != children.rend(); ++it) stack.emplace_back(std::move(*it), level);
    };
    pushChildren(window, 1);
    while (!stack.empty()) {
      auto [element, level] = std::move(stack.back());
      stack.pop_back();
      // The menu bar is the menu action's to search.
      if (reader_.role(element) == "AXMenuBar") continue;
      if (++visited > mostElements) return limitReached();
      if (visit(element)) return pass;
      if (level < deepestLevel) pushChildren(element, level + 1);
      else if (!reader_.children(element).empty()) return limitReached();  // too deep to search further
    }
  }
  return pass;
}

std::string InterfacePlugin::notFound(const Query& q, const Pass& pass, const std::string& appName) const {
  if (pass.candidates == 0 && pass.unanswered)
    return quoted(appName) + " is not answering the accessibility interface right now, so its controls cannot be "
                             "read. Wait until it responds, then click Test again.";
  if (pass.candidates == 0 && pass.unpublished)
    return quoted(appName) + " does not share its controls with the accessibility interface, so Orla cannot find "
                             "them. Turn on its accessibility support, then click Test again.";
  std::string message;
  if (pass.candidates == 0) {
    message = "Found no " + std::string(kKinds[static_cast<std::size_t>(q.kind)].noun) + " ";
    static constexpr std::array<const char*, 4> verbs{"is", "contains", "starts with", "ends with"};
    if (!q.title.empty())
      message.append("whose title ").append(verbs[static_cast<std::size_t>(q.match) - 2]).append(" ").append(
          quoted(q.title));
    if (!q.title.empty() && !q.identifier.empty()) message += " and ";
    if (!q.identifier.empty()) message.append("with the identifier ").append(quoted(q.identifier));
    message.append(" in ").append(quoted(appName)).append(".");
  } else {
    message = "Found only " + std::to_string(pass.candidates) + " matching element" +
              (pass.candidates > 1 ? "s" : "") + " in " + quoted(appName) + ", so there is no number " +
              std::to_string(q.occurrence) + ".";
  }
  std::vector<std::string> titles;
  std::set<std::string> seen;
  for (const AXElement& element : pass.listed) {
    auto names = elementNames(reader_, element);
    if (!names.empty() && seen.insert(names.front()).second) titles.push_back(std::move(names.front()));
  }
  if (!titles.empty()) {
    message += " Titles there: ";
    for (std::size_t i = 0; i < titles.size() && i < listedTitles; ++i) {
      if (i) message += ", ";
      message += titles[i];
    }
    if (titles.size() > listedTitles) message.append(", … (").append(std::to_string(titles.size())).append(" items)");
    message += ".";
  }
  return message + " Check the title or identifier, or allow a longer time-out, then click Test again.";
}

PluginResult InterfacePlugin::execute(const ActionData& data) {
  if (auto problem = validate(data)) return PluginResult::failure(std::move(*problem));
  if (auto usable = requireAccessibility(
          *platform_, "Accessibility permission is required for UI element actions. Enable Orla Pro in System "
                      "Settings → Privacy & Security → Accessibility.");
      !usable)
    return PluginResult::failure(usable.error());
  if (!platform_->supports(Capability::menuBars))
    return PluginResult::failure(std::string(kApplicationInterfaceUnavailable));

  Query q;
  q.command = resolvedActionType(data);
  q.title = readStringOr(data, kTitle);
  q.identifier = readStringOr(data, kIdentifier);
  const auto rawMatch = readInt(data, {"matchType"}).value_or(2);
  q.match = rawMatch >= 2 && rawMatch <= 5 ? static_cast<Selection>(rawMatch) : Selection::nameFull;
  q.kind = readIntOr(data, kKind, anyKind);
  q.occurrence = readIntOr(data, kOccurrence, 1);

  const TargetApplication target = findTargetApplication(
      *platform_, data,
      "This command works on the controls of a specific application and cannot be tested from inside Orla "
      "alone. Click into the application whose control you want (for example TextEdit), then come back and "
      "click Test. Or enter the application in the Application field.");
  if (!target.app)
    return PluginResult::failure(
        target.problem.value_or("No application to work on. Click into the target application first, then try again."));
  const RunningApplication& app = *target.app;
  const std::string appName = app.localizedName.empty() ? "the application" : app.localizedName;
  if (q.command != getValue) bringApplicationToFront(*platform_, app, activationPoll, activationPolls);
  // The title is brought into its compared form once per run.
  q.matcher.emplace(q.title, q.match);

  // One pass at once, then one every quarter second, the last at the
  // deadline.
  Clock& clock = platform_->clock();
  const auto deadline = micros(readDouble(data, kTimeout).value_or(defaultTimeout));
  const auto start = clock.monotonicNow();
  Pass pass;
  for (;;) {
    pass = searchPass(q, app.processIdentifier);
    if (pass.found) break;
    const auto elapsed = std::chrono::duration_cast<std::chrono::microseconds>(clock.monotonicNow() - start);
    if (elapsed >= deadline) return PluginResult::failure(notFound(q, pass, appName));
    clock.sleep(std::min<std::chrono::microseconds>(passInterval, deadline - elapsed));
  }
  return act(q, *pass.found, data, appName);
}

PluginResult InterfacePlugin::act(const Query& q, const AXElement& element, const ActionData& data,
                                  const std::string& appName) {
  std::string label;
  if (auto names = elementNames(reader_, element); !names.empty()) label = names.front();
  else label = reader_.string(element, "AXIdentifier").value_or(q.title);
  const std::string l = quoted(label);
  const std::string a = quoted(appName);
  const bool secure = reader_.subrole(element) == "AXSecureTextField";

  if ((q.command == press || q.command == setText || q.command == setChecked) && !reader_.isEnabled(element))
    return PluginResult::failure(l + " is disabled in " + a +
                                 " right now (greyed out), so nothing happened. Try again once it is enabled.");
  switch (q.command) {
    case press:
      if (!reader_.perform(element, "AXPress"))
        return PluginResult::failure(a + " did not accept the press on " + l +
                                     ". Click it with the Mouse action instead.");
      return PluginResult::success("Pressed " + l + ".");
    case setText: {
      const std::string text = textOf(data);
      (void)reader_.set(element, "AXFocused", AXValue(true));
      bool taken = reader_.set(element, "AXValue", AXValue(text));
      if (taken && !secure) {
        const auto back = reader_.accessibility().copyAttributeValue(element, "AXValue");
        const std::string* backText = back ? back->asString() : nullptr;
        taken = backText ? *backText == text : (back.error() == AXError::noValue && text.empty());
      }
      if (!taken)
        return PluginResult::failure(a + " did not accept the text for " + l +
                                     ". Type it with the Type Text action instead.");
      return PluginResult::success("Set the text of " + l + ".");
    }
    case focus:
      if (!reader_.set(element, "AXFocused", AXValue(true)) || reader_.boolean(element, "AXFocused") != true)
        return PluginResult::failure(a + " did not move the focus to " + l +
                                     ". Click it with the Mouse action instead.");
      return PluginResult::success("Focused " + l + ".");
    case getValue: return readValue(element, label, secure, data);
    default:
      return turn(element, label, appName, readSwitchOr(data, {"checked", "on"}, true),
                  reader_.role(element) == "AXRadioButton");
  }
}

PluginResult InterfacePlugin::readValue(const AXElement& element, const std::string& label, bool secure,
                                        const ActionData& data) {
  const std::string l = quoted(label);
  if (secure)
    return PluginResult::failure(l + " is a password field, and Orla never reads password fields. Choose another element.");
  const auto value = reader_.accessibility().copyAttributeValue(element, "AXValue");
  std::string text;
  if (value) {
    if (const auto* s = value->asString()) text = *s;
    else if (const auto* n = value->asNumber()) text = numberText(*n);
    else if (const auto* b = value->asBool()) text = *b ? "1" : "0";
    else
      return PluginResult::failure(l + " has no value that Orla can read. Choose a text field, checkbox or label.");
  }
  const bool copy = readSwitchOr(data, {"copyToClipboard"});
  if (text.empty())
    return PluginResult::success(copy ? l + " is empty, so the clipboard was left as it was." : l + " is empty.");
  if (copy) {
    ClipboardMechanics clipboard(*platform_);
    if (auto written = clipboard.writeText(text); !written) return PluginResult::failure(written.error());
  }
  return PluginResult::success(transforms::displayCut(text));
}

PluginResult InterfacePlugin::turn(const AXElement& element, const std::string& label, const std::string& appName,
                                   bool on, bool radio) {
  const std::string l = quoted(label);
  const auto state = [&]() -> std::optional<int> {
    const auto value = reader_.accessibility().copyAttributeValue(element, "AXValue");
    if (!value) return std::nullopt;
    if (const bool* b = value->asBool()) return *b ? 1 : 0;
    if (const double* n = value->asNumber(); n && (*n == 0 || *n == 1 || *n == 2)) return static_cast<int>(*n);
    return std::nullopt;
  };
  const auto now = state();
  if (!now) return PluginResult::failure(l + " is not a checkbox or switch. Choose one, then click Test again.");
  const int wish = on ? 1 : 0;
  if (*now == wish) return PluginResult::success(l + (on ? " was already on." : " was already off."));
  if (radio && !on)
    return PluginResult::failure("A radio button can't be turned off. Turn on another button of its group instead.");
  if (!reader_.perform(element, "AXPress"))
    return PluginResult::failure(quoted(appName) + " did not accept the press on " + l +
                                 ". Click it with the Mouse action instead.");
  for (int poll = 0; poll < checkPolls; ++poll) {
    platform_->clock().sleep(checkPoll);
    if (state() == wish) return PluginResult::success("Turned " + l + (on ? " on." : " off."));
  }
  return PluginResult::failure(l + " did not turn " + (on ? "on" : "off") + " in " + quoted(appName) +
                               ". Check that it can be changed, then click Test again.");
}

}  // namespace orla
