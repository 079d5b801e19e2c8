#include "plugins/text/type_text_plugin.h"

#include <cmath>

#include <orla/models/graphemes.h>
#include <orla/models/parameter_readers.h>
#include <orla/models/text.h>
#include "plugins/input/typing_target.h"
#include "plugins/text/command_date_formatter.h"
#include "plugins/text/text_file_reader.h"

namespace orla {

namespace {

constexpr std::int64_t kCustomText = 1, kDate = 2, kFile = 3, kClipboard = 4;
constexpr auto kDefaultDelay = std::chrono::microseconds(10'000);  // 100 characters a second
constexpr auto kRestoreDelay = std::chrono::milliseconds(500);
constexpr auto kLargestCatchUp = std::chrono::milliseconds(100);
constexpr KeyCode kV = 9;

// The first of `keys` holding a string, whatever it holds.
const std::string* firstString(const ActionData& data, Keys keys) {
  for (std::string_view key : keys)
    if (const AnyCodable* value = lookup(data, key); value && value->asString()) return value->asString();
  return nullptr;
}

TypeTextPreview made(std::string text, const char* label) { return {std::move(text), label}; }

}  // namespace

TypeTextPlugin::TypeTextPlugin() : TypeTextPlugin(Platform::current()) {}
TypeTextPlugin::TypeTextPlugin(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {}

std::string TypeTextPlugin::dateFormatForEditing(const ActionData& data) {
  if (auto text = readRawString(data, "dateFormat"); text && !text->empty()) return *text;
  return std::string(defaultDateFormat);
}

TypeTextPreviewResult TypeTextPlugin::preview(const ActionData& data, TimePoint date) {
  return preview(data, date, *Platform::current());
}

TypeTextPreviewResult TypeTextPlugin::preview(const ActionData& data, TimePoint date, Platform& platform) {
  switch (readIntOr(data, {"actionType", "Action"}, kCustomText)) {
    case kDate: {
      std::string text = CommandDateFormatter::string(date, CommandDateFormatter::format(data), platform.clock().locale(),
                                                      platform.clock().timeZone());
      if (text.empty()) return fail("Date format produced empty text.");
      return made(std::move(text), "Type current date/time");
    }
    case kFile: {
      const std::string* chosen = firstString(data, {"filePath", "Path", "path"});
      const std::string path = chosen ? std::string(trimWhitespaceAndNewlines(*chosen)) : std::string();
      if (path.empty()) return fail("No file chosen. Click Browse\u2026 and pick a text file (.txt, .rtf, .rtfd).");
      const std::string expanded = platform.environment().expandTilde(path);
      if (!platform.files().itemExists(expanded)) return fail("File not found: " + expanded);
      auto text = readTextFromFile(expanded);
      if (!text || text->empty()) return fail("Could not read text from file: " + expanded);
      return made(std::move(*text), "Type file contents");
    }
    case kClipboard: {
      auto text = platform.pasteboard().text();
      if (!text || text->empty()) return fail("Clipboard is empty or contains no text.");
      return made(std::move(*text), "Type clipboard contents");
    }
    default: {
      const std::string* text = firstString(data, {"text", "Text", "string", "TypeText"});
      if (!text) return fail("No text specified. Enter text in the editor, then click Test.");
      if (text->empty()) return fail("No text specified. Type the text in the box, then click Test.");
      return made(*text, "Type custom text");
    }
  }
}

std::chrono::microseconds TypeTextPlugin::delayPerCharacter(const ActionData& data) {
  for (std::string_view key : {"charsPerSecond", "charSecond", "CharSecond"}) {
    const AnyCodable* value = lookup(data, key);
    if (!value || !(value->asInt() || value->asDouble() || value->asBool())) continue;
    // A Boolean is a number here too: true types one character a second.
    const auto speed = toDouble(*value);
    if (!speed || *speed <= 0) return kDefaultDelay;
    const double micros = 1e6 / *speed;
    // Below one character an hour is no typing speed anyone means; cap it.
    return std::chrono::microseconds(static_cast<std::int64_t>(std::llround(std::min(micros, 3.6e9))));
  }
  return kDefaultDelay;
}

std::optional<std::string> TypeTextPlugin::validate(const ActionData& data) const {
  auto result = preview(data, platform_->clock().now(), *platform_);
  if (!result) return result.error();
  return std::nullopt;
}

PluginResult TypeTextPlugin::execute(const ActionData& data) {
  Platform& p = *platform_;
  if (!p.accessibility().isProcessTrusted())
    return PluginResult::failure(
        "Accessibility permission is required to type or paste text. Enable Orla Pro in System "
        "Settings \u2192 Privacy & Security \u2192 Accessibility.");
  auto resolved = preview(data, p.clock().now(), p);
  if (!resolved) return PluginResult::failure(resolved.error());
  const auto delay = delayPerCharacter(data);
  const bool usePaste = readSwitchOr(data, {"usePaste", "UsePaste"});
  if (!ensureTypingTarget(p))
    return PluginResult::failure(
        "No target app to type into. Click into the app where you want the text, then click Test again.");
  return usePaste ? paste(resolved->text) : type(resolved->text, delay);
}

PluginResult TypeTextPlugin::paste(const std::string& text) {
  Platform& p = *platform_;
  const std::optional<std::string> previous = p.pasteboard().text();
  if (auto written = p.pasteboard().setText(text); !written) return PluginResult::failure(written.error());
  const auto ourChange = p.pasteboard().changeCount();
  if (auto source = p.keyboard().createEventSource(EventSourceState::privateState)) {
    (void)source.value()->post({kV, true, event_flags::command, {}});
    (void)source.value()->post({kV, false, event_flags::command, {}});
  }
  // The restore is scheduled whether or not the paste arrived. It puts back
  // the previous text only if nobody changed the clipboard meanwhile; when
  // there was no text before, it replaces the pasted text with empty text
  // rather than leave what was typed on the clipboard.
  auto platform = platform_;
  p.scheduler().runAfter(kRestoreDelay, [platform, previous, ourChange] {
    Pasteboard& pasteboard = platform->pasteboard();
    if (pasteboard.changeCount() != ourChange) return;
    (void)pasteboard.setText(previous.value_or(""));
  });
  return PluginResult::silentSuccess();
}

PluginResult TypeTextPlugin::type(const std::string& text, std::chrono::microseconds delay) {
  Platform& p = *platform_;
  auto source = p.keyboard().createEventSource(EventSourceState::privateState);
  if (!source) return PluginResult::failure(source.error());
  const std::vector<std::u16string> characters = graphemeClusters(text);
  source.value()->willType(toUtf16(text));
  // The pace is kept against the clock, so that the time posting takes is
  // not added to every character's delay; after a stall (a keyboard-map
  // change waits for its keys to rest) it starts afresh rather than rush.
  auto due = p.clock().monotonicNow();
  for (const std::u16string& character : characters) {
    // Key 0 with the character's text: the application takes the text and
    // ignores the key, whatever the keyboard layout.
    const KeyboardEvent down{0, true, 0, character};
    const KeyboardEvent up{0, false, 0, character};
    // Stop at the first event that cannot be made: typing on with a
    // character missing would leave a text the user did not ask for.
    if (!source.value()->post(down) || !source.value()->post(up))
      return PluginResult::failure("Typing stopped because a key event could not be created. Try again.");
    if (delay.count() <= 0) continue;
    due += delay;
    const auto now = p.clock().monotonicNow();
    if (now < due) p.clock().sleep(std::chrono::duration_cast<std::chrono::microseconds>(due - now));
    else if (now - due > kLargestCatchUp) due = now;
  }
  return PluginResult::silentSuccess();
}

std::vector<std::u16string> graphemeClusters(std::string_view text) {
  std::vector<std::u16string> out;
  forEachGrapheme(text, [&](std::size_t begin, std::size_t end) {
    out.push_back(toUtf16(text.substr(begin, end - begin)));
    return true;
  });
  return out;
}

}  // namespace orla
