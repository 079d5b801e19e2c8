// Scheduler: work that runs later, off the calling thread (a global queue).
// Thread safety: every method may be called from any thread.
#pragma once

#include <orla/export.h>

#include <chrono>
#include <functional>

namespace orla ORLA_EXPORT {

class Scheduler {
 public:
  using Work = std::function<void()>;

  virtual ~Scheduler() = default;
  // Runs `work` once `delay` has passed, on another thread; returns at once.
  virtual void runAfter(std::chrono::microseconds delay, Work work) = 0;
  // Returns when everything scheduled so far has run. A host calls it before
  // it exits, so that no scheduled restore is lost.
  virtual void waitUntilIdle() = 0;
};

}  // namespace orla
