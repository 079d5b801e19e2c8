// A main thread for desktops without a system main queue: the thread that
// created it is the main thread; synchronous work runs directly on the caller
// (no run loop to hop to), and asynchronous work waits in a queue until the
// host calls `runPending` on the main thread.
#pragma once

#include <orla/export.h>

#include <deque>
#include <mutex>
#include <thread>

#include <orla/platform/main_thread.h>

namespace orla ORLA_EXPORT {

class QueuedMainThread : public MainThread {
 public:
  QueuedMainThread() : mainId_(std::this_thread::get_id()) {}

  bool isMainThread() const override { return std::this_thread::get_id() == mainId_; }
  void runSync(Work work) override { work(); }
  void runAsync(Work work) override;
  std::size_t runPending() override;

 private:
  std::thread::id mainId_;
  std::mutex mutex_;
  std::deque<Work> queue_;
};

}  // namespace orla
