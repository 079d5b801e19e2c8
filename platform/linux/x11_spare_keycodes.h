// The keycodes with no keysym, lent out to keysyms the keyboard map lacks
// so that any character can be typed, and the plan of a text being typed
// that lets them be lent ahead of time.
//
// Includes Xlib: for the X11 sources only.
#pragma once

#include <X11/Xlib.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <unordered_map>
#include <vector>

namespace orla::linux_desktop {

// The keysyms of a text in the order they will be typed, and how far the
// typing has come: where each keysym comes next is what tells which lent
// keysym can give up its place.
class TypingPlan {
 public:
  static constexpr std::size_t kNever = static_cast<std::size_t>(-1);

  TypingPlan() = default;
  explicit TypingPlan(std::vector<KeySym> keysyms) : keysyms_(std::move(keysyms)) {}

  const std::vector<KeySym>& keysyms() const { return keysyms_; }
  std::size_t cursor() const { return cursor_; }
  // Whether `coming` is what the plan expects at its cursor.
  bool expects(const std::vector<KeySym>& coming) const;
  void advance(std::size_t count) { cursor_ += count; }
  // The first position at or after `from` where `keysym` is typed; kNever
  // when it is not typed again.
  std::size_t nextUse(KeySym keysym, std::size_t from) const;

 private:
  std::vector<KeySym> keysyms_;
  std::size_t cursor_ = 0;
  mutable std::unordered_map<KeySym, std::vector<std::size_t>> positions_;  // made on first use
};

// A receiver translates a keycode with its own copy of the map, fetched some
// time after the notice that announced a change; a keycode that is remapped
// (or restored) before every receiver has read the events sent on it types
// the wrong character, or none. So each place rests `kReuseGap` after its
// last key event before it carries another keysym (long enough for a
// receiver busy with something else, or a window manager that reloads its
// key bindings on every change).
//
// Every change makes every client of the display fetch the map again (a
// window manager reloads its key bindings), so changes are few and large:
// each spare keycode carries four keysyms (two levels in each of two
// groups), the keysyms for as much of the coming text as fits go on in one
// change, the place given up is the one whose keysym comes back last (or
// never), and a keysym still on a place is typed there again without one.
class SpareKeycodes {
 public:
  static constexpr auto kReuseGap = std::chrono::milliseconds(250);
  static constexpr int kLevels = 4;

  // A keycode and its level: bit 0 is Shift, bit 1 the second group.
  struct Place {
    ::KeyCode keycode;
    int level;
    bool shifted() const { return (level & 1) != 0; }
    int group() const { return level >> 1; }
  };

  // All under the connection's lock.
  bool isSpareLocked(::KeyCode keycode) const;
  // How many keysyms can be lent at once.
  std::size_t capacityLocked(Display* display);
  // Where `keysym` is lent now.
  std::optional<Place> findLocked(KeySym keysym) const;
  // A place on the first level of the first group for one key pressed on
  // its own (a chord's key, whose modifiers are the chord's), the one used
  // longest ago given up for it.
  std::optional<Place> lendKeyLocked(Display* display, KeySym keysym);
  // Lends places to the keysyms of `plan` from `from` on that
  // `typedWithoutLending` rejects, as far into the text as the places go
  // without giving up one needed before then, in one change of the map.
  void lendAheadLocked(Display* display, const TypingPlan& plan, std::size_t from,
                       const std::function<bool(KeySym)>& typedWithoutLending);
  // Marks the place as just used: it rests from now on.
  void usedLocked(const Place& place);
  // Gives every lent keycode back its empty map, once the last events sent
  // on them have had their time.
  void restoreLocked(Display* display);

 private:
  using SteadyClock = std::chrono::steady_clock;
  struct Slot {
    ::KeyCode keycode;
    int level;
    KeySym keysym = NoSymbol;
    SteadyClock::time_point lastUse{};
    bool dirty = false;
  };

  void scanLocked(Display* display);
  std::optional<std::size_t> slotOf(KeySym keysym) const;
  void writeDirtyLocked(Display* display);

  bool scanned_ = false;
  std::vector<Slot> slots_;  // kLevels to a keycode, by ascending keycode
};

}  // namespace orla::linux_desktop
