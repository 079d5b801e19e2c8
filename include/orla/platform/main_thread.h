// MainThread: where work that needs the main thread goes. On the simulated
// and Linux desktops a synchronous hop is a direct call; on macOS it is a
// synchronous dispatch to the main queue unless already on it.
// Thread safety: every method may be called from any thread except
// `runPending`, which the host calls on the main thread.
#pragma once

#include <orla/export.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <type_traits>

namespace orla ORLA_EXPORT {

class MainThread {
 public:
  using Work = std::function<void()>;

  virtual ~MainThread() = default;
  virtual bool isMainThread() const = 0;
  // Runs `work` on the main thread and returns when it is done.
  virtual void runSync(Work work) = 0;
  // Queues `work` for the main thread and returns at once.
  virtual void runAsync(Work work) = 0;
  // Runs what was queued, in order; answers how many ran.
  virtual std::size_t runPending() = 0;

  // For a host whose own work waits on other threads (a daemon): whether
  // `serveUntil` can hold the main thread, serving the work sent to it (a
  // message a run shows) and the system's own events there.
  virtual bool canServe() const { return false; }
  // Serves until `done` answers true; `done` is asked after each event and
  // after `wake`. Main thread only.
  virtual void serveUntil(const std::function<bool()>& done) { (void)done; }
  // Has `serveUntil` ask `done` again; any thread.
  virtual void wake() {}
};

// Fire-and-forget work for the main thread: run now when already there,
// otherwise queue it. A synchronous hop from the main thread to itself would
// deadlock on macOS, hence the test.
inline void postToMainThread(MainThread& mainThread, MainThread::Work work) {
  if (mainThread.isMainThread()) work();
  else mainThread.runAsync(std::move(work));
}

// Runs work that needs the main thread there and hands back its result: at
// once when already on it, else through a synchronous hop.
template <class Work>
auto onMainThread(MainThread& mainThread, Work work) -> decltype(work()) {
  using Result = decltype(work());
  if (mainThread.isMainThread()) return work();
  if constexpr (std::is_void_v<Result>) {
    mainThread.runSync(work);
  } else {
    std::optional<Result> result;
    mainThread.runSync([&] { result.emplace(work()); });
    return std::move(*result);
  }
}

}  // namespace orla
