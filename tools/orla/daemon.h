// Daemon: the host that lives in the background of a desktop session. It
// binds each enabled shortcut of its folder to its hotkey, runs the shortcut
// when the hotkey is pressed, carries out what the control action asks of
// the host, and reads the folder again whenever its files change.
//
// Threads: the loop (`run`, `step`) owns the hotkeys and the folder watch;
// shortcuts run one after another on one worker thread, since two runs at
// once would fight over the clipboard and the keyboard focus. A press of a
// shortcut that is running or waiting to run is ignored.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <orla/platform/folder_watch.h>
#include <orla/platform/global_hotkeys.h>
#include <orla/platform/host_desktop.h>
#include <orla/platform/platform.h>
#include "tools/orla/daemon_log.h"
#include "tools/orla/host_runner.h"
#include "tools/orla/shortcut_folder.h"

namespace orla::cli {

class Daemon {
 public:
  // How long a run waits for the user to let go of the hotkey's keys
  // before its first action.
  static constexpr std::chrono::milliseconds kReleaseWait{1000};
  // How long the folder must be quiet after a change before it is read, so
  // that a save in several steps is read once, whole.
  static constexpr std::chrono::milliseconds kSettle{150};
  // How many runs the activity report shows.
  static constexpr std::size_t kReportLength = 10;

  struct RunRecord {
    std::string shortcut;
    std::string trigger;  // "⌃⌥U", "repeat", ...
    bool ok = true;
    std::string message;  // the first failure's sentence
    std::chrono::system_clock::time_point started;
  };

  Daemon(std::shared_ptr<Platform> platform, std::unique_ptr<GlobalHotkeys> hotkeys,
         std::unique_ptr<HostDesktop> desktop, DaemonLog& log, std::filesystem::path folder);
  ~Daemon();
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  // Reads the folder and takes the hotkeys it names; reports each problem
  // once (until it goes away and comes back).
  void reload();
  // Waits for presses, folder changes and requests until a quit; answers the
  // exit status. `watch` may be null (no folder watching).
  int run(std::unique_ptr<FolderWatch> watch);
  // One turn of the loop: waits up to `timeout` (negative: without end) and
  // handles what arrived. Answers false once the daemon is to quit.
  bool step(std::chrono::milliseconds timeout);
  // Asks the loop to end; any thread.
  void requestQuit();
  // The same from a signal handler (only async-signal-safe calls).
  void quitFromSignal() noexcept;
  // Starts a shortcut as a press of its hotkey would. Loop thread.
  void start(const std::string& name, const std::string& trigger);

  // For tests and the report: waits until no run is queued or running.
  void waitUntilIdle();
  // Whether no run is queued or running; any thread. Each run that ends
  // wakes the platform's main thread, for a host that serves it until then.
  bool idle() const;
  // Forgets the runs that wait to start; any thread.
  void dropQueued();
  std::vector<RunRecord> history() const;
  bool paused() const { return paused_; }

 private:
  enum class Command { quit, togglePause };

  struct Queued {
    std::string name;
    std::string trigger;
  };

  void applyGrabs(std::vector<std::string>& problems);
  void report(std::vector<std::string> problems, bool replace);
  void handlePresses();
  void handleCommands();
  void post(Command command);
  void wake();

  void workerLoop();
  void runOne(HostRunner& runner, const Queued& queued);
  void handleRequest(const std::string& action, const Shortcut& shortcut);
  void enqueueFromHistory(std::size_t back, const std::string& current);
  std::string reportText() const;

  std::shared_ptr<Platform> platform_;
  std::unique_ptr<GlobalHotkeys> hotkeys_;
  std::unique_ptr<HostDesktop> desktop_;
  DaemonLog& log_;
  std::filesystem::path folder_;
  std::unique_ptr<FolderWatch> watch_;
  int wakePipe_[2] = {-1, -1};

  // The loop thread's own.
  std::vector<Binding> bindings_;
  std::map<Hotkey, GlobalHotkeys::Id> grabbed_;
  std::map<GlobalHotkeys::Id, Binding> owners_;
  std::set<std::string> reported_;
  std::set<std::string> keptWhilePaused_;  // shortcuts that pause and resume
  GlobalHotkeys::Id nextId_ = 1;
  bool paused_ = false;
  bool quitting_ = false;
  std::atomic<bool> signalled_{false};
  std::optional<std::chrono::steady_clock::time_point> reloadAt_;

  // Shared with the worker, under `mutex_`.
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::shared_ptr<const std::vector<Shortcut>> library_;
  std::deque<Queued> queue_;
  std::set<std::string> busy_;  // queued or running
  std::deque<RunRecord> history_;
  std::vector<Command> commands_;
  bool stopping_ = false;
  std::thread worker_;
};

}  // namespace orla::cli
