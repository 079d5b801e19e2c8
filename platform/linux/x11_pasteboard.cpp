#include "platform/linux/x11_pasteboard.h"

#include <X11/Xlib.h>
#include <X11/extensions/Xfixes.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

#include <orla/models/utf8.h>
#include "platform/linux/x11_connection.h"
#include "platform/linux/x11_selection.h"

namespace orla::linux_desktop {
namespace {

constexpr auto kOwnChangeTimeout = std::chrono::seconds(1);
constexpr auto kHandOverTimeout = std::chrono::seconds(3);

int ignoreErrors(Display*, XErrorEvent*) { return 0; }

// Latin-1 (the STRING target) to UTF-8.
std::string latin1ToUtf8(const std::string& bytes) {
  std::string out;
  for (unsigned char c : bytes) {
    if (c < 0x80) {
      out.push_back(static_cast<char>(c));
    } else {
      out.push_back(static_cast<char>(0xC0 | (c >> 6)));
      out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
  }
  return out;
}

// A window of our own to own the selection and receive its answers on.
Window makeWindow(Display* display) {
  XSetWindowAttributes attributes{};
  attributes.event_mask = PropertyChangeMask;
  return XCreateWindow(display, DefaultRootWindow(display), 0, 0, 1, 1, 0, CopyFromParent, InputOnly,
                       CopyFromParent, CWEventMask, &attributes);
}

// The X clipboard holds one item: the first item's types, then those of
// the later items that the first lacks.
PasteboardItem merged(const PasteboardSnapshot& snapshot) {
  PasteboardItem item;
  for (const PasteboardItem& each : snapshot)
    for (const PasteboardRepresentation& r : each.representations)
      if (!item.bytes(r.type)) item.representations.push_back(r);
  return item;
}

// The background owner: in a process of its own (forked twice, so that it
// belongs to no one and leaves no zombie), with a connection of its own, it
// takes the clipboard over, tells the parent through `ready`, and serves the
// contents until another program takes the clipboard or the server goes.
[[noreturn]] void serveInBackground(const std::vector<SelectionTarget>& targets, int ready, int parentConnection) {
  ::setsid();
  if (::fork() != 0) ::_exit(0);
  ::close(parentConnection);
  const int devNull = ::open("/dev/null", O_RDWR);
  if (devNull >= 0) {
    ::dup2(devNull, 0);
    ::dup2(devNull, 1);
    ::dup2(devNull, 2);
  }
  // Nothing of the parent's stays open here (a pipe a caller reads `orla`'s
  // output from would never end).
  ::dup2(ready, 3);
  ::close_range(4, ~0U, 0);
  XSetIOErrorHandler([](Display*) -> int { ::_exit(0); });
  XSetErrorHandler(ignoreErrors);
  Display* display = XOpenDisplay(nullptr);
  if (!display) ::_exit(1);
  SelectionPeer peer(display, makeWindow(display));
  if (!peer.own(targets, peer.serverTime())) ::_exit(0);
  const char done = 1;
  (void)!::write(3, &done, 1);
  ::close(3);
  while (peer.owning() || peer.sending()) {
    while (XPending(display)) {
      XEvent event;
      XNextEvent(display, &event);
      peer.handle(event);
    }
    peer.dropStalledSends();
    pollfd fd{ConnectionNumber(display), POLLIN, 0};
    ::poll(&fd, 1, 1000);
  }
  ::_exit(0);
}

class X11Pasteboard : public Pasteboard {
 public:
  X11Pasteboard(Display* display, int fixesEventBase)
      : display_(display), fixesEventBase_(fixesEventBase), peer_(display, makeWindow(display)) {
    XFixesSelectSelectionInput(display_, peer_.window(), peer_.clipboard(),
                               XFixesSetSelectionOwnerNotifyMask | XFixesSelectionWindowDestroyNotifyMask |
                                   XFixesSelectionClientCloseNotifyMask);
    peer_.other = [this](XEvent& event) {
      if (event.type != fixesEventBase_ + XFixesSelectionNotify) return;
      const auto& notify = reinterpret_cast<const XFixesSelectionNotifyEvent&>(event);
      if (notify.selection == peer_.clipboard()) ++changes_;
    };
    XFlush(display_);
    if (::pipe2(wake_, O_CLOEXEC) != 0) wake_[0] = wake_[1] = -1;
    thread_ = std::thread([this] { loop(); });
  }

  ~X11Pasteboard() override {
    bool owning = false;
    std::vector<SelectionTarget> targets;
    run<bool>([&] {
      owning = peer_.owning();
      targets = peer_.targets();
      return true;
    });
    stop_ = true;
    wake();
    thread_.join();
    if (owning) handOver(targets);
    XCloseDisplay(display_);
    ::close(wake_[0]);
    ::close(wake_[1]);
  }

  std::optional<std::string> text() const override {
    return run<std::optional<std::string>>([&]() -> std::optional<std::string> {
      std::optional<std::string> bytes;
      if (peer_.owning()) {
        bytes = ownedBytes("UTF8_STRING");
      } else if (!(bytes = peer_.read("UTF8_STRING")) && !(bytes = peer_.read("text/plain;charset=utf-8"))) {
        if (auto latin1 = peer_.read("STRING")) bytes = latin1ToUtf8(*latin1);
      }
      if (!bytes || !isValidUtf8(*bytes)) return std::nullopt;
      return bytes;
    });
  }

  // One copy of the text, shared by every name it is served under.
  Checked<void> setText(std::string_view text) override {
    return own(targetsForText(std::make_shared<const std::string>(text)));
  }
  Checked<void> takeText(std::string text) override {
    return own(targetsForText(std::make_shared<const std::string>(std::move(text))));
  }

  std::int64_t changeCount() const override { return changes_; }

  PasteboardSnapshot snapshot() const override {
    return run<PasteboardSnapshot>([&]() -> PasteboardSnapshot {
      std::vector<std::pair<std::string, std::string>> contents;
      if (peer_.owning()) {
        for (const SelectionTarget& target : peer_.targets()) contents.emplace_back(target.name, *target.bytes);
      } else {
        const auto names = peer_.readTargets();
        bool hasUtf8 = false;
        for (const std::string& name : names) {
          if (!isContentTarget(name)) continue;
          hasUtf8 = hasUtf8 || name == "UTF8_STRING";
          if (auto bytes = peer_.read(name)) contents.emplace_back(name, std::move(*bytes));
        }
        // An owner that only knows the old Latin-1 text still has text.
        if (!hasUtf8 && std::find(names.begin(), names.end(), "STRING") != names.end())
          if (auto latin1 = peer_.read("STRING")) contents.emplace_back("UTF8_STRING", latin1ToUtf8(*latin1));
      }
      PasteboardItem item = itemForTargets(contents);
      if (item.representations.empty()) return {};
      return {std::move(item)};
    });
  }

  Checked<void> restore(const PasteboardSnapshot& snapshot) override {
    return own(snapshot.empty() ? std::vector<SelectionTarget>{} : targetsForItem(merged(snapshot)));
  }

 private:
  // Takes the clipboard with `targets`, or gives it up when there are none.
  Checked<void> own(std::vector<SelectionTarget> targets) {
    return run<Checked<void>>([&]() -> Checked<void> {
      const Time time = peer_.serverTime();
      Window expectedOwner = peer_.window();
      if (targets.empty()) {
        XSetSelectionOwner(display_, peer_.clipboard(), None, time);
        peer_.disown();
        expectedOwner = None;
      } else if (!peer_.own(std::move(targets), time)) {
        return fail("The clipboard could not be taken over from the program that holds it.");
      }
      // The change this makes is counted before the call returns, so that a
      // caller can tell its own change from a later one.
      peer_.waitFor(
          [&](const XEvent& e) {
            if (e.type != fixesEventBase_ + XFixesSelectionNotify) return false;
            const auto& notify = reinterpret_cast<const XFixesSelectionNotifyEvent&>(e);
            return notify.owner == expectedOwner && notify.selection_timestamp == time;
          },
          kOwnChangeTimeout);
      return {};
    });
  }

  std::optional<std::string> ownedBytes(const std::string& target) const {
    for (const SelectionTarget& t : peer_.targets())
      if (t.name == target) return *t.bytes;
    return std::nullopt;
  }

  // Runs `job` on the clipboard's thread and waits for its answer.
  template <class R>
  R run(std::function<R()> job) const {
    auto task = std::make_shared<std::packaged_task<R()>>(std::move(job));
    auto answer = task->get_future();
    {
      std::lock_guard lock(jobsMutex_);
      jobs_.push_back([task] { (*task)(); });
    }
    wake();
    return answer.get();
  }

  void wake() const {
    const char byte = 1;
    (void)!::write(wake_[1], &byte, 1);
  }

  void loop() {
    while (true) {
      std::deque<std::function<void()>> jobs;
      {
        std::lock_guard lock(jobsMutex_);
        jobs.swap(jobs_);
      }
      for (auto& job : jobs) job();
      if (stop_) return;
      while (XPending(display_)) {
        XEvent event;
        XNextEvent(display_, &event);
        peer_.handle(event);
      }
      pollfd fds[2] = {{ConnectionNumber(display_), POLLIN, 0}, {wake_[0], POLLIN, 0}};
      ::poll(fds, 2, -1);
      if (fds[1].revents & POLLIN) {
        char drain[64];
        (void)!::read(wake_[0], drain, sizeof drain);
      }
    }
  }

  // Keeps the contents on the clipboard after this process: the background
  // owner takes them over, and this connection closes only once it has.
  void handOver(const std::vector<SelectionTarget>& targets) {
    int ready[2];
    if (::pipe2(ready, O_CLOEXEC) != 0) return;
    const pid_t child = ::fork();
    if (child == 0) serveInBackground(targets, ready[1], ConnectionNumber(display_));
    ::close(ready[1]);
    if (child > 0) {
      ::waitpid(child, nullptr, 0);
      pollfd fd{ready[0], POLLIN, 0};
      ::poll(&fd, 1, static_cast<int>(std::chrono::milliseconds(kHandOverTimeout).count()));
    }
    ::close(ready[0]);
  }

  Display* display_;
  const int fixesEventBase_;
  // Driven by the clipboard's thread only (jobs run there); `mutable` since
  // reading the clipboard is a conversation with its owner.
  mutable SelectionPeer peer_;
  std::atomic<std::int64_t> changes_{0};
  mutable std::mutex jobsMutex_;
  mutable std::deque<std::function<void()>> jobs_;
  int wake_[2] = {-1, -1};
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

}  // namespace

Checked<std::unique_ptr<Pasteboard>> makeX11Pasteboard() {
  const char* name = std::getenv("DISPLAY");
  if (!name || !*name) return fail("There is no X display to talk to (DISPLAY is not set).");
  Display* display = XOpenDisplay(nullptr);
  if (!display) return fail(std::string("The X display “") + name + "” cannot be opened.");
  int fixesEvent = 0, fixesError = 0, major = 0, minor = 0;
  if (!XFixesQueryExtension(display, &fixesEvent, &fixesError) || !XFixesQueryVersion(display, &major, &minor)) {
    XCloseDisplay(display);
    return fail("The X server has no XFixes extension, so clipboard changes cannot be followed.");
  }
  installX11ErrorHandler();
  return std::unique_ptr<Pasteboard>(std::make_unique<X11Pasteboard>(display, fixesEvent));
}

}  // namespace orla::linux_desktop
