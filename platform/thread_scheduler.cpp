#include <orla/platform/thread_scheduler.h>

namespace orla {

// The worker starts with the first piece of work: most runs of a command
// schedule nothing, and a thread is a large part of a short process's start.
ThreadScheduler::ThreadScheduler() = default;

ThreadScheduler::~ThreadScheduler() {
  waitUntilIdle();
  if (!worker_.joinable()) return;
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  worker_.join();
}

void ThreadScheduler::runAfter(std::chrono::microseconds delay, Work work) {
  {
    std::lock_guard lock(mutex_);
    queue_.emplace(std::chrono::steady_clock::now() + delay, std::move(work));
    if (!worker_.joinable()) worker_ = std::thread([this] { loop(); });
  }
  changed_.notify_all();
}

void ThreadScheduler::waitUntilIdle() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return queue_.empty() && !running_; });
}

void ThreadScheduler::loop() {
  std::unique_lock lock(mutex_);
  for (;;) {
    if (stopping_ && queue_.empty()) return;
    if (queue_.empty()) {
      changed_.wait(lock);
      continue;
    }
    auto due = queue_.begin()->first;
    if (std::chrono::steady_clock::now() < due) {
      changed_.wait_until(lock, due);
      continue;
    }
    Work work = std::move(queue_.begin()->second);
    queue_.erase(queue_.begin());
    running_ = true;
    lock.unlock();
    work();
    lock.lock();
    running_ = false;
    changed_.notify_all();
  }
}

}  // namespace orla
