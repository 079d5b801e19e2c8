// A Scheduler on one worker thread that runs each piece of work at its time,
// in time order. The destructor waits for what is still scheduled.
#pragma once

#include <orla/export.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

#include <orla/platform/scheduler.h>

namespace orla ORLA_EXPORT {

class ThreadScheduler : public Scheduler {
 public:
  ThreadScheduler();
  ~ThreadScheduler() override;

  void runAfter(std::chrono::microseconds delay, Work work) override;
  void waitUntilIdle() override;

 private:
  void loop();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::multimap<std::chrono::steady_clock::time_point, Work> queue_;
  bool running_ = false;  // a piece of work is running now
  bool stopping_ = false;
  std::thread worker_;
};

}  // namespace orla
