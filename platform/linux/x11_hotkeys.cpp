#include "platform/linux/x11_hotkeys.h"

#include <X11/Xlib.h>

#include <X11/XKBlib.h>
#include <X11/keysym.h>

#include <array>
#include <cstdlib>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include "platform/linux/x11_events.h"

namespace orla::linux_desktop {
namespace {

// The errors of the hotkey connection (a grab that another client holds
// answers BadAccess), routed here from the process's one error handler.
std::mutex errorMutex;
unsigned char hotkeyError = 0;

int noteHotkeyError(Display*, XErrorEvent* error) {
  std::lock_guard lock(errorMutex);
  if (!hotkeyError) hotkeyError = error->error_code;
  return 0;
}

unsigned char takeHotkeyError() {
  std::lock_guard lock(errorMutex);
  return std::exchange(hotkeyError, 0);
}

struct Grab {
  ::KeyCode keycode;
  unsigned int mask;
};

class X11GlobalHotkeys final : public GlobalHotkeys {
 public:
  // `query` is a second connection for reading the keyboard's state from
  // the worker thread: a round trip on the grabbing connection there would
  // read a press off the socket into Xlib's queue, where the host's poll on
  // the socket would never see it.
  X11GlobalHotkeys(Display* display, Display* query)
      : display_(display), query_(query), root_(DefaultRootWindow(display)) {
    routeX11Errors(display_, reinterpret_cast<void*>(noteHotkeyError));
    // Holding a hotkey down repeats its press without releases between, so
    // that a repeat can be told from a new press.
    XkbSetDetectableAutoRepeat(display_, True, nullptr);
    readModifierMap();
  }

  ~X11GlobalHotkeys() override {
    {
      std::lock_guard lock(displayMutex_);
      for (const auto& [id, grab] : grabs_) ungrabLocked(grab);
      XSync(display_, False);
      // Before the connection goes: another one may be given its address.
      routeX11Errors(display_, nullptr);
      XCloseDisplay(display_);
    }
    XCloseDisplay(query_);
  }

  std::optional<GrabProblem> grab(Id id, const Hotkey& hotkey) override {
    std::lock_guard lock(displayMutex_);
    if (auto held = grabs_.find(id); held != grabs_.end()) {
      ungrabLocked(held->second);
      grabs_.erase(held);
    }
    auto keysym = keysymForKeyCode(hotkey.keyCode);
    const ::KeyCode keycode = keysym ? XKeysymToKeycode(display_, *keysym) : 0;
    if (keycode == 0) return GrabProblem::noSuchKey;
    const Grab grab{keycode, maskOf(hotkey.modifiers)};
    XSync(display_, False);
    takeHotkeyError();
    for (unsigned int locks : lockVariants())
      XGrabKey(display_, keycode, grab.mask | locks, root_, True, GrabModeAsync, GrabModeAsync);
    XSync(display_, False);
    if (takeHotkeyError() != 0) {
      // Some variants may have been ours before the refusal; none stays.
      ungrabLocked(grab);
      XSync(display_, False);
      takeHotkeyError();
      return GrabProblem::heldByAnotherProgram;
    }
    grabs_[id] = grab;
    return std::nullopt;
  }

  void release(Id id) override {
    std::lock_guard lock(displayMutex_);
    auto held = grabs_.find(id);
    if (held == grabs_.end()) return;
    ungrabLocked(held->second);
    grabs_.erase(held);
    XSync(display_, False);
    takeHotkeyError();
  }

  int descriptor() const override { return ConnectionNumber(display_); }

  std::vector<Press> takePresses() override {
    std::vector<Press> presses;
    std::lock_guard lock(displayMutex_);
    while (XPending(display_) > 0) {
      XEvent event;
      XNextEvent(display_, &event);
      if (event.type == MappingNotify) {
        XRefreshKeyboardMapping(&event.xmapping);
        readModifierMap();
      } else if (event.type == KeyRelease) {
        lastPress_.erase(static_cast<::KeyCode>(event.xkey.keycode));
      } else if (event.type == KeyPress) {
        // A key held down repeats its press with no release between; a
        // press more than a second after the last one of its key is new
        // even so, in case a release never reached us.
        const auto keycode = static_cast<::KeyCode>(event.xkey.keycode);
        auto last = lastPress_.find(keycode);
        const bool repeat = last != lastPress_.end() && event.xkey.time - last->second < 1000;
        lastPress_[keycode] = event.xkey.time;
        if (repeat) continue;
        const unsigned int mask = event.xkey.state & kChordMask;
        for (const auto& [id, grab] : grabs_)
          if (grab.keycode == keycode && grab.mask == mask) presses.push_back({id, std::chrono::steady_clock::now()});
      }
    }
    return presses;
  }

  bool waitForModifiersReleased(std::chrono::milliseconds limit) override {
    const auto end = std::chrono::steady_clock::now() + limit;
    for (;;) {
      if (!anyHeld()) return true;
      if (std::chrono::steady_clock::now() >= end) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(4));
    }
  }

 private:
  static constexpr unsigned int kChordMask = ShiftMask | ControlMask | Mod1Mask | Mod4Mask;

  static unsigned int maskOf(std::uint64_t modifiers) {
    unsigned int mask = 0;
    if (modifiers & Hotkey::kShift) mask |= ShiftMask;
    if (modifiers & Hotkey::kControl) mask |= ControlMask;
    if (modifiers & Hotkey::kOption) mask |= Mod1Mask;
    if (modifiers & Hotkey::kCommand) mask |= Mod4Mask;
    return mask;
  }

  std::array<unsigned int, 4> lockVariants() const {
    return {0u, static_cast<unsigned int>(LockMask), numLockMask_, LockMask | numLockMask_};
  }

  void ungrabLocked(const Grab& grab) {
    for (unsigned int locks : lockVariants()) XUngrabKey(display_, grab.keycode, grab.mask | locks, root_);
  }

  // Which modifier bit Num Lock sets, and the keys that count as modifiers
  // held for a chord (Caps Lock and Num Lock are locks and do not).
  void readModifierMap() {
    XModifierKeymap* map = XGetModifierMapping(display_);
    const ::KeyCode numLock = XKeysymToKeycode(display_, XK_Num_Lock);
    numLockMask_ = Mod2Mask;
    chordKeys_.clear();
    for (int modifier = 0; modifier < 8; ++modifier)
      for (int i = 0; i < map->max_keypermod; ++i) {
        const ::KeyCode code = map->modifiermap[modifier * map->max_keypermod + i];
        if (code == 0) continue;
        if (code == numLock) numLockMask_ = 1u << modifier;
        else if (modifier != LockMapIndex) chordKeys_.insert(code);
      }
    XFreeModifiermap(map);
  }

  // Whether a chord modifier or a grabbed key is still down. While the key
  // of a grab is down the server sends every key to us, so keys posted
  // then would never reach the focused window.
  bool anyHeld() {
    std::set<::KeyCode> watched;
    {
      std::lock_guard lock(displayMutex_);
      watched = chordKeys_;
      for (const auto& [id, grab] : grabs_) watched.insert(grab.keycode);
    }
    std::lock_guard lock(queryMutex_);
    char keys[32];
    XQueryKeymap(query_, keys);
    for (::KeyCode code : watched)
      if ((keys[code / 8] >> (code % 8)) & 1) return true;
    return false;
  }

  Display* display_;
  Display* query_;
  XWindow root_;
  std::mutex displayMutex_;
  std::mutex queryMutex_;
  std::map<Id, Grab> grabs_;
  std::map<::KeyCode, Time> lastPress_;
  std::set<::KeyCode> chordKeys_;
  unsigned int numLockMask_ = Mod2Mask;
};

}  // namespace

Checked<std::unique_ptr<GlobalHotkeys>> openX11GlobalHotkeys() {
  const char* name = std::getenv("DISPLAY");
  if (!name || !*name) return fail("There is no X display to take hotkeys from (DISPLAY is not set).");
  Display* display = XOpenDisplay(nullptr);
  Display* query = display ? XOpenDisplay(nullptr) : nullptr;
  if (!query) {
    if (display) XCloseDisplay(display);
    return fail(std::string("The X display “") + name + "” cannot be opened.");
  }
  return std::unique_ptr<GlobalHotkeys>(std::make_unique<X11GlobalHotkeys>(display, query));
}

}  // namespace orla::linux_desktop
