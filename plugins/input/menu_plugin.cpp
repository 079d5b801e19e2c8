#include "plugins/input/menu_plugin.h"

#include <orla/models/parameter_readers.h>
#include <orla/models/text.h>
#include <orla/models/typing_target_context.h>
#include "plugins/input/menu_popup.h"
#include "plugins/input/target_application.h"

namespace orla {

namespace {

constexpr std::string_view kSubAction = "subAction";

std::optional<std::int64_t> commandForName(std::string_view name) {
  if (name == "fullBar" || name == "menu" || name == "fullMenuBar") return MenuPlugin::showMenuBar;
  if (name == "submenu") return MenuPlugin::showSubmenu;
  if (name == "click" || name == "item") return MenuPlugin::clickItem;
  return std::nullopt;
}

// A stored level without a selection is matched by name when it has one,
// by position otherwise.
PathStep storedStep(const ActionData& data, Keys nameKeys, Keys indexKeys, Keys selectionKeys) {
  PathStep step;
  step.name = readStringOr(data, nameKeys);
  step.index = readIntOr(data, indexKeys, 0);
  const auto raw = readInt(data, selectionKeys);
  step.selection = raw ? selectionFromRaw(*raw)
                       : step.name.empty() ? Selection::index : Selection::nameFull;
  return step;
}

bool hasAnyKey(const ActionData& data, Keys keys) {
  for (std::string_view key : keys)
    if (lookup(data, key)) return true;
  return false;
}

std::vector<PathStep> stepsFromText(const ActionData& data) {
  std::vector<PathStep> steps;
  const auto text = readString(data, {"menuPath", "MenuPath"});
  if (!text) return steps;
  const auto raw = readInt(data, {"matchType"});
  const Selection selection = raw ? selectionFromRaw(*raw, Selection::nameFull) : Selection::nameFull;
  for (std::string& level : splitPathText(*text)) {
    PathStep step;
    if (selectsByIndex(selection)) step.index = AnyCodable(level).intValue().value_or(0);
    step.name = std::move(level);
    step.selection = selection;
    steps.push_back(std::move(step));
  }
  return steps;
}

std::vector<PathStep> stepsFromItems(const ActionData& data) {
  std::vector<PathStep> steps;
  const AnyArray* items = readList(data, {"items", "Items"});
  if (!items) return steps;
  for (const AnyCodable& item : *items) {
    if (const std::string* text = item.asString()) {
      const std::string_view name = trimWhitespaceAndNewlines(*text);
      if (!name.empty()) steps.push_back({std::string(name), 0, Selection::nameFull});
    } else if (const AnyDictionary* level = item.asDictionary()) {
      steps.push_back(storedStep(*level, {"ItemName", "name"}, {"ItemIndex", "index"}, {"ItemSelection", "selection"}));
    }
  }
  return steps;
}

std::vector<PathStep> stepsFromOldestForm(const ActionData& data, std::int64_t command) {
  std::vector<PathStep> steps;
  if (hasAnyKey(data, {"MenuName", "MenuIndex", "MenuSelection"}))
    steps.push_back(storedStep(data, {"MenuName"}, {"MenuIndex"}, {"MenuSelection"}));
  if (command == MenuPlugin::showSubmenu) return steps;
  if (hasAnyKey(data, {"SubmenuName", "SubmenuIndex", "SubmenuSelection"}))
    steps.push_back(storedStep(data, {"SubmenuName"}, {"SubmenuIndex"}, {"SubmenuSelection"}));
  if (hasAnyKey(data, {"ItemName", "ItemIndex", "ItemSelection"}))
    steps.push_back(storedStep(data, {"ItemName"}, {"ItemIndex"}, {"ItemSelection"}));
  return steps;
}

}  // namespace

MenuPlugin::MenuPlugin() : MenuPlugin(Platform::current()) {}
MenuPlugin::MenuPlugin(std::shared_ptr<Platform> platform)
    : platform_(std::move(platform)), reader_(platform_->accessibility()) {}

std::int64_t MenuPlugin::resolvedActionType(const ActionData& data) {
  const std::string sub = readRawString(data, kSubAction).value_or("");
  if (auto command = commandForName(sub)) return *command;
  if (auto number = readInt(data, {"actionType", "Action"}); number && *number != 0) {
    if (*number > 2) return *number;
    // Older actions that named an item stored a bar or menu command.
    if ((*number == 1 || *number == 2) && hasAnyKey(data, {"MenuName", "ItemName"})) return clickItem;
    return *number;
  }
  return commandForName(sub).value_or(clickItem);
}

std::vector<PathStep> MenuPlugin::pathSteps(const ActionData& data) {
  if (auto steps = stepsFromText(data); !steps.empty()) return steps;
  if (auto steps = stepsFromItems(data); !steps.empty()) return steps;
  return stepsFromOldestForm(data, resolvedActionType(data));
}

std::optional<std::string> MenuPlugin::settingsProblem(const ActionData& data) {
  const std::int64_t command = resolvedActionType(data);
  if (command == showMenuBar) return std::nullopt;
  if (command != showSubmenu && command != clickItem)
    return std::string("Unknown menu command ").append(std::to_string(command)).append(". Choose a command from the menu.");
  const std::vector<PathStep> steps = pathSteps(data);
  if (steps.empty())
    return command == showSubmenu ? "Enter the menu to show, one name per line, for example File or File > Export."
                                  : "Enter the menu path to click, one name per line, for example File > Save…";
  for (const PathStep& step : steps) {
    if (selectsByIndex(step.selection)) {
      if (step.index < 1)
        return std::string(step.selection == Selection::index ? "Index (position)" : "Index from end") +
               " needs a number of 1 or more for each level, one per line, for example 3 > 2.";
    } else if (step.name.empty()) {
      return "One of the menu names is empty. Enter a name for every level of the path, for example File > Save…";
    }
  }
  return std::nullopt;
}

std::optional<std::string> MenuPlugin::validate(const ActionData& data) const { return settingsProblem(data); }

MenuPlugin::Target MenuPlugin::findTarget(const ActionData& data) const {
  auto found = findTargetApplication(
      *platform_, data,
      "This command works on the menu bar of a specific application and cannot be tested from inside Orla "
      "alone. Click into the application whose menu you want (for example TextEdit), then come back and "
      "click Test. Or enter the application in the Application field.");
  return {std::move(found.app), std::move(found.problem)};
}

std::optional<std::string> MenuPlugin::targetApplicationProblem(const ActionData& data) const {
  return findTarget(data).problem;
}

void MenuPlugin::bringToFront(const RunningApplication& app) {
  bringApplicationToFront(*platform_, app, activationPoll, activationPolls);
}

std::optional<AXElement> MenuPlugin::pick(const std::vector<AXElement>& children, const PathStep& step) const {
  const auto count = static_cast<std::int64_t>(children.size());
  if (selectsByIndex(step.selection)) {
    if (step.index < 1 || step.index > count) return std::nullopt;
    return children[static_cast<std::size_t>(step.selection == Selection::index ? step.index - 1 : count - step.index)];
  }
  const NameMatcher matcher(step.name, step.selection);
  for (const AXElement& child : children)
    if (matcher.matches(reader_.title(child))) return child;
  return std::nullopt;
}

MenuPlugin::Walk MenuPlugin::walk(const AXElement& menuBar, const std::vector<PathStep>& steps, bool opening,
                                  bool openLast) const {
  Walk result;
  AXElement current = menuBar;
  for (std::size_t level = 0; level < steps.size(); ++level) {
    std::vector<AXElement> children = reader_.children(current);
    const auto child = pick(children, steps[level]);
    if (!child) {
      result.failedLevel = level;
      result.failedChildren = std::move(children);
      return result;
    }
    const bool last = level + 1 == steps.size();
    const auto submenu = reader_.submenu(*child);
    // Only what opens a menu is pressed: pressing an item without one would
    // choose it, part-way down a path that goes deeper than the menus.
    if (opening && submenu && (!last || openLast)) {
      if (reader_.perform(*child, "AXPress")) result.opened.push_back(*child);
      platform_->clock().sleep(openingStep);
    }
    if (last) {
      result.found = *child;
      return result;
    }
    current = submenu.value_or(*child);
  }
  return result;
}

void MenuPlugin::cancelOpened(const Walk& walk) const {
  for (auto it = walk.opened.rbegin(); it != walk.opened.rend(); ++it) reader_.perform(*it, "AXCancel");
}

std::string MenuPlugin::notFound(const std::vector<PathStep>& steps, const Walk& walk,
                                 const std::string& appName) const {
  const std::size_t level = walk.failedLevel;
  std::string message = "Menu item “";
  message.append(pathLabel(steps)).append("” not found in ").append(appName);
  message.append(": no “").append(steps[level].label()).append("” in ");
  if (level == 0) message += "the menu bar.";
  else message.append("the ").append(steps[level - 1].label()).append(" menu.");
  std::vector<std::string> titles;
  for (const AXElement& child : walk.failedChildren)
    if (std::string title = reader_.title(child); !title.empty()) titles.push_back(std::move(title));
  if (!titles.empty()) {
    message += " Items there: ";
    for (std::size_t i = 0; i < titles.size() && i < listedSiblings; ++i) {
      if (i) message += ", ";
      message += titles[i];
    }
    if (titles.size() > listedSiblings) message.append(", … (").append(std::to_string(titles.size())).append(" items)");
    message += ".";
  } else if (level > 0) {
    message += " That menu reported no items; it may only fill when opened.";
  }
  return message;
}

MenuPlugin::Walk MenuPlugin::resolvingWalk(const AXElement& menuBar, const std::vector<PathStep>& steps) const {
  Walk quiet = walk(menuBar, steps, false, false);
  if (quiet.found) return quiet;
  // Some menus fill only when they are opened.
  Walk opening = walk(menuBar, steps, true, false);
  // An application busy opening a very large menu may not hand over its
  // items in time: what the quiet walk saw there still says what is there.
  if (!opening.found && opening.failedChildren.empty() && quiet.failedLevel == opening.failedLevel)
    opening.failedChildren = std::move(quiet.failedChildren);
  return opening;
}

Checked<AXElement> MenuPlugin::resolve(const AXElement& menuBar, const std::vector<PathStep>& steps,
                                       const std::string& appName) const {
  Walk found = resolvingWalk(menuBar, steps);
  if (found.found) return *found.found;
  cancelOpened(found);
  return fail(notFound(steps, found, appName));
}

PluginResult MenuPlugin::showSubmenuOf(const AXElement& menuBar, const std::vector<PathStep>& steps,
                                       const ActionData& data, const std::string& appName) {
  const Walk found = resolvingWalk(menuBar, steps);
  if (!found.found) {
    cancelOpened(found);
    return PluginResult::failure(notFound(steps, found, appName));
  }
  const auto submenu = reader_.submenu(*found.found);
  // An item where a menu was needed: the menus opened to reach it close
  // again before the failure is told.
  if (!submenu) {
    cancelOpened(found);
    return PluginResult::failure(std::string("Menu “")
                                     .append(pathLabel(steps))
                                     .append("” in ")
                                     .append(appName)
                                     .append(" is an item, not a menu, so it has nothing to show. Choose the click "
                                             "command to press it."));
  }
  // "displayOnly" opens the application's own menu where it stands instead
  // of showing a copy of it at the pointer.
  if (readSwitchOr(data, {"displayOnly"})) {
    Walk shown = walk(menuBar, steps, true, true);
    if (!shown.found) {
      cancelOpened(shown);
      return PluginResult::failure(notFound(steps, shown, appName));
    }
    return PluginResult::silentSuccess();
  }
  return popUpMenuMirror(*platform_, reader_, *submenu, submenuDepth, MenuMirror::submenu, appName);
}

PluginResult MenuPlugin::click(const AXElement& menuBar, const std::vector<PathStep>& steps, const ActionData& data,
                               const std::string& appName) {
  const std::string label = pathLabel(steps);
  if (readSwitchOr(data, {"onlyDisplayMenu", "OnlyDisplayMenu"})) {
    // The real menus are opened down to the item, which is shown but not
    // pressed (pressing an item without a submenu would choose it).
    Walk shown = walk(menuBar, steps, true, true);
    if (!shown.found) {
      cancelOpened(shown);
      return PluginResult::failure(notFound(steps, shown, appName));
    }
    return PluginResult::silentSuccess();
  }
  const auto element = resolve(menuBar, steps, appName);
  if (!element) return PluginResult::failure(element.error());
  if (!reader_.isEnabled(*element))
    return PluginResult::failure("“" + label + "” is disabled in " + appName +
                                 " right now (greyed out), so nothing happened.");
  if (!reader_.perform(*element, "AXPress") && !reader_.perform(*element, "AXPick"))
    return PluginResult::failure(appName + " did not accept the click on “" + label + "”.");
  return PluginResult::silentSuccess();
}

PluginResult MenuPlugin::execute(const ActionData& data) {
  if (auto problem = settingsProblem(data)) return PluginResult::failure(std::move(*problem));
  if (!platform_->supports(Capability::accessibility))
    return PluginResult::failure(std::string(kAccessibilityUnavailable));
  if (!platform_->supports(Capability::menuBars))
    return PluginResult::failure(std::string(kApplicationInterfaceUnavailable));
  const Target target = findTarget(data);
  if (!target.app)
    return PluginResult::failure(
        target.problem.value_or("No application to work on. Click into the target application first, then try again."));
  const RunningApplication& app = *target.app;
  const std::string name = app.localizedName.empty() ? "the application" : app.localizedName;
  bringToFront(app);

  const auto menuBar = reader_.menuBar(app.processIdentifier);
  if (!menuBar)
    return PluginResult::failure("Cannot read the menu bar of " + name +
                                 ". Allow Orla Pro in System Settings → Privacy & Security → Accessibility, and "
                                 "make sure " + name + " has a menu bar.");
  const std::int64_t command = resolvedActionType(data);
  if (command == showMenuBar) {
    if (reader_.children(*menuBar).empty()) return PluginResult::failure("The menu bar of " + name + " is empty.");
    return popUpMenuMirror(*platform_, reader_, *menuBar, menuBarDepth, MenuMirror::menuBar, name);
  }
  const std::vector<PathStep> steps = pathSteps(data);
  if (command == showSubmenu) return showSubmenuOf(*menuBar, steps, data, name);
  return click(*menuBar, steps, data, name);
}

}  // namespace orla
