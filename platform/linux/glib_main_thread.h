// The main thread of the Linux desktop: the thread that created it, whose
// loop is GLib's default main context (the one GTK runs while a message or
// a pop-up menu is up).
//
// Work sent from another thread runs on the main thread while the main
// thread is running that loop (a dialog or menu is up, or it waits in
// `runWhileWaiting`); when it is busy elsewhere, a synchronous hop runs the
// work directly on the caller instead, as a command-line host has no loop to
// hop to and must not deadlock. Queued work waits for `runPending` or for
// the loop, whichever comes first.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include <orla/platform/main_thread.h>

namespace orla::linux_desktop {

class GLibMainThread : public MainThread {
 public:
  // The main thread is the one that makes it, or `main`.
  GLibMainThread();
  explicit GLibMainThread(std::thread::id main);

  bool isMainThread() const override { return std::this_thread::get_id() == mainId_; }
  void runSync(Work work) override;
  void runAsync(Work work) override;
  std::size_t runPending() override;

  // Runs GLib's loop on the main thread until `done` answers true (checked
  // after each event, and whenever work arrives). Returns at once when
  // called from another thread. The dialogs and menus wait this way.
  void runWhileWaiting(const std::function<bool()>& done);

  // Wakes a `runWhileWaiting` so that it checks `done` again; any thread.
  void wake() override;

  bool canServe() const override { return true; }
  void serveUntil(const std::function<bool()>& done) override { runWhileWaiting(done); }

 private:
  // Shared with the idle sources that drain it, which may outlive this.
  struct Queue {
    std::mutex mutex;
    std::deque<Work> work;
    int looping = 0;  // how deep the main thread is in `runWhileWaiting`
    // An idle source is attached and has not run yet: more work needs no
    // other one, so posts made while nothing iterates the loop (as in
    // `orla sequence` between messages) do not pile up sources.
    bool drainScheduled = false;
  };
  static std::size_t drain(Queue& queue);
  static void scheduleDrain(const std::shared_ptr<Queue>& queue);

  std::thread::id mainId_;
  std::shared_ptr<Queue> queue_ = std::make_shared<Queue>();
};

}  // namespace orla::linux_desktop
