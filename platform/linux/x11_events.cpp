#include "platform/linux/x11_events.h"

#include <X11/Xlib.h>

#include <X11/XF86keysym.h>
#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include <orla/models/text.h>
#include "platform/linux/terminal_chords.h"
#include "platform/linux/x11_spare_keycodes.h"
#include "platform/linux/x11_windows.h"

namespace orla::linux_desktop {
namespace {

using SteadyClock = std::chrono::steady_clock;

using KeysymTable = std::array<KeySym, 128>;

// The US layout, indexed by macOS virtual key code; 0 is a code no key has.
constexpr KeysymTable makeKeysyms() {
  KeysymTable k{};
  k[0] = XK_a;  k[1] = XK_s;  k[2] = XK_d;  k[3] = XK_f;  k[4] = XK_h;  k[5] = XK_g;
  k[6] = XK_z;  k[7] = XK_x;  k[8] = XK_c;  k[9] = XK_v;  k[11] = XK_b; k[12] = XK_q;
  k[13] = XK_w; k[14] = XK_e; k[15] = XK_r; k[16] = XK_y; k[17] = XK_t; k[31] = XK_o;
  k[32] = XK_u; k[34] = XK_i; k[35] = XK_p; k[37] = XK_l; k[38] = XK_j; k[40] = XK_k;
  k[45] = XK_n; k[46] = XK_m;
  k[18] = XK_1; k[19] = XK_2; k[20] = XK_3; k[21] = XK_4; k[23] = XK_5;
  k[22] = XK_6; k[26] = XK_7; k[28] = XK_8; k[25] = XK_9; k[29] = XK_0;
  k[24] = XK_equal; k[27] = XK_minus; k[30] = XK_bracketright; k[33] = XK_bracketleft;
  k[39] = XK_apostrophe; k[41] = XK_semicolon; k[42] = XK_backslash; k[43] = XK_comma;
  k[44] = XK_slash; k[47] = XK_period; k[50] = XK_grave;
  k[10] = XK_section; k[93] = XK_yen; k[94] = XK_underscore; k[95] = XK_KP_Separator;
  k[102] = XK_Eisu_toggle; k[104] = XK_Hiragana_Katakana;
  k[36] = XK_Return; k[48] = XK_Tab; k[49] = XK_space; k[51] = XK_BackSpace; k[53] = XK_Escape;
  k[114] = XK_Help; k[115] = XK_Home; k[116] = XK_Prior; k[117] = XK_Delete; k[119] = XK_End;
  k[121] = XK_Next; k[123] = XK_Left; k[124] = XK_Right; k[125] = XK_Down; k[126] = XK_Up;
  k[110] = XK_Menu;
  k[55] = XK_Control_L; k[54] = XK_Control_R; k[56] = XK_Shift_L; k[60] = XK_Shift_R;
  k[57] = XK_Caps_Lock; k[58] = XK_Alt_L; k[61] = XK_Alt_R; k[59] = XK_Control_L; k[62] = XK_Control_R;
  k[122] = XK_F1;  k[120] = XK_F2;  k[99] = XK_F3;   k[118] = XK_F4;  k[96] = XK_F5;   k[97] = XK_F6;
  k[98] = XK_F7;   k[100] = XK_F8;  k[101] = XK_F9;  k[109] = XK_F10; k[103] = XK_F11; k[111] = XK_F12;
  k[105] = XK_F13; k[107] = XK_F14; k[113] = XK_F15; k[106] = XK_F16; k[64] = XK_F17;  k[79] = XK_F18;
  k[80] = XK_F19;  k[90] = XK_F20;
  k[82] = XK_KP_0; k[83] = XK_KP_1; k[84] = XK_KP_2; k[85] = XK_KP_3; k[86] = XK_KP_4;
  k[87] = XK_KP_5; k[88] = XK_KP_6; k[89] = XK_KP_7; k[91] = XK_KP_8; k[92] = XK_KP_9;
  k[65] = XK_KP_Decimal; k[67] = XK_KP_Multiply; k[69] = XK_KP_Add; k[75] = XK_KP_Divide;
  k[78] = XK_KP_Subtract; k[81] = XK_KP_Equal; k[76] = XK_KP_Enter; k[71] = XK_Clear;
  k[72] = XF86XK_AudioRaiseVolume; k[73] = XF86XK_AudioLowerVolume; k[74] = XF86XK_AudioMute;
  return k;
}

constexpr KeysymTable kKeysyms = makeKeysyms();

constexpr KeyCode kCommandKey = 55, kRightCommandKey = 54, kFunctionKey = 63;
constexpr KeyCode kCutKey = 7, kCopyKey = 8;

// Modifier keys by what they do, so that ⌘ and ⌃ (both Control by default)
// press the key once and a flag that a held key already gives is not
// pressed again.
enum class Modifier { shift, control, alt, super, count };

struct ModifierKey {
  Modifier modifier;
  KeySym left;
};
constexpr std::array<ModifierKey, 4> kModifierKeys{{
    {Modifier::shift, XK_Shift_L},
    {Modifier::control, XK_Control_L},
    {Modifier::alt, XK_Alt_L},
    {Modifier::super, XK_Super_L},
}};

std::optional<Modifier> modifierOfKeysym(KeySym keysym) {
  switch (keysym) {
    case XK_Shift_L: case XK_Shift_R: return Modifier::shift;
    case XK_Control_L: case XK_Control_R: return Modifier::control;
    case XK_Alt_L: case XK_Alt_R: return Modifier::alt;
    case XK_Super_L: case XK_Super_R: return Modifier::super;
    default: return std::nullopt;
  }
}

std::string terminalClassesFromEnvironment() {
  const char* value = std::getenv("ORLA_TERMINAL_CLASSES");
  return value ? value : "";
}

bool commandIsSuperFromEnvironment() {
  const char* choice = std::getenv("ORLA_COMMAND_KEY");
  return choice && equalsIgnoringCase(choice, "super");
}

// The keysym that types one code point: Latin-1 keysyms are the code point
// itself, every other character is 0x01000000 plus its code point; line
// breaks and tabs are their keys.
KeySym keysymForCodePoint(char32_t c) {
  if (c == U'\n' || c == U'\r') return XK_Return;
  if (c == U'\t') return XK_Tab;
  if ((c >= 0x20 && c <= 0x7E) || (c >= 0xA0 && c <= 0xFF)) return c;
  return 0x01000000 | c;
}

std::u32string codePoints(const std::u16string& units) {
  std::u32string out;
  for (std::size_t i = 0; i < units.size(); ++i) {
    char32_t c = units[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < units.size() && units[i + 1] >= 0xDC00 && units[i + 1] <= 0xDFFF)
      c = 0x10000 + ((c - 0xD800) << 10) + (units[++i] - 0xDC00);
    out.push_back(c);
  }
  return out;
}

class X11EventSource : public EventSource {
 public:
  X11EventSource(std::shared_ptr<X11Connection> connection, std::shared_ptr<SpareKeycodes> spares)
      : connection_(std::move(connection)),
        spares_(std::move(spares)),
        commandIsSuper_(commandIsSuperFromEnvironment()),
        terminalClasses_(terminalClassesFromEnvironment()) {}

  void willType(std::u16string_view text) override { plan_ = TypingPlan(keysymsOf(std::u16string(text))); }

  Checked<void> post(const KeyboardEvent& event) override {
    auto lock = connection_->lock();
    Display* display = connection_->display();
    // Text is typed on the key-down; the key-up that follows has nothing
    // left to do. The flags of a text event are not applied: the text is
    // what the user asked for, whatever keys are held.
    if (!event.unicodeString.empty()) {
      if (event.keyDown)
        if (auto typed = typeLocked(event.unicodeString); !typed) return typed;
    } else if (event.keyCode == kFunctionKey) {
      // Function has no X key: there is nothing to press.
    } else if (auto posted = keyLocked(event); !posted) {
      return posted;
    }
    XSync(display, False);
    // The server tells every client of each change of the keyboard map (ours
    // too); the copy this connection looks keys up in follows them.
    while (XPending(display)) {
      XEvent other;
      XNextEvent(display, &other);
      if (other.type == MappingNotify) XRefreshKeyboardMapping(&other.xmapping);
    }
    return {};
  }

 private:
  // The key that gives `keysym` with no modifier: its own, or a spare one
  // lent to it. A keysym the map has only on another level (the keypad's
  // digits behind Num Lock) is lent a spare key too, so that the window gets
  // that keysym whatever the lock state.
  std::optional<::KeyCode> keycodeLocked(KeySym keysym) {
    Display* display = connection_->display();
    const ::KeyCode code = XKeysymToKeycode(display, keysym);
    if (code && !spares_->isSpareLocked(code) && XkbKeycodeToKeysym(display, code, 0, 0) == keysym) return code;
    auto place = spares_->lendKeyLocked(display, keysym);
    if (!place) return std::nullopt;
    spares_->usedLocked(*place);
    return place->keycode;
  }

  void fake(::KeyCode code, bool down) { XTestFakeKeyEvent(connection_->display(), code, down, CurrentTime); }

  // ⌘C, ⌘X and ⌘V are the clipboard chords of the window they go to: a
  // terminal copies and pastes with Ctrl+Shift, and its Ctrl+C would
  // interrupt the program running in it.
  Checked<KeyboardEvent> clipboardChordLocked(KeyboardEvent event) {
    if (commandIsSuper_ || !(event.flags & event_flags::command) || !isClipboardChordKey(event.keyCode))
      return event;
    const WindowClass active = activeWindowClassLocked(*connection_);
    switch (clipboardChordsForClass(active.instance, active.windowClass, terminalClasses_)) {
      case ClipboardChords::control:
        return event;
      case ClipboardChords::controlShift:
        event.flags |= event_flags::shift;
        if (event.keyCode == kCutKey) event.keyCode = kCopyKey;
        return event;
      case ClipboardChords::none:
        break;
    }
    return fail("This terminal has no key for the clipboard, and Ctrl+C would interrupt it; give it "
                "Ctrl+Shift+C and Ctrl+Shift+V and add its window class to ORLA_TERMINAL_CLASSES.");
  }

  Checked<void> keyLocked(const KeyboardEvent& original) {
    auto chord = clipboardChordLocked(original);
    if (!chord) {
      // The chord is abandoned: the modifiers pressed for it go back up,
      // so that no Control stays held on the display after the refusal.
      const unsigned abandoned = wanted(original.flags);
      for (const ModifierKey& key : kModifierKeys) {
        if (!(abandoned & bit(key.modifier))) continue;
        const ::KeyCode code = XKeysymToKeycode(connection_->display(), key.left);
        if (code) fake(code, false);
      }
      return fail(chord.error());
    }
    const KeyboardEvent& event = *chord;
    auto keysym = keysymForKeyCode(event.keyCode, commandIsSuper_);
    if (!keysym) return fail("There is no key with code " + std::to_string(event.keyCode) + " on this desktop.");
    auto code = keycodeLocked(*keysym);
    if (!code) return fail("The key “" + std::string(XKeysymToString(*keysym)) + "” cannot be typed on this keyboard.");
    // A modifier key stays down until its own key-up, in this source or a
    // later one, as a physical key would (a Press Key action holds it).
    if (modifierOfKeysym(*keysym) || *keysym == XK_Caps_Lock) {
      fake(*code, event.keyDown);
      return {};
    }
    // The event's flags hold for this key even when the modifier keys were
    // not pressed before it (as a paste shortcut posted on its own): the
    // missing ones go down just before and up just after. Caps Lock in the
    // flags is left alone, since pressing it would toggle the lock.
    std::vector<::KeyCode> added;
    const unsigned held = heldLocked();
    for (const ModifierKey& key : kModifierKeys) {
      if (!(wanted(event.flags) & bit(key.modifier)) || (held & bit(key.modifier))) continue;
      if (auto modifierCode = keycodeLocked(key.left)) {
        fake(*modifierCode, true);
        added.push_back(*modifierCode);
      }
    }
    fake(*code, event.keyDown);
    for (auto it = added.rbegin(); it != added.rend(); ++it) fake(*it, false);
    return {};
  }

  static unsigned bit(Modifier m) { return 1u << static_cast<unsigned>(m); }

  // The modifiers whose keys are down now, by whatever pressed them: this
  // source, an earlier one, or the user's own keyboard.
  unsigned heldLocked() {
    Display* display = connection_->display();
    char keys[32] = {};
    XQueryKeymap(display, keys);
    auto down = [&](KeySym keysym) {
      const ::KeyCode code = XKeysymToKeycode(display, keysym);
      return code && (keys[code / 8] & (1 << (code % 8)));
    };
    unsigned out = 0;
    if (down(XK_Shift_L) || down(XK_Shift_R)) out |= bit(Modifier::shift);
    if (down(XK_Control_L) || down(XK_Control_R)) out |= bit(Modifier::control);
    if (down(XK_Alt_L) || down(XK_Alt_R)) out |= bit(Modifier::alt);
    if (down(XK_Super_L) || down(XK_Super_R)) out |= bit(Modifier::super);
    return out;
  }

  unsigned wanted(EventFlags flags) const {
    unsigned out = 0;
    if (flags & event_flags::shift) out |= bit(Modifier::shift);
    if (flags & event_flags::control) out |= bit(Modifier::control);
    if (flags & event_flags::option) out |= bit(Modifier::alt);
    if (flags & event_flags::command) out |= bit(commandIsSuper_ ? Modifier::super : Modifier::control);
    return out;
  }

  // The key of a keysym on the map's first or shifted level; none when the
  // map lacks it.
  std::optional<std::pair<::KeyCode, bool>> mappedLocked(KeySym keysym) {
    Display* display = connection_->display();
    const ::KeyCode code = XKeysymToKeycode(display, keysym);
    // A keysym on a lent keycode goes through the lender, which keeps it
    // there for as long as it is typed.
    if (!code || spares_->isSpareLocked(code)) return std::nullopt;
    if (XkbKeycodeToKeysym(display, code, group_, 0) == keysym) return std::pair{code, false};
    if (XkbKeycodeToKeysym(display, code, group_, 1) == keysym) return std::pair{code, true};
    return std::nullopt;
  }

  // Caps Lock would type every letter in the other case (a letter's key
  // reads its Shift level while the lock is on), so it is lifted for the
  // text and put back after, as the lock state alone: no Caps Lock key
  // event reaches a window.
  // The keys of the layout are typed in the group the user has; a lent key
  // in the group its keysym is on, locked for it and given back after.
  Checked<void> typeLocked(const std::u16string& text) {
    Display* display = connection_->display();
    XkbStateRec state{};
    const bool known = XkbGetState(display, XkbUseCoreKbd, &state) == Success;
    const bool capsLocked = known && (state.locked_mods & LockMask);
    group_ = lockedGroup_ = known ? state.locked_group : 0;
    if (capsLocked) XkbLockModifiers(display, XkbUseCoreKbd, LockMask, 0);
    auto typed = typeCharactersLocked(text);
    if (lockedGroup_ != group_) XkbLockGroup(display, XkbUseCoreKbd, group_);
    if (capsLocked) XkbLockModifiers(display, XkbUseCoreKbd, LockMask, LockMask);
    XFlush(display);
    return typed;
  }

  static std::vector<KeySym> keysymsOf(const std::u16string& text) {
    std::vector<KeySym> keysyms;
    for (char32_t c : codePoints(text)) keysyms.push_back(keysymForCodePoint(c));
    return keysyms;
  }

  // Types the characters the layout has on their keys, the others on spare
  // keycodes. When the text is the next part of the one announced by
  // `willType`, a character with no place yet has its keys lent together
  // with those of the characters after it; otherwise with those of this
  // text alone.
  Checked<void> typeCharactersLocked(const std::u16string& text) {
    Display* display = connection_->display();
    const bool shiftHeld = heldLocked() & bit(Modifier::shift);
    const ::KeyCode shift = XKeysymToKeycode(display, XK_Shift_L);
    const std::vector<KeySym> keysyms = keysymsOf(text);
    TypingPlan own;
    const bool planned = plan_.expects(keysyms);
    if (!planned) own = TypingPlan(keysyms);
    const TypingPlan& plan = planned ? plan_ : own;
    const std::size_t start = planned ? plan_.cursor() : 0;
    std::unordered_map<KeySym, bool> onLayout;
    auto typedWithoutLending = [&](KeySym keysym) {
      auto [it, inserted] = onLayout.try_emplace(keysym, false);
      if (inserted) it->second = mappedLocked(keysym).has_value();
      return it->second;
    };
    for (std::size_t i = 0; i < keysyms.size(); ++i) {
      if (auto mapped = mappedLocked(keysyms[i])) {
        pressLocked(mapped->first, mapped->second && !shiftHeld ? shift : 0, group_);
        continue;
      }
      auto place = spares_->findLocked(keysyms[i]);
      if (!place) {
        spares_->lendAheadLocked(display, plan, start + i, typedWithoutLending);
        place = spares_->findLocked(keysyms[i]);
      }
      if (!place) return fail("There is no free key to type “" + toUtf8(text) + "” with on this keyboard.");
      pressLocked(place->keycode, place->shifted() && !shiftHeld ? shift : 0, place->group());
      spares_->usedLocked(*place);
    }
    if (planned) plan_.advance(keysyms.size());
    return {};
  }

  // One key press and release, with Shift (when `shift` is its keycode)
  // and in `group`.
  void pressLocked(::KeyCode code, ::KeyCode shift, int group) {
    if (group != lockedGroup_) {
      XkbLockGroup(connection_->display(), XkbUseCoreKbd, static_cast<unsigned>(group));
      lockedGroup_ = group;
    }
    if (shift) fake(shift, true);
    fake(code, true);
    fake(code, false);
    if (shift) fake(shift, false);
  }

  std::shared_ptr<X11Connection> connection_;
  std::shared_ptr<SpareKeycodes> spares_;
  const bool commandIsSuper_;
  const std::string terminalClasses_;
  TypingPlan plan_;  // the text announced by `willType`, and how far it is typed
  int group_ = 0, lockedGroup_ = 0;  // the user's keyboard group, and the one locked now
};

class X11KeyboardEvents : public KeyboardEvents {
 public:
  explicit X11KeyboardEvents(std::shared_ptr<X11Connection> connection)
      : connection_(std::move(connection)), spares_(std::make_shared<SpareKeycodes>()) {}

  ~X11KeyboardEvents() override {
    auto lock = connection_->lock();
    spares_->restoreLocked(connection_->display());
  }

  // Sources share the spare keycodes, so a character typed by one source is
  // still on its keycode for the next.
  Checked<std::unique_ptr<EventSource>> createEventSource(EventSourceState) override {
    return std::unique_ptr<EventSource>(std::make_unique<X11EventSource>(connection_, spares_));
  }

 private:
  std::shared_ptr<X11Connection> connection_;
  std::shared_ptr<SpareKeycodes> spares_;
};

// Buttons as X numbers them: 1 left, 3 right, 4 and 5 the wheel up and down.
constexpr unsigned kLeftButton = 1, kRightButton = 3, kWheelUp = 4, kWheelDown = 5;

class X11MouseEvents : public MouseEvents {
 public:
  explicit X11MouseEvents(std::shared_ptr<X11Connection> connection) : connection_(std::move(connection)) {}

  Checked<Point> pointerLocation() const override {
    auto lock = connection_->lock();
    Window root = None, child = None;
    int rootX = 0, rootY = 0, x = 0, y = 0;
    unsigned mask = 0;
    if (!XQueryPointer(connection_->display(), connection_->root(), &root, &child, &rootX, &rootY, &x, &y, &mask))
      return fail("The pointer is on another screen of the X display.");
    const Rect primary = connection_->primaryMonitorLocked();
    return Point{rootX - primary.x, rootY - primary.y};
  }

  // X counts clicks itself, by time and place, so a click state has no field
  // to go in: the second click of a double click is simply a second click.
  Checked<void> post(const MouseEvent& event) override {
    auto lock = connection_->lock();
    Display* display = connection_->display();
    const Rect primary = connection_->primaryMonitorLocked();
    XTestFakeMotionEvent(display, -1, static_cast<int>(std::lround(event.location.x + primary.x)),
                         static_cast<int>(std::lround(event.location.y + primary.y)), CurrentTime);
    switch (event.type) {
      case MouseEventType::leftMouseDown: XTestFakeButtonEvent(display, kLeftButton, True, CurrentTime); break;
      case MouseEventType::leftMouseUp: XTestFakeButtonEvent(display, kLeftButton, False, CurrentTime); break;
      case MouseEventType::rightMouseDown: XTestFakeButtonEvent(display, kRightButton, True, CurrentTime); break;
      case MouseEventType::rightMouseUp: XTestFakeButtonEvent(display, kRightButton, False, CurrentTime); break;
      case MouseEventType::mouseMoved:
      case MouseEventType::leftMouseDragged: break;
    }
    XSync(display, False);
    return {};
  }

  // A wheel line is one press and release of the wheel's button.
  Checked<void> postScrollWheel(std::int32_t lines) override {
    auto lock = connection_->lock();
    Display* display = connection_->display();
    const unsigned button = lines > 0 ? kWheelUp : kWheelDown;
    for (std::int32_t i = 0; i < std::abs(lines); ++i) {
      XTestFakeButtonEvent(display, button, True, CurrentTime);
      XTestFakeButtonEvent(display, button, False, CurrentTime);
    }
    XSync(display, False);
    return {};
  }

 private:
  std::shared_ptr<X11Connection> connection_;
};

}  // namespace

std::optional<unsigned long> keysymForKeyCode(KeyCode keyCode, bool commandIsSuper) {
  if (keyCode >= kKeysyms.size() || kKeysyms[keyCode] == 0) return std::nullopt;
  if (commandIsSuper && keyCode == kCommandKey) return XK_Super_L;
  if (commandIsSuper && keyCode == kRightCommandKey) return XK_Super_R;
  return kKeysyms[keyCode];
}

std::unique_ptr<KeyboardEvents> makeX11KeyboardEvents(std::shared_ptr<X11Connection> connection) {
  return std::make_unique<X11KeyboardEvents>(std::move(connection));
}

std::unique_ptr<MouseEvents> makeX11MouseEvents(std::shared_ptr<X11Connection> connection) {
  return std::make_unique<X11MouseEvents>(std::move(connection));
}

}  // namespace orla::linux_desktop
