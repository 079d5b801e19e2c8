#include <orla/platform/queued_main_thread.h>

namespace orla {

void QueuedMainThread::runAsync(Work work) {
  std::lock_guard lock(mutex_);
  queue_.push_back(std::move(work));
}

std::size_t QueuedMainThread::runPending() {
  std::size_t ran = 0;
  for (;;) {
    Work work;
    {
      std::lock_guard lock(mutex_);
      if (queue_.empty()) return ran;
      work = std::move(queue_.front());
      queue_.pop_front();
    }
    work();
    ++ran;
  }
}

}  // namespace orla
