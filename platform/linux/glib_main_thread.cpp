#include "platform/linux/glib_main_thread.h"

#include <glib.h>

#include <condition_variable>

namespace orla::linux_desktop {

GLibMainThread::GLibMainThread() : mainId_(std::this_thread::get_id()) {}
GLibMainThread::GLibMainThread(std::thread::id main) : mainId_(main) {}

void GLibMainThread::runSync(Work work) {
  if (isMainThread()) {
    work();
    return;
  }
  struct Hop {
    std::mutex mutex;
    std::condition_variable doneChanged;
    bool done = false;
  };
  auto hop = std::make_shared<Hop>();
  {
    // Deciding and queueing under one lock: a loop that is running now
    // drains this work before it ends (see `runWhileWaiting`).
    std::lock_guard lock(queue_->mutex);
    if (queue_->looping > 0) {
      queue_->work.push_back([hop, &work] {
        work();
        std::lock_guard doneLock(hop->mutex);
        hop->done = true;
        hop->doneChanged.notify_all();
      });
    }
  }
  if (hop.use_count() == 1) {
    // No loop to hop to: the main thread is busy with other work.
    work();
    return;
  }
  scheduleDrain(queue_);
  std::unique_lock lock(hop->mutex);
  hop->doneChanged.wait(lock, [&] { return hop->done; });
}

void GLibMainThread::runAsync(Work work) {
  {
    std::lock_guard lock(queue_->mutex);
    queue_->work.push_back(std::move(work));
  }
  scheduleDrain(queue_);
}

// An idle source on the default context runs the queue whenever the main
// thread iterates it; one that finds the queue empty does nothing. At most
// one is attached at a time.
void GLibMainThread::scheduleDrain(const std::shared_ptr<Queue>& queue) {
  {
    std::lock_guard lock(queue->mutex);
    if (queue->drainScheduled) return;
    queue->drainScheduled = true;
  }
  GSource* source = g_idle_source_new();
  g_source_set_priority(source, G_PRIORITY_DEFAULT);
  g_source_set_callback(
      source,
      [](gpointer data) -> gboolean {
        Queue& pending = **static_cast<std::shared_ptr<Queue>*>(data);
        {
          // Cleared before draining: work posted from here on gets a source
          // of its own.
          std::lock_guard lock(pending.mutex);
          pending.drainScheduled = false;
        }
        drain(pending);
        return G_SOURCE_REMOVE;
      },
      new std::shared_ptr<Queue>(queue), [](gpointer data) { delete static_cast<std::shared_ptr<Queue>*>(data); });
  g_source_attach(source, g_main_context_default());
  g_source_unref(source);
}

std::size_t GLibMainThread::drain(Queue& queue) {
  std::size_t ran = 0;
  for (;;) {
    Work work;
    {
      std::lock_guard lock(queue.mutex);
      if (queue.work.empty()) return ran;
      work = std::move(queue.work.front());
      queue.work.pop_front();
    }
    work();
    ++ran;
  }
}

std::size_t GLibMainThread::runPending() { return drain(*queue_); }

void GLibMainThread::runWhileWaiting(const std::function<bool()>& done) {
  if (!isMainThread()) return;
  {
    std::lock_guard lock(queue_->mutex);
    ++queue_->looping;
  }
  // Work queued before the loop started runs now rather than after it.
  runPending();
  GMainContext* context = g_main_context_default();
  while (!done()) g_main_context_iteration(context, TRUE);
  {
    std::lock_guard lock(queue_->mutex);
    --queue_->looping;
  }
  // What arrived while the loop was ending, a waiting caller's work included.
  runPending();
}

void GLibMainThread::wake() { g_main_context_wakeup(g_main_context_default()); }

}  // namespace orla::linux_desktop
