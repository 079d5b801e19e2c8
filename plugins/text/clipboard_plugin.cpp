#include "plugins/text/clipboard_plugin.h"

#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <mutex>

#include <orla/models/icu_support.h>
#include <orla/models/input_limits.h>
#include <orla/models/parameter_readers.h>
#include <orla/models/text.h>
#include <orla/models/utf8.h>
#include "plugins/input/typing_target.h"
#include "plugins/text/clipboard_mechanics.h"
#include "plugins/text/command_date_formatter.h"
#include "plugins/text/text_transforms.h"

namespace orla {

namespace {

using Command = ClipboardPlugin::Command;

constexpr std::string_view kNoPasteTarget =
    "No app to paste into. Click into the app with the text you want, then click Test again.";
constexpr std::string_view kNoCopyTarget =
    "No app to read the selection from. Click into the app with the text you want, then click Test again.";
constexpr std::string_view kNothingCopied =
    "Nothing was copied. Select some text in the target app first (the app in front before you clicked Test), then "
    "try again.";
constexpr std::string_view kNotText =
    "The selection was copied but it is not text (an image or file). Orla can only work with text here.";

// The clipboard Save Clipboard keeps for Restore Clipboard, for the life of
// the process, shared by every clipboard action.
struct SavedClipboard {
  std::mutex mutex;
  std::optional<PasteboardSnapshot> items;
};

SavedClipboard& savedClipboard() {
  static SavedClipboard saved;
  return saved;
}

bool pasteAfter(const ActionData& data) { return readSwitchOr(data, {"pasteAfter", "paste", "Paste"}); }

std::optional<std::int64_t> commandNumber(const ActionData& data) {
  for (std::string_view key : {"actionType", "Action"})
    if (const AnyCodable* value = lookup(data, key))
      if (auto number = value->intValue()) return number;
  return std::nullopt;
}

// The first of "text" and "Text" holding a string, whatever it holds; a
// view of it, since it may be tens of megabytes.
std::string_view textToSet(const ActionData& data) {
  for (std::string_view key : {"text", "Text"})
    if (const AnyCodable* value = lookup(data, key); value && value->asString()) return *value->asString();
  return {};
}

// The plain text of the first item, and how many items carry no text.
struct Description {
  std::string text;
  size_t nonTextItems = 0;
};

Description describe(const PasteboardSnapshot& items) {
  Description d;
  for (size_t k = 0; k < items.size(); ++k) {
    const std::string* text = items[k].bytes(pasteboard_types::plainText);
    if (!text) ++d.nonTextItems;
    else if (k == 0 && isValidUtf8(*text)) d.text = *text;
  }
  return d;
}

std::string nonTextNote(size_t count) {
  if (count == 0) return {};
  return "\n(+ " + std::to_string(count) + " non-text item(s))";
}

// Case-insensitive literal search: the first place at or after `from` where
// `search` occurs in `text`, comparing with full case folding, in UTF-16
// units.
int32_t findIgnoringCase(const icu::UnicodeString& text, const icu::UnicodeString& search, int32_t from) {
  const int32_t length = search.length();
  for (int32_t i = from; i + length <= text.length(); i = text.moveIndex32(i, 1))
    if (text.caseCompare(i, length, search, U_FOLD_CASE_DEFAULT) == 0) return i;
  return -1;
}

// The text with every match replaced, and `found_` set when there was one;
// nothing when the result would pass the size limit (rules that each double
// the text reach it in thirty steps).
std::optional<std::string> replaceAll(std::string_view text, const ReplaceRule& rule, bool& found_) {
  if (rule.caseSensitive) {
    // The result's size is known before it is made: a rule that would pass
    // the limit costs no memory.
    std::size_t matches = 0;
    for (size_t found = text.find(rule.search); found != std::string_view::npos;
         found = text.find(rule.search, found + rule.search.size()))
      ++matches;
    if (rule.replace.size() > rule.search.size() &&
        matches > (kTextSizeLimit - std::min(text.size(), kTextSizeLimit)) / (rule.replace.size() - rule.search.size()))
      return std::nullopt;
    std::string out;
    out.reserve(text.size() + matches * rule.replace.size() - std::min(text.size(), matches * rule.search.size()));
    size_t at = 0;
    for (size_t found; (found = text.find(rule.search, at)) != std::string_view::npos; at = found + rule.search.size()) {
      if (out.size() + (found - at) + rule.replace.size() > kTextSizeLimit) return std::nullopt;
      out.append(text, at, found - at);
      out += rule.replace;
      found_ = true;
    }
    out.append(text, at, std::string_view::npos);
    return out;
  }
  const icu::UnicodeString haystack = unicodeString(text);
  const icu::UnicodeString needle = unicodeString(rule.search);
  const icu::UnicodeString replacement = unicodeString(rule.replace);
  icu::UnicodeString out;
  int32_t at = 0;
  // Counted first, so that a rule past the limit costs no memory; UTF-16
  // units are at most three bytes of UTF-8 each.
  constexpr std::size_t kUnitLimit = kTextSizeLimit / 3;
  std::size_t matches = 0;
  for (int32_t found = findIgnoringCase(haystack, needle, 0); found >= 0;
       found = findIgnoringCase(haystack, needle, found + needle.length()))
    ++matches;
  const auto units = [](int32_t length) { return static_cast<std::size_t>(length); };
  if (units(replacement.length()) > units(needle.length()) &&
      matches > (kUnitLimit - std::min(units(haystack.length()), kUnitLimit)) /
                    (units(replacement.length()) - units(needle.length())))
    return std::nullopt;
  for (int32_t found; (found = findIgnoringCase(haystack, needle, at)) >= 0; at = found + needle.length()) {
    out.append(haystack, at, found - at);
    out.append(replacement);
    found_ = true;
  }
  out.append(haystack, at, haystack.length() - at);
  return utf8String(out);
}

// The words the case commands' messages are built from.
std::string_view caseWord(Command command) {
  switch (command) {
    case Command::uppercase: return "UPPERCASE";
    case Command::lowercase: return "lowercase";
    default: return "Capitalized";
  }
}

}  // namespace

std::vector<ReplaceRule> ReplaceRule::rules(const ActionData& data) {
  std::vector<ReplaceRule> out;
  for (std::string_view key : {"rules", "Rules"}) {
    const AnyCodable* list = lookup(data, key);
    if (!list || !list->asArray()) continue;
    for (const AnyCodable& item : *list->asArray()) {
      const ActionData* fields = item.asDictionary();
      if (!fields) continue;
      ReplaceRule rule;
      for (std::string_view k : {"search", "searchText", "Search"})
        if (auto text = readRawString(*fields, k)) {
          rule.search = *text;
          break;
        }
      for (std::string_view k : {"replace", "replaceText", "Replace"})
        if (auto text = readRawString(*fields, k)) {
          rule.replace = *text;
          break;
        }
      rule.caseSensitive = readSwitchOr(*fields, {"caseSensitive"});
      if (!rule.search.empty()) out.push_back(std::move(rule));
    }
    break;
  }
  return out;
}

Checked<std::string> ReplaceRule::apply(const std::vector<ReplaceRule>& rules, std::string_view text, bool* found) {
  std::string out(text);
  bool any = false;
  for (const ReplaceRule& rule : rules) {
    if (rule.search.empty()) continue;
    auto replaced = replaceAll(out, rule, any);
    if (!replaced)
      return fail("The replacements would make the text larger than " + std::string(kTextSizeLimitWords) +
                  ", which is too large to use. Nothing was changed.");
    out = std::move(*replaced);
  }
  if (found) *found = any;
  return out;
}

ClipboardPlugin::ClipboardPlugin() : ClipboardPlugin(Platform::current()) {}
ClipboardPlugin::ClipboardPlugin(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {}

std::optional<Command> ClipboardPlugin::resolvedActionType(const ActionData& data) {
  const std::int64_t number = commandNumber(data).value_or(1);
  if (number < 1 || number > 12) return std::nullopt;
  return static_cast<Command>(number);
}

std::string_view ClipboardPlugin::finderSelectionScript() {
  return "tell application \"Finder\"\n"
         "\tset chosen to selection as alias list\n"
         "\tif (count of chosen) is 0 then\n"
         "\t\tif (count of Finder windows) is 0 then return \"\"\n"
         "\t\treturn POSIX path of (target of front Finder window as alias)\n"
         "\tend if\n"
         "\tset paths to {}\n"
         "\trepeat with anItem in chosen\n"
         "\t\tset end of paths to POSIX path of anItem\n"
         "\tend repeat\n"
         "\tset AppleScript's text item delimiters to linefeed\n"
         "\treturn paths as text\n"
         "end tell";
}

void ClipboardPlugin::resetSavedClipboard() {
  SavedClipboard& saved = savedClipboard();
  std::lock_guard lock(saved.mutex);
  saved.items.reset();
}

std::optional<std::string> ClipboardPlugin::validate(const ActionData& data) const {
  const auto command = resolvedActionType(data);
  if (!command)
    return "Unknown clipboard command " + std::to_string(commandNumber(data).value_or(0)) +
           ". Choose a command from the menu.";
  if (*command == Command::replaceInSelection && ReplaceRule::rules(data).empty())
    return "Enter the text to find in the Search field.";
  if (*command == Command::setText && trimWhitespaceAndNewlines(textToSet(data)).empty())
    return "No text specified. Type the text to place on the clipboard in the box. This command does not copy the "
           "current selection \u2014 use Copy (\u2318C) for that.";
  return std::nullopt;
}

bool ClipboardPlugin::requiresAccessibility(const ActionData& data) const {
  const auto command = resolvedActionType(data);
  if (!command) return false;
  switch (*command) {
    case Command::setText:
    case Command::setDate: return pasteAfter(data);
    case Command::finderSelectionPaths:
    case Command::save:
    case Command::restore: return false;
    default: return true;
  }
}

PluginResult ClipboardPlugin::execute(const ActionData& data) {
  if (auto message = validate(data)) return PluginResult::failure(*message);
  const Command command = *resolvedActionType(data);
  Platform& p = *platform_;
  if (requiresAccessibility(data) && !p.accessibility().isProcessTrusted())
    return PluginResult::failure(
        "Accessibility permission is required for clipboard commands that send keystrokes. Enable Orla Pro in "
        "System Settings \u2192 Privacy & Security \u2192 Accessibility.");
  switch (command) {
    case Command::setText: {
      const std::string_view text = textToSet(data);
      std::string message = "Clipboard now contains:\n" + transforms::displayCut(text);
      return setClipboard(text, std::move(message), pasteAfter(data));
    }
    case Command::setDate: {
      std::string date = CommandDateFormatter::string(p.clock().now(), CommandDateFormatter::format(data),
                                                      p.clock().locale(), p.clock().timeZone());
      if (date.empty()) return PluginResult::failure("Date format produced empty text.");
      std::string message = "Clipboard now contains the date: " + date;
      return setClipboard(date, std::move(message), pasteAfter(data));
    }
    case Command::copy:
    case Command::cut: return copyOrCut(command, readSwitchOr(data, {"appendToClipboard"}));
    case Command::paste: {
      if (!ensureTypingTarget(p)) return PluginResult::failure(std::string(kNoPasteTarget));
      ClipboardMechanics clipboard(p);
      if (auto pasted = clipboard.postCommandChord(key_codes::v); !pasted) return PluginResult::failure(pasted.error());
      return PluginResult::silentSuccess();
    }
    case Command::uppercase:
    case Command::lowercase:
    case Command::capitalize:
    case Command::replaceInSelection: return changeSelection(command, data);
    case Command::finderSelectionPaths: return finderPaths();
    case Command::save: return save();
    case Command::restore: return restore();
  }
  return PluginResult::failure("Unknown clipboard command. Choose a command from the menu.");
}

PluginResult ClipboardPlugin::setClipboard(std::string_view text, std::string message, bool paste) {
  Platform& p = *platform_;
  ClipboardMechanics clipboard(p);
  if (!paste) {
    if (auto written = clipboard.writeText(text); !written) return PluginResult::failure(written.error());
    return PluginResult::success(std::move(message));
  }
  // The text is on the clipboard even when there is nothing to paste into.
  if (auto written = clipboard.writeText(text); !written) return PluginResult::failure(written.error());
  if (!ensureTypingTarget(p)) return PluginResult::failure(std::string(kNoPasteTarget));
  if (auto pasted = clipboard.postCommandChord(key_codes::v); !pasted) return PluginResult::failure(pasted.error());
  return PluginResult::silentSuccess();
}

PluginResult ClipboardPlugin::copyOrCut(Command command, bool append) {
  Platform& p = *platform_;
  if (!ensureTypingTarget(p)) return PluginResult::failure(std::string(kNoCopyTarget));
  ClipboardMechanics clipboard(p);
  const std::string before = append ? clipboard.readText().value_or(std::string()) : std::string();
  CopiedSelection copied = clipboard.copySelection(command == Command::cut ? key_codes::x : key_codes::c);
  switch (copied.outcome) {
    case CopiedSelection::Outcome::eventsFailed: return PluginResult::failure(std::string(kKeyEventsFailed));
    case CopiedSelection::Outcome::nothingCopied: return PluginResult::failure(std::string(kNothingCopied));
    case CopiedSelection::Outcome::notText: return PluginResult::failure(std::string(kNotText));
    case CopiedSelection::Outcome::text: break;
  }
  if (!append)
    return PluginResult::success(std::string(command == Command::cut ? "Copied and cut:\n" : "Copied:\n") +
                                 transforms::displayCut(copied.text));
  std::string combined = before + copied.text;
  if (auto written = clipboard.writeText(combined); !written) return PluginResult::failure(written.error());
  return PluginResult::success(std::string(command == Command::cut ? "Cut" : "Copied") +
                               " and appended. Clipboard now contains:\n" + transforms::displayCut(combined));
}

PluginResult ClipboardPlugin::changeSelection(Command command, const ActionData& data) {
  Platform& p = *platform_;
  if (!ensureTypingTarget(p)) return PluginResult::failure(std::string(kNoCopyTarget));
  ClipboardMechanics clipboard(p);
  CopiedSelection copied = clipboard.copySelection(key_codes::c);
  switch (copied.outcome) {
    case CopiedSelection::Outcome::eventsFailed: return PluginResult::failure(std::string(kKeyEventsFailed));
    case CopiedSelection::Outcome::nothingCopied: return PluginResult::failure(std::string(kNothingCopied));
    case CopiedSelection::Outcome::notText: return PluginResult::failure(std::string(kNotText));
    case CopiedSelection::Outcome::text: break;
  }
  if (copied.text.empty()) return PluginResult::failure("The selection is empty. Select some text first.");
  std::string changed;
  bool found = false;  // whether a rule's search text occurred
  switch (command) {
    case Command::uppercase: changed = transforms::uppercase(copied.text); break;
    case Command::lowercase: changed = transforms::lowercase(copied.text); break;
    case Command::capitalize: changed = transforms::titleCase(copied.text); break;
    default: {
      auto replaced = ReplaceRule::apply(ReplaceRule::rules(data), copied.text, &found);
      if (!replaced) return PluginResult::failure(replaced.error());
      changed = std::move(replaced).value();
      break;
    }
  }
  // A selection already as asked is left alone: pasting it back would only
  // add an undo step and move the caret.
  if (changed == copied.text) {
    if (command == Command::replaceInSelection)
      return PluginResult::success(found ? "Replaced in the selection; the result reads the same, so the selection was left as it was:\n" +
                                               transforms::displayCut(changed)
                                         : std::string("Replaced nothing: the search text does not occur in the selection."));
    return PluginResult::success(std::string(caseWord(command)) +
                                 ": the selection was already in that form, nothing changed.");
  }
  if (auto written = clipboard.writeText(changed); !written) return PluginResult::failure(written.error());
  clipboard.wait(std::chrono::milliseconds(50));
  if (auto pasted = clipboard.postCommandChord(key_codes::v); !pasted) return PluginResult::failure(pasted.error());
  if (command == Command::replaceInSelection)
    return PluginResult::success("Replaced in the selection:\n" + transforms::displayCut(changed));
  return PluginResult::success("Selection changed to " + std::string(caseWord(command)) + ":\n" +
                               transforms::displayCut(changed));
}

PluginResult ClipboardPlugin::finderPaths() {
  Platform& p = *platform_;
  // The script runs on the main thread, the caller waiting for the answer.
  const ScriptRun run = runScript(p.scripting(), p.mainThread(), finderSelectionScript());
  switch (run.status) {
    case ScriptRun::Status::unavailable: return PluginResult::failure(run.unavailableReason);
    case ScriptRun::Status::notCompiled: return PluginResult::failure("Could not build the Finder script.");
    case ScriptRun::Status::failed: {
      std::string message = "Could not read the Finder selection: " + scriptErrorText(run.error);
      // -1743: the user has not allowed Orla to send Apple events to
      // Finder; -1744: the system is waiting for the user to decide.
      if (run.error.number == -1743 || run.error.number == -1744)
        message += " If macOS asked to let Orla Pro control Finder, click OK and test again.";
      return PluginResult::failure(std::move(message));
    }
    case ScriptRun::Status::finished: break;
  }
  if (!run.stringValue) return PluginResult::failure("Finder did not answer.");
  const std::string paths(trimWhitespaceAndNewlines(*run.stringValue));
  if (paths.empty())
    return PluginResult::failure(
        "Nothing is selected in the Finder and no Finder window is open. Select a file or folder first.");
  ClipboardMechanics clipboard(p);
  if (auto written = clipboard.writeText(paths); !written) return PluginResult::failure(written.error());
  return PluginResult::success("Clipboard now contains the Finder path(s):\n" + transforms::displayCut(paths));
}

PluginResult ClipboardPlugin::save() {
  ClipboardMechanics clipboard(*platform_);
  PasteboardSnapshot items = clipboard.snapshot();
  const Description d = describe(items);
  {
    SavedClipboard& saved = savedClipboard();
    std::lock_guard lock(saved.mutex);
    saved.items = std::move(items);
  }
  return PluginResult::success("Clipboard saved:\n" + transforms::displayCut(d.text) + nonTextNote(d.nonTextItems));
}

PluginResult ClipboardPlugin::restore() {
  std::optional<PasteboardSnapshot> items;
  {
    SavedClipboard& saved = savedClipboard();
    std::lock_guard lock(saved.mutex);
    items = saved.items;
  }
  if (!items)
    return PluginResult::failure(
        "Nothing has been saved yet. Run a Save Clipboard command first, then Restore Clipboard.");
  ClipboardMechanics clipboard(*platform_);
  if (auto restored = clipboard.restore(*items); !restored) return PluginResult::failure(restored.error());
  const Description d = describe(*items);
  return PluginResult::success("Clipboard restored to the saved contents:\n" + transforms::displayCut(d.text) +
                               nonTextNote(d.nonTextItems));
}

}  // namespace orla
