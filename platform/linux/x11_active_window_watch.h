// ActiveWindowWatch: hears the window manager change the active window
// (`_NET_ACTIVE_WINDOW` on the root window), whoever asked for it: the user
// with a click or Alt+Tab, another program, or Orla itself. The workspace
// uses it so that its activation observers, and with them the recent
// applications and "the previous application", follow what the user did.
//
// It has an X connection and a thread of its own, so that it never waits
// for the shared connection's lock, and stops with the object.
#pragma once

#include <functional>
#include <memory>
#include <thread>

#include <orla/models/checked.h>

namespace orla::linux_desktop {

class ActiveWindowWatch {
 public:
  // Starts watching the display named by DISPLAY; `changed` runs on the
  // watch's thread after each change (several changes that arrive together
  // run it once). Fails with the reason when the display cannot be opened.
  static Checked<std::unique_ptr<ActiveWindowWatch>> start(std::function<void()> changed);
  ~ActiveWindowWatch();
  ActiveWindowWatch(const ActiveWindowWatch&) = delete;
  ActiveWindowWatch& operator=(const ActiveWindowWatch&) = delete;

 private:
  ActiveWindowWatch(void* display, int wakeRead, int wakeWrite, std::function<void()> changed);
  void run();

  void* display_;  // Display*, used by the watch's thread alone
  int wakeRead_, wakeWrite_;
  std::function<void()> changed_;
  std::thread thread_;
};

}  // namespace orla::linux_desktop
