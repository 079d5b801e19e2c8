#include "plugins/input/key_shortcut_plugin.h"

#include <array>

#include <orla/models/key_code_map.h>
#include <orla/models/parameter_readers.h>
#include "plugins/input/typing_target.h"

namespace orla {

namespace {

namespace flags = event_flags;

struct ModifierKey {
  EventFlags flag;
  KeyCode keyCode;
};

// Pressed in this order and released in the reverse one. Function has no
// key of its own: it rides in the flags of every event.
constexpr std::array<ModifierKey, 5> kModifierKeys{{
    {flags::command, 55},
    {flags::shift, 56},
    {flags::capsLock, 57},
    {flags::option, 58},
    {flags::control, 59},
}};

constexpr auto kBetweenEvents = std::chrono::milliseconds(5);
constexpr auto kBetweenPressAndRelease = std::chrono::milliseconds(20);

using KeysT = KeyShortcutPlugin::Keys;

// A Boolean here is a bool, or an int where non-zero is true.
std::optional<bool> boolean(const ActionData& data, std::string_view key) {
  return readSwitch(data, {key});
}

std::int64_t resolveActionType(const ActionData& data) {
  // A stored 0 means "not set": the oldest form decides, not "Action".
  if (auto type = readInt(data, {KeysT::actionType})) {
    if (*type != 0) return *type;
  } else if (auto legacy = readInt(data, {KeysT::action}); legacy && *legacy != 0) {
    return *legacy;
  }
  const bool down = boolean(data, KeysT::keyDown).value_or(true);
  const auto up = boolean(data, KeysT::keyUp);
  if (!up) return down ? KeyShortcutPlugin::actionTypeKey : KeyShortcutPlugin::actionReleaseKey;
  if (down && !*up) return KeyShortcutPlugin::actionPressKey;
  if (!down && *up) return KeyShortcutPlugin::actionReleaseKey;
  return KeyShortcutPlugin::actionTypeKey;  // both, or neither: a full stroke
}

EventFlags selectedModifierFlags(EventFlags f) {
  EventFlags out = 0;
  for (const ModifierKey& key : kModifierKeys)
    if (f & key.flag) out |= key.flag;
  return out;
}

Failure eventError(bool down, std::int64_t keyCode) {
  return fail(std::string("Failed to create key ") + (down ? "down" : "up") +
              " event for keycode " + std::to_string(keyCode));
}

class Poster {
 public:
  Poster(EventSource& source, Clock& clock) : source_(source), clock_(clock) {}

  Checked<void> post(KeyCode keyCode, bool down, EventFlags eventFlags) {
    if (!source_.post(KeyboardEvent{keyCode, down, eventFlags, {}})) return eventError(down, keyCode);
    clock_.sleep(kBetweenEvents);
    return {};
  }

  Checked<void> press(EventFlags f, std::optional<KeyCode> key) {
    EventFlags running = f & flags::function;
    for (const ModifierKey& modifier : kModifierKeys) {
      if (!(f & modifier.flag)) continue;
      running |= modifier.flag;
      if (auto posted = post(modifier.keyCode, true, running); !posted) return posted;
    }
    if (!key) return {};
    return post(*key, true, (f & flags::function) | selectedModifierFlags(f));
  }

  Checked<void> release(EventFlags f, std::optional<KeyCode> key) {
    EventFlags running = (f & flags::function) | selectedModifierFlags(f);
    if (key)
      if (auto posted = post(*key, false, running); !posted) return posted;
    for (auto it = kModifierKeys.rbegin(); it != kModifierKeys.rend(); ++it) {
      if (!(f & it->flag)) continue;
      running &= ~it->flag;  // a modifier's own key-up no longer carries it
      if (auto posted = post(it->keyCode, false, running); !posted) return posted;
    }
    return {};
  }

 private:
  EventSource& source_;
  Clock& clock_;
};

// Drops the last character (code point) of a UTF-8 text.
std::string dropLastCharacter(std::string text) {
  while (!text.empty()) {
    const unsigned char c = static_cast<unsigned char>(text.back());
    text.pop_back();
    if ((c & 0xC0) != 0x80) break;
  }
  return text;
}

}  // namespace

std::string KeyShortcutPlugin::Resolved::displayString() const {
  if (keycode) return KeyCodeMap::displayString(*keycode, modifiers);
  std::string rest = dropLastCharacter(KeyCodeMap::displayString(0, modifiers));
  return rest.empty() ? "(nothing)" : rest + " (modifiers only)";
}

KeyShortcutPlugin::KeyShortcutPlugin() : KeyShortcutPlugin(Platform::current()) {}
KeyShortcutPlugin::KeyShortcutPlugin(std::shared_ptr<Platform> platform)
    : platform_(std::move(platform)) {}

KeyShortcutPlugin::Resolved KeyShortcutPlugin::resolve(const ActionData& data) {
  Resolved r;
  r.actionType = resolveActionType(data);

  const std::int64_t raw = readIntOr(data, {Keys::keycode, Keys::keycodeLegacy}, 0);
  // A value above a byte is a key code with its modifier flags in the upper bits.
  const std::int64_t keycode = raw <= 255 ? raw : (raw & 0xFF);
  std::uint64_t f = raw > 255 ? static_cast<std::uint64_t>(raw) : 0;
  f |= static_cast<std::uint64_t>(std::max<std::int64_t>(readIntOr(data, {Keys::modifiers}, 0), 0));
  static constexpr std::pair<std::string_view, EventFlags> kSwitches[] = {
      {"command", flags::command}, {"shift", flags::shift},       {"option", flags::option},
      {"control", flags::control}, {"capsLock", flags::capsLock}, {"function", flags::function},
  };
  for (auto [key, flag] : kSwitches)
    if (boolean(data, key).value_or(false)) f |= flag;
  r.modifiers = f & flags::modifierMask;

  if (auto hasKey = boolean(data, Keys::hasKey)) {
    if (*hasKey) r.keycode = keycode;
  } else if (lookup(data, Keys::keycode) || lookup(data, Keys::keycodeLegacy)) {
    const std::int64_t ascii = readIntOr(data, {Keys::asciiCode, Keys::asciiCodeLegacy}, 0);
    // Recorded before "hasKey" existed: modifiers with key code 0 and no
    // character were a modifier-only command.
    const bool modifiersOnly = r.modifiers != 0 && ascii == 0 && keycode == 0;
    if (!modifiersOnly) r.keycode = keycode;
  }
  return r;
}

std::optional<std::string> KeyShortcutPlugin::validate(const ActionData& data) const {
  const Resolved r = resolve(data);
  if (r.actionType < actionTypeKey || r.actionType > actionReleaseKey)
    return "Unknown key command " + std::to_string(r.actionType) + ". Choose Type, Press or Release.";
  if (!r.hasKey()) {
    if (r.hasModifiers()) return std::nullopt;
    return "Click Record, then press the key or key combination this command should simulate. "
           "You can also tick modifier keys alone (for example \u2318) to hold just those.";
  }
  if (static_cast<std::uint64_t>(*r.keycode) < 128) return std::nullopt;
  return "Invalid key code " + std::to_string(*r.keycode) + ". Click Record and press the key again.";
}

PluginResult KeyShortcutPlugin::execute(const ActionData& data) {
  if (auto problem = validate(data)) return PluginResult::failure(std::move(*problem));
  const Resolved r = resolve(data);
  Platform& p = *platform_;
  if (r.hasKey() && !ensureTypingTarget(p))
    return PluginResult::failure("No target app to send " + r.displayString() +
                                 " to. Click into the app that should receive the key, then click Test again.");

  auto source = p.keyboard().createEventSource(EventSourceState::hidSystem);
  if (!source)
    return PluginResult::failure(p.supports(Capability::keyboardEvents)
                                     ? "Could not create a keyboard event source."
                                     : source.error());
  Poster poster(*source.value(), p.clock());
  std::optional<KeyCode> key;
  if (r.keycode) key = static_cast<KeyCode>(*r.keycode);

  Checked<void> done;
  switch (r.actionType) {
    case actionReleaseKey:
      done = poster.release(r.modifiers, key);
      break;
    case actionPressKey:
      done = poster.press(r.modifiers, key);
      if (done)
        return PluginResult::success("Holding " + r.displayString() +
                                     " down. Add a Release Key command with the same key to let go.");
      break;
    case actionTypeKey:
      done = poster.press(r.modifiers, key);
      if (done) {
        p.clock().sleep(kBetweenPressAndRelease);
        done = poster.release(r.modifiers, key);
      }
      break;
    default:
      return PluginResult::failure("Unknown key command " + std::to_string(r.actionType));
  }
  // A failure part-way leaves the keys already pressed down, as a physical
  // keyboard would; nothing is rolled back.
  if (!done) return PluginResult::failure(done.error());
  return PluginResult::silentSuccess();
}

}  // namespace orla
