#include "platform/linux/x11_active_window_watch.h"

#include <X11/Xlib.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

namespace orla::linux_desktop {

Checked<std::unique_ptr<ActiveWindowWatch>> ActiveWindowWatch::start(std::function<void()> changed) {
  Display* display = XOpenDisplay(nullptr);
  if (!display) return fail("The X display cannot be opened to watch the active window.");
  int wake[2];
  if (::pipe2(wake, O_CLOEXEC | O_NONBLOCK) != 0) {
    XCloseDisplay(display);
    return fail("The active window cannot be watched: no pipe to stop the watch with.");
  }
  // Property changes of the root window alone: the window manager sets
  // `_NET_ACTIVE_WINDOW` there on every change of the active window.
  XSelectInput(display, DefaultRootWindow(display), PropertyChangeMask);
  XFlush(display);
  return std::unique_ptr<ActiveWindowWatch>(new ActiveWindowWatch(display, wake[0], wake[1], std::move(changed)));
}

ActiveWindowWatch::ActiveWindowWatch(void* display, int wakeRead, int wakeWrite, std::function<void()> changed)
    : display_(display), wakeRead_(wakeRead), wakeWrite_(wakeWrite), changed_(std::move(changed)) {
  thread_ = std::thread([this] { run(); });
}

ActiveWindowWatch::~ActiveWindowWatch() {
  const char stop = 0;
  while (::write(wakeWrite_, &stop, 1) < 0 && errno == EINTR) {
  }
  thread_.join();
  ::close(wakeRead_);
  ::close(wakeWrite_);
  XCloseDisplay(static_cast<Display*>(display_));
}

void ActiveWindowWatch::run() {
  auto* display = static_cast<Display*>(display_);
  const Atom active = XInternAtom(display, "_NET_ACTIVE_WINDOW", False);
  for (;;) {
    bool changed = false;
    // Events already read from the connection do not wake `poll`: take
    // them first.
    while (XPending(display) > 0) {
      XEvent event;
      XNextEvent(display, &event);
      if (event.type == PropertyNotify && event.xproperty.atom == active) changed = true;
    }
    if (changed) changed_();
    pollfd fds[2] = {{ConnectionNumber(display), POLLIN, 0}, {wakeRead_, POLLIN, 0}};
    if (::poll(fds, 2, -1) < 0 && errno != EINTR) return;
    if (fds[1].revents != 0) return;
    // A connection the server closed ends the watch, not the process: the
    // desktop is gone, and the workspace says so on its next look.
    if ((fds[0].revents & (POLLHUP | POLLERR)) != 0) return;
  }
}

}  // namespace orla::linux_desktop
