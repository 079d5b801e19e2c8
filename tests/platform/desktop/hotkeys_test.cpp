// The desktop's global hotkeys on the headless desktop. Xlib has one error
// handler per process, which every X11 service of the platform installs
// again as it connects, and which GTK takes for itself when the first
// message shows: a combination another program holds must still be told
// apart from one taken, whatever connected or showed after the hotkeys.
#include <gtest/gtest.h>

#include <memory>

#include <orla/models/hotkey.h>
#include <orla/platform/global_hotkeys.h>
#include <orla/platform/platform.h>
#include "tests/platform/desktop/desktop_backends.h"

// Last: Xlib's macros (None, Bool, ...) would break the headers above.
#include <X11/Xlib.h>
#include <X11/keysym.h>

namespace orla::desktop_testing {
namespace {

// Another program holding ⌃⌥ and a key, as long as it lives.
class Holder {
 public:
  explicit Holder(KeySym key) : display_(XOpenDisplay(nullptr)) {
    if (!display_) return;
    keycode_ = XKeysymToKeycode(display_, key);
    XGrabKey(display_, keycode_, ControlMask | Mod1Mask, DefaultRootWindow(display_), True, GrabModeAsync,
             GrabModeAsync);
    XSync(display_, False);
  }
  ~Holder() {
    if (display_) XCloseDisplay(display_);
  }
  bool holds() const { return display_ && keycode_ != 0; }
  void letGo() {
    XUngrabKey(display_, keycode_, ControlMask | Mod1Mask, DefaultRootWindow(display_));
    XSync(display_, False);
  }

 private:
  Display* display_;
  ::KeyCode keycode_ = 0;
};

// A combination another program holds is refused; a free one is taken; the
// first is taken once the other program lets go.
void expectHeldThenFree(GlobalHotkeys& hotkeys, KeySym key, const char* combination) {
  Holder holder(key);
  ASSERT_TRUE(holder.holds());
  const auto held = parseHotkey(combination);
  const auto free = parseHotkey("ctrl+alt+k");
  ASSERT_TRUE(held && free);
  EXPECT_EQ(hotkeys.grab(1, held.value()), GlobalHotkeys::GrabProblem::heldByAnotherProgram) << combination;
  EXPECT_EQ(hotkeys.grab(2, free.value()), std::nullopt);
  holder.letGo();
  EXPECT_EQ(hotkeys.grab(1, held.value()), std::nullopt) << combination;
  hotkeys.release(1);
  hotkeys.release(2);
}

TEST(X11Hotkeys, ACombinationAnotherProgramHoldsIsHeldWhateverConnectedAfterTheHotkeys) {
  if (const std::string why = X11DesktopBackend::unavailableReason(); !why.empty()) GTEST_SKIP() << why;
  auto hotkeys = openNativeGlobalHotkeys();
  ASSERT_TRUE(hotkeys) << hotkeys.error();
  // The platform's keys and clipboard connect after the hotkeys, as a
  // daemon's first shortcut makes them.
  const auto platform = makeNativePlatform();
  ASSERT_TRUE(platform->supports(Capability::keyboardEvents));
  ASSERT_TRUE(platform->supports(Capability::pasteboard));
  expectHeldThenFree(*hotkeys.value(), XK_j, "ctrl+alt+j");

  // A message (GTK starts) and the platform's connections after it.
  Driver press({"button", self(), "OK"});
  const auto answer = platform->alerts().runModal({"Saved", "", AlertStyle::informational, {"OK"}});
  ASSERT_TRUE(answer) << answer.error();
  EXPECT_TRUE(press.succeeded());
  expectHeldThenFree(*hotkeys.value(), XK_h, "ctrl+alt+h");
}

}  // namespace
}  // namespace orla::desktop_testing
